/*
 * References up and down, and from a record to its page.
 */
#include <csignal>
#include <thread>

#include "page_fixture.h"

using PageRef = with_pages;
using PageRefDeath = with_pages;
using PageRefDry = with_dry_pool;

static std::string raise_error(const page_ctrl *ctrl, int ref, int line, const char *owner,
                               unsigned owner_module)
{
    return "[UMM_CMM] Page ref error: page ctrl: " + hex(ctrl) +
           ", page ref: " + std::to_string(ref) + ", func: raiser, file line: " +
           std::to_string(line) + ", page alloc func: " + owner +
           ", page alloc module: " + std::to_string(owner_module);
}

static page_ctrl *freed_page()
{
    page_ctrl *ctrl = take_page();
    try_free_one_page(ctrl, MODULE, OWNER, 12);
    fake_forget_log();
    return ctrl;
}

/* ---- up */

TEST_F(PageRef, a_fresh_page_raised_once_counts_2)
{
    page_ctrl *ctrl = take_page();
    EXPECT_EQ(incAndRetPageReference(ctrl, "raiser", 31), 2u);
    EXPECT_EQ(incAndRetPageReferenceInner(ctrl, 5, "raiser", 32), 3u);
    EXPECT_EQ(incPageRefByFunc(ctrl, 5, "raiser"), 4u);
    EXPECT_EQ(ctrl->ref, 4);
    EXPECT_NO_LINE();
}

TEST_F(PageRef, a_raised_page_survives_the_first_free)
{
    page_ctrl *ctrl = take_page();
    incAndRetPageReference(ctrl, "raiser", 31);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(pages_out(), 1u);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(pages_out(), 0u);
}

TEST_F(PageRef, raising_a_free_page_fails_and_leaves_the_count_raised)
{
    page_ctrl *ctrl = freed_page();
    EXPECT_EQ(incAndRetPageReference(ctrl, "raiser", 31), 0xFFFFFFFFu);
    EXPECT_EQ(ctrl->ref, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "incAndRetPageReferenceInner",
                     raise_error(ctrl, 1, 31, "the owner", 77));
}

TEST_F(PageRef, raising_a_negative_count_fails_with_the_new_count)
{
    page_ctrl *ctrl = freed_page();
    ctrl->ref = -6;
    ctrl->owner_func = nullptr;
    EXPECT_EQ(incAndRetPageReferenceInner(ctrl, 5, "raiser", 31), 0xFFFFFFFFu);
    EXPECT_EQ(ctrl->ref, -5);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "incAndRetPageReferenceInner",
                     raise_error(ctrl, -5, 31, "(null)", 77));
}

TEST_F(PageRef, raising_by_function_reports_line_0)
{
    page_ctrl *ctrl = freed_page();
    EXPECT_EQ(incPageRefByFunc(ctrl, 5, "raiser"), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "incAndRetPageReferenceInner",
                     raise_error(ctrl, 1, 0, "the owner", 77));
}

static void raise_unheld(page_ctrl *ctrl)
{
    ctrl->ref = 0;
    incAndRetPageReference(ctrl, "raiser", 31);
}

TEST_F(PageRef, each_raise_of_a_page_that_nobody_holds_is_reported)
{
    page_ctrl *ctrl = freed_page();
    EXPECT_NOT_LIMITED(raise_unheld(ctrl), raise_error(ctrl, 1, 31, "the owner", 77));
}

TEST_F(PageRef, raising_judges_the_count_and_not_the_record)
{
    page_ctrl *ctrl = take_page();
    ctrl->flags = 0;
    ctrl->page_addr = nullptr;
    EXPECT_EQ(incAndRetPageReference(ctrl, "raiser", 31), 2u);
    EXPECT_NO_LINE();
}

TEST(PageRefAlone, raising_needs_no_pool)
{
    page_ctrl ctrl = {};
    ctrl.ref = 1;
    EXPECT_EQ(incAndRetPageReference(&ctrl, "raiser", 31), 2u);
}

TEST(PageRefAlone, raising_nothing_is_refused)
{
    EXPECT_EQ(incAndRetPageReference(nullptr, nullptr, 31), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "incAndRetPageReferenceInner", "[UMM_CMM] page ctrl is NULL");
    EXPECT_EQ(incPageRefByFunc(nullptr, 5, "raiser"), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "incAndRetPageReferenceInner", "[UMM_CMM] page ctrl is NULL");
}

TEST(PageRefAlone, raising_nothing_is_reported_with_a_limit)
{
    EXPECT_LIMITED(incAndRetPageReferenceInner(nullptr, 5, "raiser", 31),
                   "[UMM_CMM] page ctrl is NULL");
}

