/*
 * What the slab layer offers to the unified memory manager above it and to nobody else: slabs with
 * a memory pool's extra properties, facts of a slab, and handles of its handle space.
 *
 * Threads: as the seam: any thread; destroying needs all other users to be gone.
 */
#ifndef ZYMM_PRIVATE_H
#define ZYMM_PRIVATE_H

#include <stdint.h>

#pragma GCC visibility push(default)
#include "zymm.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bits beyond ZYMM_SLAB_*, in the numbers that memory pools use. */
enum {
    ZYMM_EXTRA_CLEARED   = 0x4,   /* objects are zeroed when allocated */
    ZYMM_EXTRA_LOCKED    = 0x100, /* memory is locked; creation fails when the limit forbids it */
    ZYMM_EXTRA_ONE_BLOCK = 0x200, /* all max_num objects in one block that begins on a page */
    ZYMM_EXTRA_HUGE      = 0x400  /* huge pages where the system has them */
};

typedef struct zymm_slab_extra {
    uint64_t attr;       /* ZYMM_EXTRA_* */
    uint32_t unlimited;  /* 1 = max_num is not looked at, memory is the only limit */
    uint32_t cache_num;  /* objects a thread may cache; 0 = what cache_size says */
    uint32_t cache_size; /* bytes a thread may cache; 0 = what the process set */
    uint32_t pad;
} zymm_slab_extra;

/* As zymm_create_slab, with the extra properties; `operation` names the line of a failure. */
uint64_t zymm_create_slab_ex(const zymm_slab_param *param, const zymm_slab_extra *extra,
                             uint32_t module_id, const char *operation);

/*
 * Destroys a slab if none of its objects is out: 0. Otherwise -1 with an error line in the name of
 * `operation`, and nothing changed. Handle 0: -1 without a line.
 */
int zymm_slab_destroy_empty(uint64_t slab, const char *operation);

/* As zymm_slab_malloc (line 0) and zymm_slab_free; refusals are logged as `operation`. */
void *zymm_slab_malloc_for(uint64_t slab, uint32_t module_id, const char *caller,
                           const char *operation);
int   zymm_slab_free_for(uint64_t slab, void *object, uint32_t module_id, const char *caller,
                         const char *operation);

typedef struct zymm_slab_facts {
    char     name[32];
    uint64_t obj_size, whole_size, min_num;
    uint64_t max_num; /* 0 when there is no limit but memory, or none was allowed */
    uint64_t total;   /* max_num; carved so far when there is no limit */
    uint64_t used;    /* held by callers */
    uint64_t attr;    /* ZYMM_SLAB_* and ZYMM_EXTRA_* */
    uint32_t module_id, align;
    uint32_t unlimited; /* 1 = no limit but memory */
    uint32_t pad;
} zymm_slab_facts;

/* 0; -1 and nothing written for 0 (quiet) and a stale handle (error line for `operation`). */
int zymm_slab_facts_get(uint64_t slab, zymm_slab_facts *facts, const char *operation);

/* Objects of the allocator that are out; 0 for one that was not created. */
uint64_t zymm_allocator_used(const zymm_allocator *allocator);

/* Handles of public pools. `_expect` writes an error line unless the handle is 0 or valid. */
uint64_t zymm_public_handle_make(void *body);
void    *zymm_public_handle_expect(uint64_t handle, const char *operation, const char *caller);
void    *zymm_public_handle_drop(uint64_t handle);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
