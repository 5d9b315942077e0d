/*
 * The real registry and the table of it (partition_model.h), side by side. Each operation is done
 * on both and its answers are compared at once; difference() compares what is there afterwards:
 * entries, call-backs, pools, usage, and what the call-backs have heard.
 *
 * Creation records are compared with a table of what each flag means on either way in.
 */
#pragma once

#include "partition_model.h"

#include "unit/zyumm_cmm/partition_test_help.h"

enum way : uint32_t { BY_VALUES, BY_RESERVE_AND_VALUES, BY_RECORD };

/* A client's flags, and the attributes of its pool on the two ways in. */
struct flag_meaning {
    uint32_t flags;
    uint64_t by_record, by_values;
};

inline constexpr flag_meaning FLAGS[] = {
    {0x00, 0x002, 0x000}, {0x10, 0x006, 0x004}, {0x04, 0x042, 0x040}, {0x02, 0x082, 0x080},
    {0x40, 0x402, 0x400}, {0x20, 0x102, 0x000}, {0x76, 0x5C6, 0x4C4}};

/* ------------------------------------------------------------------ call-backs */

inline constexpr uint32_t CLIENT = 77;
inline constexpr char CALLER[] = "the caller";
inline constexpr uint32_t FAILED = 0xFFFFFFFF;
inline constexpr uint32_t UNTOUCHED = 0x5A5A5A5A;

inline std::vector<std::string> heard;

inline std::string init_heard(const void *object)
{
    return "init " + pointer_text(object);
}

inline std::string free_heard(const void *object, uint32_t id, uint32_t module_id,
                              const std::string &caller)
{
    return "free " + pointer_text(object) + " of " + std::to_string(id) + " by " +
           std::to_string(module_id) + " " + caller;
}

inline void hear_init(void *object)
{
    heard.push_back(init_heard(object));
}

inline void hear_free(void *object, uint32_t id, uint32_t module_id, const char *caller)
{
    heard.push_back(free_heard(object, id, module_id, caller));
}

/* ------------------------------------------------------------------ both, side by side */

class both_registries
{
public:
    explicit both_registries(flaw wrong) : model_(wrong), pools_before_(fake_handles_alive())
    {
        fake_forget_calls();
        heard.clear();
        /* Cleared whole, as the comparison takes the entries' padding along. */
        memset(g_cmm_part_s, 0, sizeof g_cmm_part_s);
        memset(expected_.data(), 0, sizeof g_cmm_part_s);
        g_cmm_part_sum = 0;
    }

    /* Whatever became of the registry, the memory manager starts the next case empty. */
    ~both_registries()
    {
        for (const fake_call &call : fake_calls(OP_zyumm_mpool_create)) {
            for (const auto &[object, pool] : out_) {
                if (pool == call.result)
                    zyumm_mpool_free_i(pool, object, CLIENT, CALLER);
            }
            if (fake_handle_alive(call.result))
                zyumm_mpool_delete(call.result);
        }
    }

    /* ---- operations */

    void create(way how, uint32_t objects, bool init, bool free, const flag_meaning &flags)
    {
        const uint32_t reserved = how == BY_VALUES ? objects : 0;

        uint32_t id = UNTOUCHED;
        const uint32_t status = really_create(how, objects, init ? hear_init : nullptr,
                                              free ? hear_free : nullptr, flags.flags, &id);
        expect_created(status, id, model_.create(reserved, objects, init, free));

        zyumm_mpool_param record = record_of(
            64, reserved, objects, how == BY_RECORD ? flags.by_record : flags.by_values, "objects");
        record.cache_num = how == BY_RECORD ? getLocalCacheDefaultNum() : 0;
        record.cache_size = how == BY_RECORD ? getLocalCacheDefaultSize() : 0;
        expect_record(record);
    }

    void create_without_memory(way how)
    {
        uint32_t id = UNTOUCHED;
        fake_fail(OP_zyumm_mpool_create);
        const uint32_t status = really_create(how, 1, nullptr, nullptr, 0, &id);
        fake_no_faults();
        expect(status == FAILED && id == UNTOUCHED, "no partition without a pool");
    }

    void create_block(uint64_t bytes, bool no_pool, bool no_block)
    {
        uint32_t id = UNTOUCHED;
        void *block = &foreign_;
        if (no_pool)
            fake_fail(OP_zyumm_mpool_create);
        if (no_block)
            fake_fail(OP_ucmm_mpool_alloc_i);
        const uint32_t status =
            createContinuousPartition(bytes, "block", CLIENT, 0, &id, &block, CALLER);
        fake_no_faults();
        expect_record(record_of(bytes, 1, 1, 0x200, "block"));
        if (no_pool) {
            expect(status == FAILED && id == UNTOUCHED, "no block without a pool");
            return;
        }
        take_block(status, id, block, no_block);
    }

