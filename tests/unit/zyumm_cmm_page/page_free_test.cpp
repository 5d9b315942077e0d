/*
 * References down, pages and chains back.
 */
#include <csignal>
#include <thread>

#include "page_fixture.h"

using PageFreeDeath = with_pages;
using PageFree = with_pages;
using PageFreeDry = with_dry_pool;

static SGL *take_run(uint32_t page_cnt)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(page_cnt, &chain, MODULE, OWNER, 1);
    return chain;
}

static uint64_t sgls_out()
{
    return fake_objects_out(g_sgl_partition_id);
}

static uint64_t kicks()
{
    return fake_count(OP_zyax_timer_modify);
}

/* ---- one page */

TEST_F(PageFree, the_last_free_returns_the_page)
{
    page_ctrl *ctrl = take_page();
    uint8_t *page = ctrl->page_addr;
    freeOnePage(ctrl, 78, "the freer", 12);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(ctrl->flags, 0u);
    const fake_call call = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(page));
    EXPECT_EQ(call.args[2].number, 78u);
    EXPECT_EQ(call.args[3].text, "the freer");
    EXPECT_NO_LINE();
}

TEST_F(PageFree, a_page_with_two_holders_survives_the_first_free)
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = 2;
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(ctrl->ref, 1);
    EXPECT_EQ(ctrl->flags, 1u);
    EXPECT_EQ(pages_out(), 1u);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(pages_out(), 0u);
}

TEST_F(PageFree, a_null_record_is_refused)
{
    freeOnePage(nullptr, 77, OWNER, 12);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeOnePage",
                     "[UMM_CMM] Umm free one page failed, invalid param _page_ctrl((nil)), "
                     "module(77), func(" + hex(OWNER) + "), line(12).");
}

TEST_F(PageFree, a_null_function_name_is_refused_and_frees_nothing)
{
    page_ctrl *ctrl = take_page();
    freeOnePage(ctrl, 77, nullptr, 12);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeOnePage",
                     "[UMM_CMM] Umm free one page failed, invalid param _page_ctrl(" + hex(ctrl) +
                         "), module(77), func((nil)), line(12).");
    EXPECT_EQ(ctrl->ref, 1);
    EXPECT_EQ(pages_out(), 1u);
}

TEST_F(PageFree, refused_frees_are_limited)
{
    EXPECT_LIMITED(freeOnePage(nullptr, 77, nullptr, 12),
                   "[UMM_CMM] Umm free one page failed, invalid param _page_ctrl((nil)), "
                   "module(77), func((nil)), line(12).");
}

TEST_F(PageFreeDry, a_refused_free_kicks_nothing)
{
    ask_page(1);
    freeOnePage(nullptr, 77, OWNER, 12);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(kicks(), 0u);
}

TEST_F(PageFreeDry, a_free_kicks_the_queue)
{
    leave_pages(1);
    page_ctrl *ctrl = take_page();
    ask_page(1);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    EXPECT_EQ(kicks(), 1u);
}

TEST_F(PageFreeDry, a_free_that_leaves_a_holder_kicks_too)
{
    leave_pages(1);
    page_ctrl *ctrl = take_page();
    ctrl->ref = 2;
    ask_page(1);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
}

TEST_F(PageFreeDry, a_free_kicks_after_the_page_is_back)
{
    leave_pages(1);
    page_ctrl *ctrl = take_page();
    ask_page(1);
    fake_hook(OP_zyax_timer_modify, 1, [] { EXPECT_EQ(pages_out(), 0u); });
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(kicks(), 1u);
}

/* ---- dropping a reference */

TEST_F(PageFree, a_drop_answers_the_count_that_is_left)
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = 3;
    EXPECT_EQ(try_free_one_page(ctrl, MODULE, OWNER, 12), 2u);
    EXPECT_EQ(try_free_one_page(ctrl, MODULE, OWNER, 12), 1u);
    EXPECT_EQ(try_free_one_page(ctrl, MODULE, OWNER, 12), 0u);
    EXPECT_EQ(pages_out(), 0u);
}

