/*
 * The zero flag and the valid bitmap.
 */
#include <thread>

#include "page_fixture.h"

using PageAttr = with_pages;

static page_ctrl *freed_page()
{
    page_ctrl *ctrl = take_page();
    try_free_one_page(ctrl, MODULE, OWNER, 12);
    fake_forget_log();
    return ctrl;
}

/* ---- the zero flag */

static unsigned zero_flag_read(page_ctrl *ctrl)
{
    uint8_t is_zero = 0xAA;
    getPageZeroFlags(ctrl, &is_zero);
    return is_zero;
}

TEST_F(PageAttr, a_fresh_page_is_not_known_to_be_zero)
{
    EXPECT_EQ(zero_flag_read(take_page()), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PageAttr, the_zero_pages_are_known_to_be_zero)
{
    EXPECT_EQ(zero_flag_read(getZeroPageCtrlWithoutDif()), 1u);
    EXPECT_EQ(zero_flag_read(getZeroPageCtrl()), 1u);
    EXPECT_NO_LINE();
}

TEST_F(PageAttr, the_zero_flag_is_set_and_cleared)
{
    page_ctrl *ctrl = take_page();
    setPageZeroFlags(ctrl, 1);
    EXPECT_EQ(ctrl->zero_flags, 0x20u);
    EXPECT_EQ(zero_flag_read(ctrl), 1u);
    setPageZeroFlags(ctrl, 0);
    EXPECT_EQ(ctrl->zero_flags, 0u);
    EXPECT_EQ(zero_flag_read(ctrl), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PageAttr, only_the_low_8_bits_set_the_zero_flag_is_kept)
{
    page_ctrl *ctrl = take_page();
    setPageZeroFlags(ctrl, 0x80);
    EXPECT_EQ(ctrl->zero_flags, 0x20u);
    setPageZeroFlags(ctrl, 0x100);
    EXPECT_EQ(ctrl->zero_flags, 0u);
    setPageZeroFlags(ctrl, -1);
    EXPECT_EQ(ctrl->zero_flags, 0x20u);
    setPageZeroFlags(ctrl, int(0xFFFFFF00));
    EXPECT_EQ(ctrl->zero_flags, 0u);
}

TEST_F(PageAttr, any_other_value_of_the_flag_means_not_zero)
{
    page_ctrl *ctrl = take_page();
    ctrl->zero_flags = 0x21;
    EXPECT_EQ(zero_flag_read(ctrl), 0u);
    ctrl->zero_flags = 1;
    EXPECT_EQ(zero_flag_read(ctrl), 0u);
}

TEST_F(PageAttr, the_zero_flag_needs_no_lock)
{
    page_ctrl *ctrl = take_page();
    fake_forget_calls();
    setPageZeroFlags(ctrl, 1);
    zero_flag_read(ctrl);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
}

TEST_F(PageAttr, reading_the_zero_flag_of_nothing_is_refused)
{
    uint8_t is_zero = 0xAA;
    getPageZeroFlags(nullptr, &is_zero);
    EXPECT_EQ(is_zero, 0xAAu);
    const std::string text =
        "[UMM_CMM] _page_ctrl((nil)), isZeroPage(" + hex(&is_zero) + ").";
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPageZeroFlags", text);
    reopen_limiters();
    EXPECT_LIMITED(getPageZeroFlags(nullptr, &is_zero), text);
}

TEST_F(PageAttr, reading_the_zero_flag_to_nowhere_is_refused)
{
    page_ctrl *ctrl = take_page();
    const std::string text = "[UMM_CMM] _page_ctrl(" + hex(ctrl) + "), isZeroPage((nil)).";
    getPageZeroFlags(ctrl, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPageZeroFlags", text);
    reopen_limiters();
    EXPECT_LIMITED(getPageZeroFlags(ctrl, nullptr), text);
}

TEST_F(PageAttr, reading_the_zero_flag_of_a_bad_record_gives_0)
{
    page_ctrl *ctrl = freed_page();
    ctrl->zero_flags = 0x20;
    EXPECT_EQ(zero_flag_read(ctrl), 0u);
    EXPECT_EQ(fake_log_texts(),
              (texts{"[UMM_CMM] ctrl flag err [0]", "[UMM_CMM] pageCtrl is error."}));
    EXPECT_EQ(fake_log()[0].func, "isPageCtrlValid");
    EXPECT_LAST_LINE(ZYLOG_ERROR, "getPageZeroFlags", "[UMM_CMM] pageCtrl is error.");
    reopen_limiters();
    EXPECT_LIMITED(zero_flag_read(ctrl), "[UMM_CMM] pageCtrl is error.");
}

TEST_F(PageAttr, setting_the_zero_flag_of_nothing_is_refused)
{
    setPageZeroFlags(nullptr, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "setPageZeroFlags", "[UMM_CMM] page_ctrl is NULL.");
    reopen_limiters();
    EXPECT_LIMITED(setPageZeroFlags(nullptr, 1), "[UMM_CMM] page_ctrl is NULL.");
}

TEST_F(PageAttr, setting_the_zero_flag_of_a_bad_record_changes_nothing)
{
    page_ctrl *ctrl = freed_page();
    setPageZeroFlags(ctrl, 1);
    EXPECT_EQ(ctrl->zero_flags, 0u);
    EXPECT_EQ(fake_log_texts(),
              (texts{"[UMM_CMM] ctrl flag err [0]", "[UMM_CMM] page_ctrl is error."}));
    EXPECT_EQ(fake_log()[0].func, "isPageCtrlValid");
    EXPECT_LAST_LINE(ZYLOG_ERROR, "setPageZeroFlags", "[UMM_CMM] page_ctrl is error.");
    reopen_limiters();
    EXPECT_LIMITED(setPageZeroFlags(ctrl, 1), "[UMM_CMM] page_ctrl is error.");
}

/* ---- the valid bitmap */

TEST_F(PageAttr, bits_are_added_and_never_taken)
{
    page_ctrl *ctrl = take_page();
    EXPECT_EQ(getPageValidBitMap(ctrl), 0u);
    addPageValidBitMap(ctrl, 0x81);
    addPageValidBitMap(ctrl, 0x02);
    addPageValidBitMap(ctrl, 0);
    EXPECT_EQ(getPageValidBitMap(ctrl), 0x83u);
    EXPECT_EQ(ctrl->valid_bitmap, 0x83u);
    EXPECT_NO_LINE();
}

TEST_F(PageAttr, the_zero_pages_are_fully_valid)
{
    EXPECT_EQ(getPageValidBitMap(getZeroPageCtrl()), 0xFFu);
    EXPECT_EQ(getPageValidBitMap(getZeroPageCtrlWithoutDif()), 0xFFu);
}

TEST_F(PageAttr, a_page_that_comes_back_has_an_empty_bitmap)
{
    page_ctrl *ctrl = take_page();
    addPageValidBitMap(ctrl, 0xFF);
    setPageZeroFlags(ctrl, 1);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    EXPECT_EQ(ctrl->valid_bitmap, 0u);
    EXPECT_EQ(take_page(), ctrl);
    EXPECT_EQ(getPageValidBitMap(ctrl), 0u);
    EXPECT_EQ(zero_flag_read(ctrl), 0u);
}

/* The lock is held when it is released, so the bitmap changes in between. */
TEST_F(PageAttr, the_bitmap_is_changed_under_the_pages_own_lock)
{
    page_ctrl *ctrl = take_page();
    bool held = false;
    unsigned bits = 0;
    fake_hook(OP_do_zyax_spinlock_unlock, 1, [&] {
        held = fake_lock_held(&ctrl->lock);
        bits = ctrl->valid_bitmap;
    });
    fake_forget_calls();
    addPageValidBitMap(ctrl, 4);
    EXPECT_TRUE(held);
    EXPECT_EQ(bits, 4u);
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_lock).args[0].number,
              reinterpret_cast<uint64_t>(&ctrl->lock));
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_lock).args[1].text, "addPageValidBitMap");
    EXPECT_EQ(fake_locks_held(), 0u);
}

