/*
 * Timers on the real clock. Nothing here depends on how long something takes: a test waits for what
 * must happen, and checks that nothing happened too early or once too often.
 */
#include "zyax.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <sched.h>
#include <semaphore.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
/* A semaphore that an expiry function may post. */
struct bell {
    bell() { sem_init(&m_sem, 0, 0); }
    ~bell() { sem_destroy(&m_sem); }
    void ring() { sem_post(&m_sem); }
    void wait()
    {
        while (sem_wait(&m_sem) != 0) {
        }
    }
    sem_t m_sem;
};
} // namespace

static bell s_bell;
static zyax_timer s_timer;
static zyax_timer s_other;
static std::atomic<uint64_t> s_runs;
static std::atomic<uint64_t> s_ran_at;

static void note_run()
{
    s_ran_at = zyax_time_getnanosec();
    ++s_runs;
    s_bell.ring();
}

static int set(zyax_timer *timer, uint64_t expires, void (*function)(void))
{
    return zyax_timer_set_raw(timer, expires, 0, function, "function", __FILE__, __LINE__);
}

/* Initialises, sets and arms. */
static void start(zyax_timer *timer, uint64_t expires, void (*function)(void))
{
    ASSERT_EQ(zyax_timer_init(timer), 0);
    ASSERT_EQ(set(timer, expires, function), 0);
    ASSERT_EQ(zyax_timer_add(timer), 0);
}

/* Returns after the timer thread has been through everything that was armed for up to a millisecond
 * before: equal deadlines run in the order in which they were armed. */
static void let_due_timers_run()
{
    static zyax_timer fence;
    static bell passed;
    zyax_timer_init(&fence);
    set(&fence, 1000, [] { passed.ring(); });
    zyax_timer_add(&fence);
    passed.wait();
}

TEST(ZyaxTimer, init_answers_17_the_second_time_and_0_after_a_delete)
{
    EXPECT_EQ(zyax_timer_init(&s_timer), 0);
    EXPECT_EQ(zyax_timer_init(&s_timer), 17);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
    EXPECT_EQ(zyax_timer_init(&s_timer), 0);
}

TEST(ZyaxTimer, a_timer_that_was_never_initialised_is_refused_but_can_be_deleted)
{
    EXPECT_EQ(set(&s_timer, 10, note_run), 22);
    EXPECT_EQ(zyax_timer_add(&s_timer), 22);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 10), 22);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
}

TEST(ZyaxTimer, a_deleted_timer_is_refused_and_deleting_it_again_succeeds)
{
    start(&s_timer, 1000000, note_run);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);

    EXPECT_EQ(set(&s_timer, 10, note_run), 22);
    EXPECT_EQ(zyax_timer_add(&s_timer), 22);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 10), 22);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
}

TEST(ZyaxTimer, a_null_timer_is_refused)
{
    EXPECT_NE(zyax_timer_init(nullptr), 0);
    EXPECT_EQ(set(nullptr, 10, note_run), 22);
    EXPECT_EQ(zyax_timer_add(nullptr), 22);
    EXPECT_EQ(zyax_timer_modify(nullptr, 10), 22);
    EXPECT_NE(zyax_timer_delete(nullptr), 0);
}

TEST(ZyaxTimer, a_timer_without_a_function_is_not_armed)
{
    ASSERT_EQ(zyax_timer_init(&s_timer), 0);

    EXPECT_EQ(set(&s_timer, 10, nullptr), 22);
    EXPECT_EQ(zyax_timer_add(&s_timer), 22);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 10), 22);
}

TEST(ZyaxTimer, flags_other_than_0_are_refused)
{
    ASSERT_EQ(zyax_timer_init(&s_timer), 0);

    EXPECT_EQ(zyax_timer_set_raw(&s_timer, 10, 1, note_run, "note_run", __FILE__, __LINE__), 22);
}

static uint64_t measure(uint64_t expires)
{
    const uint64_t before = zyax_time_getnanosec();
    zyax_timer_modify(&s_timer, expires);
    s_bell.wait();
    return s_ran_at - before;
}

TEST(ZyaxTimer, no_timer_runs_early)
{
    ASSERT_EQ(zyax_timer_init(&s_timer), 0);
    ASSERT_EQ(set(&s_timer, 0, note_run), 0);

    EXPECT_GE(measure(1), 1000u);
    EXPECT_GE(measure(10), 10000u);
    EXPECT_GE(measure(999), 999000u);
    EXPECT_GE(measure(1000), 1000000u);
    EXPECT_GE(measure(1001), 1001000u);
    EXPECT_GE(measure(7500), 7500000u);
    EXPECT_GE(measure(30000), 30000000u);
}

