/*
 * NUMA facts, from libnuma.
 *
 * A node counts whether it has memory, processors or both, and the number of nodes is one more than
 * the highest: bits of a mask and answers by node are asked for by numbers below it. libnuma's own
 * count and its own mask of nodes to run on know nodes with memory only, so that a process on the
 * processors of another one would seem to run nowhere.
 *
 * A kernel without NUMA counts as one node that every process may run on. The mask has a bit for
 * each of the first 64 nodes.
 */
#include "zyax_local.h"

#include <numa.h>

static constexpr uint32_t MASK_BITS = 64;

static bool is_available(void)
{
    return numa_available() >= 0;
}

uint32_t zyax_numam_num_get(void)
{
    const int highest = is_available() ? numa_max_node() : 0;
    return highest > 0 ? uint32_t(highest) + 1 : 1;
}

int zyax_numam_status_get(void)
{
    return zyax_numam_num_get() >= 2 ? 1 : 0;
}

static bool have_common(const bitmask *some, const bitmask *others)
{
    for (unsigned int bit = 0; bit < some->size && bit < others->size; ++bit) {
        if (numa_bitmask_isbitset(some, bit) != 0 && numa_bitmask_isbitset(others, bit) != 0)
            return true;
    }
    return false;
}

/* Nodes with one of these processors; `room` is overwritten. */
static uint64_t nodes_of(const bitmask *processors, bitmask *room)
{
    uint64_t mask = 0;
    for (uint32_t node = 0; node < zyax_numam_num_get() && node < MASK_BITS; ++node) {
        const int status = numa_node_to_cpus(int(node), room);
        if (status == 0 && have_common(processors, room))
            mask |= uint64_t(1) << node;
    }
    return mask;
}

static uint64_t run_mask(void)
{
    if (!is_available())
        return 1;

    bitmask *mine = numa_allocate_cpumask();
    bitmask *room = numa_allocate_cpumask();
    const int known = numa_sched_getaffinity(0, mine);
    const uint64_t mask = known >= 0 ? nodes_of(mine, room) : 0;
    numa_free_cpumask(mine);
    numa_free_cpumask(room);
    return mask != 0 ? mask : 1;
}

int zyax_numam_proc_numamask_get(uint64_t *mask)
{
    if (mask == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "The NUMA mask is asked for with a null result.");
        return -1;
    }

    *mask = run_mask();
    return 0;
}
