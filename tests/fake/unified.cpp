/*
 * Unified memory manager: partitions, memory pools and public pools.
 *
 * Memory pools are the slab layer's pools of objects under handles of the same space, so either
 * layer's queries take either handle.
 */
#include <algorithm>
#include <set>

#include "fake_local.h"

namespace
{

constexpr uint64_t ATTR_CLEARED     = 0x4;
constexpr uint64_t ATTR_ONE_BLOCK   = 0x200;
constexpr uint64_t PAGE             = 4096;
constexpr uint32_t PUBLIC_LARGEST   = 16u << 20;
constexpr uint32_t LOCAL_CACHE_NUM  = 64;
constexpr uint32_t LOCAL_CACHE_SIZE = 256 * 1024;

struct unified_state {
    uint32_t           next_partition = 1;
    std::set<uint64_t> partitions;
    std::set<uint64_t> public_pools;
};

unified_state &state()
{
    static unified_state *const unified = new unified_state;
    return *unified;
}

bool partition_alive(uint64_t id)
{
    const fake::guard held(fake::state_mutex());
    return state().partitions.count(id) != 0;
}

bool public_pool_alive(uint64_t pool)
{
    const fake::guard held(fake::state_mutex());
    return state().public_pools.count(pool) != 0;
}

fake::pool_facts facts_of(const zyumm_mpool_param &param)
{
    return {std::string(param.name, strnlen(param.name, sizeof param.name)),
            param.module_id,
            (param.attr & ATTR_ONE_BLOCK) != 0 ? PAGE : 8,
            param.obj_size,
            param.reserved_num,
            param.max_num,
            param.max_num == 0,
            (param.attr & ATTR_CLEARED) != 0,
            0};
}

fake::pool_counts counts_of(uint64_t pool, const char *op)
{
    fake::pool_counts counts = {0, 0};
    fake::objects_counts(pool, &counts, op);
    return counts;
}

} // namespace

uint32_t zyumm_partition_create(uint32_t a, uint32_t b, uint32_t c, const char *name)
{
    fake::call call(OP_zyumm_partition_create, a, b, c, name);
    return call.answer<uint32_t>([] {
        const fake::guard held(fake::state_mutex());
        state().partitions.insert(state().next_partition);
        return state().next_partition++;
    });
}

int zyumm_partition_delete(uint32_t id)
{
    fake::call c(OP_zyumm_partition_delete, id);
    return c.answer<int>([&] {
        if (id == 0)
            return 0;
        bool erased = false;
        {
            const fake::guard held(fake::state_mutex());
            erased = state().partitions.erase(id) != 0;
        }
        if (!erased)
            fake::platform_line(ZYLOG_ERROR, "zyumm_partition_delete", "there is no partition %u.",
                                id);
        return erased ? 0 : -1;
    });
}

uint64_t zyumm_mpool_create(const zyumm_mpool_param *param)
{
    fake::call c(OP_zyumm_mpool_create, fake::record_arg{param, sizeof *param});
    return c.answer<uint64_t>([&]() -> uint64_t {
        if (param == nullptr || !partition_alive(param->partition)) {
            fake::platform_line(ZYLOG_ERROR, "zyumm_mpool_create", "there is no partition %lu.",
                                param != nullptr ? param->partition : 0);
            return 0;
        }
        return fake::objects_create(facts_of(*param), "zyumm_mpool_create");
    });
}

int zyumm_mpool_delete(uint64_t pool)
{
    fake::call c(OP_zyumm_mpool_delete, pool);
    return c.answer<int>([&] { return fake::objects_destroy(pool, true, "zyumm_mpool_delete"); });
}

void *zyumm_mpool_alloc_i(uint64_t pool, uint32_t module_id, const char *caller)
{
    fake::call c(OP_zyumm_mpool_alloc_i, pool, module_id, caller);
    return c.answer<void *>([&] { return fake::object_take(pool, "zyumm_mpool_alloc_i"); });
}

void *ucmm_mpool_alloc_i(uint64_t pool, uint32_t module_id, const char *caller)
{
    fake::call c(OP_ucmm_mpool_alloc_i, pool, module_id, caller);
    return c.answer<void *>([&] { return fake::object_take(pool, "ucmm_mpool_alloc_i"); });
}

