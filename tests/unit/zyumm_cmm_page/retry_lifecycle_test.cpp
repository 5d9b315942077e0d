/*
 * Start and stop of the retry machinery.
 */
#include "page_fixture.h"

using RetryStopRunning = with_dry_pool;

static uint64_t address(const void *pointer)
{
    return reinterpret_cast<uint64_t>(pointer);
}

/* ---- the slab of request records */

TEST(RetryStart, without_pages_there_is_no_queue)
{
    configure(0, 0);
    fake_forget_calls();
    EXPECT_EQ(page_init_retry(), 0u);
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_EQ(fake_calls().size(), 0u);
    EXPECT_NO_LINE();
}

TEST(RetryStart, the_request_slab_has_these_parameters)
{
    configure(0, 807);
    EXPECT_EQ(page_init_retry(), 0u);
    const fake_call call = fake_last_call(OP_zymm_create_slab);
    EXPECT_EQ(call.result, s_page_request_id);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "page_init_retry");
    const zymm_slab_param param = call.as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "PAGE REQUEST");
    EXPECT_EQ(param.module_id, 386u);
    EXPECT_EQ(param.attr, 2u);
    EXPECT_EQ(param.obj_size, 96u);
    EXPECT_EQ(param.min_num, 0u);
    EXPECT_EQ(param.max_num, 100u);
    EXPECT_EQ(param.align, 8u);
    EXPECT_EQ(param.pool_id, 0u);
}

TEST(RetryStart, the_name_is_copied_into_31_characters)
{
    configure(0, 80);
    page_init_retry();
    const fake_call call = fake_last_call(OP_memcpy_s);
    EXPECT_EQ(call.args[1].number, 31u);
    EXPECT_EQ(call.args[3].number, 12u);
}

TEST(RetryStart, a_maximum_below_8_gives_a_slab_of_no_records)
{
    configure(0, 7);
    EXPECT_EQ(page_init_retry(), 0u);
    EXPECT_EQ(fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>().max_num, 0u);
}

TEST(RetryStart, a_name_that_cannot_be_copied_fails_it)
{
    configure(0, 80);
    fake_fail_always_with(OP_memcpy_s, 34);
    EXPECT_EQ(page_init_retry(), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "page_init_retry", "[UMM_CMM] memcpy_s error 34.");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_NOT_LIMITED(page_init_retry(), "[UMM_CMM] memcpy_s error 34.");
}

TEST(RetryStart, a_slab_that_cannot_be_made_fails_it)
{
    configure(0, 80);
    fake_fail_always(OP_zymm_create_slab);
    EXPECT_EQ(page_init_retry(), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "page_init_retry", "[UMM_CMM] create paga request pool failed");
    EXPECT_EQ(fake_count(OP_zyax_timer_init), 0u);
    EXPECT_NOT_LIMITED(page_init_retry(), "[UMM_CMM] create paga request pool failed");
}

/* ---- the list and the counters */

TEST(RetryStart, the_list_starts_empty_and_the_counters_at_0)
{
    configure(0, 80);
    memset(&s_retry_req_list, 0x5A, sizeof s_retry_req_list);
    s_hung_page_list_travel_node = &s_retry_req_list.head;
    s_enter_retry_cnt = s_enter_retry_repeat_cnt = s_retry_times = s_retry_exit_count = 5;
    EXPECT_EQ(page_init_retry(), 0u);
    EXPECT_EQ(s_retry_req_list.lock.word, 0u);
    EXPECT_EQ(s_retry_req_list.lock.magic, 0xdead4eadu);
    EXPECT_EQ(s_retry_req_list.lock.owner_cpu, 0xFFFFFFFFu);
    EXPECT_EQ(s_retry_req_list.lock.owner, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(s_retry_req_list.head.next, &s_retry_req_list.head);
    EXPECT_EQ(s_retry_req_list.head.prev, &s_retry_req_list.head);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_EQ(s_hung_page_list_travel_node, nullptr);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 0u);
    EXPECT_EQ(s_retry_times, 0u);
    EXPECT_EQ(s_retry_exit_count, 5u);
}

/* ---- the timers */