TEST(ZyaxTimer, the_expiry_of_set_raw_counts_from_the_add)
{
    ASSERT_EQ(zyax_timer_init(&s_timer), 0);
    ASSERT_EQ(set(&s_timer, 20000, note_run), 0);
    const uint64_t before = zyax_time_getnanosec();
    ASSERT_EQ(zyax_timer_add(&s_timer), 0);
    s_bell.wait();

    EXPECT_GE(s_ran_at - before, 20000000u);
}

TEST(ZyaxTimer, timers_run_before_the_platform_is_initialised_and_init_may_be_repeated)
{
    start(&s_timer, 10, note_run);
    s_bell.wait();

    EXPECT_EQ(zyax_Init(), 0);
    EXPECT_EQ(zyax_Init(), 0);
    EXPECT_EQ(s_runs, 1u);
}

TEST(ZyaxTimer, a_timer_runs_once_for_each_time_it_is_armed)
{
    start(&s_timer, 10, note_run);
    s_bell.wait();
    let_due_timers_run();
    EXPECT_EQ(s_runs, 1u);

    EXPECT_EQ(zyax_timer_add(&s_timer), 0);
    s_bell.wait();
    let_due_timers_run();
    EXPECT_EQ(s_runs, 2u);
}

TEST(ZyaxTimer, arming_an_armed_timer_moves_it_and_does_not_double_it)
{
    start(&s_timer, 3600000000, note_run);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 1800000000), 0);
    EXPECT_EQ(zyax_timer_add(&s_timer), 0);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 10), 0);

    s_bell.wait();
    let_due_timers_run();
    EXPECT_EQ(s_runs, 1u);
}

TEST(ZyaxTimer, a_timer_moved_far_away_does_not_run_at_its_former_time)
{
    start(&s_timer, 1000, note_run);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 3600000000), 0);
    const uint64_t former_time = zyax_time_getnanosec() + 2000000;
    while (zyax_time_getnanosec() < former_time)
        let_due_timers_run();

    EXPECT_EQ(s_runs, 0u);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
}

TEST(ZyaxTimer, the_longest_expiry_is_accepted_and_does_not_run)
{
    start(&s_timer, UINT64_MAX, note_run);
    let_due_timers_run();

    EXPECT_EQ(s_runs, 0u);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
}

static std::vector<int> s_order;

TEST(ZyaxTimer, timers_run_in_the_order_of_their_expiry)
{
    static zyax_timer third;
    start(&third, 60000, [] {
        s_order.push_back(3);
        s_bell.ring();
    });
    start(&s_timer, 20000, [] { s_order.push_back(1); });
    start(&s_other, 40000, [] { s_order.push_back(2); });
    s_bell.wait();

    EXPECT_EQ(s_order, (std::vector<int>{1, 2, 3}));
}

TEST(ZyaxTimer, a_thousand_timers_each_run_once)
{
    std::vector<zyax_timer> timers(1000);
    for (size_t i = 0; i < timers.size(); ++i)
        start(&timers[i], (i * 7919) % 20000, note_run);
    for (size_t i = 0; i < timers.size(); ++i)
        s_bell.wait();
    let_due_timers_run();

    EXPECT_EQ(s_runs, 1000u);
}

static std::atomic<pid_t> s_first_thread;
static std::atomic<pid_t> s_second_thread;

TEST(ZyaxTimer, all_functions_run_in_one_thread_of_the_platform)
{
    start(&s_timer, 10, [] {
        s_first_thread = gettid();
        s_bell.ring();
    });
    start(&s_other, 2000, [] {
        s_second_thread = gettid();
        s_bell.ring();
    });
    s_bell.wait();
    s_bell.wait();

    EXPECT_NE(s_first_thread, gettid());
    EXPECT_EQ(s_first_thread, s_second_thread);
}

static void run_and_rearm_until_third_run()
{
    if (++s_runs < 3)
        zyax_timer_modify(&s_timer, 10);
    else
        s_bell.ring();
}

TEST(ZyaxTimer, a_function_may_rearm_its_own_timer)
{
    start(&s_timer, 10, run_and_rearm_until_third_run);
    s_bell.wait();
    let_due_timers_run();

    EXPECT_EQ(s_runs, 3u);
}

TEST(ZyaxTimer, a_function_may_arm_another_timer)
{
    ASSERT_EQ(zyax_timer_init(&s_other), 0);
    ASSERT_EQ(set(&s_other, 10, note_run), 0);
    start(&s_timer, 10, [] { zyax_timer_add(&s_other); });
    s_bell.wait();

    EXPECT_EQ(s_runs, 1u);
}

static bell s_go_on;

TEST(ZyaxTimer, other_threads_use_timers_while_a_function_runs)
{
    start(&s_timer, 10, [] {
        s_bell.ring();
        s_go_on.wait();
        s_bell.ring();
    });
    s_bell.wait();

    EXPECT_EQ(zyax_timer_init(&s_other), 0);
    EXPECT_EQ(set(&s_other, 10, note_run), 0);
    EXPECT_EQ(zyax_timer_add(&s_other), 0);
    EXPECT_EQ(zyax_timer_modify(&s_other, 20), 0);
    EXPECT_EQ(zyax_timer_delete(&s_other), 0);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 3600000000), 0);

    s_go_on.ring();
    s_bell.wait();
    let_due_timers_run();
    EXPECT_EQ(s_runs, 0u);
    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
}