TEST(PageRefAlone, raising_without_a_name_is_refused_and_raises_nothing)
{
    page_ctrl ctrl = {};
    ctrl.ref = 1;
    EXPECT_EQ(incAndRetPageReference(&ctrl, nullptr, 31), 0xFFFFFFFFu);
    EXPECT_EQ(ctrl.ref, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "incAndRetPageReferenceInner", "[UMM_CMM] func name is NULL");
}

TEST(PageRefAlone, raising_without_a_name_is_reported_with_a_limit)
{
    page_ctrl ctrl = {};
    EXPECT_LIMITED(incPageRefByFunc(&ctrl, 5, nullptr), "[UMM_CMM] func name is NULL");
}

/* ---- down */

TEST_F(PageRef, a_drop_answers_the_count_that_is_left)
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = 3;
    EXPECT_EQ(decAndRetPageReference(ctrl, MODULE, "dropper", 41), 2u);
    EXPECT_EQ(decPageRefByFunc(ctrl, MODULE, "dropper"), 1u);
    EXPECT_EQ(pages_out(), 1u);
    EXPECT_NO_LINE();
}

TEST_F(PageRef, the_last_drop_frees_the_page_with_the_droppers_identity)
{
    page_ctrl *ctrl = take_page();
    uint8_t *page = ctrl->page_addr;
    EXPECT_EQ(decAndRetPageReference(ctrl, 78, "dropper", 41), 0u);
    EXPECT_EQ(pages_out(), 0u);
    const fake_call call = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(page));
    EXPECT_EQ(call.args[2].number, 78u);
    EXPECT_EQ(call.args[3].text, "dropper");
}

TEST_F(PageRef, the_last_drop_by_function_frees_the_page_too)
{
    EXPECT_EQ(decPageRefByFunc(take_page(), 78, "dropper"), 0u);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_free).args[2].number, 78u);
}

TEST_F(PageRefDry, drops_never_kick_the_queue)
{
    leave_pages(2);
    page_ctrl *first = take_page();
    page_ctrl *second = take_page();
    ask_page(1);
    EXPECT_EQ(decAndRetPageReference(first, MODULE, "dropper", 41), 0u);
    EXPECT_EQ(decPageRefByFunc(second, MODULE, "dropper"), 0u);
    EXPECT_EQ(s_enter_retry_cnt, 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_modify), 0u);
}

TEST_F(PageRef, the_last_drop_of_a_zero_page_is_reported_and_frees_nothing)
{
    EXPECT_EQ(decAndRetPageReference(getZeroPageCtrl(), MODULE, "dropper", 41), 0u);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "try_free_one_page", "[UMM_CMM] zero page's ref is 0.");
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST(PageRefAlone, dropping_nothing_is_refused_before_all_else)
{
    EXPECT_EQ(decAndRetPageReference(nullptr, MODULE, nullptr, 41), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "decAndRetPageReference", "[UMM_CMM] page ctrl is NULL");
    EXPECT_EQ(decPageRefByFunc(nullptr, MODULE, "dropper"), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "decAndRetPageReference", "[UMM_CMM] page ctrl is NULL");
}

TEST(PageRefAlone, dropping_nothing_is_reported_with_a_limit)
{
    EXPECT_LIMITED(decAndRetPageReference(nullptr, MODULE, "dropper", 41),
                   "[UMM_CMM] page ctrl is NULL");
}

TEST(PageRefAlone, dropping_without_a_name_is_refused_before_the_pool_is_asked_for)
{
    page_ctrl ctrl = {};
    ctrl.ref = 1;
    EXPECT_EQ(decAndRetPageReference(&ctrl, MODULE, nullptr, 41), 0xFFFFFFFFu);
    EXPECT_EQ(ctrl.ref, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "decAndRetPageReference", "[UMM_CMM] func name is NULL");
}

TEST(PageRefAlone, dropping_without_a_name_is_reported_with_a_limit)
{
    page_ctrl ctrl = {};
    EXPECT_LIMITED(decPageRefByFunc(&ctrl, MODULE, nullptr), "[UMM_CMM] func name is NULL");
}

TEST(PageRefAlone, dropping_before_the_pool_exists_is_refused)
{
    page_ctrl ctrl = {};
    ctrl.ref = 1;
    EXPECT_EQ(decAndRetPageReference(&ctrl, MODULE, "dropper", 41), 0xFFFFFFFFu);
    EXPECT_EQ(ctrl.ref, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "decAndRetPageReference",
                     "[UMM_CMM] page partition is NOT created");
}

