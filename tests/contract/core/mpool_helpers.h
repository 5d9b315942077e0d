/*
 * Short forms of the memory pool operations for the core contract tests.
 */
#pragma once

#include <cstdint>

#include "zyumm.h"

inline zyumm_mpool_param mpool_param(uint32_t partition, uint64_t obj_size, uint64_t max_num)
{
    zyumm_mpool_param param = {};
    param.partition         = partition;
    param.obj_size          = obj_size;
    param.max_num           = max_num;
    param.module_id         = 386;
    param.name[0]           = 'm';
    return param;
}

inline uint64_t make_mpool(uint32_t partition, uint64_t obj_size, uint64_t max_num)
{
    const zyumm_mpool_param param = mpool_param(partition, obj_size, max_num);
    return zyumm_mpool_create(&param);
}
