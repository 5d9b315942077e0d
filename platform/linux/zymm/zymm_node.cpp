/*
 * NUMA nodes.
 *
 * The number of nodes is settled when it is first asked for, since every slab is laid out with one
 * depot a node. Node numbers can have gaps: the count is the highest number plus one, and a depot
 * without memory or threads just stays empty.
 *
 * Binding is a preference: when the node is full its memory comes from others, an allocation never
 * fails for it. Made-up nodes (zymm_topology_set) have no memory to bind.
 */
#include "zymm_node.h"

#include <atomic>
#include <numa.h>
#include <numaif.h>
#include <sched.h>

#include "zymm_lock.h"
#include "zymm_seam.h"

namespace zymm
{

using node_of_caller_fn = uint32_t (*)(void);

static pthread_mutex_t                s_topology_lock = PTHREAD_MUTEX_INITIALIZER;
static std::atomic<uint32_t>          s_nodes{0}; /* 0 = not settled yet */
static std::atomic<node_of_caller_fn> s_node_of_caller{nullptr};

static uint32_t machine_nodes()
{
    if (numa_available() < 0)
        return 1;
    const int highest = numa_max_node();
    if (highest < 0)
        return 1;
    return uint32_t(highest) < MOST_NODES ? uint32_t(highest) + 1 : uint32_t(MOST_NODES);
}

uint32_t node_count()
{
    const uint32_t settled = s_nodes.load(std::memory_order_acquire);
    if (settled != 0)
        return settled;

    scoped_lock held(&s_topology_lock);
    if (s_nodes.load(std::memory_order_relaxed) == 0)
        s_nodes.store(machine_nodes(), std::memory_order_release);
    return s_nodes.load(std::memory_order_relaxed);
}

uint32_t node_here()
{
    const uint32_t nodes = node_count();
    if (nodes == 1)
        return 0;
    const node_of_caller_fn made_up = s_node_of_caller.load(std::memory_order_acquire);
    unsigned cpu = 0;
    unsigned node = 0;
    if (made_up != nullptr)
        node = made_up();
    else if (getcpu(&cpu, &node) != 0)
        node = 0;
    return node % nodes;
}

bool nodes_are_made_up()
{
    return s_node_of_caller.load(std::memory_order_relaxed) != nullptr;
}

void node_bind(void *memory, uint64_t bytes, uint32_t node)
{
    if (node_count() == 1 || nodes_are_made_up())
        return;
    const unsigned long mask = 1ul << node;
    mbind(memory, bytes, MPOL_PREFERRED, &mask, MOST_NODES + 1, 0);
}

} // namespace zymm

using namespace zymm;

int zymm_topology_set(uint32_t nodes, uint32_t (*node_of_caller)(void))
{
    if (nodes == 0 || nodes > MOST_NODES || node_of_caller == nullptr) {
        ZYMM_ERROR(__func__, "bad topology: %u nodes.", nodes);
        return -1;
    }
    bool settled_before = true;
    {
        scoped_lock held(&s_topology_lock);
        settled_before = s_nodes.load(std::memory_order_relaxed) != 0;
        if (!settled_before) {
            s_node_of_caller.store(node_of_caller, std::memory_order_release);
            s_nodes.store(nodes, std::memory_order_release);
        }
    }
    if (settled_before) {
        ZYMM_ERROR(__func__, "the topology is settled, slabs have been created.");
        return -1;
    }
    return 0;
}
