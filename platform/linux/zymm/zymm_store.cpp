/*
 * Control stores. Each is a list of returned blocks and the uncut rest of its newest mapping, under
 * one lock; they are used when slabs and pieces are made and destroyed, never for an object.
 *
 * Mappings are not given back and do not count as memory of any slab.
 */
#include "zymm_store.h"

#include <atomic>
#include <sys/mman.h>

#include "zymm_lock.h"
#include "zymm_system.h"

namespace zymm
{

enum : uint64_t { LINE_BYTES = 64, BLOCKS_A_MAPPING = 8 };

static std::atomic<uint64_t> s_store_bytes{0};

void *store_map(uint64_t bytes)
{
    const uint64_t size = round_up(bytes, PAGE_BYTES);
    void *memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    s_store_bytes.fetch_add(size, std::memory_order_relaxed);
    return memory;
}

static bool refill(control_store *store, uint64_t bytes)
{
    const uint64_t wanted = bytes * BLOCKS_A_MAPPING;
    const uint64_t size = wanted < UNIT_BYTES ? uint64_t(UNIT_BYTES) : wanted;
    void *memory = store_map(size);
    if (memory == nullptr)
        return false;

    store->next = static_cast<char *>(memory);
    store->end = store->next + round_up(size, PAGE_BYTES);
    return true;
}

void *store_get(control_store *store, uint64_t bytes)
{
    const uint64_t size = round_up(bytes, LINE_BYTES);
    scoped_lock held(&store->lock);
    void *block = store->free_blocks;
    if (block != nullptr) {
        store->free_blocks = *static_cast<void **>(block);
        return block;
    }
    if (uint64_t(store->end - store->next) < size && !refill(store, size))
        return nullptr;

    block = store->next;
    store->next += size;
    return block;
}

void store_put(control_store *store, void *block)
{
    scoped_lock held(&store->lock);
    *static_cast<void **>(block) = store->free_blocks;
    store->free_blocks = block;
}

uint64_t store_mapped_bytes()
{
    return s_store_bytes.load(std::memory_order_relaxed);
}

} // namespace zymm
