/*
 * What bites when the pools are made, and later when they are used.
 */
#include "description.h"
#include "reading.h"

static const pool_line *find_pool(const description &told, const std::string &name)
{
    for (const pool_line &pool : told.pools) {
        if (pool.name == name)
            return &pool;
    }
    return nullptr;
}

/* `pool` makes the difference between a start that fails and a number without effect. */
static void find_minimum(const reading &read, const char *what, const char *pool, uint64_t min,
                         uint64_t max, description *out)
{
    if (min <= max)
        return;

    bool is_refused = false;
    for (const slab_wish &wish : read.trace.slabs)
        is_refused = is_refused || (wish.name == pool && !wish.is_made);
    warn(out, "min_above_max",
         "The minimum of " + std::string(what) + ", " + grouped(min) +
             ", is above their maximum, " + grouped(max) +
             (is_refused ? ": the pool cannot be made, and the start fails."
              : max == 0 ? ": the pool is not made."
                         : ": whoever makes the pool is refused."));
}

static void find_sizes(const cmm_pool_quota &quota, const char *name, description *out)
{
    if (quota.reserve_size > quota.max_size)
        warn(out, "min_above_max",
             "reserve_size of <" + std::string(name) + ">, " + grouped(quota.reserve_size) +
                 " KiB, is above its max_size, " + grouped(quota.max_size) + " KiB.");
}

static void find_corrections(description *out)
{
    for (const value_line &line : out->values) {
        if (line.origin != ORIGIN_NUMA)
            continue;
        if (line.has_wrapped)
            warn(out, "value_beyond_32_bits",
                 line.name +
                     " does not fit 32 bits on its way through the NUMA correction and "
                     "wraps around to " +
                     grouped(line.value) + ".");
        if (line.value == 0 && uint32_t(*line.number) != 0)
            warn(out, "numa_makes_zero", line.name + " is 0 after the NUMA correction.");
    }
}

static void find_chains(const cmm_config &config, description *out)
{
    const uint64_t reach = uint64_t{config.sgl_max} * SGL_MAX_ENTRY_NUM;
    if (config.page_max > reach)
        warn(out, "sgl_pool_too_small",
             grouped(config.sgl_max) + " SGLs describe " + grouped(reach) +
                 " pages at most; the page pool has " + grouped(config.page_max) + ".");
}

static void find_requests(const cmm_config &config, description *out)
{
    const pool_line *slab = find_pool(*out, "PAGE REQUEST");
    if (slab->maker == "library" && slab->max == 0)
        warn(out, "request_slab_empty",
             grouped(config.page_max) +
                 " pages make a request slab of 0 records, one for each 8 "
                 "pages: a request that would have to wait is refused at once.");
}

static void find_memory(description *out)
{
    uint64_t reserved = 0;
    for (const pool_line &pool : out->pools)
        reserved += pool.reserve_bytes;
    if (reserved > out->memory.bytes)
        warn(out, "memory_exceeded",
             "The pools reserve " + grouped(reserved) + " bytes, more than the node's " +
                 grouped(out->memory.bytes) + ".");
}

void find_in_pools(const reading &read, description *out)
{
    const cmm_config &config = read.config;
    if (read.process == nullptr)
        return;

    find_minimum(read, "requests", "REQ PARTITION", config.req_min, config.req_max, out);
    find_minimum(read, "SGLs", "SGL PARTITION", config.sgl_min, config.sgl_max, out);
    find_minimum(read, "pages", "PAGE PARTITION", config.page_min, config.page_max, out);
    find_sizes(config.normal_pool, "normal_pool", out);
    find_sizes(config.io_pool, "io_pool", out);
    find_corrections(out);
    find_chains(config, out);
    find_requests(config, out);
    find_memory(out);
}
