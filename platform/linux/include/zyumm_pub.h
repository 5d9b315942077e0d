/*
 * Host interface of the unified memory manager: public pools, from which pub_mpool_alloc_i serves
 * requests of any size.
 *
 * Threads: every function may be called by any thread; deleting needs all other users to be gone.
 */
#ifndef ZYUMM_PUB_H
#define ZYUMM_PUB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Module id under which the layer logs. */
enum { ZYUMM_MODULE_ID = 3 };

/* What getLocalCacheDefaultNum and getLocalCacheDefaultSize answer: objects, and bytes. */
enum { ZYUMM_LOCAL_CACHE_NUM = 64, ZYUMM_LOCAL_CACHE_BYTES = 262144 };

/* The largest request that a public pool serves: 16 MiB. */
enum { ZYUMM_PUB_LARGEST = 16777216 };

/*
 * Makes a public pool: an enclosing pool with an allocator in it that serves 1 byte to 16 MiB.
 *
 * name:      at most 31 characters, longer ones are cut; null = unnamed.
 * size:      bytes reserved at once, backed as they are used. With 0 and no extension the pool
 *            serves nothing.
 * extension: bytes by which it grows each time it is used up; 0 = it does not.
 * module_id: owner.
 *
 * Returns a handle, or 0 and an error line.
 */
uint64_t zyumm_pub_mpool_create(const char *name, uint64_t size, uint64_t extension,
                                uint32_t module_id);

/*
 * Deletes a public pool. 0; -1 and an error line while objects are out (nothing is changed) and for
 * a stale handle; -1 without a line for 0.
 */
int zyumm_pub_mpool_delete(uint64_t pool);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