static std::atomic<bool> s_has_ended;

/* Ends only after a delete has taken effect, and then takes its time. */
static void run_until_deleted()
{
    ++s_runs;
    s_bell.ring();
    while (zyax_timer_modify(&s_timer, 10) == 0)
        sched_yield();
    for (int i = 0; i < 1000; ++i)
        sched_yield();
    s_has_ended = true;
}

TEST(ZyaxTimer, delete_waits_for_a_running_function_which_cannot_rearm_any_more)
{
    start(&s_timer, 10, run_until_deleted);
    s_bell.wait();

    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
    EXPECT_TRUE(s_has_ended);
    let_due_timers_run();
    EXPECT_EQ(s_runs, 1u);
    EXPECT_EQ(zyax_timer_init(&s_timer), 0);
}

TEST(ZyaxTimer, each_of_two_threads_that_delete_waits_for_the_function)
{
    start(&s_timer, 10, run_until_deleted);
    s_bell.wait();
    std::thread other([] {
        EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
        EXPECT_TRUE(s_has_ended);
    });

    EXPECT_EQ(zyax_timer_delete(&s_timer), 0);
    EXPECT_TRUE(s_has_ended);
    other.join();
}

static std::atomic<int> s_delete_result;

TEST(ZyaxTimer, a_function_that_deletes_its_own_timer_does_not_wait_for_itself)
{
    s_delete_result = -1;
    start(&s_timer, 10, [] {
        s_delete_result = zyax_timer_delete(&s_timer);
        s_bell.ring();
    });
    s_bell.wait();

    EXPECT_EQ(s_delete_result, 0);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 10), 22);
}

static zyax_timer *s_heap_timer;

TEST(ZyaxTimer, a_function_may_delete_its_timer_and_free_the_record)
{
    s_heap_timer = static_cast<zyax_timer *>(calloc(1, sizeof(zyax_timer)));
    start(s_heap_timer, 10, [] {
        zyax_timer_delete(s_heap_timer);
        free(s_heap_timer);
        s_bell.ring();
    });
    s_bell.wait();
    let_due_timers_run();
}

TEST(ZyaxTimer, a_function_may_delete_another_timer)
{
    start(&s_other, 3600000000, note_run);
    start(&s_timer, 10, [] {
        s_delete_result = zyax_timer_delete(&s_other);
        s_bell.ring();
    });
    s_bell.wait();

    EXPECT_EQ(s_delete_result, 0);
    EXPECT_EQ(zyax_timer_add(&s_other), 22);
}

TEST(ZyaxTimer, a_deleted_timer_never_runs_whatever_threads_do_with_it)
{
    std::atomic<bool> stop = false;
    std::thread meddler([&] {
        while (!stop)
            zyax_timer_modify(&s_timer, 10);
    });
    for (int round = 0; round < 200; ++round) {
        zyax_timer_init(&s_timer);
        set(&s_timer, 10, [] { ++s_runs; });
        zyax_timer_add(&s_timer);
        sched_yield();
        zyax_timer_delete(&s_timer);
        const uint64_t runs = s_runs;
        sched_yield();
        EXPECT_EQ(s_runs, runs);
    }
    stop = true;
    meddler.join();
}

TEST(ZyaxTimer, the_record_stays_within_its_128_bytes)
{
    struct {
        zyax_timer timer;
        uint64_t behind;
    } place = {};
    place.behind = 0x1122334455667788;
    start(&place.timer, 10, note_run);
    s_bell.wait();
    EXPECT_EQ(zyax_timer_delete(&place.timer), 0);

    EXPECT_EQ(place.behind, 0x1122334455667788u);
}

/* In a forked child: everything answers as ever, nothing runs, and the process ends. */
static int use_timers_in_child()
{
    const bool fine = zyax_timer_modify(&s_timer, 10) == 0 && zyax_timer_delete(&s_timer) == 0 &&
                      zyax_timer_init(&s_timer) == 0 && zyax_timer_delete(&s_other) == 0;
    return fine ? 0 : 1;
}

TEST(ZyaxTimer, a_forked_child_can_use_timers_without_harm)
{
    start(&s_timer, 10, note_run);
    start(&s_other, 3600000000, note_run);
    s_bell.wait();

    const pid_t child = fork();
    if (child == 0)
        _exit(use_timers_in_child());
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(zyax_timer_modify(&s_timer, 10), 0);
    s_bell.wait();
    EXPECT_EQ(zyax_timer_delete(&s_other), 0);
}
