/*
 * The time-out walk: who expires, when it stops, and where it goes on.
 */
#include "page_fixture.h"

using RetryWalk = with_dry_pool;

static constexpr uint64_t SECOND = 1000000000;

static const char *const WALK = "umm_hung_page_timeout_detect";

static void walk()
{
    umm_hung_page_timeout_detect();
}

/* ---- who expires */

TEST_F(RetryWalk, a_request_expires_when_more_than_its_time_out_has_passed)
{
    ask_page(1, 2);
    fake_advance_nanosec(2 * SECOND);
    walk();
    EXPECT_EQ(events, texts{});
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
    EXPECT_EQ(results, (std::vector<void *>{nullptr}));
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_EQ(queue(), ids{});
}

TEST_F(RetryWalk, a_time_out_of_0_expires_at_the_first_walk)
{
    ask_page(1, 0);
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
}

TEST_F(RetryWalk, a_request_without_a_time_out_never_expires)
{
    ask_page(1, 0xFFFFFFFF);
    fake_set_nanosec(0xFFFFFFFFFFFFFFFF - SECOND);
    walk();
    EXPECT_EQ(queue(), ids{1});
}

TEST_F(RetryWalk, the_longest_time_out_does_not_overflow)
{
    fake_set_nanosec(0);
    ask_page(1, 0xFFFFFFFE);
    fake_set_nanosec(4294967294 * SECOND);
    walk();
    EXPECT_EQ(queue(), ids{1});
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(queue(), ids{});
}

TEST_F(RetryWalk, the_others_stay_in_their_order)
{
    ask_page(1, 9);
    ask_page(2, 1);
    ask_page(3, 9);
    ask_run(4, 2, 1);
    fake_advance_nanosec(2 * SECOND);
    walk();
    EXPECT_EQ(events, (texts{"fail 2", "end 2 0x80009301", "fail 4", "end 4 0x80009301"}));
    EXPECT_EQ(queue(), (ids{1, 3}));
    EXPECT_EQ(s_retry_req_list.sum, 2u);
    EXPECT_EQ(s_retry_req_list.head.prev, &queued(1)->list);
}

TEST_F(RetryWalk, a_record_that_a_run_serves_is_passed_over)
{
    ask_page(1, 1);
    ask_page(2, 1);
    queued(0)->served = 1;
    fake_advance_nanosec(2 * SECOND);
    walk();
    EXPECT_EQ(queue(), ids{1});
    EXPECT_EQ(events, (texts{"fail 2", "end 2 0x80009301"}));
}

TEST_F(RetryWalk, an_expired_record_is_freed_off_the_list_by_its_module)
{
    ask_page(1, 0);
    page_retry_req *req = queued(0);
    list_link link = {};
    uint64_t sum = 99;
    fake_hook(OP_zymm_slab_free, 1, [&] {
        link = req->list;
        sum = s_retry_req_list.sum;
    });
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(hex(link.next), "0x100100");
    EXPECT_EQ(hex(link.prev), "0x200200");
    EXPECT_EQ(sum, 0u);
    const fake_call call = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(call.args[0].number, s_page_request_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(req));
    EXPECT_EQ(call.args[2].number, 77u);
    EXPECT_EQ(call.args[3].text, WALK);
    EXPECT_EQ(requests_out(), 0u);
}

TEST_F(RetryWalk, an_expired_record_is_freed_after_its_call_backs)
{
    ask_page(1, 0);
    texts told;
    fake_hook(OP_zymm_slab_free, 1, [&] { told = events; });
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(told, (texts{"fail 1", "end 1 0x80009301"}));
    EXPECT_EQ(requests_out(), 0u);
}

/* ---- the clock */

TEST_F(RetryWalk, each_record_is_judged_by_a_reading_of_its_own)
{
    ask_page(1, 1);
    ask_page(2, 1);
    fake_advance_nanosec(SECOND - 1);
    fake_set_nanosec_step(1); /* the first is judged exactly at its time-out, the second past it */
    walk();
    EXPECT_EQ(events, (texts{"fail 2", "end 2 0x80009301"}));
}

TEST_F(RetryWalk, a_request_queued_while_the_walk_waits_for_the_lock_is_not_old)
{
    fake_hook(OP_do_zyax_spinlock_lock, 1, [] {
        fake_advance_nanosec(1000);
        ask_page(1, 5);
    });
    walk();
    EXPECT_EQ(queue(), ids{1});
    EXPECT_EQ(events, texts{});
}

TEST_F(RetryWalk, the_clock_is_read_under_the_lock)
{
    ask_page(1, 5);
    uint64_t locks = 0;
    fake_hook(OP_zyax_time_getnanosec, 2, [&] { locks = fake_locks_held(); });
    walk();
    EXPECT_EQ(locks, 1u);
}

