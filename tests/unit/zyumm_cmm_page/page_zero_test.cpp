/*
 * The zero pages: what they hold, how they are protected, and how they go.
 */
#include "page_fixture.h"

static uintptr_t address(const void *pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

/* The next multiple of 4,096. */
static uintptr_t boundary(uintptr_t from)
{
    return (from + 4095) / 4096 * 4096;
}

class ZeroPage : public ::testing::Test
{
protected:
    void SetUp() override { configure(0, 80); }
};

/* ---- creation */

TEST_F(ZeroPage, the_page_without_dif_is_all_zero)
{
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    const std::string content(
        reinterpret_cast<const char *>(getZeroPageCtrlWithoutDif()->page_addr), 8320);
    EXPECT_EQ(content, std::string(8320, '\0'));
}

TEST_F(ZeroPage, the_page_with_dif_is_zero_but_for_the_integrity_bytes)
{
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    const std::string content(reinterpret_cast<const char *>(getZeroPageCtrl()->page_addr), 8320);
    EXPECT_EQ(content, page_content('\0'));
}

static void expect_zero_page_record(const page_ctrl *ctrl)
{
    EXPECT_EQ(address(ctrl->page_addr) + 8320, address(ctrl));
    EXPECT_STREQ(ctrl->owner_func, "umm_create_global_zero_pages");
    EXPECT_EQ(ctrl->lock.word, 0u);
    EXPECT_EQ(ctrl->lock.magic, 0xdead4eadu);
    EXPECT_EQ(ctrl->lock.owner_cpu, 0xFFFFFFFFu);
    EXPECT_EQ(ctrl->lock.owner, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(ctrl->ref, 1);
    EXPECT_EQ(ctrl->flags, 1u);
    EXPECT_EQ(ctrl->valid_bitmap, 0xFFu);
    EXPECT_EQ(ctrl->zero_flags, 0x20u);
    EXPECT_EQ(ctrl->owner_modid, 386u);
}

TEST_F(ZeroPage, both_records_belong_to_the_library)
{
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    expect_zero_page_record(getZeroPageCtrlWithoutDif());
    expect_zero_page_record(getZeroPageCtrl());
    EXPECT_NO_LINE();
}

TEST_F(ZeroPage, both_lie_on_page_boundaries_of_one_block)
{
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    const uintptr_t block = address(s_zero_page_address);
    EXPECT_EQ(address(getZeroPageCtrlWithoutDif()->page_addr), boundary(block));
    EXPECT_EQ(address(getZeroPageCtrl()->page_addr), boundary(block + 20480));
}

TEST_F(ZeroPage, the_block_is_a_partition_of_the_librarys)
{
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    const zyumm_mpool_param param = fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>();
    EXPECT_STREQ(param.name, "ZERO_PAGE_POOL");
    EXPECT_EQ(param.obj_size, 40960u);
    EXPECT_EQ(param.module_id, 386u);
    const fake_call call = fake_last_call(OP_ucmm_mpool_alloc_i);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "umm_create_global_zero_pages");
    EXPECT_EQ(call.result, address(s_zero_page_address));
    EXPECT_EQ(s_zero_page_partition_id, 1u);
}

TEST_F(ZeroPage, both_are_protected_from_their_start)
{
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    const std::vector<fake_call> calls = fake_calls(OP_zyax_setmemory_ro);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0].number, address(getZeroPageCtrlWithoutDif()->page_addr));
    EXPECT_EQ(calls[0].args[1].number, 1u);
    EXPECT_EQ(calls[1].args[0].number, address(getZeroPageCtrl()->page_addr));
    EXPECT_EQ(calls[1].args[1].number, 1u);
}

TEST_F(ZeroPage, a_page_is_complete_before_it_is_protected)
{
    std::string content;
    fake_hook(OP_zyax_setmemory_ro, 2, [&] {
        const char *second = reinterpret_cast<const char *>(
            boundary(address(s_zero_page_address) + 20480));
        content.assign(second + 8312, 8);
    });
    ASSERT_EQ(umm_create_global_zero_pages(), 0u);
    EXPECT_EQ(content, "CMMREDIF");
}

TEST_F(ZeroPage, no_partition_no_zero_pages)
{
    fake_fail_always(OP_zyumm_mpool_create);
    EXPECT_EQ(umm_create_global_zero_pages(), 0xFFFFFFFFu);
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "umm_create_global_zero_pages",
                     "[UMM_CMM] create zero page pool failed.");
    EXPECT_NOT_LIMITED(umm_create_global_zero_pages(), "[UMM_CMM] create zero page pool failed.");
}

