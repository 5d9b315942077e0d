/*
 * Host interface of the slab layer: what an embedding process may set and read beyond the seam.
 *
 * Threads: every function may be called by any thread; zymm_topology_set only before the first
 *          slab is created.
 */
#ifndef ZYMM_HOST_H
#define ZYMM_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Module id under which the layer logs. */
enum { ZYMM_MODULE_ID = 2 };

/*
 * Sets the leak age: objects that are out for at least this long count as leaked in
 * zymm_slab_get_leak_number. `seconds` 0 counts every object that is out. Default 600.
 */
void     zymm_leak_age_set(uint64_t seconds);
uint64_t zymm_leak_age_get(void);

/*
 * What the process set through the seam.
 *
 * coredump_level, by zymm_numa_coredump_level_set, counts for memory that slabs take afterwards:
 *     0          each slab's attributes decide; so until it is set
 *     1          memory of objects of 4 KiB and more is left out of core dumps, too
 *     2 and more memory of all objects is; the layer's own records stay in
 *
 * cache_*, by zymm_pool_cache_num_set, counts for slabs made afterwards that cache by thread:
 * objects of such a slab that one thread keeps to itself at most. A pool that names a number of its
 * own, or bytes, has that instead. A thread keeps two stacks of half of it each, so an odd number loses
 * one, and 1 switches caching off; above 128 nothing more is kept. On a machine with several nodes a
 * thread also gathers up to half of it a node for the objects of others on their way home.
 *     cache_page         objects of 8,376 bytes, the memory manager's pages
 *     cache_inner_64k    others of up to 64 KiB
 *     cache_outer_64k    larger ones
 *
 * page_max_cache_threads counts at once: threads that may keep pages of one slab at a time; those
 * beyond work on what is shared until one of the others ends or its cache was emptied.
 */
typedef struct zymm_settings {
    uint32_t coredump_level;
    uint32_t cache_page;      /* 0 = the default, 128 */
    uint32_t cache_inner_64k; /* 0 = the default, 128 */
    uint32_t cache_outer_64k; /* 0 = the default, 16 */
    uint32_t page_max_cache_threads; /* 0 = all */
} zymm_settings;

/* Copies the settings; 0, or -1 (and an error line) when `settings` is null. */
int zymm_settings_get(zymm_settings *settings);

/* Memory and handles that the layer holds at this moment. */
typedef struct zymm_stats {
    uint64_t mapped;  /* bytes of address space for objects, their records and enclosing pools */
    uint64_t control; /* bytes for slabs' own records; kept and used again, never given back */
    uint64_t handles; /* slabs, memory pools, enclosing and public pools alive */
} zymm_stats;

/* Fills in the statistics; 0, or -1 (and an error line) when `stats` is null. */
int zymm_stats_get(zymm_stats *stats);

/*
 * Replaces the machine's NUMA nodes by `nodes` (1 to 64) made-up ones; `node_of_caller` answers the
 * calling thread's node. Memory is not bound to made-up nodes, everything else behaves as on a
 * machine that has them.
 *
 * Returns 0; -1 and an error line for a bad argument or once a slab exists or existed.
 */
int zymm_topology_set(uint32_t nodes, uint32_t (*node_of_caller)(void));

/*
 * Huge pages: with `on` not 0, slabs made afterwards take their memory in pieces that begin on
 * 2 MiB and lie on huge pages: reserved ones where the system has some, else such as it makes out of
 * ordinary memory. Not so slabs that can never fill one, and slabs of one block, parts of which
 * their holder may protect: no huge page is split by it. Memory of an enclosing pool is its own;
 * the system is only told that huge pages are welcome there. Off until set.
 *
 * Mind that a forked child which writes to a reserved huge page needs another one, and is ended by
 * the kernel when there is none.
 */
void zymm_huge_pages_set(int on);

/*
 * Full check of a slab or memory pool, at any moment: stops its threads, walks everything that it
 * has, and compares. Each object must be in exactly one place and agree with its tag, links must
 * be valid, counts must add up. It takes a few nanoseconds an object, and the slab's users wait.
 *
 * Returns 0 when all is well. -1 with an error line for each of the first findings and one for the
 * number of the rest; also for a stale handle (with a line) and for 0 (without). A slab whose memory
 * stayed with the parent of a forked child has nothing to check: 0. Not from a signal handler.
 */
int zymm_slab_check(uint64_t slab);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
