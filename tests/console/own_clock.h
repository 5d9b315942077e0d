/*
 * The process's monotonic clock, set by hand: the program defines the seam's two clock operations.
 * Timers go on by the system's clock.
 */
#pragma once

#include <cstdint>

/* The clock as tests find it, and as they move it on. */
inline constexpr uint64_t CLOCK_AT_START_NS = 1'000'000'000'000;

void advance_clock_ms(uint64_t ms);