static void expect_walk_timer(const zyax_timer *timer)
{
    const fake_timer_state state = fake_timer(timer);
    EXPECT_TRUE(state.initialised);
    EXPECT_TRUE(state.armed);
    EXPECT_EQ(state.expires, 500000u);
    EXPECT_EQ(state.flags, 0u);
    EXPECT_EQ(state.fn, umm_hung_page_timeout_detect);
    EXPECT_EQ(state.fn_name, "umm_hung_page_timeout_detect");
    EXPECT_EQ(state.file, "src/cmm_umm/zyumm_cmm_page/retry_lifecycle.cpp");
}

TEST(RetryStart, both_timers_run_the_walk_is_kept)
{
    configure(0, 80);
    EXPECT_EQ(page_init_retry(), 0u);
    expect_walk_timer(&s_retry_timer);
    expect_walk_timer(&s_hung_page_timer);
    EXPECT_EQ(fake_timers().size(), 2u);
}

TEST(RetryStart, the_retry_timer_comes_first_and_both_are_reported)
{
    configure(0, 80);
    fake_set_nanosec_step(25);
    EXPECT_EQ(page_init_retry(), 0u);
    EXPECT_EQ(fake_calls(OP_zyax_timer_init)[0].args[0].number, address(&s_retry_timer));
    EXPECT_EQ(fake_calls(OP_zyax_timer_init)[1].args[0].number, address(&s_hung_page_timer));
    EXPECT_EQ(fake_log_texts(),
              (texts{"[UMM_CMM] Create retry timer begin.",
                     "[UMM_CMM] Create hung page timeout timer OK, cost time(25 ns)."}));
    EXPECT_EQ(fake_log()[0].level, uint32_t(ZYLOG_INFO));
    EXPECT_EQ(fake_log()[0].func, "page_init_retry_timeout_timer");
    EXPECT_LAST_LINE(ZYLOG_INFO, "page_init_hung_page_timeout_timer",
                     "[UMM_CMM] Create hung page timeout timer OK, cost time(25 ns).");
}

TEST(RetryStart, the_platform_is_started_for_the_hung_page_timer)
{
    EXPECT_EQ(page_init_retry_timeout_timer(), 0u);
    EXPECT_EQ(fake_count(OP_zyax_Init), 0u);
    EXPECT_EQ(page_init_hung_page_timeout_timer(), 0u);
    EXPECT_EQ(fake_count(OP_zyax_Init), 1u);
}

TEST(RetryStart, timers_that_are_initialised_already_are_accepted)
{
    configure(0, 80);
    fake_fail_always_with(OP_zyax_timer_init, 17);
    fake_fail_always_with(OP_zyax_timer_set_raw, 0);
    fake_fail_always_with(OP_zyax_timer_add, 0);
    EXPECT_EQ(page_init_retry(), 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_add), 2u);
}

TEST(RetryStart, a_timer_started_twice_is_accepted)
{
    EXPECT_EQ(page_init_retry_timeout_timer(), 0u);
    EXPECT_EQ(page_init_retry_timeout_timer(), 0u);
    EXPECT_EQ(fake_last_call(OP_zyax_timer_init).result, 17u);
}

/* Fails one step of a timer's start every time and checks the one error line of it. */
static void expect_timer_failure(fake_op op, uint64_t value, uint32_t (*start)(), const char *func,
                                 const char *text)
{
    fake_forget_log();
    fake_fail_with(op, 1, value);
    EXPECT_EQ(start(), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, func, text);
    EXPECT_EQ(fake_log_count(text), 1u);
    fake_fail_always_with(op, value);
    EXPECT_NOT_LIMITED(start(), text);
    fake_no_faults();
}

static void expect_retry_timer_failure(fake_op op, uint64_t value, const char *text)
{
    expect_timer_failure(op, value, page_init_retry_timeout_timer, "page_init_retry_timeout_timer",
                         text);
}

static void expect_hung_timer_failure(fake_op op, uint64_t value, const char *text)
{
    expect_timer_failure(op, value, page_init_hung_page_timeout_timer,
                         "page_init_hung_page_timeout_timer", text);
}

TEST(RetryStart, a_retry_timer_that_cannot_be_initialised)
{
    expect_retry_timer_failure(OP_zyax_timer_init, 16, "[UMM_CMM] retry timer failed.");
    EXPECT_EQ(fake_count(OP_zyax_timer_set_raw), 0u);
}

