/*
 * Slabs, caches and timers: noted, and kept from costing anything.
 *
 * A slab is made for real, so that what the slab layer refuses is refused here, but without the
 * objects that it would have to back: a node's pools need not fit the machine on which its file is
 * explained. Timers are answered as armed; nothing of the library may run on another thread.
 */
#include "recording.h"

#include "zyax.h"
#include "zymm.h"
#include "zyumm.h"

extern "C" {

uint64_t __real_zymm_create_slab(const zymm_slab_param *param, uint32_t module_id,
                                 const char *func);
uint64_t __real_zyumm_mpool_create(const zyumm_mpool_param *param);
void __real_zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                                    uint32_t page_max_cache_threads);
void __real_zymm_numa_coredump_level_set(uint32_t level);
int __real_zyax_timer_init(zyax_timer *timer);
int __real_zyax_timer_set_raw(zyax_timer *timer, uint64_t expires, uint32_t flags, void (*fn)(void),
                              const char *fn_name, const char *file, uint32_t line);
int __real_zyax_timer_add(zyax_timer *timer);
int __real_zyax_timer_modify(zyax_timer *timer, uint64_t expires);
int __real_zyax_timer_delete(zyax_timer *timer);

uint64_t __wrap_zymm_create_slab(const zymm_slab_param *param, uint32_t module_id,
                                 const char *func);
uint64_t __wrap_zyumm_mpool_create(const zyumm_mpool_param *param);
void __wrap_zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                                    uint32_t page_max_cache_threads);
void __wrap_zymm_numa_coredump_level_set(uint32_t level);
int __wrap_zyax_timer_init(zyax_timer *timer);
int __wrap_zyax_timer_set_raw(zyax_timer *timer, uint64_t expires, uint32_t flags, void (*fn)(void),
                              const char *fn_name, const char *file, uint32_t line);
int __wrap_zyax_timer_add(zyax_timer *timer);
int __wrap_zyax_timer_modify(zyax_timer *timer, uint64_t expires);
int __wrap_zyax_timer_delete(zyax_timer *timer);

uint64_t __wrap_zymm_create_slab(const zymm_slab_param *param, uint32_t module_id, const char *func)
{
    recording *current = current_recording();
    if (current == nullptr)
        return __real_zymm_create_slab(param, module_id, func);

    zymm_slab_param unbacked = *param;
    if (param->min_num <= param->max_num)
        unbacked.min_num = 0;
    const uint64_t slab = __real_zymm_create_slab(&unbacked, module_id, func);
    current->slabs.push_back(
        {param->name, param->obj_size, param->min_num, param->max_num, param->align, slab != 0});
    return slab;
}

/* The library's one memory pool is that of the zero pages, the same block in every node. */
uint64_t __wrap_zyumm_mpool_create(const zyumm_mpool_param *param)
{
    const uint64_t pool = __real_zyumm_mpool_create(param);
    if (recording *current = current_recording())
        current->slabs.push_back(
            {param->name, param->obj_size, param->reserved_num, param->max_num, 8, pool != 0});
    return pool;
}

void __wrap_zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                                    uint32_t page_max_cache_threads)
{
    if (recording *current = current_recording())
        current->caches = {page, inner_64k, outer_64k, page_max_cache_threads};
    else
        __real_zymm_pool_cache_num_set(page, inner_64k, outer_64k, page_max_cache_threads);
}

void __wrap_zymm_numa_coredump_level_set(uint32_t level)
{
    /* The first thing that the start does with the configuration. */
    if (recording *current = current_recording())
        current->lines_of_reading = current->lines.size();
    else
        __real_zymm_numa_coredump_level_set(level);
}

int __wrap_zyax_timer_init(zyax_timer *timer)
{
    return current_recording() != nullptr ? 0 : __real_zyax_timer_init(timer);
}

int __wrap_zyax_timer_set_raw(zyax_timer *timer, uint64_t expires, uint32_t flags, void (*fn)(void),
                              const char *fn_name, const char *file, uint32_t line)
{
    if (current_recording() != nullptr)
        return 0;
    return __real_zyax_timer_set_raw(timer, expires, flags, fn, fn_name, file, line);
}

int __wrap_zyax_timer_add(zyax_timer *timer)
{
    return current_recording() != nullptr ? 0 : __real_zyax_timer_add(timer);
}

int __wrap_zyax_timer_modify(zyax_timer *timer, uint64_t expires)
{
    return current_recording() != nullptr ? 0 : __real_zyax_timer_modify(timer, expires);
}

int __wrap_zyax_timer_delete(zyax_timer *timer)
{
    return current_recording() != nullptr ? 0 : __real_zyax_timer_delete(timer);
}
}
