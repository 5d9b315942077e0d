/*
 * Slab layer: slabs, the pools that enclose them, raw memory, and the once-guard.
 *
 * Enclosing pools only count as handles; their sizes are recorded with the call and not enforced.
 * Dumps are recorded and print nothing.
 */
#include <set>

#include <sched.h>

#include "fake_local.h"

namespace
{

constexpr uint64_t RAW_BLOCKS = 0;

/* States of a once-guard's word. */
constexpr uint64_t ONCE_RUNNING = 1;
constexpr uint64_t ONCE_DONE    = 2;

std::set<uint64_t> &enclosing_pools()
{
    static std::set<uint64_t> *const pools = new std::set<uint64_t>;
    return *pools;
}

std::string bounded_name(const char *name, size_t size)
{
    return std::string(name, strnlen(name, size));
}

fake::pool_facts facts_of(const zymm_slab_param &param)
{
    return {bounded_name(param.name, sizeof param.name), param.module_id, param.align,
            param.obj_size, param.min_num, param.max_num, false, false, param.pool_id};
}

uint32_t run_once(uint64_t *word, uint32_t (*initialiser)(void), uint32_t *status)
{
    uint64_t seen = 0;
    if (__atomic_compare_exchange_n(word, &seen, ONCE_RUNNING, false, __ATOMIC_ACQUIRE,
                                    __ATOMIC_ACQUIRE)) {
        const uint32_t result = initialiser();
        __atomic_store_n(status, result, __ATOMIC_RELAXED);
        __atomic_store_n(word, ONCE_DONE, __ATOMIC_RELEASE);
        return result;
    }
    while (__atomic_load_n(word, __ATOMIC_ACQUIRE) == ONCE_RUNNING)
        sched_yield();
    return __atomic_load_n(status, __ATOMIC_RELAXED);
}

} // namespace

uint64_t fake::enclosing_pools_alive()
{
    return enclosing_pools().size();
}

bool fake::enclosing_pool_alive(uint64_t handle)
{
    return enclosing_pools().count(handle) != 0;
}

bool fake::may_enclose(uint64_t handle)
{
    const guard held(state_mutex());
    return handle == 0 || enclosing_pool_alive(handle);
}

uint32_t zymm_init_once(uint64_t *word, uint32_t (*initialiser)(void), uint32_t *status,
                        const char *name)
{
    fake::call c(OP_zymm_init_once, word, initialiser, status, name);
    return c.answer<uint32_t>([&]() -> uint32_t {
        if (word == nullptr || initialiser == nullptr || status == nullptr) {
            fake::platform_line(ZYLOG_ERROR, "zymm_init_once", "an argument is null.");
            return 0xFFFFFFFF;
        }
        return run_once(word, initialiser, status);
    });
}

void zymm_numa_coredump_level_set(uint32_t level)
{
    fake::call(OP_zymm_numa_coredump_level_set, level);
}

void zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                             uint32_t page_max_cache_threads)
{
    fake::call(OP_zymm_pool_cache_num_set, page, inner_64k, outer_64k, page_max_cache_threads);
}

int zymm_slab_param_init(zymm_slab_param *param)
{
    fake::call c(OP_zymm_slab_param_init, param);
    return c.answer<int>([&] {
        if (param == nullptr) {
            fake::platform_line(ZYLOG_ERROR, "zymm_slab_param_init", "the record is null.");
            return -1;
        }
        *param          = zymm_slab_param{};
        param->align    = 8;
        param->obj_size = 768;
        return 0;
    });
}

uint64_t zymm_create_slab(const zymm_slab_param *param, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_create_slab, fake::record_arg{param, sizeof *param}, module_id, func);
    return c.answer<uint64_t>([&]() -> uint64_t {
        if (param == nullptr) {
            fake::platform_line(ZYLOG_ERROR, "zymm_create_slab", "the record is null.");
            return 0;
        }
        if (!fake::may_enclose(param->pool_id)) {
            fake::platform_line(ZYLOG_ERROR, "zymm_create_slab", "there is no pool %#lx.",
                                param->pool_id);
            return 0;
        }
        return fake::objects_create(facts_of(*param), "zymm_create_slab");
    });
}

int zymm_destory_slab(uint64_t slab, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_destory_slab, slab, module_id, func);
    return c.answer<int>([&] {
        return slab == 0 ? 0 : fake::objects_destroy(slab, false, "zymm_destory_slab");
    });
}

void *zymm_slab_malloc(uint64_t slab, uint32_t module_id, const char *func, uint32_t line)
{
    fake::call c(OP_zymm_slab_malloc, slab, module_id, func, line);
    return c.answer<void *>([&] { return fake::object_take(slab, "zymm_slab_malloc"); });
}