    void reserve()
    {
        const uint32_t id = model_.reserve();
        expect(cmm_alloc_part_id() == id, "the id that is reserved");
        if (id != partition_model::NO_ID)
            note_entry(id);
    }

    void fill(uint32_t leaving)
    {
        while (model_.sum() + leaving < partition_model::MAX_ID)
            reserve();
    }

    void remove(uint32_t id, bool by_id)
    {
        const bool exists = id >= 1 && id <= partition_model::MAX_ID;
        const uint32_t status = by_id ? deletePartitionByID(id) : deleteStructurePartition(id);
        const bool removed = exists && model_.remove(id);
        if (removed) {
            handles_[id] = 0;
            note_entry(id);
        }
        expect(status == (removed || !exists ? 0 : FAILED), "the answer to a deletion");
    }

    void alloc(uint32_t id)
    {
        void *object = &foreign_;
        allocStructure(CLIENT, id, &object, CALLER);
        const bool expected = id <= partition_model::MAX_ID && model_.has_an_object_left(id);
        expect((object != nullptr) == expected, "there is an object exactly while one is left");
        expect(object != &foreign_, "the out pointer is always written");
        if (object == nullptr || !expected)
            return;
        if (model_.at(id).tells_init)
            told_.push_back(init_heard(object));
        note_out(id, object);
    }

    void free_known(uint32_t id, uint32_t which)
    {
        if (id > partition_model::MAX_ID || model_.at(id).out.empty())
            return;
        const auto &out = model_.at(id).out;
        free(id, *std::next(out.begin(), long(which % out.size())));
    }

    void free_foreign(uint32_t id)
    {
        free(id, &foreign_);
    }

    /* ---- ids */

    /* One of the partitions that have or had a pool, 2048 without any. */
    uint32_t known_id(uint32_t which) const
    {
        const std::set<uint32_t> &ids = model_.known();
        return ids.empty() ? partition_model::NO_ID
                           : *std::next(ids.begin(), long(which % ids.size()));
    }

    uint32_t odd_id(uint32_t which) const
    {
        constexpr uint32_t FIXED[] = {0, 2048, 0xFFFFFFFF};
        if (which < std::size(FIXED))
            return FIXED[which];
        if (which == 3)
            return model_.lowest_free();
        for (uint32_t id = 1; id <= partition_model::MAX_ID; ++id) {
            if (model_.at(id).taken && model_.at(id).pool == pool_state::NONE)
                return id;
        }
        return 0;
    }

    /* What is not as the model has it; empty when all is well. */
    std::string difference() const
    {
        if (!complaint_.empty())
            return complaint_;
        if (heard != told_)
            return "call-backs heard " + newest(heard) + ", the model " + newest(told_);
        if (g_cmm_part_sum != model_.sum())
            return "sum " + std::to_string(g_cmm_part_sum) + ", the model has " +
                   std::to_string(model_.sum());
        if (fake_handles_alive() - pools_before_ != model_.pools())
            return "pools alive";
        const std::string entry = entry_difference();
        return entry.empty() ? usage_difference() : entry;
    }

private:
    partition_model model_;
    uint64_t pools_before_;
    std::vector<uint64_t> handles_ = std::vector<uint64_t>(partition_model::MAX_ID + 1);
    std::vector<cmm_partition> expected_ = std::vector<cmm_partition>(CMM_PART_ENTRIES);
    std::vector<std::pair<void *, uint64_t>> out_; /* objects and their pools */
    std::vector<std::string> told_;
    std::string complaint_;
    uint64_t foreign_ = 0; /* an object of no partition */

    void expect(bool holds, const char *claim)
    {
        if (!holds && complaint_.empty())
            complaint_ = std::string("not so: ") + claim;
    }

    static std::string newest(const std::vector<std::string> &lines)
    {
        return std::to_string(lines.size()) + " lines up to \"" +
               (lines.empty() ? "" : lines.back()) + "\"";
    }

    /* ---- creation */

    static uint32_t really_create(way how, uint32_t objects, cmm_object_init_fn init_cb,
                                  cmm_object_free_fn free_cb, uint32_t flags, uint32_t *id)
    {
        if (how == BY_VALUES)
            return createStructurePartition(objects, "objects", CLIENT, flags, 64, id, init_cb,
                                            free_cb, 0);
        if (how == BY_RESERVE_AND_VALUES)
            return createExpStructurePartition(0, objects, "objects", CLIENT, flags, 64, id,
                                               init_cb, free_cb);
        structure_mempool_para para;
        initStructureMempoolPara(&para);
        para.max_num = objects;
        para.name = "objects";
        para.module_id = CLIENT;
        para.flags = flags;
        para.obj_size = 64;
        para.init_cb = init_cb;
        para.free_cb = free_cb;
        return createStructureMempool(&para, id);
    }