TEST_F(PageAttr, the_bitmap_is_read_under_the_pages_own_lock)
{
    page_ctrl *ctrl = take_page();
    fake_hook(OP_do_zyax_spinlock_lock, 1, [&] { ctrl->valid_bitmap = 9; });
    fake_forget_calls();
    EXPECT_EQ(getPageValidBitMap(ctrl), 9u);
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_lock).args[0].number,
              reinterpret_cast<uint64_t>(&ctrl->lock));
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_lock).args[1].text, "getPageValidBitMap");
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 1u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_unlock), 1u);
    EXPECT_EQ(fake_locks_held(), 0u);
}

TEST_F(PageAttr, adding_bits_to_nothing_is_refused_each_time)
{
    addPageValidBitMap(nullptr, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "addPageValidBitMap", "[UMM_CMM] pageCtrl is NULL.");
    EXPECT_NOT_LIMITED(addPageValidBitMap(nullptr, 1), "[UMM_CMM] pageCtrl is NULL.");
}

TEST_F(PageAttr, adding_bits_to_a_bad_record_is_refused_each_time)
{
    page_ctrl *ctrl = freed_page();
    const std::string text = "[UMM_CMM] pageCtrl is error. page_ctrl=" + hex(ctrl);
    fake_forget_calls();
    addPageValidBitMap(ctrl, 1);
    EXPECT_EQ(ctrl->valid_bitmap, 0u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
    EXPECT_EQ(fake_log_texts(), (texts{"[UMM_CMM] ctrl flag err [0]", text}));
    EXPECT_EQ(fake_log()[0].func, "isPageCtrlValid");
    EXPECT_LAST_LINE(ZYLOG_ERROR, "addPageValidBitMap", text);
    EXPECT_NOT_LIMITED(addPageValidBitMap(ctrl, 1), text);
}

TEST_F(PageAttr, reading_the_bitmap_of_nothing_is_refused_each_time)
{
    EXPECT_EQ(getPageValidBitMap(nullptr), 0u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPageValidBitMap", "[UMM_CMM] pageCtrl is NULL.");
    EXPECT_NOT_LIMITED(getPageValidBitMap(nullptr), "[UMM_CMM] pageCtrl is NULL.");
}

TEST_F(PageAttr, reading_the_bitmap_of_a_bad_record_is_refused_each_time)
{
    page_ctrl *ctrl = freed_page();
    const std::string text = "[UMM_CMM] pageCtrl is error. page_ctrl=" + hex(ctrl);
    ctrl->valid_bitmap = 7;
    fake_forget_calls();
    EXPECT_EQ(getPageValidBitMap(ctrl), 0u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
    EXPECT_EQ(fake_log_texts(), (texts{"[UMM_CMM] ctrl flag err [0]", text}));
    EXPECT_LAST_LINE(ZYLOG_ERROR, "getPageValidBitMap", text);
    EXPECT_NOT_LIMITED(getPageValidBitMap(ctrl), text);
}

/* ---- many threads */

static void add_bit(page_ctrl *ctrl, uint8_t bit)
{
    for (int i = 0; i < 1000; ++i)
        addPageValidBitMap(ctrl, bit);
}

TEST_F(PageAttr, bits_added_by_two_threads_at_once_are_all_there)
{
    page_ctrl *ctrl = take_page();
    std::thread first(add_bit, ctrl, uint8_t(1)), second(add_bit, ctrl, uint8_t(2));
    unsigned seen = 0;
    for (int i = 0; i < 1000; ++i)
        seen |= getPageValidBitMap(ctrl);
    first.join();
    second.join();
    EXPECT_EQ(getPageValidBitMap(ctrl), 3u);
    EXPECT_EQ(seen & ~3u, 0u);
}

/* An adder that overtakes another one just before it gets the lock must find its bit kept. */
TEST_F(PageAttr, a_bit_added_just_before_the_lock_is_taken_is_kept)
{
    page_ctrl *ctrl = take_page();
    fake_hook(OP_do_zyax_spinlock_lock, 1, [ctrl] { addPageValidBitMap(ctrl, 2); });
    addPageValidBitMap(ctrl, 1);
    EXPECT_EQ(getPageValidBitMap(ctrl), 3u);
}

static void flip_zero_flag(page_ctrl *ctrl)
{
    for (int i = 0; i < 1000; ++i)
        setPageZeroFlags(ctrl, i % 2);
}

TEST_F(PageAttr, the_zero_flag_may_be_read_while_it_changes)
{
    page_ctrl *ctrl = take_page();
    std::thread writer(flip_zero_flag, ctrl);
    for (int i = 0; i < 1000; ++i)
        EXPECT_LT(zero_flag_read(ctrl), 2u);
    writer.join();
    EXPECT_EQ(zero_flag_read(ctrl), 1u);
}
