/*
 * What the sources of the scatter-gather lists share: the pool's handle, the two measures, and the
 * passing over of SGLs that hold nothing.
 *
 * A position is a pair (SGL, entry index). Walks keep both in locals and move them with one of the
 * exported steps. A step may leave a position in an SGL without used entries; whoever is about to
 * use an entry settles the position first:
 *
 *     entryNum = 2          entryNum = 0          entryNum = 1
 *     [a][b] . . .  ----->  . . . . .     ----->  [c] . . .
 *            ^ index 2      ^ index 0             ^ settled here
 *
 * The exported reader's step itself does not do that: its callers outside rely on it as it is.
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

/*
 * Moves a position that stands behind its SGL's used entries to the next used one of the chain;
 * one that stands on a used entry stays. False when the chain holds no further entry: the SGL is
 * null then. A null SGL stays null.
 */
inline bool sgl_settle_position(SGL **sgl, uint32_t *index)
{
    while (*sgl != nullptr && *index >= (*sgl)->entryNum) {
        *sgl   = (*sgl)->nextSgl;
        *index = 0;
    }
    return *sgl != nullptr;
}
