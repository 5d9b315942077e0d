/*
 * What may come between: walks, kicks, runs and other threads while a request is being served.
 */
#include <algorithm>
#include <atomic>
#include <thread>

#include "page_fixture.h"

using RetryQueueBetween = with_dry_pool;

/* ---- removing a served record */

TEST_F(RetryQueueBetween, a_served_record_is_freed_off_the_list_by_its_module)
{
    ask_page(1);
    page_retry_req *req = queued(0);
    leave_pages(1);
    list_link link = {};
    uint64_t sum = 99;
    fake_hook(OP_zymm_slab_free, 1, [&] {
        link = req->list;
        sum = s_retry_req_list.sum;
    });
    run_once();
    EXPECT_EQ(hex(link.next), "0x100100");
    EXPECT_EQ(hex(link.prev), "0x200200");
    EXPECT_EQ(sum, 0u);
    const fake_call call = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(call.args[0].number, s_page_request_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(req));
    EXPECT_EQ(call.args[2].number, 77u);
    EXPECT_EQ(call.args[3].text, "page_do_retry");
}

TEST_F(RetryQueueBetween, the_walks_marker_moves_off_a_served_record)
{
    ask_page(1);
    ask_page(2);
    s_hung_page_list_travel_node = &queued(0)->list;
    list_link *const second = &queued(1)->list;
    leave_pages(1);
    run_once();
    EXPECT_EQ(s_hung_page_list_travel_node, second);
}

TEST_F(RetryQueueBetween, the_walks_marker_moves_from_the_last_record_to_the_head)
{
    ask_page(1);
    s_hung_page_list_travel_node = &queued(0)->list;
    leave_pages(1);
    run_once();
    EXPECT_EQ(s_hung_page_list_travel_node, &s_retry_req_list.head);
    umm_hung_page_timeout_detect();
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
}

TEST_F(RetryQueueBetween, the_walks_marker_stays_where_it_is_otherwise)
{
    ask_page(1);
    ask_page(2);
    list_link *const second = &queued(1)->list;
    s_hung_page_list_travel_node = second;
    leave_pages(1);
    run_once();
    EXPECT_EQ(s_hung_page_list_travel_node, second);
}

/* A walk that stops right before the removal sets the marker to the record about to go. */
TEST_F(RetryQueueBetween, a_walk_before_the_removal_cannot_leave_its_marker_on_the_record)
{
    ask_page(1);
    ask_page(2);
    list_link *const first = &queued(0)->list;
    list_link *const second = &queued(1)->list;
    leave_pages(1);
    bool stopped_at_first = false;
    fake_hook(OP_do_zyax_spinlock_lock, 1, [&] {
        fake_set_nanosec_step(2000000);
        umm_hung_page_timeout_detect();
        fake_set_nanosec_step(0);
        stopped_at_first = s_hung_page_list_travel_node == first;
    });
    run_once();
    EXPECT_TRUE(stopped_at_first);
    EXPECT_EQ(s_hung_page_list_travel_node, second);
}

/* ---- what may happen while a request is being served */

TEST_F(RetryQueueBetween, a_walk_passes_over_the_record_being_served)
{
    ask_page(1, 1);
    ask_page(2, 1);
    leave_pages(1);
    fake_advance_nanosec(2000000000);
    fake_hook(OP_zymm_slab_malloc, 1, [] { umm_hung_page_timeout_detect(); });
    run_once();
    EXPECT_EQ(events, (texts{"fail 2", "end 2 0x80009301", "end 1 0x0"}));
    EXPECT_EQ(requests_out(), 0u);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
}

TEST_F(RetryQueueBetween, a_walk_after_a_failed_attempt_expires_the_record)
{
    ask_page(1, 1);
    fake_advance_nanosec(2000000000);
    run_once();
    EXPECT_EQ(queued(0)->served, 0u);
    umm_hung_page_timeout_detect();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
}

TEST_F(RetryQueueBetween, a_record_is_marked_until_it_is_off_the_list)
{
    ask_page(1);
    page_retry_req *req = queued(0);
    leave_pages(1);
    std::vector<uint32_t> marks;
    fake_hook(OP_zymm_slab_malloc, 1, [&] { marks.push_back(req->served); });
    fake_hook(OP_do_zyax_spinlock_lock, 1, [&] { marks.push_back(req->served); });
    run_once();
    EXPECT_EQ(marks, (std::vector<uint32_t>{1, 1}));
}

TEST_F(RetryQueueBetween, a_second_run_that_finds_the_front_marked_ends)
{
    ask_page(1);
    ask_page(2);
    leave_pages(2);
    texts in_between = {"not run"};
    fake_hook(OP_zymm_slab_malloc, 1, [&] {
        page_do_retry();
        in_between = events;
    });
    run_once();
    EXPECT_EQ(in_between, texts{});
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0"}));
    EXPECT_EQ(requests_out(), 0u);
    EXPECT_EQ(fake_locks_held(), 0u);
}

TEST_F(RetryQueueBetween, a_kick_during_a_run_is_absorbed)
{
    ask_page(1);
    leave_pages(1);
    uint32_t count = 0;
    fake_hook(OP_zymm_slab_malloc, 1, [&] {
        page_start_retry();
        count = s_enter_retry_cnt;
    });
    run_once();
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 1u);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
}

