/*
 * How much can be under way at once with the pools that the configuration gives.
 */
#pragma once

#include <cstdint>

struct pool_limits {
    uint32_t chunk_pages; /* of one request at most */
    uint32_t threads;     /* that may all wait for pages at once */
    uint32_t cache_pages; /* that may be kept without starving a request */

    uint32_t chunk_bytes() const;
};

/* Of a started library; throws when the SGL pool is too small for even one request. */
pool_limits find_limits(uint32_t replicas);