TEST_F(ZeroPage, no_block_no_zero_pages)
{
    fake_fail(OP_ucmm_mpool_alloc_i);
    EXPECT_EQ(umm_create_global_zero_pages(), 0xFFFFFFFFu);
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "umm_create_global_zero_pages",
                     "[UMM_CMM] create zero page pool failed.");
}

TEST_F(ZeroPage, an_unprotected_first_page_is_not_published)
{
    fake_fail(OP_zyax_setmemory_ro, 1);
    EXPECT_EQ(umm_create_global_zero_pages(), 0xFFFFFFFFu);
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_EQ(getZeroPageCtrl(), nullptr);
    EXPECT_EQ(fake_count(OP_zyax_setmemory_ro), 1u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "umm_create_global_zero_pages",
                     "[UMM_CMM] set zero page protect read failed, page_addr(" +
                         hex(boundary(address(s_zero_page_address))) + ")");
}

TEST_F(ZeroPage, an_unprotected_second_page_leaves_the_first_published)
{
    fake_fail(OP_zyax_setmemory_ro, 2);
    EXPECT_EQ(umm_create_global_zero_pages(), 0xFFFFFFFFu);
    EXPECT_NE(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_EQ(getZeroPageCtrl(), nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "umm_create_global_zero_pages",
                     "[UMM_CMM] set dif zero page protect read failed, page_addr(" +
                         hex(boundary(address(s_zero_page_address) + 20480)) + ")");
}

TEST_F(ZeroPage, protection_failures_are_reported_each_time)
{
    fake_fail_always(OP_zyax_setmemory_ro);
    fake_forget_log();
    for (int run = 0; run < 5; ++run)
        umm_create_global_zero_pages();
    EXPECT_EQ(fake_log_from("umm_create_global_zero_pages").size(), 5u);
}

TEST_F(ZeroPage, only_a_negative_answer_means_unprotected)
{
    fake_fail_always_with(OP_zyax_setmemory_ro, 1);
    EXPECT_EQ(umm_create_global_zero_pages(), 0u);
    EXPECT_NO_LINE();
}

TEST(ZeroPageGlobals, the_setters_set_what_the_getters_get)
{
    page_ctrl first = {}, second = {};
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_EQ(getZeroPageCtrl(), nullptr);
    umm_set_global_zero_page_ctrl_without_dif(&first);
    umm_set_global_zero_page_ctrl_dif(&second);
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), &first);
    EXPECT_EQ(getZeroPageCtrl(), &second);
    EXPECT_EQ(g_global_zero_page_without_dif, &first);
    EXPECT_EQ(g_global_zero_page_dif, &second);
}

/* ---- tear-down, as part of deleting the page pool */

class ZeroPageTearDown : public with_pages
{
protected:
    void SetUp() override
    {
        with_pages::SetUp();
        first = getZeroPageCtrlWithoutDif();
        second = getZeroPageCtrl();
        first_page = first->page_addr;
        second_page = second->page_addr;
    }

    page_ctrl *first, *second;
    uint8_t *first_page, *second_page;
};

TEST_F(ZeroPageTearDown, both_pages_become_writable_and_go)
{
    void *const block = s_zero_page_address;
    EXPECT_EQ(delete_page_mempool(), 0u);
    const std::vector<fake_call> calls = fake_calls(OP_zyax_setmemory_rw);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0].number, address(first_page));
    EXPECT_EQ(calls[0].args[1].number, 1u);
    EXPECT_EQ(calls[1].args[0].number, address(second_page));
    EXPECT_EQ(calls[1].args[1].number, 1u);
    const fake_call freed = fake_last_call(OP_zyumm_mpool_free_i);
    EXPECT_EQ(freed.args[1].number, address(block));
    EXPECT_EQ(freed.args[2].number, 386u);
    EXPECT_EQ(freed.args[3].text, "delete_page_mempool");
    EXPECT_EQ(s_zero_page_partition_id, 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
}

TEST_F(ZeroPageTearDown, the_pages_go_after_the_slab)
{
    fake_hook(OP_zyax_setmemory_rw, 1, [] { EXPECT_EQ(s_page_partition_id, 0u); });
    EXPECT_EQ(delete_page_mempool(), 0u);
}

TEST_F(ZeroPageTearDown, the_pointer_to_the_page_with_dif_outlives_it_is_kept)
{
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_EQ(getZeroPageCtrl(), second);
}

