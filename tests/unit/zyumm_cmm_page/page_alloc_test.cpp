/*
 * Pages and runs out of the pool.
 */
#include <thread>

#include "page_fixture.h"

using PageAlloc = with_pages;
using PageAllocDry = with_dry_pool;

static std::string dif_of(const uint8_t *page, unsigned sector)
{
    return std::string(reinterpret_cast<const char *>(page) + sector * 520 + 512, 8);
}

/* ---- one page */

TEST_F(PageAlloc, a_fresh_page_belongs_to_its_caller)
{
    page_ctrl *ctrl = allocOnePageSync(77, OWNER, 11);
    ASSERT_NE(ctrl, nullptr);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(ctrl), ctrl->page_addr + 8320);
    EXPECT_EQ(ctrl->owner_func, OWNER);
    EXPECT_EQ(ctrl->lock.word, 0u);
    EXPECT_EQ(ctrl->lock.magic, 0xdead4eadu);
    EXPECT_EQ(ctrl->lock.owner_cpu, 0xFFFFFFFFu);
    EXPECT_EQ(ctrl->lock.owner, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(ctrl->ref, 1);
    EXPECT_EQ(ctrl->flags, 1u);
    EXPECT_EQ(ctrl->valid_bitmap, 0u);
    EXPECT_EQ(ctrl->zero_flags, 0u);
    EXPECT_EQ(ctrl->owner_modid, 77u);
    EXPECT_NO_LINE();
}

TEST_F(PageAlloc, a_page_that_is_used_again_starts_afresh)
{
    page_ctrl *ctrl = take_page();
    ctrl->valid_bitmap = 0xFF;
    ctrl->zero_flags = 0x20;
    ctrl->lock.word = 1;
    freeOnePage(ctrl, MODULE, OWNER, 12);
    ASSERT_EQ(allocOnePageSync(78, "another", 13), ctrl);
    EXPECT_EQ(ctrl->valid_bitmap, 0u);
    EXPECT_EQ(ctrl->zero_flags, 0u);
    EXPECT_EQ(ctrl->lock.word, 0u);
    EXPECT_EQ(ctrl->owner_modid, 78u);
    EXPECT_STREQ(ctrl->owner_func, "another");
}

TEST_F(PageAlloc, the_reserved_byte_is_nobodys)
{
    page_ctrl *ctrl = take_page();
    ctrl->reserved = 0x5B;
    freeOnePage(ctrl, MODULE, OWNER, 12);
    ASSERT_EQ(take_page(), ctrl);
    EXPECT_EQ(ctrl->reserved, 0x5Bu);
}

TEST_F(PageAlloc, every_sector_carries_the_integrity_text)
{
    const uint8_t *page = take_page()->page_addr;
    EXPECT_EQ(dif_of(page, 0), "CMMREDIF");
    EXPECT_EQ(dif_of(page, 1), "CMMREDIF");
    EXPECT_EQ(dif_of(page, 14), "CMMREDIF");
    EXPECT_EQ(dif_of(page, 15), "CMMREDIF");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(page) + 1032, 8), "CMMREDIF");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(page) + 8312, 8), "CMMREDIF");
}

TEST_F(PageAlloc, the_data_bytes_are_not_cleared)
{
    page_ctrl *ctrl = take_page();
    memset(ctrl->page_addr, 0x5A, 8320);
    freeOnePage(ctrl, MODULE, OWNER, 12);
    ASSERT_EQ(take_page(), ctrl);
    const std::string content(reinterpret_cast<const char *>(ctrl->page_addr), 8320);
    EXPECT_EQ(content, page_content('\x5A'));
}

TEST_F(PageAlloc, the_record_keeps_16_bits_of_the_module_id)
{
    EXPECT_EQ(allocOnePageSync(0x12345, OWNER, 11)->owner_modid, 0x2345u);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[1].number, 0x12345u);
}

