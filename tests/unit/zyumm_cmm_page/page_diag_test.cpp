/*
 * Console commands: the request list, one page, and a page's node.
 */
#include <thread>

#include "page_fixture.h"

using PageDiag = with_pages;
using PageDiagQueue = with_dry_pool;

static char *no_words[] = {nullptr, nullptr, nullptr, nullptr, nullptr};

static const std::string HEADER =
    "Seq ID       Page Count   Start Time         Function Name                    "
    "File Line    Module ID    Module Name        Output Type \n";

static void queue_pages(uint64_t requests)
{
    for (uint64_t i = 1; i <= requests; ++i)
        ask_page(i, PAGE_TIMEOUT_NEVER);
    forget_everything();
}

/* Sequence ids of the rows on the console, in order. */
static std::vector<uint64_t> rows_shown()
{
    const std::string console = fake_console();
    const size_t header = console.find(HEADER);
    std::vector<uint64_t> rows;
    if (header == std::string::npos)
        return rows;
    for (size_t at = header + HEADER.size(); at < console.size(); at = console.find('\n', at) + 1)
        rows.push_back(strtoull(console.c_str() + at, nullptr, 10));
    return rows;
}

/* ---- the request list */

TEST_F(PageDiagQueue, an_empty_queue_is_said_to_be_empty)
{
    umm_cmm_show_page_request_list(0);
    EXPECT_EQ(fake_console(), " The page request number is ZERO.\n");
    EXPECT_NO_LINE();
}

TEST_F(PageDiagQueue, an_empty_queue_needs_no_lock)
{
    fake_forget_calls();
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(fake_console(), " The page request number is ZERO.\n");
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_trylock), 0u);
}

TEST(PageDiagAlone, a_queue_that_was_never_started_is_empty)
{
    umm_cmm_show_page_request_list(0);
    EXPECT_EQ(fake_console(), " The page request number is ZERO.\n");
}

TEST_F(PageDiagQueue, a_busy_list_is_not_waited_for)
{
    queue_pages(2);
    fake_fail(OP_do_zyax_spinlock_trylock);
    umm_cmm_show_page_request_list(0);
    EXPECT_EQ(fake_console(), " The page request number is 2.\nTry to lock the list failed.\n");
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_unlock), 0u);
}

TEST_F(PageDiagQueue, a_request_is_shown_with_all_that_it_asked_for)
{
    fake_set_nanosec(123456789012345);
    ask_page(1);
    fake_set_nanosec(123456789012346);
    ask_run(2, 20);
    umm_cmm_show_page_request_list(0);
    EXPECT_EQ(fake_console(),
              " The page request number is 2.\n" + HEADER +
                  "1            1            123456789012345    the owner                        "
                  "21           77           module_77          PAGE CTRL   \n"
                  "2            20           123456789012346    the owner                        "
                  "22           77           module_77          SGL         \n");
}

TEST_F(PageDiagQueue, an_unknown_type_is_shown_as_a_page)
{
    queue_pages(1);
    queued(0)->output_type = 7;
    queued(0)->func_name = nullptr;
    umm_cmm_show_page_request_list(0);
    EXPECT_EQ(fake_console().substr(fake_console().find(HEADER) + HEADER.size()),
              "1            1            1000000000         (null)                           "
              "21           77           module_77          PAGE CTRL   \n");
}

TEST_F(PageDiagQueue, rows_are_gathered_under_the_lists_lock)
{
    queue_pages(1);
    bool held = false;
    fake_hook(OP_DBG_PrintBuf, 1, [&] { held = fake_lock_held(&s_retry_req_list.lock); });
    umm_cmm_show_page_request_list(0);
    EXPECT_TRUE(held);
    EXPECT_EQ(fake_locks_held(), 0u);
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_trylock).args[0].number,
              reinterpret_cast<uint64_t>(&s_retry_req_list.lock));
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_trylock).args[1].text,
              "umm_cmm_show_page_request_list");
    EXPECT_EQ(fake_count(OP_DBG_Print), 2u);
    EXPECT_EQ(fake_count(OP_DBG_PrintBuf), 1u);
    EXPECT_EQ(queue(), (ids{1}));
}

TEST_F(PageDiagQueue, a_limited_list_has_one_row_more_than_its_limit_is_kept)
{
    queue_pages(20);
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(rows_shown(), (ids{10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}));
}

