/*
 * The explorer itself: it makes as many runs as there are orders, and finds what it is shown.
 */
#include "scheduler.h"

namespace
{

int s_cell;
int s_first_lock;
int s_second_lock;

const schedule::object CELL = 100;

void reset()
{
    s_cell = 0;
}

void content()
{
}

void write_three_times(schedule::object what)
{
    for (int i = 0; i < 3; ++i)
        schedule::step(what, true, "writes");
}

/* Reads and writes with a step in between, as an increment that is not atomic does. */
void add_carelessly()
{
    schedule::step(CELL, false, "reads");
    const int before = s_cell;
    schedule::step(CELL, true, "writes");
    s_cell = before + 1;
}

void add_under_a_lock()
{
    schedule::lock(&s_first_lock);
    add_carelessly();
    schedule::unlock(&s_first_lock);
}

void expect_two()
{
    schedule::expect(s_cell == 2, "an addition was lost");
}

void take_both(const void *one, const void *other)
{
    schedule::lock(one);
    schedule::lock(other);
    schedule::unlock(other);
    schedule::unlock(one);
}

} // namespace

/* 6 steps, of which 3 belong to the first thread: 6! / (3! 3!). */
TEST(Scheduler, steps_on_the_same_object_are_made_in_every_order)
{
    const schedule::outcome found = schedule::explore(
        {"", reset, {[] { write_three_times(1); }, [] { write_three_times(1); }}, content});
    EXPECT_EQ(found.complete, 20u);
}

/* 9! / (3! 3! 3!) */
TEST(Scheduler, three_threads_are_interleaved_too)
{
    const auto body = [] { write_three_times(1); };
    const schedule::outcome found = schedule::explore({"", reset, {body, body, body}, content});
    EXPECT_EQ(found.complete, 1680u);
}

TEST(Scheduler, steps_on_different_objects_are_made_in_one_order)
{
    const schedule::outcome found = schedule::explore(
        {"", reset, {[] { write_three_times(1); }, [] { write_three_times(2); }}, content});
    EXPECT_EQ(found.complete, 1u);
}

TEST(Scheduler, readers_do_not_mind_each_other)
{
    const auto read = [] { schedule::step(1, false, "reads"); };
    const schedule::outcome found = schedule::explore({"", reset, {read, read, read}, content});
    EXPECT_EQ(found.complete, 1u);
}

TEST(Scheduler, a_lost_addition_is_found_and_its_steps_are_told)
{
    const schedule::outcome found =
        schedule::explore({"adding", reset, {add_carelessly, add_carelessly}, expect_two});
    EXPECT_EQ(found.failure, "adding: an addition was lost");
    EXPECT_EQ(found.trace, "A: starts\nA: reads\nB: starts\nB: reads\nA: writes\nB: writes\n");
}

TEST(Scheduler, a_lock_saves_the_addition)
{
    const schedule::outcome found =
        schedule::explore({"", reset, {add_under_a_lock, add_under_a_lock}, expect_two});
    EXPECT_EQ(found.failure, "");
    EXPECT_EQ(found.complete, 2u) << "one for each thread that can come first";
}

TEST(Scheduler, a_deadlock_is_found)
{
    const schedule::outcome found =
        schedule::explore({"both",
                           reset,
                           {[] { take_both(&s_first_lock, &s_second_lock); },
                            [] { take_both(&s_second_lock, &s_first_lock); }},
                           content});
    EXPECT_EQ(found.failure, "both: deadlock");
}

TEST(Scheduler, a_lock_taken_twice_or_left_behind_is_found)
{
    const schedule::outcome twice =
        schedule::explore({"twice", reset, {[] { take_both(&s_cell, &s_cell); }}, content});
    const schedule::outcome left =
        schedule::explore({"left", reset, {[] { schedule::lock(&s_cell); }}, content});
    EXPECT_EQ(twice.failure, "twice: a lock is taken again by its holder");
    EXPECT_EQ(left.failure, "left: a lock is still held at the end");
}

/* B tries at each moment of A's locked section and beside it. */
TEST(Scheduler, a_trylock_meets_the_lock_both_free_and_taken)
{
    static unsigned taken, busy;
    const auto hold = [] {
        schedule::lock(&s_first_lock);
        schedule::unlock(&s_first_lock);
    };
    const auto attempt = [] {
        const bool is_mine = schedule::trylock(&s_first_lock);
        (is_mine ? taken : busy)++;
        if (is_mine)
            schedule::unlock(&s_first_lock);
    };
    const schedule::outcome found = schedule::explore({"", reset, {hold, attempt}, content});
    EXPECT_EQ(found.failure, "");
    EXPECT_EQ(found.complete, 3u);
    EXPECT_GT(taken, 0u);
    EXPECT_GT(busy, 0u);
}