TEST_F(PageAlloc, the_slab_learns_who_asks)
{
    take_page();
    const fake_call call = fake_last_call(OP_zymm_slab_malloc);
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, 77u);
    EXPECT_EQ(call.args[2].text, "the owner");
    EXPECT_EQ(call.args[3].number, 11u);
}

TEST_F(PageAlloc, an_empty_pool_gives_null_without_a_line)
{
    dry_pool();
    EXPECT_EQ(take_page(), nullptr);
    EXPECT_NO_LINE();
}

TEST(PageAllocWithoutPool, without_a_pool_one_page_is_null_without_a_line)
{
    EXPECT_EQ(take_page(), nullptr);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[0].number, 0u);
    EXPECT_NO_LINE();
}

/* ---- runs: arguments */

TEST(PageAllocWithoutPool, a_run_without_a_pool_is_refused_and_leaves_out_untouched)
{
    SGL *const before = reinterpret_cast<SGL *>(0x1234);
    SGL *chain = before;
    allocMultiPagesSync(2, &chain, MODULE, OWNER, 1);
    EXPECT_EQ(chain, before);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesSync",
                     "[UMM_CMM] page partition is NOT created");
}

TEST(PageAllocWithoutPool, the_line_about_a_missing_pool_is_limited)
{
    SGL *chain = nullptr;
    EXPECT_LIMITED(allocMultiPagesSync(2, &chain, MODULE, OWNER, 1),
                   "[UMM_CMM] page partition is NOT created");
}

TEST(PageAllocWithoutPool, the_pool_is_looked_at_before_out)
{
    allocMultiPagesSync(2, nullptr, MODULE, OWNER, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesSync",
                     "[UMM_CMM] page partition is NOT created");
}

TEST_F(PageAlloc, a_run_to_nowhere_is_refused)
{
    allocMultiPagesSync(0, nullptr, MODULE, OWNER, 1);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesSync", "[UMM_CMM] sgl_ptr is NULL");
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageAlloc, the_line_about_a_run_to_nowhere_is_limited)
{
    EXPECT_LIMITED(allocMultiPagesSync(2, nullptr, MODULE, OWNER, 1),
                   "[UMM_CMM] sgl_ptr is NULL");
}

static void expect_refused_count(uint32_t page_cnt, const char *text)
{
    SGL *chain = reinterpret_cast<SGL *>(0x1234);
    allocMultiPagesSync(page_cnt, &chain, MODULE, OWNER, 1);
    EXPECT_EQ(chain, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocMultiPagesSync", text);
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
}

TEST_F(PageAlloc, a_run_of_0_pages_is_refused)
{
    expect_refused_count(0, "[UMM_CMM] page_cnt(0) is error.");
}

TEST_F(PageAlloc, a_run_of_65536_pages_is_refused)
{
    expect_refused_count(65536, "[UMM_CMM] page_cnt(65536) is error.");
}

TEST_F(PageAlloc, a_negative_count_is_refused)
{
    expect_refused_count(0xFFFFFFFF, "[UMM_CMM] page_cnt(4294967295) is error.");
}

TEST_F(PageAlloc, a_negative_count_is_refused_however_small_without_its_sign)
{
    expect_refused_count(0x80000001, "[UMM_CMM] page_cnt(2147483649) is error.");
}

TEST_F(PageAlloc, refused_counts_are_limited)
{
    SGL *chain = nullptr;
    EXPECT_LIMITED(allocMultiPagesSync(0, &chain, MODULE, OWNER, 1),
                   "[UMM_CMM] page_cnt(0) is error.");
}

TEST_F(PageAlloc, a_run_of_65535_pages_is_accepted)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(65535, &chain, MODULE, OWNER, 1);
    EXPECT_EQ(fake_log_count("[UMM_CMM] page_cnt(65535) is error."), 0u);
    EXPECT_EQ(fake_calls(OP_zymm_slab_malloc).size(), 1024u + 801u);
    EXPECT_EQ(pages_out(), 0u);
}