int zyumm_mpool_free_i(uint64_t pool, void *object, uint32_t module_id, const char *caller)
{
    fake::call c(OP_zyumm_mpool_free_i, pool, object, module_id, caller);
    return c.answer<int>(
        [&] { return fake::object_give_back(pool, object, "zyumm_mpool_free_i"); });
}

int get_mpool_alloc_info(uint64_t pool, uint32_t *total, uint32_t *allocated)
{
    fake::call c(OP_get_mpool_alloc_info, pool, total, allocated);
    return c.answer<int>([&] {
        fake::pool_counts counts;
        if (total == nullptr || allocated == nullptr ||
            !fake::objects_counts(pool, &counts, "get_mpool_alloc_info"))
            return -1;
        *total     = static_cast<uint32_t>(counts.total);
        *allocated = static_cast<uint32_t>(counts.used);
        return 0;
    });
}

uint32_t mmGetObjectSum(uint64_t pool)
{
    fake::call c(OP_mmGetObjectSum, pool);
    return c.answer<uint32_t>(
        [&] { return static_cast<uint32_t>(counts_of(pool, "mmGetObjectSum").total); });
}

uint32_t mmGetBusyObjectSum(uint64_t pool)
{
    fake::call c(OP_mmGetBusyObjectSum, pool);
    return c.answer<uint32_t>(
        [&] { return static_cast<uint32_t>(counts_of(pool, "mmGetBusyObjectSum").used); });
}

uint64_t mmGetUesdInfo(uint64_t slab)
{
    fake::call c(OP_mmGetUesdInfo, slab);
    return c.answer<uint64_t>([&] { return counts_of(slab, "mmGetUesdInfo").used; });
}

void *pub_mpool_alloc_i(uint64_t pool, uint32_t size, uint32_t module_id, const char *caller)
{
    fake::call c(OP_pub_mpool_alloc_i, pool, size, module_id, caller);
    return c.answer<void *>([&]() -> void * {
        if (pool == 0)
            return nullptr;
        if (!public_pool_alive(pool) || size == 0 || size > PUBLIC_LARGEST) {
            fake::platform_line(ZYLOG_ERROR, "pub_mpool_alloc_i",
                                "public pool %#lx has no object of %u bytes.", pool, size);
            return nullptr;
        }
        return fake::take_block(pool, size, 16);
    });
}

int pub_mpool_free_i(uint64_t pool, void *object, uint32_t module_id, const char *caller)
{
    fake::call c(OP_pub_mpool_free_i, pool, object, module_id, caller);
    return c.answer<int>([&] {
        if (pool == 0)
            return -1;
        if (public_pool_alive(pool) && fake::give_block_back(pool, object))
            return 0;
        fake::platform_line(ZYLOG_ERROR, "pub_mpool_free_i",
                            "object %p is not out of public pool %#lx.", object, pool);
        return -1;
    });
}

uint32_t getLocalCacheDefaultNum(void)
{
    return fake::call(OP_getLocalCacheDefaultNum).answer<uint32_t>([] { return LOCAL_CACHE_NUM; });
}

uint32_t getLocalCacheDefaultSize(void)
{
    return fake::call(OP_getLocalCacheDefaultSize).answer<uint32_t>([] {
        return LOCAL_CACHE_SIZE;
    });
}

int zyumm_partition_info_get(uint64_t handle, zyumm_partition_info *info)
{
    fake::call c(OP_zyumm_partition_info_get, handle, info);
    return c.answer<int>([&] {
        fake::pool_facts  facts;
        fake::pool_counts counts;
        if (info == nullptr || !fake::objects_facts(handle, &facts, "zyumm_partition_info_get") ||
            !fake::objects_counts(handle, &counts, "zyumm_partition_info_get"))
            return -1;
        *info = zyumm_partition_info{{},
                                     facts.obj_size,
                                     (facts.obj_size + facts.align - 1) / facts.align * facts.align,
                                     facts.min_num,
                                     facts.max_num,
                                     counts.total,
                                     counts.used,
                                     facts.module_id,
                                     0};
        memcpy(info->name, facts.name.data(), std::min(facts.name.size(), sizeof info->name - 1));
        return 0;
    });
}

uint64_t fake_make_public_pool()
{
    const uint64_t    pool = fake::new_block_owner();
    const fake::guard held(fake::state_mutex());
    state().public_pools.insert(pool);
    return pool;
}

uint64_t fake_partitions_alive()
{
    const fake::guard held(fake::state_mutex());
    return state().partitions.size();
}