/* ---- call-backs */

static bool lock_held[2];

static void note_lock_on_fail(uint64_t)
{
    lock_held[0] = fake_lock_held(&s_retry_req_list.lock);
}

static void note_lock_on_end(void *, uint64_t, uint32_t)
{
    lock_held[1] = fake_lock_held(&s_retry_req_list.lock);
}

TEST_F(RetryWalk, call_backs_of_a_walk_run_under_the_list_lock)
{
    allocOnePageForPagePoolTimeOut(nullptr, 0, note_lock_on_end, 1, note_lock_on_fail, 1, MODULE,
                                   OWNER, 21);
    fake_advance_nanosec(1);
    walk();
    EXPECT_TRUE(lock_held[0]);
    EXPECT_TRUE(lock_held[1]);
    EXPECT_EQ(fake_locks_held(), 0u);
}

static void free_page_on_fail(uint64_t arg)
{
    freeOnePage(reinterpret_cast<page_ctrl *>(arg), MODULE, OWNER, 1);
}

TEST_F(RetryWalk, call_backs_of_a_walk_may_free_pages)
{
    leave_pages(1);
    const uint64_t held = reinterpret_cast<uint64_t>(take_page());
    allocOnePageForPagePoolTimeOut(nullptr, 0, on_end, 1, free_page_on_fail, held, MODULE, OWNER,
                                   21);
    ask_page(2, 60);
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    page_do_retry();
    EXPECT_EQ(events, (texts{"end 1 0x80009301", "end 2 0x0"}));
}

static void run_on_fail(uint64_t)
{
    page_do_retry();
}

TEST_F(RetryWalk, a_run_inside_a_walk_finds_the_list_busy)
{
    allocOnePageForPagePoolTimeOut(nullptr, 0, on_end, 1, run_on_fail, 1, MODULE, OWNER, 21);
    ask_page(2, 60);
    leave_pages(1);
    fake_advance_nanosec(1);
    page_start_retry();
    walk();
    EXPECT_EQ(events, texts{"end 1 0x80009301"});
    EXPECT_EQ(queue(), ids{2});
    EXPECT_EQ(s_enter_retry_cnt, 0u);
}

static void queue_on_fail(uint64_t)
{
    ask_page(2);
}

TEST_F(RetryWalk, queueing_inside_a_walk_ends_the_process)
{
    allocOnePageForPagePoolTimeOut(nullptr, 0, on_end, 1, queue_on_fail, 1, MODULE, OWNER, 21);
    fake_advance_nanosec(1);
    EXPECT_DEATH(walk(), "taken again by its holder \\(page_add_retry_req");
}

/* ---- arming the timer again */

TEST_F(RetryWalk, a_walk_arms_the_hung_page_timer_and_no_other)
{
    ask_page(1);
    walk();
    const std::vector<fake_call> calls = fake_calls(OP_zyax_timer_modify);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args[0].number, reinterpret_cast<uint64_t>(&s_hung_page_timer));
    EXPECT_EQ(calls[0].args[1].number, 500000u);
}

TEST_F(RetryWalk, the_timer_is_armed_without_the_lock)
{
    uint64_t locks = 99;
    fake_hook(OP_zyax_timer_modify, 1, [&] { locks = fake_locks_held(); });
    walk();
    EXPECT_EQ(locks, 0u);
}

TEST_F(RetryWalk, a_timer_that_cannot_be_armed_is_reported_each_time)
{
    fake_fail_always_with(OP_zyax_timer_modify, 22);
    walk();
    EXPECT_ONLY_LINE(ZYLOG_ERROR, WALK, "[UMM_CMM] hung page timeout timer modify ret(22).");
    EXPECT_NOT_LIMITED(walk(), "[UMM_CMM] hung page timeout timer modify ret(22).");
}

TEST(RetryWalkZeroed, a_zeroed_list_is_empty)
{
    walk();
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
    EXPECT_EQ(fake_locks_held(), 0u);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
}

/* ---- the budget of 1 ms and the marker */

/* With this step a walk judges the first record 1 ms after its begin and stops at the second. */
static constexpr uint64_t STEP = 1000000;

static void ask_pages(uint64_t count, uint32_t timeout)
{
    for (uint64_t id = 1; id <= count; ++id)
        ask_page(id, timeout);
}

TEST_F(RetryWalk, a_whole_walk_leaves_its_marker_at_the_head)
{
    ask_pages(2, 60);
    walk();
    EXPECT_EQ(s_hung_page_list_travel_node, &s_retry_req_list.head);
}

TEST_F(RetryWalk, a_walk_that_empties_the_list_leaves_no_marker)
{
    ask_pages(2, 0);
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
}

TEST_F(RetryWalk, a_walk_of_an_empty_list_leaves_no_marker)
{
    s_hung_page_list_travel_node = &s_retry_req_list.head;
    walk();
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
}

