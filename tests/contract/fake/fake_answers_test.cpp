/*
 * The fake platform itself: its objects, and what a test sets by hand or finds kept.
 */
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <thread>
#include <unistd.h>

#include "../core/slab_helpers.h"
#include "fake.h"

/* ------------------------------------------------------------------ objects */

TEST(FakeObjects, that_came_back_last_go_out_first)
{
    const uint64_t slab   = make_slab(64, 10);
    void *const    first  = take(slab);
    void *const    second = take(slab);
    give(slab, first);
    give(slab, second);
    EXPECT_EQ(take(slab), second);
    EXPECT_EQ(take(slab), first);
}

TEST(FakeObjects, keep_their_content_when_they_are_free)
{
    const uint64_t slab   = make_slab(64, 10);
    char *const    object = static_cast<char *>(take(slab));
    EXPECT_EQ(object[63], static_cast<char>(0xA5));
    object[63] = 'x';
    give(slab, object);
    EXPECT_EQ(object[63], 'x');
}

TEST(FakeObjects, can_be_limited_below_their_maximum)
{
    const uint64_t slab = make_slab(64, 10);
    fake_limit(slab, 1);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_EQ(take(slab), nullptr);
}

TEST(FakeObjects, are_counted_wherever_they_came_from)
{
    const uint64_t slab = make_slab(64, 10);
    void *const    raw  = zymm_malloc(100, 386, "test");
    take(slab);
    pub_mpool_alloc_i(fake_make_public_pool(), 100, 386, "test");
    EXPECT_EQ(fake_objects_out(), 3u);
    zymm_free(raw, 386, "test");
    EXPECT_EQ(fake_objects_out(), 2u);
    destroy(slab);
    EXPECT_EQ(fake_objects_out(), 1u);
}

TEST(FakeHandles, are_counted_while_alive)
{
    const uint64_t slab = make_slab(64, 10);
    const uint64_t pool = zymm_pool_create("pool", 1, 1, 386, "test");
    EXPECT_EQ(fake_handles_alive(), 2u);
    EXPECT_TRUE(fake_handle_alive(slab));
    destroy(slab);
    EXPECT_FALSE(fake_handle_alive(slab));
    EXPECT_TRUE(fake_handle_alive(pool));
    EXPECT_EQ(fake_handles_alive(), 1u);
}

TEST(FakeUsage, is_what_was_set_for_every_handle)
{
    uint64_t total = 0;
    uint64_t used  = 0;
    fake_set_usage(100, 95);
    EXPECT_EQ(zymm_slab_get_usage_info(0x77, &total, &used), 0);
    EXPECT_EQ(total, 100u);
    EXPECT_EQ(used, 95u);
    EXPECT_EQ(mmGetBusyObjectSum(0x78), 95u);
    EXPECT_NE(zymm_slab_get_usage_info(0, &total, &used), 0);
}

TEST(FakePlatform, writes_its_own_lines_under_its_own_module)
{
    take(make_stale_slab());
    ASSERT_EQ(fake_log().size(), 1u);
    EXPECT_EQ(fake_last_line().module_id, 1u);
    EXPECT_EQ(fake_last_line().level, uint32_t(ZYLOG_ERROR));
    EXPECT_EQ(fake_last_line().func, "zymm_slab_malloc");
}

/* ------------------------------------------------------------------ clocks, timers, locks */

TEST(FakeClock, stands_still_until_it_is_moved)
{
    EXPECT_EQ(zyax_time_getnanosec(), 1000000000u);
    EXPECT_EQ(zyax_time_getnanosec(), 1000000000u);
    EXPECT_EQ(zyax_get_jiffies(), 1000u);
    fake_advance_nanosec(5);
    EXPECT_EQ(zyax_time_getnanosec(), 1000000005u);
    fake_set_nanosec(7);
    fake_set_nanosec_step(10);
    EXPECT_EQ(zyax_time_getnanosec(), 7u);
    EXPECT_EQ(zyax_time_getnanosec(), 17u);
    fake_set_jiffies(3);
    EXPECT_EQ(zyax_get_jiffies(), 3u);
}

TEST(FakeTimer, remembers_how_it_was_set)
{
    zyax_timer timer = {};
    zyax_timer_init(&timer);
    zyax_timer_set_raw(&timer, 500, 0, [] {}, "walk", "file.cpp", 7);
    EXPECT_FALSE(fake_timer(&timer).armed);
    zyax_timer_add(&timer);
    EXPECT_TRUE(fake_timer(&timer).armed);
    EXPECT_EQ(fake_timer(&timer).expires, 500u);
    EXPECT_EQ(fake_timer(&timer).fn_name, "walk");
    EXPECT_EQ(fake_timer(&timer).file, "file.cpp");
    zyax_timer_modify(&timer, 900);
    EXPECT_EQ(fake_timers()[0].expires, 900u);
    zyax_timer_delete(&timer);
    EXPECT_FALSE(fake_timer(&timer).initialised);
    EXPECT_FALSE(fake_timer(&timer).armed);
    EXPECT_EQ(fake_timers().size(), 1u);
}

TEST(FakeTimer, that_was_zeroed_is_a_new_one)
{
    zyax_timer timer = {};
    zyax_timer_init(&timer);
    timer = zyax_timer{};
    EXPECT_EQ(zyax_timer_init(&timer), 0);
}

