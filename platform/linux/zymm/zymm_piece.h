/*
 * Pieces: large runs of memory that objects are carved from.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

struct piece;
struct slab;

struct piece_wish {
    uint64_t want;  /* bytes */
    uint64_t least; /* bytes that will do */
    uint64_t keep;  /* objects to back at once, and never to cut off */
    uint64_t most;  /* objects that it may have room for */
    uint32_t node;
};

/* Null and *made, or the reason for which there is none. The slab's growth lock is held, or the
 * slab is still being created. */
const char *piece_make(slab *s, const piece_wish *wish, piece **made);

void piece_release(slab *s, piece *p);

} // namespace zymm