/* ---- runs: layout */

TEST_F(PageAlloc, a_run_of_64_pages_fills_one_sgl)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(64, &chain, MODULE, OWNER, 1);
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(chain->nextSgl, nullptr);
    EXPECT_EQ(chain->entryNum, 64u);
    EXPECT_EQ(chain->entrySumInChain, 64u);
    EXPECT_EQ(pages_out(), 64u);
    EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 1u);
    EXPECT_NO_LINE();
}

TEST_F(PageAlloc, the_65th_page_lies_in_the_second_sgl)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(65, &chain, MODULE, OWNER, 1);
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(chain->entryNum, 64u);
    EXPECT_EQ(chain->entrySumInChain, 65u);
    ASSERT_NE(chain->nextSgl, nullptr);
    EXPECT_EQ(chain->nextSgl->entryNum, 1u);
    EXPECT_EQ(chain->nextSgl->entrySumInChain, 0u);
    EXPECT_EQ(chain->nextSgl->nextSgl, nullptr);
}

TEST_F(PageAlloc, an_entry_describes_its_whole_page)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(65, &chain, 77, OWNER, 1);
    ASSERT_NE(chain, nullptr);
    const SGL_ENTRY *entry = &chain->nextSgl->entries[0];
    EXPECT_EQ(entry->buf, entry->pageCtrl->page_addr);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(entry->pageCtrl), entry->buf + 8320);
    EXPECT_EQ(entry->len, 8320u);
    EXPECT_EQ(entry->pageCtrl->ref, 1);
    EXPECT_EQ(entry->pageCtrl->owner_modid, 77u);
    EXPECT_EQ(entry->pageCtrl->owner_func, OWNER);
    EXPECT_EQ(dif_of(entry->buf, 15), "CMMREDIF");
}

TEST_F(PageAlloc, the_slabs_learn_who_asks_for_a_run)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(1, &chain, 77, OWNER, 31);
    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0].number, g_sgl_partition_id);
    EXPECT_EQ(calls[0].args[2].text, "the owner");
    EXPECT_EQ(calls[0].args[3].number, 31u);
    EXPECT_EQ(calls[1].args[0].number, s_page_partition_id);
    EXPECT_EQ(calls[1].args[1].number, 77u);
    EXPECT_EQ(calls[1].args[2].text, "the owner");
    EXPECT_EQ(calls[1].args[3].number, 31u);
}

/* ---- runs: refusals */

/* A run of 65 pages spans two SGLs, so every refusal point of both slabs is visited. */
TEST_F(PageAlloc, a_run_is_all_or_nothing_at_every_refusal_of_the_slab)
{
    for_each_fault(OP_zymm_slab_malloc, [](const fault &f) {
        SGL *chain = nullptr;
        allocMultiPagesSync(65, &chain, 77, "the test", 1);
        EXPECT_EQ(chain == nullptr, f.hit);
        if (chain != nullptr) {
            EXPECT_EQ(chain->entrySumInChain, 65u);
            freeMultiPages(chain, 77, "the test", 2);
        }
        EXPECT_EQ(pages_out(), 0u);
        EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 0u);
    });
}

TEST_F(PageAlloc, a_run_without_an_sgl_fails_without_a_line_of_its_own)
{
    SGL *chain = nullptr;
    fake_limit(g_sgl_partition_id, 0);
    allocMultiPagesSync(2, &chain, MODULE, OWNER, 1);
    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(fake_log_texts(), texts{"[UMM_CMM] sglPtr is NULL."});
}

TEST_F(PageAlloc, a_pool_that_runs_dry_in_the_middle_gives_everything_back)
{
    SGL *chain = nullptr;
    leave_pages(2);
    allocMultiPagesSync(3, &chain, 77, OWNER, 31);
    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 0u);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "alloc_multi_page",
                     "[UMM_CMM] Failed to alloc page, owner_id: 77 funcName: the owner line: 31.");
}

