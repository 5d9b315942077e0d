/*
 * Pages with a time-out: at once, queued, or refused.
 */
#include "page_fixture.h"

using PageTimeout = with_pages;
using PageTimeoutDry = with_dry_pool;

/* ---- arguments of the single page */

static void ask_page_with(page_retry_cb cb, page_retry_fail_cb fail_cb, const char *func)
{
    allocOnePageForPagePoolTimeOut(nullptr, 5, cb, 7, fail_cb, 8, MODULE, func, 21);
}

TEST_F(PageTimeout, one_page_without_a_call_back_is_refused)
{
    ask_page_with(nullptr, nullptr, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocOnePageForPagePoolTimeOut",
                     "[UMM_CMM] cbFunc NULL in allocOnePageForPagePoolTimeOut.");
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageTimeout, one_page_without_a_call_back_is_limited)
{
    EXPECT_LIMITED(ask_page_with(nullptr, on_fail, OWNER),
                   "[UMM_CMM] cbFunc NULL in allocOnePageForPagePoolTimeOut.");
    EXPECT_EQ(events, texts{});
}

TEST_F(PageTimeout, one_page_without_a_failure_call_back_is_refused)
{
    ask_page_with(on_end, nullptr, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocOnePageForPagePoolTimeOut",
                     "[UMM_CMM] failcbFunc is NULL in allocOnePageForPagePoolTimeOut.");
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageTimeout, one_page_without_a_failure_call_back_is_limited)
{
    EXPECT_LIMITED(ask_page_with(on_end, nullptr, OWNER),
                   "[UMM_CMM] failcbFunc is NULL in allocOnePageForPagePoolTimeOut.");
}

TEST_F(PageTimeout, one_page_for_nobody_is_refused_through_the_call_backs)
{
    ask_page_with(on_end, on_fail, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocOnePageForPagePoolTimeOut",
                     "[UMM_CMM] func name is NULL in allocOnePageForPagePoolTimeOut.");
    EXPECT_EQ(events, (texts{"fail 8", "end 7 0xffffffff"}));
    EXPECT_EQ(results, (std::vector<void *>{nullptr}));
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageTimeout, one_page_for_nobody_is_limited)
{
    EXPECT_LIMITED(ask_page_with(on_end, on_fail, nullptr),
                   "[UMM_CMM] func name is NULL in allocOnePageForPagePoolTimeOut.");
    EXPECT_EQ(events.size(), 10u);
}

/* ---- arguments of the run */

static void ask_run_with(page_retry_cb cb, page_retry_fail_cb fail_cb, const char *func)
{
    allocMultiPagesForPagePoolTimeOut(2, nullptr, 5, cb, 7, fail_cb, 8, MODULE, func, 22);
}

TEST_F(PageTimeout, a_run_without_a_call_back_is_refused)
{
    ask_run_with(nullptr, nullptr, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesForPagePoolTimeOut",
                     "[UMM_CMM] cbFunc NULL in allocMultiPagesForPagePoolTimeOut.");
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageTimeout, a_run_without_a_call_back_is_limited)
{
    EXPECT_LIMITED(ask_run_with(nullptr, on_fail, OWNER),
                   "[UMM_CMM] cbFunc NULL in allocMultiPagesForPagePoolTimeOut.");
    EXPECT_EQ(events, texts{});
}

TEST_F(PageTimeout, a_run_without_a_failure_call_back_is_refused)
{
    ask_run_with(on_end, nullptr, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesForPagePoolTimeOut",
                     "[UMM_CMM] failcbFunc is NULL in allocMultiPagesForPagePoolTimeOut.");
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageTimeout, a_run_without_a_failure_call_back_is_limited)
{
    EXPECT_LIMITED(ask_run_with(on_end, nullptr, OWNER),
                   "[UMM_CMM] failcbFunc is NULL in allocMultiPagesForPagePoolTimeOut.");
}

