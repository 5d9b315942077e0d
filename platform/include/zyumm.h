/*
 * Unified memory manager of the platform: partitions and the memory pools made in them. A memory
 * pool is a slab of the layer below made with the pool's parameters; both kinds of handle live in
 * one space.
 *
 * Threads: every operation may be called by any thread; deleting needs all other users to be gone.
 */
#ifndef ZYUMM_H
#define ZYUMM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Id, 0 on failure. */
uint32_t zyumm_partition_create(uint32_t a, uint32_t b, uint32_t c, const char *name);

/* 0, also while memory pools made in it still exist: they live on until deleted. */
int zyumm_partition_delete(uint32_t id);

/*
 * attr: 0x2 and 0x10 per-thread caches; 0x4 objects cleared when allocated; 0x40 left out of core
 * dumps; 0x80 not inherited by a forked child; 0x100 locked in memory; 0x200 one block,
 * page-aligned; 0x400 huge pages.
 */
typedef struct zyumm_mpool_param {
    uint64_t partition;
    uint64_t obj_size;
    uint32_t zero;
    uint32_t pad0;
    uint64_t reserved_num;
    uint64_t max_num; /* 0 = no limit but memory */
    uint32_t module_id;
    uint32_t pad1;
    uint64_t attr;
    uint32_t cache_num;
    uint32_t cache_size;
    char     name[32];
} zyumm_mpool_param;

/* Handle, 0 on failure; a pool in partition 0 or an unknown one is refused. */
uint64_t zyumm_mpool_create(const zyumm_mpool_param *param);

/* 0; non-zero while objects are out, and for handle 0. */
int zyumm_mpool_delete(uint64_t pool);

/* An object or null. */
void *zyumm_mpool_alloc_i(uint64_t pool, uint32_t module_id, const char *caller);
void *ucmm_mpool_alloc_i(uint64_t pool, uint32_t module_id, const char *caller);

/* 0. */
int zyumm_mpool_free_i(uint64_t pool, void *object, uint32_t module_id, const char *caller);

/* 0; total = max_num, or the number carved so far when there is no limit. */
int get_mpool_alloc_info(uint64_t pool, uint32_t *total, uint32_t *allocated);

uint32_t mmGetObjectSum(uint64_t pool);
uint32_t mmGetBusyObjectSum(uint64_t pool);

/* Objects out; takes a slab handle. */
uint64_t mmGetUesdInfo(uint64_t slab);

/* Objects of any size from a public pool. */
void *pub_mpool_alloc_i(uint64_t pool, uint32_t size, uint32_t module_id, const char *caller);
int   pub_mpool_free_i(uint64_t pool, void *object, uint32_t module_id, const char *caller);

/* Defaults of a pool's per-thread cache. */
uint32_t getLocalCacheDefaultNum(void);
uint32_t getLocalCacheDefaultSize(void);

/* Facts of a slab or a memory pool. */
typedef struct zyumm_partition_info {
    char     name[32];
    uint64_t obj_size, whole_size, min_num, max_num, total, used;
    uint32_t module_id, pad;
} zyumm_partition_info;

/* 0. */
int zyumm_partition_info_get(uint64_t handle, zyumm_partition_info *info);

#ifdef __cplusplus
}
#endif

#endif
