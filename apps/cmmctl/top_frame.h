/*
 * The whole screen of `top`, as a pure function of what is known and how it is to be shown.
 *
 *     line 1      which process, and whether it still answers
 *     line 2      the figures that matter most
 *     panels      pools, requests that wait, holders; on a low screen the chosen one alone
 *     last line   what keys do, or the filter while it is typed
 *
 * Threads: values; any.
 */
#pragma once

#include <sys/types.h>

#include "painted_text.h"
#include "top_rows.h"

struct top_state {
    std::optional<node_sample> sample; /* the last one that came; none yet */
    pool_rates                 rates;
    top_view                   view;
    pid_t                      pid = 0;        /* 0 = unknown */
    std::string                trouble;        /* why there is no newer sample; empty = none */
    uint64_t                   trouble_ms = 0; /* for how long */
};

/* A frame of exactly `lines` lines, none wider than `columns`; with `lines` 0 of as many as it
 * takes. */
painted_text top_frame(const top_state &state, size_t columns, size_t lines);
