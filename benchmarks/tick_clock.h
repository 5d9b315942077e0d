/*
 * Times of single operations, by the processor's time stamp counter, and their percentiles.
 *
 * The counter must run evenly (constant_tsc), which every x86-64 server of the last decade offers;
 * its rate is measured against the system's clock once. What two readings without anything between
 * them differ by is taken off each time.
 *
 * Threads: a histogram belongs to one thread.
 */
#pragma once

#include <x86intrin.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace bench
{

/* Nothing before it is still under way when the counter is read, nothing after it has begun. */
inline uint64_t tick(void)
{
    _mm_lfence();
    const uint64_t now = __rdtsc();
    _mm_lfence();
    return now;
}

double nanoseconds_per_tick(void);
uint64_t measure_nothing(void);

inline uint64_t ticks_of_nothing(void)
{
    static const uint64_t s_least = measure_nothing();
    return s_least;
}

/* Ticks since `begin`, without what the two readings themselves took. */
inline uint64_t net_ticks(uint64_t begin)
{
    const uint64_t passed = tick() - begin;
    const uint64_t own = ticks_of_nothing();
    return passed > own ? passed - own : 0;
}

class histogram
{
public:
    histogram() : counts_(FINE)
    {
        large_.reserve(1024);
    }
    void add(uint64_t ticks)
    {
        if (ticks < FINE)
            ++counts_[ticks];
        else
            large_.push_back(ticks);
        ++all_;
    }
    uint64_t count() const
    {
        return all_;
    }
    /* Nanoseconds that the fraction `part` of all operations did not exceed. */
    double percentile(double part);

private:
    static constexpr uint64_t FINE = 1 << 16;

    std::vector<uint32_t> counts_; /* by ticks */
    std::vector<uint64_t> large_;  /* the few beyond */
    uint64_t all_ = 0;
};

} // namespace bench
