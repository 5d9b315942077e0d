/*
 * NUMA facts, from libnuma.
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
    const int nodes = is_available() ? numa_num_configured_nodes() : 1;
    return nodes > 1 ? uint32_t(nodes) : 1;
}

int zyax_numam_status_get(void)
{
    return zyax_numam_num_get() >= 2 ? 1 : 0;
}

static uint64_t run_mask(void)
{
    bitmask *nodes = is_available() ? numa_get_run_node_mask() : nullptr;
    if (nodes == nullptr)
        return 1;

    uint64_t mask = 0;
    for (uint32_t node = 0; node < MASK_BITS; ++node) {
        if (numa_bitmask_isbitset(nodes, node) != 0)
            mask |= uint64_t(1) << node;
    }
    numa_bitmask_free(nodes);
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
