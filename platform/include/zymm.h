/*
 * Slab layer of the platform: fixed-size object slabs, memory pools that enclose slabs, an
 * allocator over a table of size classes, and the once-guard.
 *
 * Owner:   an object belongs to the caller of zymm_slab_malloc until zymm_slab_free; module id,
 *          function (a constant string) and line are kept as the object's owner.
 * Threads: every operation may be called by any thread; destroying a slab or pool needs all other
 *          users of it to be gone.
 * Errors:  handle 0 is quiet; a stale handle or a foreign object is a failure and an error line.
 */
#ifndef ZYMM_H
#define ZYMM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Runs the initialiser once, keeps its result in *status, marks *word (also after a failed run: the
 * result sticks) and answers the kept result to every caller. Concurrent callers wait; different
 * words do not block each other; a word cleared by a plain store allows a new run.
 */
uint32_t zymm_init_once(uint64_t *word, uint32_t (*initialiser)(void), uint32_t *status,
                        const char *name);

void zymm_numa_coredump_level_set(uint32_t level);

/*
 * Objects that a thread may cache: of slabs with page-sized objects, of objects up to 64 KiB, of
 * larger ones; and the number of threads that may cache pages. 0 = the platform's default.
 */
void zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                             uint32_t page_max_cache_threads);

/* Per-thread caches; left out of core dumps; not inherited by a forked child. */
enum { ZYMM_SLAB_CACHED = 0x2, ZYMM_SLAB_NODUMP = 0x80, ZYMM_SLAB_NOFORK = 0x800 };

typedef struct zymm_slab_param {
    char     name[32];  /* at most 31 characters */
    uint32_t module_id; /* owner */
    uint32_t align;     /* power of two; default 8 */
    uint64_t attr;      /* ZYMM_SLAB_*; default 0 */
    uint64_t obj_size;  /* bytes; default 768 */
    uint64_t min_num;   /* objects backed at creation; default 0; more than max_num fails */
    uint64_t max_num;   /* objects at most, exactly; default 0 = nothing can be allocated */
    uint64_t pool_id;   /* enclosing pool; default 0 = none */
} zymm_slab_param;

/* Fills in the defaults; 0. */
int zymm_slab_param_init(zymm_slab_param *param);

/* Handle, 0 on failure. */
uint64_t zymm_create_slab(const zymm_slab_param *param, uint32_t module_id, const char *func);

/* 0; objects still out are reported by owner, and go with the slab. */
int zymm_destory_slab(uint64_t slab, uint32_t module_id, const char *func);

/* An object; null when max_num objects are out. */
void *zymm_slab_malloc(uint64_t slab, uint32_t module_id, const char *func, uint32_t line);

/* 0; a double free or a foreign pointer is refused with an error line. */
int zymm_slab_free(uint64_t slab, void *object, uint32_t module_id, const char *func);

/* 0; total = max_num, used = objects held by callers. */
int zymm_slab_get_usage_info(uint64_t slab, uint64_t *total, uint64_t *used);

typedef struct zymm_numa_usage {
    uint64_t total, used, cached; /* objects */
} zymm_numa_usage;

/* 0. */
int zymm_slab_get_usage_by_numa(uint64_t slab, uint32_t numa_id, zymm_numa_usage *usage);

/* Objects that are out for longer than the leak age. */
uint64_t zymm_slab_get_leak_number(uint64_t slab);

/* Print to the debug console: counts; and holders by module, function, line, count, oldest age. 0. */
int zymm_slab_dump_usageinfo(uint64_t slab, uint32_t module_id, const char *func);
int zymm_slab_dump_detailinfo(uint64_t slab, uint32_t module_id, const char *func);

/* NUMA node; 0xFFFFFFFF when it is no object of the slab. */
uint32_t zymm_object_get_numaid(uint64_t slab, const void *object);

/* Bytes really spent on one object. */
uint64_t zymm_object_whole_size_get(uint64_t size, uint32_t reserved, uint32_t align);

/* Sizes in bytes. Handle, 0 on failure. */
uint64_t zymm_pool_create(const char *name, uint64_t size, uint64_t extension, uint32_t module_id,
                          const char *func);

/* 0; non-zero, and nothing destroyed, while a slab lives in it. */
int zymm_pool_destory(uint64_t pool, uint32_t module_id, const char *func);

void *zymm_malloc(uint64_t size, uint32_t module_id, const char *func);
void  zymm_free(void *memory, uint32_t module_id, const char *func);

/* One size class of an allocator's table. */
typedef struct zymm_slab_item {
    uint64_t obj_size, first, limit, class_word;
    uint32_t align;
    uint32_t pad;
} zymm_slab_item;

/* Allocator over a table of size classes; 8 words, filled in by zymm_allocator_init. */
typedef struct zymm_allocator zymm_allocator;
struct zymm_allocator {
    void *instance;
    int (*create)(zymm_allocator *, const char *name, const zymm_slab_item *table, uint32_t items,
                  uint64_t pool, uint32_t module_id, const char *func);
    void *(*alloc)(zymm_allocator *, uint64_t size, uint32_t module_id, const char *func,
                   uint32_t line);
    int (*destroy)(zymm_allocator *, uint32_t module_id, const char *func);
    int (*free)(zymm_allocator *, void *memory, uint32_t module_id, const char *func);
    uint64_t spare[3];
};

/*
 * Fills in the operations; 0. `destroy` of an allocator that was never created, or is destroyed
 * already, fails with a line; `alloc` answers null.
 */
int zymm_allocator_init(zymm_allocator *allocator);

#ifdef __cplusplus
}
#endif

#endif
