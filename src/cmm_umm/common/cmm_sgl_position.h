/*
 * The invariant of every walk over a chain: no entry beyond an SGL's used ones is ever touched.
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

#include "zyumm_cmm_types.h"

/*
 * Moves a position that stands behind its SGL's used entries to the next used one of the chain;
 * one that stands on a used entry stays. False when the chain holds no further entry: the SGL is
 * null then. A null SGL stays null.
 */
inline bool cmm_settle_position(SGL **sgl, uint32_t *index)
{
    while (*sgl != nullptr && *index >= (*sgl)->entryNum) {
        *sgl   = (*sgl)->nextSgl;
        *index = 0;
    }
    return *sgl != nullptr;
}