TEST_F(RetryQueueBetween, a_partial_run_that_goes_back_is_a_kick_too)
{
    ask_run(1, 4);
    leave_pages(3);
    run_once();
    EXPECT_EQ(s_enter_retry_repeat_cnt, 2u) << "one for each attempt";
}

TEST_F(RetryQueueBetween, a_request_queued_during_a_run_is_served_by_it)
{
    ask_page(1);
    leave_pages(2);
    fake_hook(OP_zymm_slab_malloc, 1, [] {
        page_add_retry_req(1, 1, 5, on_end, 2, on_fail, 2, MODULE, OWNER, 21);
    });
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0"}));
}

static uint64_t locks_in_call_back;

static void ask_again(void *, uint64_t arg, uint32_t)
{
    locks_in_call_back += fake_locks_held();
    ask_page(arg + 1);
}

TEST_F(RetryQueueBetween, call_backs_of_a_run_hold_no_lock_and_may_queue)
{
    allocOnePageForPagePoolTimeOut(nullptr, 5, ask_again, 1, on_fail, 1, MODULE, OWNER, 21);
    leave_pages(1);
    run_once();
    EXPECT_EQ(locks_in_call_back, 0u);
    EXPECT_EQ(queue(), ids{2});
}

static void free_at_once(void *result, uint64_t arg, uint32_t ret)
{
    on_end(result, arg, ret);
    freeOnePage(static_cast<page_ctrl *>(result), MODULE, OWNER, 1);
}

TEST_F(RetryQueueBetween, a_page_that_a_call_back_frees_serves_the_next_request)
{
    for (uint64_t id = 1; id <= 3; ++id) {
        allocOnePageForPagePoolTimeOut(nullptr, 5, free_at_once, id, on_fail, id, MODULE, OWNER,
                                       21);
    }
    leave_pages(1);
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0", "end 3 0x0"}));
    EXPECT_EQ(s_enter_retry_cnt, 0u);
}

/* ---- threads */

/* The driver runs what it sees pending, so not even for a moment may there seem to be two runs. */
TEST_F(RetryQueueBetween, kicks_that_are_absorbed_never_show_a_second_pending_run)
{
    ask_page(1, PAGE_TIMEOUT_NEVER);
    page_start_retry();
    std::atomic<int> kicking = 2;
    std::vector<std::thread> kickers;
    for (int i = 0; i < 2; ++i) {
        kickers.emplace_back([&] {
            for (int kick = 0; kick < 500000; ++kick)
                page_start_retry();
            --kicking;
        });
    }
    uint32_t highest = 0;
    do { /* at least once, also when the kickers are through before this thread runs */
        highest = std::max(highest, cmm_load_acquire(&s_enter_retry_cnt));
    } while (kicking > 0);
    for (std::thread &kicker : kickers)
        kicker.join();
    EXPECT_EQ(highest, 1u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 1000000u);
}

/* A driver that runs only what is pending never takes the count below 0. */
TEST_F(RetryQueueBetween, kicks_from_many_threads_leave_one_pending_run_at_most)
{
    ask_page(1, PAGE_TIMEOUT_NEVER);
    fake_set_log_level(ZYLOG_FATAL);
    std::atomic<bool> stop = false;
    std::vector<std::thread> kickers;
    for (int i = 0; i < 3; ++i) {
        kickers.emplace_back([&] {
            while (!stop)
                page_start_retry();
        });
    }
    uint32_t highest = 0;
    for (int run = 0; run < 3000; ++run) {
        const uint32_t pending = cmm_load_acquire(&s_enter_retry_cnt);
        highest = std::max(highest, pending);
        if (pending != 0)
            page_do_retry();
    }
    stop = true;
    for (std::thread &kicker : kickers)
        kicker.join();
    EXPECT_LE(highest, 1u);
    EXPECT_LE(s_enter_retry_cnt, 1u);
}

static std::atomic<uint64_t> endings;

static void count_ending(void *result, uint64_t, uint32_t)
{
    ++endings;
    if (result != nullptr)
        freeOnePage(static_cast<page_ctrl *>(result), MODULE, OWNER, 1);
}

static void count_nothing(uint64_t)
{
}

TEST_F(RetryQueueBetween, requests_of_many_threads_end_once_each)
{
    fake_set_log_level(ZYLOG_FATAL);
    leave_pages(2);
    std::atomic<int> running = 3;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (uint32_t round = 0; round < 300; ++round) {
                page_ctrl *held = take_page();
                allocOnePageForPagePoolTimeOut(nullptr, round % 2, count_ending, round,
                                               count_nothing, round, MODULE, OWNER, 21);
                if (held != nullptr)
                    freeOnePage(held, MODULE, OWNER, 2);
            }
            --running;
        });
    }
    threads.emplace_back([&] {
        while (running > 0 || cmm_load_relaxed(&s_retry_req_list.sum) != 0) {
            fake_advance_nanosec(100000000);
            umm_hung_page_timeout_detect();
        }
    });
    while (running > 0 || cmm_load_relaxed(&s_retry_req_list.sum) != 0) {
        page_start_retry();
        if (cmm_load_acquire(&s_enter_retry_cnt) != 0)
            page_do_retry();
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(endings, 900u);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(requests_out(), 0u);
}
