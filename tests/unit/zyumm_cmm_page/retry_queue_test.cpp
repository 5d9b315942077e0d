/*
 * Kicks and retry runs: who is served, in which order, and what happens in between.
 */
#include "page_fixture.h"

using RetryQueue = with_dry_pool;

static const char *const RUN = "do_retry_single";

/* ---- kicks */

TEST_F(RetryQueue, a_kick_of_an_empty_queue_does_nothing)
{
    EXPECT_EQ(page_start_retry(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_modify), 0u);
}

TEST_F(RetryQueue, the_first_kick_claims_a_run_and_arms_the_retry_timer)
{
    ask_page(1);
    EXPECT_EQ(page_start_retry(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    const std::vector<fake_call> calls = fake_calls(OP_zyax_timer_modify);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args[0].number, reinterpret_cast<uint64_t>(&s_retry_timer));
    EXPECT_EQ(calls[0].args[1].number, 100u);
}

TEST_F(RetryQueue, a_second_kick_is_only_counted)
{
    ask_page(1);
    page_start_retry();
    EXPECT_EQ(page_start_retry(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 1u);
    EXPECT_EQ(page_start_retry(), 0u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 2u);
    EXPECT_EQ(fake_count(OP_zyax_timer_modify), 1u);
}

TEST_F(RetryQueue, a_claim_forgets_the_kicks_of_the_run_before)
{
    ask_page(1);
    page_start_retry();
    page_start_retry();
    page_do_retry();
    EXPECT_EQ(s_enter_retry_repeat_cnt, 1u) << "the end of a run leaves it";
    page_start_retry();
    EXPECT_EQ(s_enter_retry_repeat_cnt, 0u);
}

TEST_F(RetryQueue, a_timer_that_cannot_be_armed_leaves_the_run_pending)
{
    ask_page(1);
    fake_forget_log();
    fake_fail(OP_zyax_timer_modify);
    EXPECT_EQ(page_start_retry(), 0xFFFFFFFFu);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "page_start_retry",
                     "[UMM_CMM] set hung page timeout timer failed.");
}

static void kick_afresh()
{
    s_enter_retry_cnt = 0;
    page_start_retry();
}

TEST_F(RetryQueue, the_hung_page_timers_words_stand_for_the_retry_timer_too_is_kept)
{
    ask_page(1);
    fake_fail_always(OP_zyax_timer_modify);
    EXPECT_NOT_LIMITED(kick_afresh(), "[UMM_CMM] set hung page timeout timer failed.");
}

TEST(RetryQueueZeroed, a_zeroed_list_is_empty_to_a_kick_and_to_a_run)
{
    EXPECT_EQ(page_start_retry(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    s_enter_retry_cnt = 1;
    page_do_retry();
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_NO_LINE();
}

/* ---- runs */

TEST_F(RetryQueue, a_run_serves_in_the_order_of_arrival)
{
    ask_page(1);
    ask_run(2, 2);
    ask_page(3);
    leave_pages(10);
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0", "end 3 0x0"}));
    EXPECT_EQ(static_cast<SGL *>(results[1])->entrySumInChain, 2u);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_EQ(queue(), ids{});
    EXPECT_EQ(requests_out(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
}

TEST_F(RetryQueue, a_served_page_belongs_to_who_asked)
{
    ask_page(1);
    leave_pages(1);
    run_once();
    const page_ctrl *ctrl = static_cast<page_ctrl *>(results[0]);
    EXPECT_EQ(ctrl->owner_func, OWNER);
    EXPECT_EQ(ctrl->owner_modid, 77u);
    EXPECT_EQ(ctrl->ref, 1);
    const fake_call call = fake_last_call(OP_zymm_slab_malloc);
    EXPECT_EQ(call.args[1].number, 77u);
    EXPECT_EQ(call.args[3].number, 21u);
}

TEST_F(RetryQueue, a_served_record_is_freed_after_its_pages_are_delivered)
{
    ask_page(1);
    leave_pages(1);
    texts delivered;
    fake_hook(OP_zymm_slab_free, 1, [&] { delivered = events; });
    run_once();
    EXPECT_EQ(delivered, texts{"end 1 0x0"});
    EXPECT_EQ(requests_out(), 0u);
}

TEST_F(RetryQueue, a_large_request_holds_back_all_behind_it)
{
    ask_run(1, 4);
    ask_page(2);
    leave_pages(3);
    run_once();
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(queue(), (ids{1, 2}));
    EXPECT_EQ(pages_out(), 0u);
    leave_pages(5);
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0"}));
}

TEST_F(RetryQueue, what_a_large_request_held_back_is_served_when_it_has_expired)
{
    ask_run(1, 4, 1);
    ask_page(2, 60);
    leave_pages(3);
    fake_advance_nanosec(2000000000);
    umm_hung_page_timeout_detect();
    EXPECT_EQ(queue(), ids{2});
    run_once();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301", "end 2 0x0"}));
}

TEST_F(RetryQueue, an_unsatisfied_page_is_tried_twice_a_run)
{
    ask_page(1);
    fake_forget_calls();
    run_once();
    EXPECT_EQ(fake_calls(OP_zymm_slab_malloc).size(), 2u);
    EXPECT_EQ(queue(), ids{1});
    EXPECT_EQ(s_enter_retry_cnt, 0u);
}

TEST_F(RetryQueue, a_page_may_come_at_the_second_attempt)
{
    ask_page(1);
    leave_pages(1);
    fake_fail(OP_zymm_slab_malloc, 1);
    run_once();
    EXPECT_EQ(events, texts{"end 1 0x0"});
}

TEST_F(RetryQueue, an_unsatisfied_run_is_tried_twice_a_run)
{
    ask_run(1, 2);
    fake_forget_calls();
    run_once();
    EXPECT_EQ(fake_calls(OP_zymm_slab_malloc).size(), 4u);
    EXPECT_EQ(queue(), ids{1});
    EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 0u);
}

TEST_F(RetryQueue, a_run_may_come_at_the_second_attempt)
{
    ask_run(1, 2);
    leave_pages(2);
    fake_fail(OP_zymm_slab_malloc, 1);
    run_once();
    EXPECT_EQ(events, texts{"end 1 0x0"});
    EXPECT_EQ(pages_out(), 2u);
}

/* One call is refused inside the run; the request is served by this run or by the next. */
TEST_F(RetryQueue, a_request_is_served_once_whatever_call_the_slab_refuses)
{
    for (uint64_t nth = 1; nth <= 8; ++nth) {
        events.clear();
        dry_pool();
        ask_run(1, 3);
        leave_pages(3);
        fake_fail(OP_zymm_slab_malloc, nth);
        run_once();
        if (events.empty())
            run_once();
        fake_no_faults();
        EXPECT_EQ(events, texts{"end 1 0x0"});
        freeMultiPages(static_cast<SGL *>(results.back()), MODULE, OWNER, 1);
        EXPECT_EQ(pages_out(), 0u);
        EXPECT_EQ(requests_out(), 0u);
        EXPECT_EQ(s_enter_retry_cnt, 0u);
    }
}

/* Two SGLs' worth of pages, so that a run of the queue visits every refusal of both slabs. */
TEST_F(RetryQueue, a_run_of_the_queue_leaks_nothing_at_any_refusal)
{
    for_each_fault(OP_zymm_slab_malloc, [](const fault &f) {
        events.clear();
        fake_limit(s_page_partition_id, 800);
        page_add_retry_req(0, 65, 60, on_end, 1, on_fail, 1, MODULE, OWNER, 22);
        if (f.hit)
            return; /* the record itself was refused */
        run_once();
        EXPECT_EQ(events, texts{"end 1 0x0"}) << "two attempts outlast one refusal";
        freeMultiPages(static_cast<SGL *>(results.back()), MODULE, OWNER, 1);
        EXPECT_EQ(pages_out(), 0u);
        EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 0u);
        EXPECT_EQ(requests_out(), 0u);
    });
}

TEST_F(RetryQueue, a_busy_list_ends_the_run_at_once)
{
    ask_page(1);
    leave_pages(1);
    page_start_retry();
    do_zyax_spinlock_lock(&s_retry_req_list.lock, "the test", 1);
    page_do_retry();
    do_zyax_spinlock_unlock(&s_retry_req_list.lock);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(queue(), ids{1});
    EXPECT_EQ(events, texts{});
}

TEST_F(RetryQueue, a_run_of_an_empty_queue_ends_and_leaves_the_lock)
{
    s_enter_retry_cnt = 1;
    page_do_retry();
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(fake_locks_held(), 0u);
}

TEST_F(RetryQueue, a_run_that_nobody_claimed_wraps_the_count_is_kept)
{
    page_do_retry();
    EXPECT_EQ(s_enter_retry_cnt, 0xFFFFFFFFu);
}

TEST_F(RetryQueue, a_kick_finds_a_wrapped_count_pending)
{
    ask_page(1);
    page_do_retry();
    EXPECT_EQ(page_start_retry(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 0xFFFFFFFFu);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 1u);
}

TEST_F(RetryQueue, a_run_touches_neither_of_the_reserved_counters)
{
    s_retry_times = 3;
    s_retry_exit_count = 4;
    ask_page(1);
    leave_pages(1);
    run_once();
    EXPECT_EQ(s_retry_times, 3u);
    EXPECT_EQ(s_retry_exit_count, 4u);
}

/* ---- unusual records */

TEST_F(RetryQueue, an_unknown_type_ends_the_run_and_stays_at_the_front)
{
    page_add_retry_req(7, 1, 5, on_end, 1, on_fail, 1, MODULE, OWNER, 21);
    ask_page(2);
    leave_pages(2);
    fake_forget_log();
    run_once();
    EXPECT_ONLY_LINE(ZYLOG_ERROR, RUN, "[UMM_CMM] Retry req, but output_type(7) is invalid.");
    EXPECT_EQ(queue(), (ids{1, 2}));
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_NOT_LIMITED(run_once(), "[UMM_CMM] Retry req, but output_type(7) is invalid.");
}

TEST_F(RetryQueue, an_unknown_type_still_times_out)
{
    page_add_retry_req(2, 1, 0, on_end, 1, on_fail, 1, MODULE, OWNER, 21);
    run_once();
    fake_advance_nanosec(1);
    umm_hung_page_timeout_detect();
    EXPECT_EQ(events, (texts{"fail 1", "end 1 0x80009301"}));
}

static void on_end_without_code(void *result, uint64_t arg)
{
    events.push_back("plain " + std::to_string(arg));
    results.push_back(result);
}

TEST_F(RetryQueue, the_call_back_without_a_code_comes_first)
{
    ask_page(1);
    queued(0)->cbFuncNoRet = on_end_without_code;
    leave_pages(1);
    run_once();
    EXPECT_EQ(events, texts{"plain 1"});
    EXPECT_EQ(static_cast<page_ctrl *>(results[0])->ref, 1);
}

TEST_F(RetryQueue, a_result_without_a_call_back_goes_to_nobody)
{
    ask_page(1);
    queued(0)->cbFunc = nullptr;
    leave_pages(1);
    fake_forget_log();
    run_once();
    EXPECT_ONLY_LINE(ZYLOG_ERROR, RUN, "[UMM_CMM] Umm page retry cb is NULL .");
    EXPECT_EQ(pages_out(), 1u);
    EXPECT_EQ(requests_out(), 0u);
    EXPECT_EQ(queue(), ids{});
}

static void serve_one_without_call_back()
{
    dry_pool();
    ask_page(1);
    queued(0)->cbFunc = nullptr;
    leave_pages(1);
    run_once();
}

TEST_F(RetryQueue, each_result_without_a_call_back_is_reported)
{
    EXPECT_NOT_LIMITED(serve_one_without_call_back(), "[UMM_CMM] Umm page retry cb is NULL .");
}

/* ---- the budget of 0.5 ms */

static void ask_five_pages()
{
    for (uint64_t id = 1; id <= 5; ++id)
        ask_page(id);
    leave_pages(5);
}

TEST_F(RetryQueue, a_run_ends_after_the_request_that_passed_its_budget)
{
    ask_five_pages();
    fake_set_nanosec_step(250000);
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0", "end 3 0x0"}));
    EXPECT_EQ(queue(), (ids{4, 5}));
    EXPECT_EQ(s_enter_retry_cnt, 0u);
}

TEST_F(RetryQueue, a_run_goes_on_at_exactly_its_budget)
{
    ask_five_pages();
    fake_set_nanosec_step(500000);
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0", "end 2 0x0"}));
}

TEST_F(RetryQueue, a_run_serves_one_request_however_late_it_is)
{
    ask_five_pages();
    fake_set_nanosec_step(500001);
    run_once();
    EXPECT_EQ(events, texts{"end 1 0x0"});
}
