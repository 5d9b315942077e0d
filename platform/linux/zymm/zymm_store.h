/*
 * Control stores: blocks of one size for the layer's own records (slabs, pieces, pools, nodes of
 * the address map).
 *
 * A block that was handed out once stays mapped for ever and is only used again for the same kind
 * of record. That is what makes lookups without locks safe: a reader that is overtaken by a destroy
 * reads a record that is empty or another one of its kind, never memory that is gone.
 *
 * Blocks are aligned to a cache line and zero when first handed out; one that comes back keeps its
 * content but for the first word, which is the store's while the block is in it.
 */
#pragma once

#include <pthread.h>
#include <stdint.h>

namespace zymm
{

struct control_store {
    pthread_mutex_t lock;
    void           *free_blocks;
    char           *next; /* uncut rest of the newest mapping */
    char           *end;
};

/* A block, null when there is no memory. `bytes` is the same in every call for one store. */
void *store_get(control_store *store, uint64_t bytes);
void  store_put(control_store *store, void *block);

/* Zeroed memory for a record that is too large for a store and stays for ever; null without. */
void *store_map(uint64_t bytes);

/* Bytes mapped for all stores. */
uint64_t store_mapped_bytes();

} // namespace zymm