TEST_F(PageTimeout, a_run_for_nobody_is_refused_through_the_call_backs)
{
    ask_run_with(on_end, on_fail, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesForPagePoolTimeOut",
                     "[UMM_CMM] func name is NULL in allocMultiPagesForPagePoolTimeOut.");
    EXPECT_EQ(events, (texts{"fail 8", "end 7 0xffffffff"}));
    EXPECT_EQ(results, (std::vector<void *>{nullptr}));
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageTimeout, a_run_for_nobody_is_limited)
{
    EXPECT_LIMITED(ask_run_with(on_end, on_fail, nullptr),
                   "[UMM_CMM] func name is NULL in allocMultiPagesForPagePoolTimeOut.");
    EXPECT_EQ(events.size(), 10u);
}

/* ---- at once */

TEST_F(PageTimeout, one_page_at_once_is_delivered_in_the_callers_thread)
{
    ask_page(7);
    EXPECT_EQ(events, texts{"end 7 0x0"});
    page_ctrl *ctrl = static_cast<page_ctrl *>(results[0]);
    EXPECT_EQ(ctrl->ref, 1);
    EXPECT_EQ(ctrl->owner_func, OWNER);
    EXPECT_EQ(ctrl->owner_modid, 77u);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[3].number, 21u);
    EXPECT_NO_LINE();
}

TEST_F(PageTimeout, a_run_at_once_is_delivered_in_the_callers_thread)
{
    ask_run(7, 65);
    EXPECT_EQ(events, texts{"end 7 0x0"});
    EXPECT_EQ(static_cast<SGL *>(results[0])->entrySumInChain, 65u);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[3].number, 22u);
    EXPECT_NO_LINE();
}

TEST_F(PageTimeout, a_run_may_succeed_at_its_second_attempt)
{
    fake_fail(OP_zymm_slab_malloc, 2);
    ask_run(7, 1);
    EXPECT_EQ(events, texts{"end 7 0x0"});
    EXPECT_EQ(pages_out(), 1u);
}

/* ---- queued */

TEST_F(PageTimeoutDry, one_page_is_queued_after_one_attempt)
{
    ask_page(7);
    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0].number, s_page_partition_id);
    EXPECT_EQ(calls[1].args[0].number, s_page_request_id);
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(queue(), ids{7});
    EXPECT_EQ(s_retry_req_list.sum, 1u);
}

/* Each attempt takes an SGL and then finds no page. */
TEST_F(PageTimeoutDry, a_run_is_queued_after_two_attempts_is_kept)
{
    ask_run(7, 2);
    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[1].args[0].number, s_page_partition_id);
    EXPECT_EQ(calls[3].args[0].number, s_page_partition_id);
    EXPECT_EQ(calls[4].args[0].number, s_page_request_id);
    EXPECT_EQ(queue(), ids{7});
}

TEST_F(PageTimeoutDry, a_queued_page_is_reported)
{
    ask_page(7);
    const std::vector<fake_line> log = fake_log();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].level, uint32_t(ZYLOG_WARNING));
    EXPECT_EQ(log[0].func, "allocOnePageForPagePoolTimeOut");
    EXPECT_EQ(log[0].text,
              "[UMM_CMM] Umm alloc one page with timeOut failed, func(the owner), line(21).");
    EXPECT_LAST_LINE(ZYLOG_INFO, "page_add_retry_req",
                     "[UMM_CMM] Umm page_add_retry_req succ, pList(" + hex(queued(0)) + ").");
}

TEST_F(PageTimeoutDry, failed_attempts_at_one_page_are_limited)
{
    EXPECT_LIMITED(ask_page(7), "[UMM_CMM] Umm alloc one page with timeOut failed, "
                                "func(the owner), line(21).");
    EXPECT_EQ(fake_log_from("page_add_retry_req").size(), 5u);
}