TEST_F(PageFreeDry, a_drop_alone_never_kicks)
{
    leave_pages(1);
    page_ctrl *ctrl = take_page();
    ask_page(1);
    EXPECT_EQ(try_free_one_page(ctrl, MODULE, OWNER, 12), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(kicks(), 0u);
}

static void expect_zero_page_to_stay(page_ctrl *ctrl)
{
    EXPECT_EQ(try_free_one_page(ctrl, MODULE, OWNER, 12), 0u);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "try_free_one_page", "[UMM_CMM] zero page's ref is 0.");
    EXPECT_EQ(ctrl->flags, 1u);
    EXPECT_EQ(ctrl->ref, 0);
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST_F(PageFree, the_zero_page_without_dif_is_never_freed)
{
    expect_zero_page_to_stay(getZeroPageCtrlWithoutDif());
}

TEST_F(PageFree, the_zero_page_with_dif_is_never_freed)
{
    expect_zero_page_to_stay(getZeroPageCtrl());
}

static void drop_zero_page(page_ctrl *ctrl)
{
    ctrl->ref = 1;
    try_free_one_page(ctrl, MODULE, OWNER, 12);
}

TEST_F(PageFree, each_zero_page_at_0_is_reported)
{
    EXPECT_NOT_LIMITED(drop_zero_page(getZeroPageCtrl()), "[UMM_CMM] zero page's ref is 0.");
}

TEST_F(PageFree, a_zero_page_with_other_holders_is_no_news)
{
    getZeroPageCtrl()->ref = 2;
    EXPECT_EQ(try_free_one_page(getZeroPageCtrl(), MODULE, OWNER, 12), 1u);
    EXPECT_NO_LINE();
}

/* ---- the end of the process */

static void free_twice(const char *second)
{
    page_ctrl *ctrl = take_page();
    try_free_one_page(ctrl, MODULE, OWNER, 12);
    try_free_one_page(ctrl, 78, second, 13);
}

TEST_F(PageFreeDeath, a_page_freed_twice)
{
    EXPECT_EXIT(free_twice("second"), ::testing::KilledBySignal(SIGABRT),
                "3\\|try_free_one_page\\|0\\|\\[UMM_CMM\\] page flag expect 1 but 0, page was "
                "allocated by function\\(the owner\\), module\\(77\\), free_func\\(second\\), "
                "free_mod\\(78\\)\\.\n"
                "2\\|try_free_one_page\\|0\\|Page_ctrl\\(0x[0-9a-f]+\\) double free\\.\n");
}

TEST_F(PageFreeDeath, a_page_freed_twice_by_nobody)
{
    EXPECT_EXIT(free_twice(nullptr), ::testing::KilledBySignal(SIGABRT),
                "free_func\\(\\(null\\)\\), free_mod\\(78\\)\\.\n"
                "2\\|try_free_one_page\\|0\\|Page_ctrl\\(0x[0-9a-f]+\\) double free\\.\n");
}

TEST_F(PageFreeDeath, a_state_that_is_neither_free_nor_in_use)
{
    page_ctrl *ctrl = take_page();
    ctrl->flags = 7;
    EXPECT_EXIT(freeOnePage(ctrl, 78, "second", 13), ::testing::KilledBySignal(SIGABRT),
                "3\\|try_free_one_page\\|0\\|\\[UMM_CMM\\] page flag expect 1 but 7, page was "
                "allocated by function\\(the owner\\), module\\(77\\), free_func\\(second\\), "
                "free_mod\\(78\\)\\.\n"
                "2\\|try_free_one_page\\|0\\|Page_ctrl\\(" + hex(ctrl) + "\\) double free\\.\n");
}

TEST_F(PageFreeDeath, a_count_below_0)
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = 0;
    EXPECT_EXIT(freeOnePage(ctrl, 78, "second", 13), ::testing::KilledBySignal(SIGABRT),
                "3\\|try_free_one_page\\|0\\|\\[UMM_CMM\\] Page ctrl\\(" + hex(ctrl) +
                    "\\) with ref -1, page was allocated by function\\(the owner\\), "
                    "module\\(77\\)\n"
                    "2\\|try_free_one_page\\|0\\|Page_ctrl\\(" + hex(ctrl) +
                    "\\) ref\\(-1\\) is invalid\\.\n");
}

TEST_F(PageFreeDeath, a_zero_page_below_0)
{
    page_ctrl *ctrl = getZeroPageCtrl();
    ctrl->ref = 0;
    EXPECT_EXIT(freeOnePage(ctrl, 78, "second", 13), ::testing::KilledBySignal(SIGABRT),
                "page was allocated by function\\(umm_create_global_zero_pages\\), "
                "module\\(386\\)\n"
                "2\\|try_free_one_page\\|0\\|Page_ctrl\\(" + hex(ctrl) +
                    "\\) ref\\(-1\\) is invalid\\.\n");
}

TEST_F(PageFreeDeath, a_page_twice_in_one_chain)
{
    SGL *chain = take_run(2);
    chain->entries[1].pageCtrl = chain->entries[0].pageCtrl;
    EXPECT_EXIT(freeMultiPages(chain, 78, "second", 13), ::testing::KilledBySignal(SIGABRT),
                "double free\\.\n");
}

/* ---- chains */

