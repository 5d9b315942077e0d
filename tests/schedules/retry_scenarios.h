/*
 * The meetings that are explored, each with every order of its steps.
 *
 *     scenario      threads                                    what is looked for
 *     -----------   ----------------------------------------   ------------------------------------
 *     serving       a run | two walks | a page back            the mark keeps the walk off; the
 *                                                              marker never names a freed record
 *     giving_up     the same without free pages                the mark is cleared as a run's last
 *                                                              touch of a record that may expire
 *     two_runs      a run | a run | two walks                  the second ends at a marked front
 *     queueing      a run | two walks | two requests           arrivals at the tail meanwhile
 *     pages_back    a page back | a driver | a request         what a kick misses, polling finds
 *     kicks         a kick | two kicks | a driver              one pending run, never two
 *     partial_run   a driver | a page back | a walk            a run of pages given back in part
 *
 * A time-out of 0 has passed when the threads start, one of PAGE_TIMEOUT_NEVER never does. Where
 * there are two walks, their clock jumps by more than a walk's budget at one reading, and there is
 * a scenario for each reading: the first walk stops at its first, second or third record, the
 * second walk resumes.
 */
#pragma once

#include <vector>

#include "scheduler.h"

namespace scenarios
{

/* Readings of a walk over three records: its start, and one for each record. */
inline constexpr unsigned LATEST = 4;

/* late_at: at which reading the walks' clock jumps, 1 to LATEST; 0 = it never does. */
schedule::scenario serving(unsigned late_at);
schedule::scenario giving_up(unsigned late_at);
schedule::scenario two_runs(unsigned late_at);
schedule::scenario queueing(unsigned late_at);
schedule::scenario pages_back();
schedule::scenario kicks();
schedule::scenario partial_run();

/* All of them, with each `late_at`. */
std::vector<schedule::scenario> all();

} // namespace scenarios
