/*
 * The rows of `top`'s panels: those of a sample that the filter lets through, in the order that the
 * view asks for. Equal rows keep the order in which the process tells them, so that a screen is
 * quiet.
 *
 * Threads: values; any.
 */
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "rates.h"
#include "sample_round.h"
#include "top_view.h"

struct pool_row {
    pool_report              pool;
    std::optional<pool_rate> rate;

    /* What the pool's use is measured with: its maximum, or without one what it has made. */
    uint64_t capacity() const { return pool.max.value_or(pool.total); }
    double   use() const;

    /* How near the pool is to its end; a pool of a single object is meant to be used up. */
    double dryness() const { return capacity() <= 1 ? 0 : use(); }
};

struct top_rows {
    std::vector<pool_row>       pools;
    std::vector<request_report> requests;
    std::vector<holder_report>  holders;

    std::array<size_t, TOP_PANELS> counts() const
    {
        return {pools.size(), requests.size(), holders.size()};
    }
};

/* Names of a panel's sort keys, in the order in which one key press goes to the next. */
const std::vector<std::string> &sort_keys(top_panel panel);

top_rows rows_of(const node_sample &sample, const pool_rates &rates, const top_view &view);