    static zyumm_mpool_param record_of(uint64_t size, uint64_t reserved, uint64_t max,
                                       uint64_t attr, const char *name)
    {
        zyumm_mpool_param record = {};
        record.partition = g_cmm_umm_partition;
        record.obj_size = size;
        record.reserved_num = reserved;
        record.max_num = max;
        record.module_id = CLIENT;
        record.attr = attr;
        strcpy(record.name, name);
        return record;
    }

    void expect_record(const zyumm_mpool_param &record)
    {
        const zyumm_mpool_param given =
            fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>();
        expect(memcmp(&given, &record, sizeof record) == 0, "the pool's creation record");
    }

    /* What is to come of a creation whose pool could be made. */
    void expect_created(uint32_t status, uint32_t id, uint32_t expected_id)
    {
        const bool created = expected_id != partition_model::NO_ID;
        expect(status == (created ? 0 : FAILED), "a creation succeeds exactly with an id");
        expect(id == (created ? expected_id : UNTOUCHED), "the id of a creation");
        if (!created)
            return;
        handles_[expected_id] = fake_last_call(OP_zyumm_mpool_create).result;
        note_entry(expected_id);
    }

    void take_block(uint32_t status, uint32_t id, void *block, bool no_block)
    {
        const uint32_t expected = model_.create(1, 1, false, false);
        if (!no_block || expected == partition_model::NO_ID) {
            expect_created(status, id, expected);
            if (expected != partition_model::NO_ID)
                note_out(expected, block);
            return;
        }
        handles_[expected] = fake_last_call(OP_zyumm_mpool_create).result;
        model_.lose_block(expected);
        note_entry(expected);
        expect(status == FAILED && id == UNTOUCHED, "no partition without its block");
        expect(block == nullptr, "the address of no block");
    }

    void note_out(uint32_t id, void *object)
    {
        model_.take(id, object);
        out_.push_back({object, handles_[id]});
    }

    void free(uint32_t id, void *object)
    {
        expect(freeStructure(object, id, CLIENT, CALLER, 9) == 0, "freeing answers 0");
        if (id > partition_model::MAX_ID)
            return;
        if (model_.at(id).tells_free)
            told_.push_back(free_heard(object, id, CLIENT, CALLER));
        model_.give_back(id, object);
        std::erase_if(out_, [object](const auto &each) { return each.first == object; });
    }

    /* ---- comparison */

    /* The entry as it must be from now on. */
    void note_entry(uint32_t id)
    {
        const model_partition &now = model_.at(id);
        expected_[id].part_id = now.taken ? id : 0;
        expected_[id].pool = handles_[id];
        expected_[id].init_cb = now.tells_init ? hear_init : nullptr;
        expected_[id].free_cb = now.tells_free ? hear_free : nullptr;
    }

    std::string entry_difference() const
    {
        /* All at once: this is done after each operation. */
        if (memcmp(g_cmm_part_s, expected_.data(), sizeof g_cmm_part_s) == 0)
            return "";
        uint32_t id = 0;
        while (memcmp(&g_cmm_part_s[id], &expected_[id], sizeof expected_[id]) == 0)
            ++id;
        return "entry " + std::to_string(id);
    }

    std::string usage_difference() const
    {
        for (const uint32_t id : model_.known()) {
            if (!same_usage(id))
                return "usage of " + std::to_string(id);
        }
        for (const uint32_t odd : {0u, 2048u, 0xFFFFFFFFu}) {
            uint32_t total = UNTOUCHED;
            uint32_t used = UNTOUCHED;
            if (getPartitionAllocInfo(odd, &total, &used) != FAILED || total != UNTOUCHED ||
                used != UNTOUCHED || getObjectSum(odd) != 0 || getBusyObjectSum(odd) != FAILED)
                return "usage of " + std::to_string(odd);
        }
        return "";
    }

    bool same_usage(uint32_t id) const
    {
        const bool alive = model_.at(id).pool == pool_state::ALIVE;
        const uint64_t max = alive ? model_.total(id) : 0;
        const uint64_t out = alive ? model_.at(id).out.size() : 0;
        uint32_t total = 0;
        uint32_t used = 0;
        const uint32_t status = getPartitionAllocInfo(id, &total, &used);
        return status == (alive ? 0 : FAILED) && total == max && used == out &&
               getObjectSum(id) == max && getBusyObjectSum(id) == out &&
               get_cmm_partition_byid(int32_t(id)) == &g_cmm_part_s[id];
    }
};