int zymm_slab_free(uint64_t slab, void *object, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_slab_free, slab, object, module_id, func);
    return c.answer<int>([&] { return fake::object_give_back(slab, object, "zymm_slab_free"); });
}

int zymm_slab_get_usage_info(uint64_t slab, uint64_t *total, uint64_t *used)
{
    fake::call c(OP_zymm_slab_get_usage_info, slab, total, used);
    return c.answer<int>([&] {
        fake::pool_counts counts;
        if (total == nullptr || used == nullptr ||
            !fake::objects_counts(slab, &counts, "zymm_slab_get_usage_info"))
            return -1;
        *total = counts.total;
        *used  = counts.used;
        return 0;
    });
}

int zymm_slab_get_usage_by_numa(uint64_t slab, uint32_t numa_id, zymm_numa_usage *usage)
{
    fake::call c(OP_zymm_slab_get_usage_by_numa, slab, numa_id, usage);
    return c.answer<int>([&] {
        fake::pool_counts counts;
        if (usage == nullptr ||
            !fake::objects_counts(slab, &counts, "zymm_slab_get_usage_by_numa"))
            return -1;
        const bool has_all = numa_id == 0 || fake::usage_is_set();
        *usage = has_all ? zymm_numa_usage{counts.total, counts.used, 0} : zymm_numa_usage{};
        return 0;
    });
}

uint64_t zymm_slab_get_leak_number(uint64_t slab)
{
    fake::call c(OP_zymm_slab_get_leak_number, slab);
    return c.answer<uint64_t>([] { return 0; });
}

int zymm_slab_dump_usageinfo(uint64_t slab, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_slab_dump_usageinfo, slab, module_id, func);
    return c.answer<int>([&] {
        fake::pool_facts facts;
        return fake::objects_facts(slab, &facts, "zymm_slab_dump_usageinfo") ? 0 : -1;
    });
}

int zymm_slab_dump_detailinfo(uint64_t slab, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_slab_dump_detailinfo, slab, module_id, func);
    return c.answer<int>([&] {
        fake::pool_facts facts;
        return fake::objects_facts(slab, &facts, "zymm_slab_dump_detailinfo") ? 0 : -1;
    });
}

uint32_t zymm_object_get_numaid(uint64_t slab, const void *object)
{
    fake::call c(OP_zymm_object_get_numaid, slab, object);
    return c.answer<uint32_t>([&] {
        return fake::object_is_of(slab, object, "zymm_object_get_numaid") ? 0 : 0xFFFFFFFFu;
    });
}

uint64_t zymm_object_whole_size_get(uint64_t size, uint32_t reserved, uint32_t align)
{
    fake::call c(OP_zymm_object_whole_size_get, size, reserved, align);
    return c.answer<uint64_t>([&] {
        const uint64_t unit = align != 0 ? align : 8;
        return (size + reserved + unit - 1) / unit * unit;
    });
}

uint64_t zymm_pool_create(const char *name, uint64_t size, uint64_t extension, uint32_t module_id,
                          const char *func)
{
    fake::call c(OP_zymm_pool_create, name, size, extension, module_id, func);
    return c.answer<uint64_t>([] {
        const fake::guard held(fake::state_mutex());
        return *enclosing_pools().insert(fake::new_handle()).first;
    });
}

int zymm_pool_destory(uint64_t pool, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_pool_destory, pool, module_id, func);
    return c.answer<int>([&] {
        if (pool == 0)
            return 0;
        bool     erased = false;
        uint64_t inside = 0;
        {
            const fake::guard held(fake::state_mutex());
            inside = fake::slabs_inside(pool) + fake::allocators_inside(pool);
            erased = inside == 0 && enclosing_pools().erase(pool) != 0;
        }
        if (!erased)
            fake::platform_line(ZYLOG_ERROR, "zymm_pool_destory",
                                "pool %#lx is not destroyed, %lu slabs live in it.", pool, inside);
        return erased ? 0 : -1;
    });
}

void *zymm_malloc(uint64_t size, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_malloc, size, module_id, func);
    return c.answer<void *>([&]() -> void * {
        return size != 0 ? fake::take_block(RAW_BLOCKS, size, 16) : nullptr;
    });
}

void zymm_free(void *memory, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_free, memory, module_id, func);
    c.run([&] {
        if (memory != nullptr && !fake::give_block_back(RAW_BLOCKS, memory))
            fake::platform_line(ZYLOG_ERROR, "zymm_free", "block %p is not out.", memory);
    });
}