TEST(PageFreeWithoutPool, a_chain_without_a_pool_is_not_freed)
{
    SGL chain = {};
    freeMultiPages(&chain, MODULE, OWNER, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeMultiPages", "[UMM_CMM] page_partition not init.");
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST(PageFreeWithoutPool, the_pool_is_looked_at_before_the_chain)
{
    EXPECT_LIMITED(freeMultiPages(nullptr, MODULE, OWNER, 1),
                   "[UMM_CMM] page_partition not init.");
}

TEST_F(PageFree, a_null_chain_is_quietly_ignored)
{
    freeMultiPages(nullptr, MODULE, OWNER, 1);
    EXPECT_NO_LINE();
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST_F(PageFree, a_chain_returns_pages_and_sgls)
{
    SGL *chain = take_run(130);
    EXPECT_EQ(pages_out(), 130u);
    EXPECT_EQ(sgls_out(), 3u);
    freeMultiPages(chain, 78, "the freer", 12);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
    const fake_call call = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(call.args[0].number, g_sgl_partition_id);
    EXPECT_EQ(call.args[2].number, 78u);
    EXPECT_EQ(call.args[3].text, "the freer");
    EXPECT_NO_LINE();
}

TEST_F(PageFree, a_page_that_another_chain_shares_loses_one_reference)
{
    SGL *chain = take_run(2);
    page_ctrl *shared = chain->entries[1].pageCtrl;
    shared->ref = 2;
    freeMultiPages(chain, MODULE, OWNER, 1);
    EXPECT_EQ(shared->ref, 1);
    EXPECT_EQ(pages_out(), 1u);
    EXPECT_EQ(sgls_out(), 0u);
}

TEST_F(PageFree, inner_sgls_with_room_are_left_behind_their_last_used_entry)
{
    SGL *chain = take_run(66);
    SGL *second = chain->nextSgl;
    freeOnePage(chain->entries[63].pageCtrl, MODULE, OWNER, 1);
    chain->entryNum = 63;
    chain->entrySumInChain = 65;
    EXPECT_EQ(second->entryNum, 2u);
    freeMultiPages(chain, MODULE, OWNER, 2);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
}

TEST_F(PageFree, sgls_without_used_entries_are_passed_over)
{
    SGL *chain = nullptr;
    allocSglChain(&chain, 256, MODULE, OWNER, 1);
    SGL *last = chain->nextSgl->nextSgl->nextSgl;
    last->entries[0].pageCtrl = take_page();
    last->entryNum = 1;
    chain->entrySumInChain = 1;
    freeMultiPages(chain, MODULE, OWNER, 1);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
}

TEST_F(PageFreeDry, a_chain_shorter_than_its_count_ends_the_walk_quietly)
{
    leave_pages(2);
    SGL *chain = take_run(2);
    chain->entrySumInChain = 5;
    ask_page(1);
    fake_forget_log();
    freeMultiPages(chain, MODULE, OWNER, 1);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    EXPECT_NO_LINE();
}

TEST_F(PageFree, no_more_entries_than_the_count_are_freed)
{
    SGL *chain = take_run(3);
    page_ctrl *third = chain->entries[2].pageCtrl;
    chain->entrySumInChain = 2;
    freeMultiPages(chain, MODULE, OWNER, 1);
    EXPECT_EQ(pages_out(), 1u);
    EXPECT_EQ(third->flags, 1u);
}

TEST_F(PageFreeDry, freeing_a_chain_kicks_the_queue_once)
{
    leave_pages(3);
    SGL *chain = take_run(3);
    ask_page(1);
    EXPECT_EQ(free_multi_page(chain, MODULE, OWNER, 1), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
    EXPECT_EQ(s_enter_retry_repeat_cnt, 0u);
    EXPECT_EQ(kicks(), 1u);
}

TEST_F(PageFreeDry, freeing_a_chain_kicks_after_its_pages_and_sgls_are_back)
{
    leave_pages(3);
    SGL *chain = take_run(3);
    ask_page(1);
    fake_hook(OP_zyax_timer_modify, 1, [] {
        EXPECT_EQ(pages_out(), 0u);
        EXPECT_EQ(sgls_out(), 0u);
    });
    freeMultiPages(chain, MODULE, OWNER, 1);
    EXPECT_EQ(kicks(), 1u);
}

TEST_F(PageFreeDry, the_kicks_answer_is_the_answer_of_freeing_a_chain)
{
    leave_pages(1);
    SGL *chain = take_run(1);
    ask_page(1);
    fake_fail(OP_zyax_timer_modify);
    EXPECT_EQ(free_multi_page(chain, MODULE, OWNER, 1), 0xFFFFFFFFu);
    EXPECT_EQ(pages_out(), 0u);
}

/* ---- threads */

TEST_F(PageFree, of_all_threads_that_drop_a_page_exactly_one_frees_it)
{
    for (int round = 0; round < 100; ++round) {
        page_ctrl *ctrl = take_page();
        ctrl->ref = 4;
        fake_forget_calls();
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([ctrl] { freeOnePage(ctrl, MODULE, OWNER, 1); });
        for (std::thread &thread : threads)
            thread.join();
        ASSERT_EQ(fake_count(OP_zymm_slab_free), 1u);
        ASSERT_EQ(pages_out(), 0u);
    }
}
