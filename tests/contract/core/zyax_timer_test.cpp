/*
 * Result codes of timers and the way of a timer through its life. Nothing here ever expires.
 */
#include <gtest/gtest.h>

#include "zyax.h"

namespace
{

constexpr uint64_t AN_HOUR = 3600000000u; /* microseconds */

void never()
{
}

int set(zyax_timer *timer)
{
    return zyax_timer_set_raw(timer, AN_HOUR, 0, never, "never", __FILE__, __LINE__);
}

} // namespace

TEST(TimerLayer, may_be_started_many_times)
{
    EXPECT_EQ(zyax_Init(), 0);
    EXPECT_EQ(zyax_Init(), 0);
}

TEST(Timer, works_before_the_layer_is_started)
{
    zyax_timer timer = {};
    EXPECT_EQ(zyax_timer_init(&timer), 0);
    EXPECT_EQ(set(&timer), 0);
    EXPECT_EQ(zyax_timer_add(&timer), 0);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}

TEST(Timer, initialised_twice_says_so)
{
    zyax_timer timer = {};
    EXPECT_EQ(zyax_timer_init(&timer), 0);
    EXPECT_EQ(zyax_timer_init(&timer), 17);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}

TEST(Timer, initialised_twice_while_armed_stays_usable)
{
    zyax_timer timer = {};
    zyax_timer_init(&timer);
    set(&timer);
    zyax_timer_add(&timer);
    EXPECT_EQ(zyax_timer_init(&timer), 17);
    EXPECT_EQ(zyax_timer_modify(&timer, AN_HOUR), 0);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}

TEST(Timer, without_init_refuses_everything_but_its_deletion)
{
    zyax_timer timer = {};
    EXPECT_EQ(set(&timer), 22);
    EXPECT_EQ(zyax_timer_add(&timer), 22);
    EXPECT_EQ(zyax_timer_modify(&timer, AN_HOUR), 22);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}

TEST(Timer, can_be_modified_armed_or_not)
{
    zyax_timer timer = {};
    zyax_timer_init(&timer);
    set(&timer);
    EXPECT_EQ(zyax_timer_modify(&timer, AN_HOUR), 0);
    EXPECT_EQ(zyax_timer_modify(&timer, 2 * AN_HOUR), 0);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}

TEST(Timer, refuses_everything_once_deleted)
{
    zyax_timer timer = {};
    zyax_timer_init(&timer);
    set(&timer);
    zyax_timer_add(&timer);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
    EXPECT_NE(zyax_timer_modify(&timer, AN_HOUR), 0);
    EXPECT_EQ(zyax_timer_add(&timer), 22);
    EXPECT_EQ(set(&timer), 22);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}

TEST(Timer, can_be_initialised_again_after_its_deletion)
{
    zyax_timer timer = {};
    zyax_timer_init(&timer);
    zyax_timer_delete(&timer);
    EXPECT_EQ(zyax_timer_init(&timer), 0);
    EXPECT_EQ(set(&timer), 0);
    EXPECT_EQ(zyax_timer_add(&timer), 0);
    EXPECT_EQ(zyax_timer_delete(&timer), 0);
}
