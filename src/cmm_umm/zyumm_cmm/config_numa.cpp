/*
 * NUMA correction of object counts.
 *
 * A count in the document may be meant for one NUMA node. With `numa_factor` set it is multiplied
 * by the nodes that the process may run on and by a percentage:
 *
 *     count x num_factor x nodes / 100        num 1000, num_factor 50, 2 of 4 nodes: 1000
 *
 * All of it is unsigned 32-bit arithmetic: products wrap, the division truncates. A process that is
 * bound to none of the machine's nodes counts as running on all of them.
 */
#include "zyumm_cmm.h"

#include "zyax.h"

#include "common/cmm_log.h"

static constexpr uint32_t PERCENT = 100;

/*
 * sic: the bit of node i is a 32-bit one, shifted by i modulo 32 and sign-extended. Node 31 thus
 * also stands for everything above it, and node 32 is node 0 again; counts that operators tuned on
 * large machines rest on these numbers.
 */
static uint64_t node_bit(uint32_t index)
{
    return uint64_t(int64_t(int32_t(1u << (index % 32))));
}

/* The nodes among the first `n` that the mask names, or all `n` when it names none. */
static uint32_t nodes_in(uint64_t mask, uint32_t n)
{
    uint32_t count = 0;

    for (uint32_t i = 0; i < n; ++i)
        count += (mask & node_bit(i)) != 0 ? 1 : 0;
    return count != 0 ? count : n;
}

void umm_fix_cmm_quota(uint32_t *min, uint32_t *max, uint32_t numa_factor, uint32_t num_factor)
{
    uint64_t mask = 0;

    if (min == nullptr || max == nullptr)
        return;

    if (zyax_numam_status_get() == 0 || numa_factor == 0)
        return;

    const int known = zyax_numam_proc_numamask_get(&mask);
    if (known != 0) {
        CMM_LOG(ZYLOG_WARNING, "CMM get proc numa mask failed.");
        return;
    }
    const uint32_t nodes = nodes_in(mask, zyax_numam_num_get());
    *min = *min * num_factor * nodes / PERCENT;
    *max = num_factor * *max * nodes / PERCENT;
}