TEST_F(PageTimeoutDry, a_queued_run_is_reported)
{
    ask_run(7, 2);
    const std::vector<fake_line> log = fake_log_from("allocMultiPagesForPagePoolTimeOut");
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].level, uint32_t(ZYLOG_WARNING));
    EXPECT_EQ(log[0].text, "[UMM_CMM] Umm alloc multi page with timeOut failed, page_cnt(2), "
                           "func(the owner), line(22).");
}

TEST_F(PageTimeoutDry, failed_attempts_at_a_run_are_limited)
{
    EXPECT_LIMITED(ask_run(7, 2), "[UMM_CMM] Umm alloc multi page with timeOut failed, "
                                  "page_cnt(2), func(the owner), line(22).");
}

TEST_F(PageTimeoutDry, a_record_keeps_what_the_caller_asked_for)
{
    fake_set_nanosec(5000);
    allocMultiPagesForPagePoolTimeOut(3, nullptr, 9, on_end, 0x123456789A, on_fail, 0xABCDEF0123,
                                      0x54321, OWNER, 0x12345);
    const page_retry_req *req = queued(0);
    EXPECT_EQ(req->cbFuncNoRet, nullptr);
    EXPECT_EQ(req->cbFunc, on_end);
    EXPECT_EQ(req->cbArg, 0x123456789Au);
    EXPECT_EQ(req->failcbFunc, on_fail);
    EXPECT_EQ(req->failcbArg, 0xABCDEF0123u);
    EXPECT_EQ(req->page_cnt, 3u);
    EXPECT_EQ(req->served, 0u);
    EXPECT_EQ(req->func_name, OWNER);
    EXPECT_EQ(req->line, 0x2345u);
    EXPECT_EQ(req->module_id, 0x4321u);
    EXPECT_EQ(req->output_type, 0u);
    EXPECT_EQ(req->enqueue_time, 5000u);
    EXPECT_EQ(req->timeout, 9u);
}

TEST_F(PageTimeoutDry, a_page_is_queued_as_one_page)
{
    ask_page(7, 0xFFFFFFFF);
    EXPECT_EQ(queued(0)->output_type, 1u);
    EXPECT_EQ(queued(0)->page_cnt, 1u);
    EXPECT_EQ(queued(0)->timeout, 0xFFFFFFFFu);
}

TEST_F(PageTimeoutDry, the_request_slab_learns_who_asks)
{
    ask_page(7);
    const fake_call call = fake_last_call(OP_zymm_slab_malloc);
    EXPECT_EQ(call.args[1].number, 77u);
    EXPECT_EQ(call.args[2].text, "the owner");
    EXPECT_EQ(call.args[3].number, 21u);
}

TEST_F(PageTimeoutDry, requests_queue_at_the_tail)
{
    ask_page(1);
    ask_run(2, 2);
    ask_page(3);
    EXPECT_EQ(queue(), (ids{1, 2, 3}));
    EXPECT_EQ(s_retry_req_list.sum, 3u);
    EXPECT_EQ(s_retry_req_list.head.prev, &queued(2)->list);
    EXPECT_EQ(queued(2)->list.prev, &queued(1)->list);
    EXPECT_EQ(queued(0)->list.prev, &s_retry_req_list.head);
}

TEST_F(PageTimeoutDry, queueing_kicks_nothing)
{
    ask_page(7);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_modify), 0u);
}

TEST_F(PageTimeoutDry, a_count_that_no_run_can_have_is_queued_all_the_same_is_kept)
{
    ask_run(7, 65536);
    EXPECT_EQ(queue(), ids{7});
    EXPECT_EQ(queued(0)->page_cnt, 65536u);
}

TEST_F(PageTimeoutDry, a_record_is_off_the_list_until_the_lock_is_held)
{
    list_link link = {};
    fake_hook(OP_do_zyax_spinlock_lock, 1, [&] {
        const uint64_t record = fake_last_call(OP_zymm_slab_malloc).result;
        link = reinterpret_cast<page_retry_req *>(record)->list;
    });
    ask_page(7);
    EXPECT_EQ(hex(link.next), "0x100100");
    EXPECT_EQ(hex(link.prev), "0x200200");
}

