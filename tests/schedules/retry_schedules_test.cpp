/*
 * The retry queue under every order of its threads' steps; retry_scenarios.h has the table.
 *
 * Each test also says how many orders there were: few would mean that the threads no longer meet.
 */
#include "retry_scenarios.h"

#include <cstdio>

namespace
{

/* Expects that no order fails; answers how many there were. */
uint64_t explore_all(const schedule::scenario &wanted)
{
    const schedule::outcome found = schedule::explore(wanted);
    printf("%s: %lu orders, %lu given up as equal to one of them, %lu steps at most\n",
           wanted.name.c_str(), found.complete, found.pruned, found.longest);
    EXPECT_EQ(found.failure, "") << found.trace;
    return found.complete;
}

uint64_t explore_each_moment(schedule::scenario (*make)(unsigned late_at))
{
    uint64_t orders = 0;
    for (unsigned late_at = 0; late_at <= scenarios::LATEST; ++late_at)
        orders += explore_all(make(late_at));
    return orders;
}

} // namespace

TEST(RetrySchedules, a_record_being_served_neither_expires_nor_keeps_the_walks_marker)
{
    EXPECT_GT(explore_each_moment(scenarios::serving), 100u);
}

TEST(RetrySchedules, a_record_that_could_not_be_served_is_let_go_of_before_it_expires)
{
    EXPECT_GT(explore_each_moment(scenarios::giving_up), 100u);
}

TEST(RetrySchedules, two_runs_that_meet_serve_nobody_twice_and_keep_the_order)
{
    EXPECT_GT(explore_each_moment(scenarios::two_runs), 100u);
}

TEST(RetrySchedules, requests_that_arrive_meanwhile_are_answered_once)
{
    EXPECT_GT(explore_each_moment(scenarios::queueing), 100u);
}

TEST(RetrySchedules, pages_that_come_back_before_the_queueing_are_found_by_polling)
{
    EXPECT_GT(explore_all(scenarios::pages_back()), 20u);
}

TEST(RetrySchedules, kicks_never_make_two_runs_pending_and_never_leave_a_false_count)
{
    EXPECT_GT(explore_all(scenarios::kicks()), 100u);
}

TEST(RetrySchedules, a_run_of_pages_given_back_in_part_leaks_nothing)
{
    EXPECT_GT(explore_all(scenarios::partial_run()), 100u);
}