TEST_F(RetryWalk, a_marker_at_the_head_begins_at_the_front)
{
    ask_pages(1, 60);
    walk();
    ASSERT_EQ(s_hung_page_list_travel_node, &s_retry_req_list.head);
    fake_advance_nanosec(61 * SECOND);
    walk();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
}

TEST_F(RetryWalk, a_walk_begins_behind_its_marker)
{
    ask_pages(3, 1);
    s_hung_page_list_travel_node = &queued(1)->list;
    fake_advance_nanosec(2 * SECOND);
    walk();
    EXPECT_EQ(queue(), (ids{1, 2}));
    EXPECT_EQ(s_hung_page_list_travel_node, &s_retry_req_list.head);
}

TEST_F(RetryWalk, a_marker_on_the_last_record_ends_the_walk_at_once)
{
    ask_pages(2, 1);
    s_hung_page_list_travel_node = &queued(1)->list;
    fake_advance_nanosec(2 * SECOND);
    walk();
    EXPECT_EQ(queue(), (ids{1, 2}));
    EXPECT_EQ(s_hung_page_list_travel_node, &s_retry_req_list.head);
}

TEST_F(RetryWalk, exactly_1_ms_is_still_within_the_budget)
{
    ask_pages(1, 0);
    fake_set_nanosec_step(STEP);
    walk();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
}

TEST_F(RetryWalk, a_walk_out_of_time_marks_the_record_it_was_about_to_judge)
{
    ask_pages(4, 0);
    list_link *const second = &queued(1)->list;
    fake_set_nanosec_step(STEP);
    walk();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
    EXPECT_EQ(s_hung_page_list_travel_node, second);
    EXPECT_EQ(queue(), (ids{2, 3, 4}));
}

TEST_F(RetryWalk, the_record_at_which_time_ran_out_is_passed_over_once_is_kept)
{
    ask_pages(4, 0);
    fake_set_nanosec_step(STEP);
    walk();
    fake_set_nanosec_step(0);
    walk();
    EXPECT_EQ(queue(), ids{2});
    EXPECT_EQ(s_hung_page_list_travel_node, &s_retry_req_list.head);
    walk();
    EXPECT_EQ(queue(), ids{});
}

TEST_F(RetryWalk, a_walk_out_of_time_at_the_last_record_starts_over_at_the_front)
{
    ask_pages(2, 0);
    fake_set_nanosec_step(STEP);
    walk();
    EXPECT_EQ(queue(), ids{2});
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
    walk();
    EXPECT_EQ(queue(), ids{});
}

TEST_F(RetryWalk, a_walk_that_waited_long_for_the_lock_stops_at_the_first_record)
{
    ask_pages(2, 0);
    list_link *const first = &queued(0)->list;
    fake_hook(OP_do_zyax_spinlock_lock, 1, [] { fake_advance_nanosec(2 * STEP); });
    walk();
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(s_hung_page_list_travel_node, first);
}

TEST_F(RetryWalk, a_long_call_back_ends_the_walk)
{
    ask_pages(3, 0);
    fake_advance_nanosec(1);
    fake_hook(OP_zymm_slab_free, 1, [] { fake_advance_nanosec(2 * STEP); });
    walk();
    EXPECT_EQ(queue(), (ids{2, 3}));
    EXPECT_EQ(s_hung_page_list_travel_node, &queued(0)->list);
}

TEST_F(RetryWalk, no_marker_names_a_record_that_is_gone)
{
    ask_pages(2, 0);
    list_link *const first = &queued(0)->list;
    fake_set_nanosec_step(2 * STEP);
    walk();
    ASSERT_EQ(s_hung_page_list_travel_node, first);
    fake_set_nanosec_step(0);
    walk();
    walk();
    EXPECT_EQ(queue(), ids{});
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
}

/* The second record becomes the marker while the first one's call-back runs. */
static void mark_the_next(void *, uint64_t, uint32_t)
{
    s_hung_page_list_travel_node = &queued(0)->list;
}

static void keep_the_marker(uint64_t)
{
    events.push_back("marker " + hex(s_hung_page_list_travel_node));
}

TEST_F(RetryWalk, a_marker_leaves_a_record_before_its_call_backs_run)
{
    allocOnePageForPagePoolTimeOut(nullptr, 0, mark_the_next, 1, on_fail, 1, MODULE, OWNER, 21);
    allocOnePageForPagePoolTimeOut(nullptr, 0, on_end, 2, keep_the_marker, 2, MODULE, OWNER, 21);
    fake_advance_nanosec(1);
    walk();
    EXPECT_EQ(events, (texts{"fail 1", "marker 0x0", "end 2 0x80009301"}));
    EXPECT_EQ(queue(), ids{});
}