TEST_F(PageTimeoutDry, the_mark_of_a_record_used_again_is_cleared)
{
    ask_page(1);
    page_retry_req *req = queued(0);
    leave_pages(1);
    page_do_retry();
    dry_pool();
    ask_page(2);
    ASSERT_EQ(queued(0), req);
    EXPECT_EQ(req->served, 0u);
}

/* ---- refused */

TEST_F(PageTimeoutDry, a_page_that_cannot_be_queued_fails_through_both_call_backs)
{
    fake_limit(s_page_request_id, 0);
    fake_forget_log();
    ask_page(7);
    EXPECT_EQ(events, (texts{"fail 7", "end 7 0xffffffff"}));
    EXPECT_EQ(results, (std::vector<void *>{nullptr}));
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "page_add_retry_req",
                     "[UMM_CMM] Alloc mem for retry request failed, func(the owner), line(21).");
}

TEST_F(PageTimeoutDry, a_run_that_cannot_be_queued_fails_through_both_call_backs)
{
    fake_limit(s_page_request_id, 0);
    ask_run(7, 2);
    EXPECT_EQ(events, (texts{"fail 7", "end 7 0xffffffff"}));
    EXPECT_LAST_LINE(ZYLOG_ERROR, "page_add_retry_req",
                     "[UMM_CMM] Alloc mem for retry request failed, func(the owner), line(22).");
}

TEST_F(PageTimeoutDry, each_request_that_cannot_be_queued_is_reported)
{
    fake_limit(s_page_request_id, 0);
    EXPECT_NOT_LIMITED(ask_page(7), "[UMM_CMM] Alloc mem for retry request failed, "
                                    "func(the owner), line(21).");
}

TEST_F(PageTimeoutDry, every_refusal_of_a_slab_ends_a_request_in_one_way)
{
    for_each_fault(OP_zymm_slab_malloc, [](const fault &) {
        events.clear();
        const uint64_t waiting = s_retry_req_list.sum;
        ask_run(7, 2);
        EXPECT_EQ(s_retry_req_list.sum - waiting + events.size() / 2, 1u);
        EXPECT_EQ(requests_out(), s_retry_req_list.sum);
        EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 0u);
    });
}

/* The allocator leaves its out pointer as it is; nothing but null must be taken for a chain. */
TEST(PageTimeoutLimits, a_run_without_a_pool_is_refused_at_once)
{
    ask_run(7, 2);
    EXPECT_EQ(events, (texts{"fail 7", "end 7 0xffffffff"}));
    EXPECT_EQ(fake_log_count("[UMM_CMM] page partition is NOT created"), 2u);
}

TEST(PageTimeoutLimits, a_page_maximum_below_8_leaves_no_room_for_requests)
{
    start_pages(7);
    start_queue();
    dry_pool();
    ask_page(7);
    EXPECT_EQ(events, (texts{"fail 7", "end 7 0xffffffff"}));
}

TEST(PageTimeoutLimits, a_page_maximum_of_8_leaves_room_for_one)
{
    start_pages(8);
    start_queue();
    dry_pool();
    ask_page(1);
    ask_page(2);
    EXPECT_EQ(queue(), ids{1});
    EXPECT_EQ(events, (texts{"fail 2", "end 2 0xffffffff"}));
}

TEST(PageTimeoutLimits, a_record_can_be_queued_on_a_zeroed_list)
{
    start_pages();
    zymm_slab_param param;
    zymm_slab_param_init(&param);
    param.obj_size = 96;
    param.max_num = 2;
    s_page_request_id = zymm_create_slab(&param, 386, "the test");
    dry_pool();
    ask_page(1);
    ask_page(2);
    EXPECT_EQ(queue(), (ids{1, 2}));
    EXPECT_EQ(s_retry_req_list.sum, 2u);
}
