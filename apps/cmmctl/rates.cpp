/*
 * Pools are found again by their handles, which a process never gives out twice.
 */
#include "rates.h"

namespace {

std::optional<pool_rate> rate_between(const pool_report &before, const pool_report &now,
                                      double seconds)
{
    if (before.name != now.name || now.allocs < before.allocs || now.frees < before.frees)
        return std::nullopt;
    return pool_rate{double(now.allocs - before.allocs) / seconds,
                     double(now.frees - before.frees) / seconds};
}

} // namespace

pool_rates rates_between(const pools_report &before, const pools_report &now)
{
    std::map<std::string, const pool_report *> known;
    pool_rates rates;

    if (now.now_ms <= before.now_ms)
        return rates;
    for (const pool_report &pool : before.pools)
        known[pool.handle] = &pool;
    for (const pool_report &pool : now.pools) {
        const auto same = known.find(pool.handle);
        if (same == known.end())
            continue;
        if (const auto rate = rate_between(*same->second, pool,
                                           double(now.now_ms - before.now_ms) / 1000))
            rates[pool.handle] = *rate;
    }
    return rates;
}
