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

/* What the process set through the seam; kept for whoever acts on it. */
typedef struct zymm_settings {
    uint32_t coredump_level;         /* zymm_numa_coredump_level_set; 0 until set */
    uint32_t cache_page;             /* zymm_pool_cache_num_set, in its order; 0 = default */
    uint32_t cache_inner_64k;
    uint32_t cache_outer_64k;
    uint32_t page_max_cache_threads;
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

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
