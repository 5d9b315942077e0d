/*
 * Coarse time: ticks of 2^27 ns (134 ms), enough to tell how long an object has been out.
 *
 * Reading a clock at each allocation would cost more than the rest of it. A timer of the layer
 * below moves the tick on; in a forked child, where no timer runs, every slow path does.
 */
#pragma once

#include <atomic>
#include <stdint.h>

namespace zymm
{

enum : uint32_t { TICK_SHIFT = 27 };

extern std::atomic<uint64_t> g_tick_bits; /* as it stands in a tag: the upper half */

inline uint64_t tick_bits_now()
{
    return g_tick_bits.load(std::memory_order_relaxed);
}

inline uint32_t tick_now()
{
    return uint32_t(tick_bits_now() >> 32);
}

/* Sets the tick by the clock; any thread. Answers the tick. */
uint32_t tick_refresh();

/* Starts the timer, once a process. */
void tick_start();

} // namespace zymm
