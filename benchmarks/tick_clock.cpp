#include "tick_clock.h"

#include <chrono>

namespace bench
{

static double measure_rate(void)
{
    using clock = std::chrono::steady_clock;
    const clock::time_point begin = clock::now();
    const uint64_t first = __rdtsc();
    while (clock::now() - begin < std::chrono::milliseconds(50)) {
    }
    const uint64_t last = __rdtsc();
    const std::chrono::duration<double, std::nano> passed = clock::now() - begin;
    return passed.count() / double(last - first);
}

double nanoseconds_per_tick(void)
{
    static const double s_rate = measure_rate();
    return s_rate;
}

uint64_t measure_nothing(void)
{
    uint64_t least = UINT64_MAX;
    for (int i = 0; i < 10000; ++i) {
        const uint64_t begin = tick();
        least = std::min(least, tick() - begin);
    }
    return least;
}

double histogram::percentile(double part)
{
    const uint64_t rank = uint64_t(part * double(all_));
    uint64_t seen = 0;
    for (uint64_t ticks = 0; ticks < FINE; ++ticks) {
        seen += counts_[ticks];
        if (seen > rank)
            return double(ticks) * nanoseconds_per_tick();
    }
    std::sort(large_.begin(), large_.end());
    const uint64_t index = std::min<uint64_t>(rank - seen, large_.size() - 1);
    return large_.empty() ? 0 : double(large_[index]) * nanoseconds_per_tick();
}

} // namespace bench