TEST_F(PageDiagQueue, one_request_beyond_the_limit_is_still_shown)
{
    queue_pages(11);
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(rows_shown(), (ids{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST_F(PageDiagQueue, two_requests_beyond_the_limit_hide_the_oldest)
{
    queue_pages(12);
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(rows_shown(), (ids{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST_F(PageDiagQueue, as_many_requests_as_the_limit_are_all_shown)
{
    queue_pages(10);
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(rows_shown(), (ids{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(PageDiagQueue, fewer_requests_than_the_limit_are_all_shown)
{
    queue_pages(5);
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(rows_shown(), (ids{1, 2, 3, 4, 5}));
}

TEST_F(PageDiagQueue, a_limit_of_0_shows_all)
{
    queue_pages(12);
    umm_cmm_show_page_request_list(0);
    EXPECT_EQ(rows_shown(), (ids{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST_F(PageDiagQueue, a_limit_of_1_shows_the_newest_two)
{
    queue_pages(4);
    umm_cmm_show_page_request_list(1);
    EXPECT_EQ(rows_shown(), (ids{3, 4}));
}

/* The number is read without the lock, so the list may be another one by the time it is walked. */
TEST_F(PageDiagQueue, requests_that_are_queued_meanwhile_are_shown_too)
{
    queue_pages(1);
    fake_hook(OP_do_zyax_spinlock_trylock, 1, [] { ask_page(2); });
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(rows_shown(), (ids{1, 2}));
    EXPECT_EQ(fake_console().find(" The page request number is 1.\n"), 0u);
}

TEST_F(PageDiagQueue, a_list_that_is_emptied_meanwhile_has_no_rows)
{
    queue_pages(1);
    fake_hook(OP_do_zyax_spinlock_trylock, 1, [] {
        leave_pages(1);
        run_once();
    });
    umm_cmm_show_page_request_list(10);
    EXPECT_EQ(fake_console(), " The page request number is 1.\n" + HEADER);
    EXPECT_EQ(fake_locks_held(), 0u);
    freeOnePage(static_cast<page_ctrl *>(results[0]), MODULE, OWNER, 12);
}

/* ---- the request list's command */

TEST_F(PageDiagQueue, three_words_show_the_newest_requests)
{
    queue_pages(13);
    umm_cmm_show_request_list(3, no_words);
    EXPECT_EQ(rows_shown(), (ids{3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST_F(PageDiagQueue, four_words_show_all_requests)
{
    queue_pages(13);
    umm_cmm_show_request_list(4, nullptr);
    EXPECT_EQ(rows_shown(), (ids{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST_F(PageDiagQueue, any_other_number_of_words_shows_nothing)
{
    queue_pages(1);
    umm_cmm_show_request_list(2, no_words);
    umm_cmm_show_request_list(5, no_words);
    umm_cmm_show_request_list(0, nullptr);
    umm_cmm_show_request_list(-1, nullptr);
    EXPECT_EQ(fake_console(), "");
}

/* ---- one page */

static void show_page(const std::string &typed)
{
    std::string word = typed;
    char *words[] = {nullptr, nullptr, nullptr, word.data()};
    umm_cmm_diagnose_show_page_info(4, words);
}

static std::string invalid_address(const std::string &typed)
{
    return "---------------------------\ninput error!!!\ninvalid page addr " + typed +
           "\n---------------------------\n";
}

static std::string padded(const std::string &text, size_t width)
{
    return std::string(width - text.size(), ' ') + text;
}

TEST_F(PageDiag, a_page_is_shown_with_all_of_its_record)
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = 3;
    ctrl->valid_bitmap = 0x83;
    ctrl->zero_flags = 0x20;
    show_page(hex(ctrl->page_addr));
    EXPECT_EQ(fake_console(),
              "           attr name:                                   value\n"
              "-----------------------------------------------------------------------\n"
              "           page addr:" + padded(hex(ctrl->page_addr), 40) + "\n"
              "         ref counter:                                       3\n"
              "          page flags:                                       1\n"
              "   page valid_bitmap:                                     131\n"
              "     page zero_flags:                                      32\n"
              "     page owner_func:                               the owner\n"
              "    page owner_modid:                                      77\n");
    EXPECT_EQ(fake_count(OP_DBG_PrintBuf), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PageDiag, the_line_below_the_header_has_71_dashes_is_kept)
{
    show_page(hex(getZeroPageCtrl()->page_addr));
    EXPECT_NE(fake_console().find("value\n" + std::string(71, '-') + "\n"), std::string::npos);
}

TEST_F(PageDiag, a_count_below_0_is_shown_as_32_bits_without_a_sign)
{
    page_ctrl *ctrl = take_page();
    ctrl->ref = -1;
    show_page(hex(ctrl->page_addr));
    EXPECT_NE(fake_console().find("         ref counter:                              4294967295\n"),
              std::string::npos);
}

TEST_F(PageDiag, an_address_may_be_typed_as_a_decimal_number)
{
    page_ctrl *ctrl = take_page();
    show_page(std::to_string(reinterpret_cast<uint64_t>(ctrl->page_addr)));
    EXPECT_EQ(fake_console().find("           attr name:"), 0u);
}

TEST_F(PageDiag, a_free_page_is_shown_as_such)
{
    page_ctrl *ctrl = take_page();
    freeOnePage(ctrl, MODULE, OWNER, 12);
    ctrl->owner_func = nullptr;
    show_page(hex(ctrl->page_addr));
    EXPECT_NE(fake_console().find("          page flags:                                       0\n"),
              std::string::npos);
    EXPECT_NE(fake_console().find("     page owner_func:                                  (null)\n"),
              std::string::npos);
}

TEST_F(PageDiag, a_page_is_shown_without_its_lock)
{
    page_ctrl *ctrl = take_page();
    fake_forget_calls();
    show_page(hex(ctrl->page_addr));
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_trylock), 0u);
}

TEST_F(PageDiag, another_number_of_words_prints_the_usage)
{
    const std::string usage = "---------------------------\ninput error!!!\n"
                              "usage: umm show page <addr>\n---------------------------\n";
    umm_cmm_diagnose_show_page_info(3, no_words);
    EXPECT_EQ(fake_console(), usage);
    umm_cmm_diagnose_show_page_info(5, no_words);
    umm_cmm_diagnose_show_page_info(-1, nullptr);
    EXPECT_EQ(fake_console(), usage + usage + usage);
    EXPECT_EQ(fake_count(OP_zyax_str_tou64), 0u);
}

TEST_F(PageDiag, an_address_that_is_no_number_is_refused)
{
    show_page("zero");
    EXPECT_EQ(fake_console(), invalid_address("zero"));
}

TEST_F(PageDiag, an_address_of_0_is_refused)
{
    show_page("0x0");
    EXPECT_EQ(fake_console(), invalid_address("0x0"));
}

TEST_F(PageDiag, no_address_at_all_is_refused)
{
    umm_cmm_diagnose_show_page_info(4, no_words);
    EXPECT_EQ(fake_console(), invalid_address("(null)"));
}

TEST_F(PageDiag, an_address_that_is_no_start_of_a_page_is_refused)
{
    alignas(64) static uint8_t memory[16752]; /* two pages that were never made */
    show_page(hex(memory));
    EXPECT_EQ(fake_console(), invalid_address(hex(memory)));
}

TEST_F(PageDiag, the_address_of_a_record_is_refused_as_typed)
{
    alignas(64) static uint8_t memory[25128]; /* so that what lies behind the record can be read */
    page_ctrl *ctrl = page_fill_record(memory, 0, 0, MODULE, OWNER);
    const std::string typed = " " + hex(ctrl) + " ";
    show_page(typed);
    EXPECT_EQ(fake_console(), invalid_address(typed));
}

TEST_F(PageDiag, an_odd_address_is_refused_unread)
{
    page_ctrl *ctrl = take_page();
    show_page(hex(ctrl->page_addr + 1));
    EXPECT_EQ(fake_console(), invalid_address(hex(ctrl->page_addr + 1)));
}

/* ---- a page's node */

TEST_F(PageDiag, a_pages_node_is_the_slab_layers_answer)
{
    page_ctrl *ctrl = take_page();
    fake_fail_with(OP_zymm_object_get_numaid, 1, 3);
    EXPECT_EQ(zyumm_page_get_numaid(ctrl), 3u);
    const fake_call call = fake_last_call(OP_zymm_object_get_numaid);
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(ctrl->page_addr));
    EXPECT_EQ(zyumm_page_get_numaid(ctrl), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PageDiag, the_node_of_nothing_is_refused)
{
    EXPECT_EQ(zyumm_page_get_numaid(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(fake_count(OP_zymm_object_get_numaid), 0u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_page_get_numaid",
                     "[UMM_CMM] get page numaid, page_ctrl is NULL.");
    reopen_limiters();
    EXPECT_LIMITED(zyumm_page_get_numaid(nullptr), "[UMM_CMM] get page numaid, page_ctrl is NULL.");
}

/* ---- beside those who work */

static void work_on(page_ctrl *ctrl)
{
    for (int i = 0; i < 500; ++i) {
        incAndRetPageReference(ctrl, "worker", 1);
        addPageValidBitMap(ctrl, uint8_t(1u << (i % 8)));
        setPageZeroFlags(ctrl, i % 2);
        decAndRetPageReference(ctrl, MODULE, "worker", 2);
    }
}

TEST_F(PageDiag, a_page_is_shown_while_its_holders_work_on_it)
{
    page_ctrl *ctrl = take_page();
    std::thread holder(work_on, ctrl);
    for (int i = 0; i < 50; ++i)
        show_page(hex(ctrl->page_addr));
    holder.join();
    EXPECT_EQ(ctrl->valid_bitmap, 0xFFu);
    EXPECT_EQ(fake_console().find("input error"), std::string::npos);
}
