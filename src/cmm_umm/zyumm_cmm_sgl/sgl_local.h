/*
 * What the sources of the scatter-gather lists share: the pool's handle and the two measures.
 */
#pragma once

#include "zyumm_cmm_sgl.h"

#include "common/cmm_atomic.h"

/* Acquire, because an outside creator may make the pool while others already ask for SGLs: who sees
 * the handle sees the pool. */
inline uint64_t sgl_pool_handle()
{
    return cmm_load_acquire(&g_sgl_partition_id);
}

/* How many bytes of an entry count, as a mask over its `len`. In the data measure clearing the low
 * 8 bits takes the integrity bytes off: n sectors of 520 bytes become n x 512 while n < 32.
 * sic: longer entries count integrity bytes as data; pages, 16 sectors each, are what users fill
 * entries with. */
inline constexpr uint32_t SGL_FULL_MEASURE = 0xFFFFFFFF;
inline constexpr uint32_t SGL_DATA_MEASURE = 0xFFFFFF00;
