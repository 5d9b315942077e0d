/*
 * A slab whose objects carry the stamp of their holder, for tests in which many threads pull at it.
 *
 *     | stamp | stamp ^ address | ... nothing ... | ~stamp |
 *
 * A stamp is a thread's number and a sequence number of its own, so no two are equal. Whoever takes
 * an object writes it; the same stamp travels beside the object (an `item`) when the test passes
 * it on, and is compared when the object is given back or adopted. Of two threads that were handed
 * one object at once, the one that wrote first finds the other's stamp.
 *
 * Stamps are plain memory: under ThreadSanitizer it is the slab alone that must order the last
 * holder's accesses before the next one's, and therefore the counters here are relaxed.
 *
 * Threads: all but creation and `expect_exact` may run at once; a `hand` is one thread's.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "contract/real/zymm_real_helpers.h"

/* A kind of slab; `room` times the objects that a test wants at most are there. */
struct slab_kind {
    const char *name;
    uint64_t    attr;
    uint64_t    obj_size;
    uint64_t    room;
};

/* An object and the stamp that its holder left in it; no object: the slab was dry. */
struct item {
    char    *object = nullptr;
    uint64_t stamp  = 0;
};

/* One thread's identity towards the slab. Numbers are never used twice in a process. */
class hand
{
public:
    hand() : number_(next_number()), random(static_cast<unsigned>(number_))
    {
    }

    uint64_t next_stamp()
    {
        return number_ << 40 | ++sequence_;
    }

    /* 0 .. below - 1 */
    unsigned pick(unsigned below)
    {
        return static_cast<unsigned>(random() % below);
    }

private:
    static uint64_t next_number()
    {
        static std::atomic<uint64_t> s_last{0};
        return s_last.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    uint64_t         number_;
    uint64_t         sequence_ = 0;
    std::minstd_rand random;
};

class stamped_slab
{
public:
    stamped_slab(const slab_kind &kind, uint64_t wanted);
    stamped_slab(const stamped_slab &) = delete;
    stamped_slab &operator=(const stamped_slab &) = delete;

    item take(hand *self);
    void give(hand *self, const item &taken);

    /* The object changes hands without the slab knowing. */
    void adopt(hand *self, item *taken);

    uint64_t handle() const
    {
        return slab_;
    }

    uint64_t max_num() const
    {
        return max_num_;
    }

    /* Takes that were answered null. */
    uint64_t refused() const
    {
        return refused_.load(std::memory_order_relaxed);
    }

    /* What holds when all threads are through: see the definition. Destroys the slab. */
    void expect_exact();

private:
    void write_stamp(const item &taken) const;
    bool has_stamp(const item &taken) const;
    void count_out();

    uint64_t              slab_;
    uint64_t              obj_size_;
    uint64_t              max_num_;
    std::atomic<int64_t>  out_{0};
    std::atomic<int64_t>  most_out_{0};
    std::atomic<uint64_t> refused_{0};
    std::atomic<uint64_t> wrong_stamps_{0};
    std::atomic<uint64_t> failed_frees_{0};
};

/* `count` operations, times ZYMM_STRESS_FACTOR of the environment. */
inline unsigned operations(unsigned count)
{
    const char *const text   = getenv("ZYMM_STRESS_FACTOR");
    const unsigned    factor = text != nullptr ? static_cast<unsigned>(atoi(text)) : 1;
    return factor == 0 ? count : count * factor;
}

/* The kinds that every pattern runs on. */
inline const slab_kind STRESS_KINDS[] = {
    {"cached_small_tight", ZYMM_SLAB_CACHED, 64, 1},
    {"cached_small_roomy", ZYMM_SLAB_CACHED, 64, 3},
    {"cached_pages_tight", ZYMM_SLAB_CACHED, 8376, 1},
    {"cached_large_tight", ZYMM_SLAB_CACHED, 70000, 1},
    {"plain_pages_tight", 0, 8376, 1},
};

inline std::string kind_name(const testing::TestParamInfo<slab_kind> &info)
{
    return info.param.name;
}

inline void PrintTo(const slab_kind &kind, std::ostream *out)
{
    *out << kind.name;
}
