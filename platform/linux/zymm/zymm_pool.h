/*
 * Enclosing pools: budgets of memory that slabs take their pieces from.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

struct pool;
struct slab;

/* Makes the slab a member of the pool behind the handle; null when the handle is stale. */
pool *pool_join(uint64_t handle, slab *member);

/* From here on nobody cuts the slab's pieces; it still counts, having yet to give them back. */
void pool_unlist(pool *p, slab *member);
void pool_leave(pool *p);

/*
 * Takes a run of whole units for a member: `want` bytes if there is such a run, else the longest
 * one of at least `least` bytes, growing the pool if its extension allows it and cutting off what
 * other members have not carved if it does not. Null when the pool is used up; *got = bytes.
 */
char *pool_take(pool *p, slab *asker, uint64_t want, uint64_t least, uint64_t align, uint64_t *got);

/* Gives a run back, clean: unlocked, unprotected, zero, dumped and forked as usual. */
void pool_give(pool *p, char *base, uint64_t bytes);

} // namespace zymm