TEST_F(ZeroPageTearDown, a_missing_page_is_reported_and_forgiven)
{
    umm_set_global_zero_page_ctrl_without_dif(nullptr);
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "delete_page_mempool",
                     "[UMM_CMM] Zero page is not exist, zero_page_ctrl((nil)), "
                     "zero_page_dif_ctrl(" + hex(second) + ").");
    EXPECT_NE(s_zero_page_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zyax_setmemory_rw), 0u);
}

TEST_F(ZeroPageTearDown, a_missing_page_with_dif_is_reported_and_forgiven)
{
    umm_set_global_zero_page_ctrl_dif(nullptr);
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "delete_page_mempool",
                     "[UMM_CMM] Zero page is not exist, zero_page_ctrl(" + hex(first) +
                         "), zero_page_dif_ctrl((nil)).");
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), first);
}

/* Creates the pool anew without touching the zero pages and deletes it. */
static uint32_t delete_another_pool()
{
    zymm_slab_param param;
    zymm_slab_param_init(&param);
    s_page_partition_id = zymm_create_slab(&param, 386, "the test");
    return delete_page_mempool();
}

TEST_F(ZeroPageTearDown, a_missing_page_is_reported_each_time)
{
    umm_set_global_zero_page_ctrl_without_dif(nullptr);
    EXPECT_NOT_LIMITED(delete_another_pool(),
                       "[UMM_CMM] Zero page is not exist, zero_page_ctrl((nil)), "
                       "zero_page_dif_ctrl(" + hex(second) + ").");
}

TEST_F(ZeroPageTearDown, a_user_of_the_first_page_stops_it)
{
    first->ref = 2;
    const std::string failure = "[UMM_CMM] Zero page is not free. page_ref(2), dif_page_ref(1).";
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "delete_page_mempool", failure);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), first);
    EXPECT_EQ(fake_count(OP_zyax_setmemory_rw), 0u);
    EXPECT_NOT_LIMITED(delete_another_pool(), failure);
}

TEST_F(ZeroPageTearDown, a_user_of_the_second_page_stops_it)
{
    second->ref = 2;
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "delete_page_mempool",
                     "[UMM_CMM] Zero page is not free. page_ref(1), dif_page_ref(2).");
}

TEST_F(ZeroPageTearDown, counts_of_0_and_below_do_not_stop_it)
{
    first->ref = 0;
    second->ref = -1;
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_NO_LINE();
}

TEST_F(ZeroPageTearDown, a_first_page_that_stays_protected_is_reported)
{
    fake_fail(OP_zyax_setmemory_rw, 1);
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "delete_page_mempool",
                     "[UMM_CMM] set zero page protect write failed, page_addr(" +
                         hex(first_page) + ")");
    EXPECT_EQ(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_EQ(fake_count(OP_zyax_setmemory_rw), 1u);
    EXPECT_EQ(fake_count(OP_zyumm_mpool_free_i), 0u);
}

TEST_F(ZeroPageTearDown, a_second_page_that_stays_protected_is_reported)
{
    fake_fail(OP_zyax_setmemory_rw, 2);
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "delete_page_mempool",
                     "[UMM_CMM] set dif zero page protect write failed, page_addr(" +
                         hex(second_page) + ")");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_free_i), 0u);
}

TEST_F(ZeroPageTearDown, pages_that_stay_protected_are_reported_each_time)
{
    fake_fail_always(OP_zyax_setmemory_rw);
    fake_forget_log();
    for (int run = 0; run < 5; ++run) {
        umm_set_global_zero_page_ctrl_without_dif(first);
        delete_another_pool();
    }
    EXPECT_EQ(fake_log_count("[UMM_CMM] set zero page protect write failed, page_addr(" +
                             hex(first_page) + ")"),
              5u);
}

TEST_F(ZeroPageTearDown, only_a_negative_answer_means_still_protected)
{
    fake_fail_always_with(OP_zyax_setmemory_rw, 1);
    EXPECT_EQ(delete_page_mempool(), 0u);
}

TEST_F(ZeroPageTearDown, a_partition_that_cannot_be_deleted_keeps_its_id)
{
    const uint32_t part_id = s_zero_page_partition_id;
    const std::string failure =
        "[UMM_CMM] Delete zero page pool error. partId[" + std::to_string(part_id) + "]";
    fake_fail_always(OP_zyumm_mpool_delete);
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    EXPECT_EQ(s_zero_page_partition_id, part_id);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "delete_page_mempool", failure);
    fake_forget_log();
    for (int run = 0; run < 5; ++run) {
        umm_set_global_zero_page_ctrl_without_dif(first);
        delete_another_pool();
    }
    EXPECT_EQ(fake_log_count(failure), 5u) << "not limited";
}