TEST_F(PageAlloc, a_pool_that_stays_dry_fills_no_log)
{
    SGL *chain = nullptr;
    dry_pool();
    EXPECT_LIMITED(allocMultiPagesSync(3, &chain, 77, OWNER, 31),
                   "[UMM_CMM] Failed to alloc page, owner_id: 77 funcName: the owner line: 31.");
}

TEST_F(PageAllocDry, giving_a_partial_run_back_kicks_the_queue)
{
    ask_page(1);
    leave_pages(1);
    SGL *chain = nullptr;
    allocMultiPagesSync(2, &chain, MODULE, OWNER, 1);
    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(s_enter_retry_cnt, 1u);
}

/* ---- steps */

TEST_F(PageAlloc, laying_pages_stops_at_the_first_refusal)
{
    SGL *chain = nullptr;
    allocSglChain(&chain, 10, MODULE, OWNER, 1);
    leave_pages(4);
    EXPECT_EQ(alloc_multi_page(10, MODULE, chain, OWNER, 1), 4u);
    EXPECT_EQ(chain->entryNum, 4u);
    EXPECT_EQ(chain->entrySumInChain, 4u);
    EXPECT_EQ(pages_out(), 4u);
}

TEST_F(PageAlloc, laying_all_pages_answers_their_count)
{
    SGL *chain = nullptr;
    allocSglChain(&chain, 10, MODULE, OWNER, 1);
    EXPECT_EQ(alloc_multi_page(10, MODULE, chain, OWNER, 1), 10u);
    EXPECT_NO_LINE();
}

TEST_F(PageAlloc, a_missing_name_is_written_as_null)
{
    SGL *chain = nullptr;
    allocSglChain(&chain, 1, MODULE, OWNER, 1);
    dry_pool();
    EXPECT_EQ(alloc_multi_page(1, 77, chain, nullptr, 5), 0u);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "alloc_multi_page",
                     "[UMM_CMM] Failed to alloc page, owner_id: 77 funcName: (null) line: 5.");
}

TEST_F(PageAlloc, the_cursor_steps_on_after_each_page)
{
    SGL head = {}, second = {};
    head.nextSgl = &second;
    SGL *cur_sgl = &head;
    uint32_t index = 62;
    add_one_page_to_sgl(&head, &cur_sgl, &index, take_page());
    EXPECT_EQ(cur_sgl, &head);
    EXPECT_EQ(index, 63u);
    add_one_page_to_sgl(&head, &cur_sgl, &index, take_page());
    EXPECT_EQ(cur_sgl, &second);
    EXPECT_EQ(index, 0u);
    add_one_page_to_sgl(&head, &cur_sgl, &index, take_page());
    EXPECT_EQ(head.entryNum, 2u);
    EXPECT_EQ(second.entryNum, 1u);
    EXPECT_EQ(head.entrySumInChain, 3u);
    EXPECT_EQ(second.entrySumInChain, 0u);
    EXPECT_NE(head.entries[63].pageCtrl, nullptr);
}

TEST_F(PageAlloc, the_cursor_is_null_behind_a_full_chain)
{
    SGL head = {};
    SGL *cur_sgl = &head;
    uint32_t index = 63;
    add_one_page_to_sgl(&head, &cur_sgl, &index, take_page());
    EXPECT_EQ(cur_sgl, nullptr);
    EXPECT_EQ(index, 0u);
}

/* ---- threads */

TEST_F(PageAlloc, threads_share_the_pool_without_losing_a_page)
{
    leave_pages(8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 300; ++round) {
                SGL *chain = nullptr;
                allocMultiPagesSync(3, &chain, MODULE, OWNER, 1);
                freeMultiPages(chain, MODULE, OWNER, 2);
                page_ctrl *ctrl = take_page();
                if (ctrl != nullptr)
                    freeOnePage(ctrl, MODULE, OWNER, 3);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(fake_objects_out(g_sgl_partition_id), 0u);
}