TEST(FakeLocks, are_known_while_held)
{
    zyax_spinlock lock = {};
    do_zyax_spinlock_lock(&lock, "test", 1);
    EXPECT_TRUE(fake_lock_held(&lock));
    EXPECT_EQ(fake_locks_held(), 1u);
    do_zyax_spinlock_unlock(&lock);
    EXPECT_FALSE(fake_lock_held(&lock));
    EXPECT_EQ(fake_locks_held(), 0u);
}

/* ------------------------------------------------------------------ log and console */

TEST(FakeLog, keeps_every_field_of_a_line)
{
    zylog(386, ZYLOG_INFO, "file.cpp", 12, "func", 256, "%s %d", "text", 5);
    const fake_line expected = {386, 6, 256, "file.cpp", 12, "func", "text 5"};
    EXPECT_EQ(fake_last_line(), expected);
    EXPECT_EQ(fake_log_count("text 5"), 1u);
    EXPECT_EQ(fake_log_from("func").size(), 1u);
    EXPECT_EQ(fake_log_from("other").size(), 0u);
}

TEST(FakeLog, has_no_lines_of_disabled_levels)
{
    fake_set_log_level(ZYLOG_ERROR);
    EXPECT_EQ(zylog_level_check(386, ZYLOG_WARNING), 1);
    EXPECT_EQ(zylog_level_check(386, ZYLOG_ERROR), 0);
    zylog(386, ZYLOG_WARNING, "f", 1, "func", 0, "no");
    EXPECT_EQ(fake_log().size(), 0u);
}

TEST(FakeLog, echoes_errors_and_worse_for_death_tests)
{
    testing::internal::CaptureStderr();
    zylog(386, ZYLOG_FATAL, "f", 1, "func", 256, "fatal %d", 1);
    zylog(386, ZYLOG_ERROR, "f", 1, "func", 0, "error");
    zylog(386, ZYLOG_WARNING, "f", 1, "func", 0, "warning");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "2|func|256|fatal 1\n3|func|0|error\n");
}

TEST(FakeConsole, gathers_buffered_text_behind_the_printed)
{
    DBG_PrintBuf("b%d", 1);
    DBG_Print("a%d", 1);
    DBG_PrintBuf("b%d", 2);
    EXPECT_EQ(fake_console(), "a1b1b2");
    fake_forget_console();
    EXPECT_EQ(fake_console(), "");
}

/* ------------------------------------------------------------------ the process */

TEST(FakeExecutable, is_answered_by_every_link_under_proc)
{
    char target[64] = {};
    fake_set_executable("/opt/node/bin/storage");
    EXPECT_EQ(readlink("/proc/4711/exe", target, sizeof target), 21);
    EXPECT_STREQ(target, "/opt/node/bin/storage");
    EXPECT_EQ(readlink("/proc/self/exe", target, 4), 4);
    EXPECT_EQ(fake_last_call(OP_posix_readlink).args[0].text, "/proc/self/exe");
}

TEST(FakeExecutable, link_fails_when_told_to)
{
    char target[64];
    fake_fail(OP_posix_readlink);
    EXPECT_EQ(readlink("/proc/1/exe", target, sizeof target), -1);
}

TEST(FakeRealpath, is_the_real_one_until_it_is_set)
{
    char *path = realpath("/usr/../", nullptr);
    EXPECT_STREQ(path, "/");
    free(path);
    fake_set_realpath("/over/there");
    path = realpath("/usr", nullptr);
    EXPECT_STREQ(path, "/over/there");
    free(path);
    char place[PATH_MAX];
    EXPECT_EQ(realpath("/usr", place), place);
    EXPECT_STREQ(place, "/over/there");
    fake_fail(OP_posix_realpath);
    EXPECT_EQ(realpath("/usr", nullptr), nullptr);
}

TEST(FakeFiles, that_exist_are_those_that_were_set)
{
    fake_set_existing_files({"/a/b"});
    EXPECT_EQ(zyax_access("/a/b", F_OK), 0);
    EXPECT_EQ(zyax_access("/", F_OK), -1);
}

TEST(FakeMachine, is_what_was_set)
{
    uint64_t bytes = 0;
    uint64_t mask  = 0;
    zyax_get_total_mem(&bytes);
    EXPECT_EQ(bytes, 209715200u);
    fake_set_total_mem(5);
    fake_set_numa(1, 0x3, 2);
    zyax_get_total_mem(&bytes);
    zyax_numam_proc_numamask_get(&mask);
    EXPECT_EQ(bytes, 5u);
    EXPECT_EQ(mask, 3u);
    EXPECT_EQ(zyax_numam_status_get(), 1);
    EXPECT_EQ(zyax_numam_num_get(), 2u);
}

TEST(FakeThreads, may_use_it_all_at_once)
{
    const uint64_t           slab = make_slab(64, 100);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([slab] {
            for (int i = 0; i < 100; ++i)
                give(slab, take(slab));
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 400u);
    EXPECT_EQ(fake_objects_out(), 0u);
    for (const fake_call &call : fake_calls(OP_zymm_slab_free))
        EXPECT_EQ(call.result, 0u);
}
