/*
 * The registry of structure partitions as a table of what its users know: which ids are taken, how
 * many objects each partition holds, which call-backs it has. No handles, no locks, no records.
 *
 *     free -> taken (reserved, no pool) -> with a pool -> free
 *                                       \> without its pool: a block that could not be had
 *
 * The model is told of an operation after the library has done it, with the objects that came,
 * which it cannot know beforehand; it answers what should have come of it.
 *
 * A flaw makes the model wrong on purpose, to see that the comparison finds it.
 */
#pragma once

#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

enum class flaw { NONE, NEVER_REUSES_IDS, FORGETS_CALL_BACKS, GIVES_UP_A_BLOCK_ID };

enum class pool_state { NONE, ALIVE, GONE };

struct model_partition {
    bool taken;
    pool_state pool;
    uint64_t max;    /* objects; 0 = as many as wanted */
    uint64_t carved; /* objects that ever were, at least those reserved */
    std::set<void *> out;
    bool tells_init; /* call-backs; they outlive the partition */
    bool tells_free;
};

class partition_model
{
public:
    static constexpr uint32_t MAX_ID = 2047;
    static constexpr uint32_t NO_ID = 2048;

    explicit partition_model(flaw wrong) : wrong_(wrong), all_(MAX_ID + 1)
    {
    }

    uint32_t sum() const
    {
        return sum_;
    }

    uint64_t pools() const
    {
        return pools_;
    }

    const model_partition &at(uint32_t id) const
    {
        return all_[id];
    }

    /* The id that is reserved, or 2048. */
    uint32_t reserve()
    {
        if (sum_ == MAX_ID)
            return NO_ID;
        ++sum_;
        const uint32_t id = next_id();
        freed_.erase(id);
        fresh_ = std::max(fresh_, id + 1);
        all_[id].taken = true;
        return id;
    }

    /* The id of a new partition; 2048 when none is left, and then its pool stays. */
    uint32_t create(uint64_t reserved, uint64_t max, bool tells_init, bool tells_free)
    {
        ++pools_;
        const uint32_t id = reserve();
        if (id == NO_ID)
            return NO_ID;
        known_.insert(id);
        all_[id] = {true, pool_state::ALIVE, max, reserved, {}, tells_init, tells_free};
        return id;
    }

    /* A new partition whose only object could not be had. */
    void lose_block(uint32_t id)
    {
        --pools_;
        all_[id].pool = pool_state::GONE;
        if (wrong_ == flaw::GIVES_UP_A_BLOCK_ID) {
            all_[id].taken = false;
            freed_.insert(id);
            --sum_;
        }
    }

    /* Whether it could be deleted; if so it is. */
    bool remove(uint32_t id)
    {
        model_partition &gone = all_[id];
        if (gone.pool != pool_state::ALIVE || !gone.out.empty())
            return false;
        --pools_;
        --sum_;
        freed_.insert(id);
        known_.erase(id);
        const bool keeps = wrong_ != flaw::FORGETS_CALL_BACKS;
        gone = {
            false, pool_state::NONE, 0, 0, {}, keeps && gone.tells_init, keeps && gone.tells_free};
        return true;
    }

    bool has_an_object_left(uint32_t id) const
    {
        const model_partition &from = all_[id];
        return from.pool == pool_state::ALIVE && (from.max == 0 || from.out.size() < from.max);
    }

    void take(uint32_t id, void *object)
    {
        model_partition &from = all_[id];
        from.out.insert(object);
        from.carved = std::max<uint64_t>(from.carved, from.out.size());
    }

    void give_back(uint32_t id, void *object)
    {
        all_[id].out.erase(object);
    }

    /* What the usage queries answer for a partition whose pool is alive. */
    uint64_t total(uint32_t id) const
    {
        return all_[id].max != 0 ? all_[id].max : all_[id].carved;
    }

    /* Ids of partitions that a user knows of: with a pool, be it alive or lost. */
    const std::set<uint32_t> &known() const
    {
        return known_;
    }

    /* The lowest free id, 2048 without one. */
    uint32_t lowest_free() const
    {
        return freed_.empty() ? fresh_ : *freed_.begin();
    }

private:
    flaw wrong_;
    std::vector<model_partition> all_; /* by id; 0 is never taken */
    std::set<uint32_t> freed_;
    uint32_t fresh_ = 1; /* this id and those above were never taken */
    std::set<uint32_t> known_;
    uint32_t sum_ = 0;
    uint64_t pools_ = 0;

    uint32_t newest_ = 0;

    uint32_t next_id()
    {
        return wrong_ == flaw::NEVER_REUSES_IDS ? std::min(++newest_, MAX_ID) : lowest_free();
    }
};