TEST(RetryStart, a_retry_timer_that_cannot_be_set)
{
    expect_retry_timer_failure(OP_zyax_timer_set_raw, 1, "[UMM_CMM] set retry timer failed.");
    EXPECT_EQ(fake_count(OP_zyax_timer_add), 0u);
}

TEST(RetryStart, a_retry_timer_that_cannot_be_armed)
{
    expect_retry_timer_failure(OP_zyax_timer_add, 1, "[UMM_CMM] Set retry timer failed.");
}

TEST(RetryStart, setting_accepts_no_17)
{
    expect_retry_timer_failure(OP_zyax_timer_set_raw, 17, "[UMM_CMM] set retry timer failed.");
}

TEST(RetryStart, a_platform_that_cannot_be_started)
{
    expect_hung_timer_failure(OP_zyax_Init, 1, "[UMM_CMM] Zyumm zyax init failed.");
    EXPECT_EQ(fake_count(OP_zyax_timer_init), 0u);
}

TEST(RetryStart, a_hung_page_timer_that_cannot_be_initialised)
{
    expect_hung_timer_failure(OP_zyax_timer_init, 18, "[UMM_CMM] hung page timeout timer failed.");
    EXPECT_EQ(fake_count(OP_zyax_timer_set_raw), 0u);
}

TEST(RetryStart, a_hung_page_timer_that_cannot_be_set)
{
    expect_hung_timer_failure(OP_zyax_timer_set_raw, 1,
                              "[UMM_CMM] set hung page timeout timer failed.");
    EXPECT_EQ(fake_count(OP_zyax_timer_add), 0u);
}

TEST(RetryStart, a_hung_page_timer_that_cannot_be_armed)
{
    expect_hung_timer_failure(OP_zyax_timer_add, 1,
                              "[UMM_CMM] Set hung page timeout timer failed.");
}

TEST(RetryStart, without_a_retry_timer_everything_goes_again)
{
    configure(0, 80);
    fake_fail(OP_zyax_timer_add, 1);
    EXPECT_EQ(page_init_retry(), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "page_init_retry", "[UMM_CMM] page init retry timer fail.");
    EXPECT_EQ(fake_log().size(), 3u);
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_EQ(fake_handles_alive(), 0u);
    EXPECT_FALSE(fake_timer(&s_retry_timer).initialised);
    fake_fail_always(OP_zyax_timer_init);
    EXPECT_NOT_LIMITED(page_init_retry(), "[UMM_CMM] page init retry timer fail.");
}

TEST(RetryStart, without_a_hung_page_timer_everything_goes_again)
{
    configure(0, 80);
    fake_fail(OP_zyax_Init);
    EXPECT_EQ(page_init_retry(), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "page_init_retry",
                     "[UMM_CMM] page init hung page timeout timer fail.");
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_EQ(fake_handles_alive(), 0u);
    EXPECT_FALSE(fake_timer(&s_retry_timer).initialised);
    fake_fail_always(OP_zyax_Init);
    EXPECT_NOT_LIMITED(page_init_retry(), "[UMM_CMM] page init hung page timeout timer fail.");
}

TEST(RetryStart, a_start_is_all_or_nothing_at_every_refused_call)
{
    configure(0, 80);
    for (fake_op op : {OP_memcpy_s, OP_zymm_create_slab, OP_zyax_Init, OP_zyax_timer_init,
                       OP_zyax_timer_set_raw, OP_zyax_timer_add}) {
        for_each_fault(op, [](const fault &f) {
            const uint32_t started = page_init_retry();
            EXPECT_EQ(started, f.hit ? 0xFFFFFFFFu : 0u);
            EXPECT_EQ(s_page_request_id == 0, f.hit);
            EXPECT_EQ(fake_timer(&s_hung_page_timer).armed, !f.hit);
            page_exit_retry();
            EXPECT_EQ(fake_handles_alive(), 0u);
            EXPECT_FALSE(fake_timer(&s_retry_timer).initialised);
        });
    }
}

/* ---- stop */

