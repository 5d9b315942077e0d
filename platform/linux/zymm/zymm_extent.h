/*
 * Extents: the memory of an enclosing pool, and which units of it lie in pieces.
 *
 *     extent: | 1 1 1 1 0 0 1 1 0 ... |   one bit a unit of 64 KiB, 1 = lies in a piece
 *
 * Threads: everything under the pool's lock.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

struct extent {
    extent  *next;
    char    *base; /* aligned to 2 MiB */
    uint64_t units;
    uint64_t header_bytes;
    uint64_t used[]; /* bit map */
};

struct unit_run {
    extent  *in; /* null when units is 0 */
    uint64_t first, units;
};

/* An extent of whole units, mapped and not backed; null when there is no memory. */
extent *extent_make(uint64_t bytes);

/* Unmaps a list of extents. */
void extents_release(extent *first);

/* A free run of `want` units that begins at a multiple of `align` units, or else the longest. */
unit_run extents_search(extent *first, uint64_t want, uint64_t align);

/* Takes the run; its memory. */
char *extent_use(const unit_run *run);

/* The range, of whole units, lies in no piece any more. */
void extents_free(extent *first, const char *base, uint64_t bytes);

} // namespace zymm
