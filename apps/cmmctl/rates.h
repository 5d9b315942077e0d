/*
 * How fast a pool gives and takes, from two samples of its counters.
 *
 * There is no rate where the two do not belong together: the pool is new, a counter has fallen (the
 * process was started anew and its handles happen to be the same), or no time has passed on the
 * process's own clock. A rate that is not there is not 0: a screen says so.
 */
#pragma once

#include <map>
#include <optional>
#include <string>

#include "node_report.h"

struct pool_rate {
    double allocs = 0, frees = 0; /* a second */
};

/* By the pools' handles; pools without a rate are not in it. */
using pool_rates = std::map<std::string, pool_rate>;

/* `before` may be of another process. */
pool_rates rates_between(const pools_report &before, const pools_report &now);