TEST(PageRefAlone, dropping_without_a_pool_is_reported_with_a_limit)
{
    page_ctrl ctrl = {};
    EXPECT_LIMITED(decPageRefByFunc(&ctrl, MODULE, "dropper"),
                   "[UMM_CMM] page partition is NOT created");
}

TEST_F(PageRefDeath, a_drop_of_a_free_page)
{
    EXPECT_EXIT(decAndRetPageReference(freed_page(), 78, "dropper", 41),
                ::testing::KilledBySignal(SIGABRT),
                "3\\|try_free_one_page\\|0\\|\\[UMM_CMM\\] page flag expect 1 but 0, page was "
                "allocated by function\\(the owner\\), module\\(77\\), free_func\\(dropper\\), "
                "free_mod\\(78\\)\\.\n"
                "2\\|try_free_one_page\\|0\\|Page_ctrl\\(0x[0-9a-f]+\\) double free\\.\n");
}

static void drop_below_0()
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = 0;
    decPageRefByFunc(ctrl, 78, "dropper");
}

TEST_F(PageRefDeath, a_drop_below_0)
{
    EXPECT_EXIT(drop_below_0(), ::testing::KilledBySignal(SIGABRT),
                "3\\|try_free_one_page\\|0\\|\\[UMM_CMM\\] Page ctrl\\(0x[0-9a-f]+\\) with ref -1, "
                "page was allocated by function\\(the owner\\), module\\(77\\)\n"
                "2\\|try_free_one_page\\|0\\|Page_ctrl\\(0x[0-9a-f]+\\) ref\\(-1\\) is invalid\\.\n");
}

/* ---- the count */

TEST_F(PageRef, the_count_is_answered_as_it_is)
{
    page_ctrl *ctrl = take_page();
    EXPECT_EQ(getPageReference(ctrl, "reader"), 1u);
    ctrl->ref = 7;
    EXPECT_EQ(getPageReference(ctrl, "reader"), 7u);
    ctrl->ref = -2;
    EXPECT_EQ(getPageReference(ctrl, "reader"), 0xFFFFFFFEu);
    EXPECT_NO_LINE();
}

TEST(PageRefAlone, the_count_is_read_whatever_the_record_says)
{
    page_ctrl ctrl = {};
    EXPECT_EQ(getPageReference(&ctrl, "reader"), 0u);
    EXPECT_NO_LINE();
}

