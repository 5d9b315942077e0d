/*
 * Address map: a three-level table over the 47 bits of a user address, one entry a unit of 64 KiB.
 *
 *      46        36 35        26 25        16 15          0
 *     |    root    |   branch   |    leaf    |  in a unit   |
 *
 * Readers walk it with acquire loads and no lock; entries and nodes are entered under one lock and
 * published with release stores. Nodes are never taken away: an address space in use is small (a
 * leaf serves 64 MiB), and readers may be on their way through.
 */
#include "zymm_address.h"

#include <atomic>

#include "zymm_lock.h"
#include "zymm_store.h"
#include "zymm_system.h"

namespace zymm
{

enum : uint32_t { ROOT_BITS = 11, NODE_BITS = 10, UNIT_SHIFT = 16, ADDRESS_BITS = 47 };

struct map_leaf {
    std::atomic<piece *> entries[1 << NODE_BITS];
};

struct map_branch {
    std::atomic<map_leaf *> leaves[1 << NODE_BITS];
};

static std::atomic<map_branch *> s_root[1 << ROOT_BITS];
static pthread_mutex_t           s_map_lock = PTHREAD_MUTEX_INITIALIZER;
static control_store             s_nodes = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};

static uint32_t node_index(uintptr_t address, uint32_t level)
{
    return uint32_t(address >> (UNIT_SHIFT + NODE_BITS * level)) & ((1u << NODE_BITS) - 1);
}

static uint32_t root_index(uintptr_t address)
{
    return uint32_t(address >> (UNIT_SHIFT + 2 * NODE_BITS));
}

static map_leaf *leaf_of(uintptr_t address)
{
    if (address >> ADDRESS_BITS != 0)
        return nullptr;
    map_branch *branch = s_root[root_index(address)].load(std::memory_order_acquire);
    if (branch == nullptr)
        return nullptr;
    return branch->leaves[node_index(address, 1)].load(std::memory_order_acquire);
}

/* The node that `link` points to, made if it is missing. */
template <typename Node> static Node *grown(std::atomic<Node *> *link)
{
    Node *node = link->load(std::memory_order_relaxed);
    if (node != nullptr)
        return node;
    node = static_cast<Node *>(store_get(&s_nodes, sizeof(Node)));
    if (node != nullptr)
        link->store(node, std::memory_order_release);
    return node;
}

static map_leaf *grow_leaf(uintptr_t address)
{
    if (address >> ADDRESS_BITS != 0)
        return nullptr;
    map_branch *branch = grown(&s_root[root_index(address)]);
    return branch == nullptr ? nullptr : grown(&branch->leaves[node_index(address, 1)]);
}

static bool set_entries(uintptr_t base, uint64_t bytes, piece *owner)
{
    for (uint64_t at = 0; at < bytes; at += UNIT_BYTES) {
        map_leaf *leaf = grow_leaf(base + at);
        if (leaf == nullptr)
            return false;
        leaf->entries[node_index(base + at, 0)].store(owner, std::memory_order_release);
    }
    return true;
}

static void clear_entries(uintptr_t base, uint64_t bytes)
{
    for (uint64_t at = 0; at < bytes; at += UNIT_BYTES) {
        map_leaf *leaf = leaf_of(base + at);
        if (leaf != nullptr)
            leaf->entries[node_index(base + at, 0)].store(nullptr, std::memory_order_release);
    }
}

bool address_enter(const void *base, uint64_t bytes, piece *owner)
{
    static_assert(sizeof(map_leaf) == sizeof(map_branch), "both come from one store");
    scoped_lock held(&s_map_lock);
    const uintptr_t from = reinterpret_cast<uintptr_t>(base);
    const bool entered = set_entries(from, bytes, owner);
    if (!entered)
        clear_entries(from, bytes);
    return entered;
}

void address_remove(const void *base, uint64_t bytes)
{
    scoped_lock held(&s_map_lock);
    clear_entries(reinterpret_cast<uintptr_t>(base), bytes);
}

piece *address_find(const void *object)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(object);
    const map_leaf *leaf = leaf_of(address);
    if (leaf == nullptr)
        return nullptr;
    return leaf->entries[node_index(address, 0)].load(std::memory_order_acquire);
}

} // namespace zymm
