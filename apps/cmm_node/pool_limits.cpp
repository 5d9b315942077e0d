/*
 * Pages can be waited for, SGLs cannot: a thread must find those of its request whenever it needs
 * them. A request has its own chain and one more for each replica's writer, all of one length; while
 * zeros are woven in, or a chain is borrowed, it has two.
 */
#include "pool_limits.h"

#include <algorithm>

#include "node_error.h"
#include "page_wait.h"
#include "zyumm_cmm.h"

namespace {

constexpr uint32_t LONGEST_REQUEST = 128; /* pages: 1 MiB of data */

uint32_t sgls_of(uint32_t pages)
{
    return (pages + SGL_MAX_ENTRY_NUM - 1) / SGL_MAX_ENTRY_NUM;
}

} // namespace

uint32_t pool_limits::chunk_bytes() const
{
    return chunk_pages * PAGE_DATA_SIZE;
}

pool_limits find_limits(uint32_t replicas)
{
    const uint32_t chains = 1 + replicas;
    const cmm_config &pools = g_ucmm_config;
    const uint64_t longest_chain = uint64_t(pools.sgl_max / chains) * SGL_MAX_ENTRY_NUM;

    if (longest_chain == 0)
        throw node_error("the SGL pool of " + std::to_string(pools.sgl_max) +
                         " is too small: a request with " + std::to_string(replicas) +
                         " replicas needs " + std::to_string(chains));

    const uint32_t pages =
        uint32_t(std::min<uint64_t>({LONGEST_REQUEST, pools.page_max, longest_chain}));
    const uint32_t threads = std::min({places_to_wait(), pools.req_max,
                                       pools.sgl_max / (sgls_of(pages) * chains)});
    return {pages, std::max(1u, threads), std::min(pages, pools.page_max - pages)};
}