TEST(PageRefAlone, the_count_of_nothing_is_refused)
{
    EXPECT_EQ(getPageReference(nullptr, nullptr), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPageReference", "[UMM_CMM] page ctrl is NULL");
    reopen_limiters();
    EXPECT_LIMITED(getPageReference(nullptr, "reader"), "[UMM_CMM] page ctrl is NULL");
}

TEST(PageRefAlone, the_count_for_nobody_is_refused)
{
    page_ctrl ctrl = {};
    EXPECT_EQ(getPageReference(&ctrl, nullptr), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPageReference", "[UMM_CMM] func name is NULL");
    reopen_limiters();
    EXPECT_LIMITED(getPageReference(&ctrl, nullptr), "[UMM_CMM] func name is NULL");
}

/* Each operation has a burst of its own for the words that they share. */
TEST(PageRefAlone, operations_do_not_share_the_limiter_of_their_argument_checks)
{
    EXPECT_LIMITED(incAndRetPageReference(nullptr, "raiser", 1), "[UMM_CMM] page ctrl is NULL");
    EXPECT_LIMITED(decPageRefByFunc(nullptr, 5, "dropper"), "[UMM_CMM] page ctrl is NULL");
    EXPECT_LIMITED(getPageReference(nullptr, "reader"), "[UMM_CMM] page ctrl is NULL");
}

/* ---- the page of a record */

TEST_F(PageRef, a_record_knows_its_page)
{
    page_ctrl *ctrl = take_page();
    EXPECT_EQ(getPageAddrByPageCtrl(ctrl), reinterpret_cast<uint8_t *>(ctrl) - 8320);
    EXPECT_EQ(getPageAddrByPageCtrl(getZeroPageCtrl()), getZeroPageCtrl()->page_addr);
    EXPECT_NO_LINE();
}

TEST_F(PageRef, no_record_has_no_page)
{
    EXPECT_EQ(getPageAddrByPageCtrl(nullptr), nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPageAddrByPageCtrl", "[UMM_CMM] pageCtrl is NULL.");
    reopen_limiters();
    EXPECT_LIMITED(getPageAddrByPageCtrl(nullptr), "[UMM_CMM] pageCtrl is NULL.");
}

TEST_F(PageRef, a_freed_record_has_no_page)
{
    EXPECT_EQ(getPageAddrByPageCtrl(freed_page()), nullptr);
    EXPECT_EQ(fake_log_texts(),
              (texts{"[UMM_CMM] ctrl flag err [0]", "[UMM_CMM] pageCtrl is error."}));
    EXPECT_EQ(fake_log()[0].level, 3u);
    EXPECT_EQ(fake_log()[0].func, "isPageCtrlValid");
    EXPECT_LAST_LINE(ZYLOG_ERROR, "getPageAddrByPageCtrl", "[UMM_CMM] pageCtrl is error.");
}

TEST_F(PageRef, a_record_elsewhere_has_no_page)
{
    page_ctrl *ctrl = take_page();
    ctrl->page_addr += 64;
    ctrl->flags = 0; /* the address is looked at first */
    EXPECT_EQ(getPageAddrByPageCtrl(ctrl), nullptr);
    EXPECT_EQ(fake_log_texts(),
              (texts{"[UMM_CMM] page_ctrl err, page_ctrl[" + hex(ctrl) + "], page_addr[" +
                         hex(ctrl->page_addr) + "]",
                     "[UMM_CMM] pageCtrl is error."}));
    EXPECT_EQ(fake_log()[0].level, 3u);
    EXPECT_EQ(fake_log()[0].func, "isPageCtrlValid");
}

TEST_F(PageRef, an_all_zero_record_is_no_valid_one)
{
    page_ctrl ctrl = {};
    EXPECT_FALSE(isPageCtrlValid(&ctrl));
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "isPageCtrlValid",
                     "[UMM_CMM] page_ctrl err, page_ctrl[" + hex(&ctrl) + "], page_addr[0x0]");
}

TEST_F(PageRef, a_state_that_is_neither_is_no_valid_one)
{
    page_ctrl *ctrl = take_page();
    ctrl->flags = 2;
    EXPECT_FALSE(isPageCtrlValid(ctrl));
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "isPageCtrlValid", "[UMM_CMM] ctrl flag err [2]");
}

TEST_F(PageRef, a_page_asked_for_by_a_bad_record_is_reported_with_a_limit)
{
    page_ctrl *ctrl = freed_page();
    EXPECT_LIMITED(getPageAddrByPageCtrl(ctrl), "[UMM_CMM] pageCtrl is error.");
    EXPECT_EQ(fake_log_count("[UMM_CMM] ctrl flag err [0]"), 3u);
}

/* One limiter a line, for all operations that judge a record. */
static void ask_all(page_ctrl *ctrl)
{
    uint8_t is_zero = 0;
    getPageAddrByPageCtrl(ctrl);
    getPageZeroFlags(ctrl, &is_zero);
    setPageZeroFlags(ctrl, 1);
    addPageValidBitMap(ctrl, 1);
    getPageValidBitMap(ctrl);
}

TEST_F(PageRef, all_operations_share_the_limiter_of_the_state_line)
{
    ask_all(freed_page());
    EXPECT_EQ(fake_log_count("[UMM_CMM] ctrl flag err [0]"), 3u);
}

TEST_F(PageRef, all_operations_share_the_limiter_of_the_address_line)
{
    page_ctrl ctrl = {};
    ask_all(&ctrl);
    EXPECT_EQ(fake_log_count("[UMM_CMM] page_ctrl err, page_ctrl[" + hex(&ctrl) +
                             "], page_addr[0x0]"),
              3u);
}

TEST_F(PageRef, the_two_lines_of_the_judgement_have_a_limiter_each)
{
    page_ctrl elsewhere = {};
    page_ctrl *freed = freed_page();
    ask_all(&elsewhere);
    ask_all(freed);
    EXPECT_EQ(fake_log_count("[UMM_CMM] ctrl flag err [0]"), 3u);
}

/* ---- many threads */

static void raise_and_drop(page_ctrl *ctrl)
{
    for (int i = 0; i < 2000; ++i) {
        incAndRetPageReference(ctrl, "raiser", 31);
        decAndRetPageReference(ctrl, MODULE, "dropper", 41);
    }
}

TEST_F(PageRef, holders_on_many_threads_lose_no_reference)
{
    page_ctrl *ctrl = take_page();
    std::thread a(raise_and_drop, ctrl), b(raise_and_drop, ctrl), c(raise_and_drop, ctrl);
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(getPageReference(ctrl, "reader"), 1u);
    EXPECT_EQ(pages_out(), 1u);
    EXPECT_NO_LINE();
}