TEST(RetryStop, a_stop_of_nothing_is_silent)
{
    page_exit_retry();
    EXPECT_NO_LINE();
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_EQ(fake_last_call(OP_zymm_destory_slab).args[0].number, 0u);
}

TEST_F(RetryStopRunning, a_stop_deletes_the_timers_before_the_slab)
{
    const uint64_t slab = s_page_request_id;
    page_exit_retry();
    const std::vector<fake_call> calls = fake_calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].op, OP_zyax_timer_delete);
    EXPECT_EQ(calls[0].args[0].number, address(&s_hung_page_timer));
    EXPECT_EQ(calls[1].op, OP_zyax_timer_delete);
    EXPECT_EQ(calls[1].args[0].number, address(&s_retry_timer));
    EXPECT_EQ(calls[2].op, OP_zymm_destory_slab);
    EXPECT_EQ(calls[2].args[0].number, slab);
    EXPECT_EQ(calls[2].args[1].number, 386u);
    EXPECT_EQ(calls[2].args[2].text, "page_exit_retry");
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_FALSE(fake_handle_alive(slab));
    EXPECT_NO_LINE();
}

TEST_F(RetryStopRunning, a_stop_forgets_queued_requests_without_a_call)
{
    const uint64_t slab = s_page_request_id;
    ask_page(1);
    ask_page(2);
    list_link *const front = s_retry_req_list.head.next;
    fake_forget_log();
    page_exit_retry();
    ASSERT_EQ(fake_log_from("page_exit_retry").size(), 1u);
    EXPECT_EQ(fake_log()[0].func, "page_exit_retry");
    EXPECT_EQ(fake_log()[0].level, uint32_t(ZYLOG_ERROR));
    EXPECT_EQ(fake_log()[0].text, "[UMM_CMM] list sum is not 0, when destroy\n");
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(s_retry_req_list.sum, 2u);
    EXPECT_EQ(s_retry_req_list.head.next, front);
    EXPECT_FALSE(fake_handle_alive(slab));
    EXPECT_EQ(s_page_request_id, 0u);
    EXPECT_NOT_LIMITED(page_exit_retry(), "[UMM_CMM] list sum is not 0, when destroy\n");
}

TEST_F(RetryStopRunning, a_start_after_such_a_stop_begins_with_an_empty_list)
{
    ask_page(1);
    page_exit_retry();
    EXPECT_EQ(page_init_retry(), 0u);
    EXPECT_EQ(queue(), ids{});
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    ask_page(2);
    EXPECT_EQ(queue(), ids{2});
}

TEST(RetryStop, a_retry_timer_that_cannot_be_deleted)
{
    fake_fail_always_with(OP_zyax_timer_delete, 5);
    EXPECT_EQ(umm_delete_retry_timer(), 5u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "umm_delete_retry_timer",
                     "[UMM_CMM] Umm delete retry timer failed, ret:5.");
    EXPECT_NOT_LIMITED(umm_delete_retry_timer(),
                       "[UMM_CMM] Umm delete retry timer failed, ret:5.");
}

TEST(RetryStop, a_hung_page_timer_that_cannot_be_deleted)
{
    fake_fail_always_with(OP_zyax_timer_delete, uint64_t(-5));
    EXPECT_EQ(umm_delete_hung_page_timer(), 0xFFFFFFFBu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "umm_delete_hung_page_timer",
                     "[UMM_CMM] Umm delete hung page timer failed, ret:-5.");
    EXPECT_NOT_LIMITED(umm_delete_hung_page_timer(),
                       "[UMM_CMM] Umm delete hung page timer failed, ret:-5.");
}

TEST(RetryStop, deleting_timers_that_never_were_succeeds)
{
    EXPECT_EQ(umm_delete_retry_timer(), 0u);
    EXPECT_EQ(umm_delete_hung_page_timer(), 0u);
    EXPECT_NO_LINE();
}

TEST_F(RetryStopRunning, timers_that_cannot_be_deleted_do_not_stop_a_stop)
{
    fake_fail_always(OP_zyax_timer_delete);
    page_exit_retry();
    EXPECT_EQ(fake_count(OP_zyax_timer_delete), 2u);
    EXPECT_EQ(fake_count(OP_zymm_destory_slab), 1u);
    EXPECT_EQ(s_page_request_id, 0u);
}
