#include "own_clock.h"

#include <atomic>

#include "zyax.h"

/* Visible, so that the shared libraries use it. */
#define PROGRAMS_OWN extern "C" __attribute__((visibility("default")))

static std::atomic<uint64_t> g_now_ns{CLOCK_AT_START_NS};

PROGRAMS_OWN uint64_t zyax_time_getnanosec(void)
{
    return g_now_ns.load(std::memory_order_relaxed);
}

PROGRAMS_OWN uint64_t zyax_get_jiffies(void)
{
    return g_now_ns.load(std::memory_order_relaxed) / 1'000'000;
}

void advance_clock_ms(uint64_t ms)
{
    g_now_ns.fetch_add(ms * 1'000'000, std::memory_order_relaxed);
}
