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
 * Looking at slabs and memory pools, as consoles do. A look takes no lock that allocations take
 * longer than a moment, and it may come beside the destruction of its slab: it then finds nothing.
 * Numbers of a busy slab are of slightly different moments.
 */

/*
 * Copies the handles of all slabs and memory pools, in the order of their making.
 *
 * handles: room for `room` of them; with more slabs than room some are left out. May be null when
 *          room is 0.
 *
 * Returns the number of all.
 */
uint64_t zymm_slab_list(uint64_t *handles, uint64_t room);

/*
 * What is known about a slab.
 *
 * made        objects that exist, out or free. It never falls. No more were ever out at once.
 * high_water  objects that certainly were out at once at some moment; at most `made`. Counting the
 *             true mark would need a counter that all threads share, so the slab is looked at:
 *             each question for its usage, by whomever, moves the mark. The memory manager asks for
 *             that of its pages once a millisecond. What was out between two looks is not seen, so
 *             that the true mark lies between `high_water` and `made`.
 */
typedef struct zymm_slab_record {
    uint64_t handle;
    char     name[32];
    uint64_t obj_size;   /* bytes */
    uint64_t whole_size; /* bytes really spent on one object */
    uint64_t min_num, max_num; /* max_num: 0 when there is no limit but memory */
    uint64_t total;      /* max_num; without a limit, `made` */
    uint64_t used;       /* held by callers */
    uint64_t made;
    uint64_t high_water;
    uint64_t allocs, frees; /* so far */
    uint64_t leaked;     /* out for at least the leak age; 0 when it was not asked for */
    uint64_t bytes;      /* memory that it has taken for objects */
    uint64_t attr;       /* ZYMM_RECORD_ATTR_* */
    uint32_t module_id;  /* owner */
    uint32_t align;
    uint32_t unlimited;  /* 1 = no limit but memory */
    uint32_t is_class;   /* 1 = one of several size classes of an allocator */
} zymm_slab_record;

enum {
    ZYMM_RECORD_ATTR_CACHED     = 0x2,   /* threads cache its objects */
    ZYMM_RECORD_ATTR_CLEARED    = 0x4,   /* objects are zeroed when allocated */
    ZYMM_RECORD_ATTR_NODUMP     = 0x80,  /* left out of core dumps */
    ZYMM_RECORD_ATTR_LOCKED     = 0x100, /* locked in memory */
    ZYMM_RECORD_ATTR_ONE_BLOCK  = 0x200,
    ZYMM_RECORD_ATTR_HUGE_PAGES = 0x400,
    ZYMM_RECORD_ATTR_NOFORK     = 0x800  /* a forked child does not get it */
};

/*
 * Fills in the record; `with_leaks` not 0 also counts the leaked objects, for which one word of
 * every object is read.
 *
 * 0; -1, without a line and with nothing written, for a handle that is stale or 0.
 */
int zymm_slab_record_get(uint64_t slab, int with_leaks, zymm_slab_record *record);

/* What a slab has on one NUMA node. */
typedef struct zymm_node_record {
    uint64_t made; /* objects that exist there */
    uint64_t used, free;
    uint64_t cached; /* of the free ones, in threads' caches */
    uint64_t pieces, bytes;
} zymm_node_record;

/* 0; -1, without a line and with nothing written, for a stale handle and beyond the last node. The
 * slab's threads are stopped for a moment. */
int zymm_slab_node_get(uint64_t slab, uint32_t node, zymm_node_record *record);

/* Objects that one call site holds. */
typedef struct zymm_holder {
    const char *func; /* never null; lives as long as the process */
    uint32_t    module_id;
    uint32_t    line;
    uint64_t    objects;
    uint64_t    leaked;   /* of these, out for at least the leak age */
    uint64_t    oldest_s; /* whole seconds since the oldest one's allocation */
} zymm_holder;

typedef struct zymm_holder_sum {
    uint64_t objects;
    uint64_t leaked;
    uint64_t sites;     /* that were found, also beyond the room */
    uint64_t ungrouped; /* of objects: of call sites beyond the first 32,768 */
} zymm_holder_sum;

enum {
    ZYMM_HOLDERS_ALL    = 0, /* with the most objects first */
    ZYMM_HOLDERS_LEAKED = 1  /* only those with leaked objects, with the most of them first */
};

/*
 * Groups the objects that are out by the call site that took them.
 *
 * which:   ZYMM_HOLDERS_*.
 * holders: receives the first `room` sites.
 * sum:     all fields but `sites` are over all objects that are out, whatever `which` says.
 *
 * 0; -1, without a line and with nothing written, for a stale handle and when there is no memory
 * for the table (as large as the number of objects needs, at most 3 MiB, for the time of the call).
 */
int zymm_slab_holders_get(uint64_t slab, uint32_t which, zymm_holder *holders, uint64_t room,
                          zymm_holder_sum *sum);

/* One object. */
typedef struct zymm_object_record {
    uint32_t    is_out; /* 1 = held by a caller; the rest but `node` is 0 and "" when it is not */
    uint32_t    node;   /* of its memory */
    uint32_t    module_id; /* who took it */
    uint32_t    line;
    const char *func;
    uint64_t    age_s; /* whole seconds */
} zymm_object_record;

/*
 * Looks at an object: calls `look` if one of the slab's objects begins at the address, whatever
 * number that is. Until `look` returns the slab's memory stays, so `look` may read the object.
 *
 * look: runs on the calling thread. Slabs cannot be destroyed and the process cannot fork while it
 *       runs, so it has to return soon, and may not print to a console nor call this layer.
 *
 * 0; -1, without a line, when there is no such object or slab.
 */
int zymm_object_look(uint64_t slab, const void *object,
                     void (*look)(void *ctx, const zymm_object_record *record), void *ctx);

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
