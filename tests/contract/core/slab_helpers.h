/*
 * Short forms of the slab operations for the core contract tests.
 */
#pragma once

#include <cstdint>

#include "zymm.h"

inline zymm_slab_param slab_param(uint64_t obj_size, uint64_t max_num)
{
    zymm_slab_param param;
    zymm_slab_param_init(&param);
    param.name[0]   = 's';
    param.module_id = 386;
    param.obj_size  = obj_size;
    param.max_num   = max_num;
    return param;
}

inline uint64_t make_slab(uint64_t obj_size, uint64_t max_num)
{
    const zymm_slab_param param = slab_param(obj_size, max_num);
    return zymm_create_slab(&param, 386, "test");
}

inline void destroy(uint64_t slab)
{
    zymm_destory_slab(slab, 386, "test");
}

inline uint64_t make_stale_slab()
{
    const uint64_t slab = make_slab(64, 2);
    destroy(slab);
    return slab;
}

inline void *take(uint64_t slab)
{
    return zymm_slab_malloc(slab, 386, "test", 1);
}

inline int give(uint64_t slab, void *object)
{
    return zymm_slab_free(slab, object, 386, "test");
}

/* Objects out, or a number that no test expects. */
inline uint64_t used_of(uint64_t slab)
{
    uint64_t total = 0;
    uint64_t used  = 0;
    return zymm_slab_get_usage_info(slab, &total, &used) == 0 ? used : UINT64_MAX;
}
