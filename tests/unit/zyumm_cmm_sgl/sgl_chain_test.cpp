/*
 * SGLs and chains: allocation and release, the two steps, the dump.
 */
#include <gtest/gtest.h>

#include "expect_log.h"

#include "chain_builder.h"
#include "zyumm_cmm.h"

/* A pool of `max` SGLs. */
static void make_pool(uint32_t max)
{
    g_ucmm_config.sgl_max = max;
    ASSERT_EQ(cmm_create_sgl_mempool(), 0);
    fake_forget_calls();
}

static size_t sgls_of(const SGL *chain)
{
    size_t count = 0;
    for (; chain != nullptr; chain = chain->nextSgl)
        ++count;
    return count;
}

/* -------------------------------------------------------------------------- one SGL */

TEST(SglAllocOne, a_null_out_does_nothing)
{
    make_pool(4);

    allocOneSgl(nullptr, 77, "the test", 1);

    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
    EXPECT_NO_LINE();
}

TEST(SglAllocOne, the_callers_identity_reaches_the_slab)
{
    make_pool(4);
    SGL *sgl = nullptr;

    allocOneSgl(&sgl, 77, "the test", 123);

    const fake_call call = fake_last_call(OP_zymm_slab_malloc);
    EXPECT_EQ(call.args[0].number, g_sgl_partition_id);
    EXPECT_EQ(call.args[1].number, 77u);
    EXPECT_EQ(call.args[2].text, "the test");
    EXPECT_EQ(call.args[3].number, 123u);
    EXPECT_EQ(reinterpret_cast<uint64_t>(sgl), call.result);
    freeSglChain(sgl, 77, "the test", 1);
}

TEST(SglAllocOne, the_header_is_cleared_and_nothing_else)
{
    alignas(8) uint8_t object[1584];
    memset(object, 0xA5, sizeof object);
    fake_fail_with(OP_zymm_slab_malloc, 1, reinterpret_cast<uint64_t>(object));
    SGL *sgl = nullptr;

    allocOneSgl(&sgl, 77, "the test", 1);

    ASSERT_EQ(reinterpret_cast<uint8_t *>(sgl), object);
    EXPECT_EQ(sgl->nextSgl, nullptr);
    EXPECT_EQ(sgl->entrySumInChain, 0u);
    EXPECT_EQ(sgl->entryNum, 0u);
    EXPECT_EQ(sgl->userFlag, 0u);
    EXPECT_EQ(sgl->userTag, 0u);
    EXPECT_EQ(bytes(object + 24, object + 1584), bytes(1560, 0xA5));
}

TEST(SglAllocOne, an_empty_pool_gives_null_without_a_line)
{
    make_pool(1);
    SGL *first = nullptr;
    allocOneSgl(&first, 77, "the test", 1);
    SGL *second = first;

    allocOneSgl(&second, 77, "the test", 2);

    EXPECT_EQ(second, nullptr);
    EXPECT_NO_LINE();
    freeSglChain(first, 77, "the test", 3);
}

TEST(SglAllocOne, without_a_pool_the_result_is_null)
{
    SGL  some = {};
    SGL *sgl  = &some;

    allocOneSgl(&sgl, 77, "the test", 1);

    EXPECT_EQ(sgl, nullptr);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[0].number, 0u);
}

/* -------------------------------------------------------------------------- chains */

TEST(SglAllocChain, a_null_out_does_nothing)
{
    make_pool(4);

    allocSglChain(nullptr, 65, 77, "the test", 1);

    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
    EXPECT_NO_LINE();
}

TEST(SglAllocChain, no_entries_take_no_sgl)
{
    make_pool(4);
    SGL  some  = {};
    SGL *chain = &some;

    allocSglChain(&chain, 0, 77, "the test", 1);

    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
    EXPECT_NO_LINE();
}

/* SGLs that a chain for `entries` entries takes; the chain is given back. */
static size_t sgls_for(uint32_t entries)
{
    SGL *chain = nullptr;
    allocSglChain(&chain, entries, 77, "the test", 1);
    const size_t count = sgls_of(chain);
    EXPECT_EQ(fake_objects_out(g_sgl_partition_id), count);
    freeSglChain(chain, 77, "the test", 2);
    EXPECT_EQ(fake_objects_out(), 0u);
    return count;
}

TEST(SglAllocChain, one_entry_takes_one_sgl)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(1), 1u);
}

TEST(SglAllocChain, a_full_sgl_of_entries_takes_one_sgl)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(64), 1u);
}

TEST(SglAllocChain, one_entry_more_than_an_sgl_holds_takes_two)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(65), 2u);
}

TEST(SglAllocChain, two_full_sgls_of_entries_take_two)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(128), 2u);
}

TEST(SglAllocChain, one_entry_more_than_two_sgls_hold_takes_three)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(129), 3u);
}

TEST(SglAllocChain, the_most_entries_that_a_head_can_count_take_1024_sgls)
{
    make_pool(1024);
    EXPECT_EQ(sgls_for(65535), 1024u);
}

TEST(SglAllocChain, the_lowest_count_whose_rounding_wraps_takes_one_sgl_is_kept)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(0xFFFFFFC1), 1u);
}

TEST(SglAllocChain, the_highest_count_takes_one_sgl_is_kept)
{
    make_pool(4);
    EXPECT_EQ(sgls_for(0xFFFFFFFF), 1u);
}

TEST(SglAllocChain, the_highest_count_that_does_not_wrap_asks_for_more_than_the_pool_has)
{
    make_pool(4);
    SGL *chain = nullptr;

    allocSglChain(&chain, 0xFFFFFFC0, 77, "the test", 1);

    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 5u);
    EXPECT_EQ(fake_objects_out(), 0u);
}

TEST(SglAllocChain, the_sgls_are_linked_in_the_order_of_allocation_with_all_counts_0)
{
    make_pool(4);
    SGL *chain = nullptr;

    allocSglChain(&chain, 129, 77, "the test", 1);

    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(reinterpret_cast<uint64_t>(chain), calls[0].result);
    EXPECT_EQ(reinterpret_cast<uint64_t>(chain->nextSgl), calls[1].result);
    EXPECT_EQ(reinterpret_cast<uint64_t>(chain->nextSgl->nextSgl), calls[2].result);
    EXPECT_EQ(chain->nextSgl->nextSgl->nextSgl, nullptr);
    EXPECT_EQ(chain->entrySumInChain, 0u);
    EXPECT_EQ(chain->entryNum, 0u);
    EXPECT_EQ(chain->nextSgl->entryNum, 0u);
    EXPECT_EQ(chain->nextSgl->nextSgl->entryNum, 0u);
    freeSglChain(chain, 77, "the test", 2);
}

TEST(SglAllocChain, every_sgl_is_taken_in_the_callers_name)
{
    make_pool(4);
    SGL *chain = nullptr;

    allocSglChain(&chain, 65, 77, "the test", 123);

    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].args[0].number, g_sgl_partition_id);
    EXPECT_EQ(calls[1].args[1].number, 77u);
    EXPECT_EQ(calls[1].args[2].text, "the test");
    EXPECT_EQ(calls[1].args[3].number, 123u);
    EXPECT_EQ(calls[0].args[3].number, 123u);
    freeSglChain(chain, 77, "the test", 2);
}

TEST(SglAllocChain, without_a_first_sgl_there_is_no_chain)
{
    make_pool(4);
    fake_fail(OP_zymm_slab_malloc, 1);
    SGL  some  = {};
    SGL *chain = &some;

    allocSglChain(&chain, 65, 77, "the test", 1);

    EXPECT_EQ(chain, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocSglChain", "[UMM_CMM] sglPtr is NULL.");
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 1u);
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST(SglAllocChain, the_line_of_a_missing_first_sgl_is_limited)
{
    SGL *chain = nullptr;
    EXPECT_LIMITED(allocSglChain(&chain, 1, 77, "the test", 1), "[UMM_CMM] sglPtr is NULL.");
}

TEST(SglAllocChain, when_the_third_sgl_is_refused_the_first_two_go_back)
{
    make_pool(4);
    fake_fail(OP_zymm_slab_malloc, 3);
    SGL  some  = {};
    SGL *chain = &some;

    allocSglChain(&chain, 129, 77, "the test", 1);

    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocSglChain", "[UMM_CMM] nexSglPtr is NULL.");
    const std::vector<fake_call> freed = fake_calls(OP_zymm_slab_free);
    ASSERT_EQ(freed.size(), 2u);
    EXPECT_EQ(freed[0].args[1].number, fake_calls(OP_zymm_slab_malloc)[0].result);
    EXPECT_EQ(freed[1].args[1].number, fake_calls(OP_zymm_slab_malloc)[1].result);
    EXPECT_EQ(freed[0].args[2].number, 77u);
    EXPECT_EQ(freed[0].args[3].text, "the test");
}

TEST(SglAllocChain, the_line_of_a_missing_further_sgl_is_limited)
{
    make_pool(1);
    SGL *chain = nullptr;
    EXPECT_LIMITED(allocSglChain(&chain, 65, 77, "the test", 1), "[UMM_CMM] nexSglPtr is NULL.");
}

TEST(SglAllocChain, the_two_lines_have_limiters_of_their_own)
{
    make_pool(1);
    SGL *chain = nullptr;
    EXPECT_LIMITED(allocSglChain(&chain, 65, 77, "the test", 1), "[UMM_CMM] nexSglPtr is NULL.");
    fake_fail(OP_zymm_slab_malloc, 1);

    allocSglChain(&chain, 65, 77, "the test", 1);

    EXPECT_EQ(fake_log_count("[UMM_CMM] sglPtr is NULL."), 1u);
}

TEST(SglAllocChain, a_chain_is_all_or_nothing_at_every_refusal_of_the_slab)
{
    make_pool(8);
    for_each_fault(OP_zymm_slab_malloc, [](const fault &f) {
        SGL  some  = {};
        SGL *chain = &some;
        allocSglChain(&chain, 257, 77, "the test", 1);
        if (f.hit) {
            EXPECT_EQ(chain, nullptr);
        } else {
            EXPECT_EQ(f.nth, 6u);
            EXPECT_EQ(sgls_of(chain), 5u);
            freeSglChain(chain, 77, "the test", 2);
        }
        EXPECT_EQ(fake_objects_out(), 0u);
    });
}

/* -------------------------------------------------------------------------- release */

TEST(SglFreeChain, a_null_chain_frees_nothing_and_names_its_owners_function)
{
    make_pool(4);

    freeSglChain(nullptr, 77, "the test", 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeSglChain",
                     "[UMM_CMM] Owner_func(the test), sglChain is NULL.");
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST(SglFreeChain, the_line_of_a_null_chain_is_not_limited)
{
    EXPECT_NOT_LIMITED(freeSglChain(nullptr, 77, "the test", 1),
                       "[UMM_CMM] Owner_func(the test), sglChain is NULL.");
}

TEST(SglFreeChain, a_null_function_is_written_as_null)
{
    freeSglChain(nullptr, 77, nullptr, 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeSglChain",
                     "[UMM_CMM] Owner_func((null)), sglChain is NULL.");
}

TEST(SglFreeChain, every_sgl_goes_back_front_to_back_in_the_callers_name)
{
    make_pool(4);
    SGL *chain = nullptr;
    allocSglChain(&chain, 65, 77, "the test", 1);
    const uint64_t first  = reinterpret_cast<uint64_t>(chain);
    const uint64_t second = reinterpret_cast<uint64_t>(chain->nextSgl);

    freeSglChain(chain, 78, "the free", 2);

    const std::vector<fake_call> freed = fake_calls(OP_zymm_slab_free);
    ASSERT_EQ(freed.size(), 2u);
    EXPECT_EQ(freed[0].args[0].number, g_sgl_partition_id);
    EXPECT_EQ(freed[0].args[1].number, first);
    EXPECT_EQ(freed[0].args[2].number, 78u);
    EXPECT_EQ(freed[0].args[3].text, "the free");
    EXPECT_EQ(freed[1].args[1].number, second);
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_NO_LINE();
}

TEST(SglFreeChain, the_links_count_and_not_the_counts)
{
    make_pool(4);
    SGL *chain = nullptr;
    allocSglChain(&chain, 129, 77, "the test", 1);
    chain->entrySumInChain = 1;
    chain->entryNum        = 1;

    freeSglChain(chain, 77, "the test", 2);

    EXPECT_EQ(fake_count(OP_zymm_slab_free), 3u);
}

TEST(SglFreeChain, the_successor_is_read_before_the_sgl_goes_back)
{
    make_pool(4);
    SGL *chain = nullptr;
    allocSglChain(&chain, 65, 77, "the test", 1);
    fake_hook(OP_zymm_slab_free, 1, [chain] { chain->nextSgl = nullptr; });

    freeSglChain(chain, 77, "the test", 2);

    EXPECT_EQ(fake_objects_out(), 0u);
}

TEST(SglFreeChain, the_rest_of_a_chain_can_be_freed_by_itself)
{
    make_pool(4);
    SGL *chain = nullptr;
    allocSglChain(&chain, 129, 77, "the test", 1);

    freeSglChain(chain->nextSgl, 77, "the test", 2);

    EXPECT_EQ(fake_objects_out(), 1u);
    chain->nextSgl = nullptr;
    freeSglChain(chain, 77, "the test", 3);
}

/* -------------------------------------------------------------------------- writer's step */

TEST(SglWriterStep, an_entry_is_counted_in_its_sgl_and_in_the_head)
{
    SGL      head   = {};
    SGL      second = {};
    SGL     *cur    = &second;
    uint32_t index  = 0;
    head.nextSgl    = &second;

    move2NextEntryAndIncEntrySum(&cur, &index, &head);

    EXPECT_EQ(second.entryNum, 1u);
    EXPECT_EQ(second.entrySumInChain, 0u);
    EXPECT_EQ(head.entryNum, 0u);
    EXPECT_EQ(head.entrySumInChain, 1u);
    EXPECT_EQ(cur, &second);
    EXPECT_EQ(index, 1u);
}

TEST(SglWriterStep, index_62_moves_to_the_last_entry)
{
    SGL      head  = {};
    SGL     *cur   = &head;
    uint32_t index = 62;

    move2NextEntryAndIncEntrySum(&cur, &index, &head);

    EXPECT_EQ(cur, &head);
    EXPECT_EQ(index, 63u);
}

TEST(SglWriterStep, index_63_moves_to_the_next_sgl_however_few_entries_are_used)
{
    SGL      head   = {};
    SGL      second = {};
    SGL     *cur    = &head;
    uint32_t index  = 63;
    head.nextSgl    = &second;
    head.entryNum   = 5;

    move2NextEntryAndIncEntrySum(&cur, &index, &head);

    EXPECT_EQ(cur, &second);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(head.entryNum, 6u);
}

TEST(SglWriterStep, a_full_chain_ends_in_null)
{
    SGL      head  = {};
    SGL     *cur   = &head;
    uint32_t index = 63;

    move2NextEntryAndIncEntrySum(&cur, &index, &head);

    EXPECT_EQ(cur, nullptr);
    EXPECT_EQ(index, 0u);
}

TEST(SglWriterStep, it_stays_in_an_sgl_past_its_used_entries)
{
    SGL      head  = {};
    SGL     *cur   = &head;
    uint32_t index = 10;
    head.entryNum  = 2;

    move2NextEntryAndIncEntrySum(&cur, &index, &head);

    EXPECT_EQ(cur, &head);
    EXPECT_EQ(index, 11u);
    EXPECT_EQ(head.entryNum, 3u);
}

TEST(SglWriterStep, a_chain_for_130_entries_is_filled_64_64_2)
{
    make_pool(4);
    SGL *chain = nullptr;
    allocSglChain(&chain, 130, 77, "the test", 1);
    SGL     *cur   = chain;
    uint32_t index = 0;

    for (int i = 0; i < 130; ++i)
        move2NextEntryAndIncEntrySum(&cur, &index, chain);

    EXPECT_EQ(chain->entrySumInChain, 130u);
    EXPECT_EQ(chain->entryNum, 64u);
    EXPECT_EQ(chain->nextSgl->entryNum, 64u);
    EXPECT_EQ(chain->nextSgl->nextSgl->entryNum, 2u);
    EXPECT_EQ(cur, chain->nextSgl->nextSgl);
    EXPECT_EQ(index, 2u);
    freeSglChain(chain, 77, "the test", 2);
}

/* -------------------------------------------------------------------------- reader's step */

/* A step from `index` in the first of two SGLs that use `used` and `used_in_next` entries. */
struct step_result {
    bool     in_first, in_second;
    uint32_t index;
};

static step_result read_step(uint16_t used, uint32_t index, uint16_t used_in_next)
{
    SGL  first      = {};
    SGL  second     = {};
    SGL *cur        = &first;
    first.nextSgl   = &second;
    first.entryNum  = used;
    second.entryNum = used_in_next;
    move2NextEntryAndModifyPSgl(&cur, &index);
    return {cur == &first, cur == &second, index};
}

TEST(SglReaderStep, a_used_entry_moves_to_the_one_behind_it)
{
    const step_result at = read_step(3, 1, 1);

    EXPECT_TRUE(at.in_first);
    EXPECT_EQ(at.index, 2u);
}

TEST(SglReaderStep, the_last_used_entry_moves_to_the_next_sgl_although_there_is_room_left)
{
    const step_result at = read_step(3, 2, 1);

    EXPECT_TRUE(at.in_second);
    EXPECT_EQ(at.index, 0u);
}

TEST(SglReaderStep, the_last_entry_of_a_full_sgl_moves_to_the_next)
{
    const step_result at = read_step(64, 63, 1);

    EXPECT_TRUE(at.in_second);
    EXPECT_EQ(at.index, 0u);
}

TEST(SglReaderStep, a_next_sgl_without_entries_is_not_passed_over)
{
    const step_result at = read_step(1, 0, 0);

    EXPECT_TRUE(at.in_second);
    EXPECT_EQ(at.index, 0u);
}

TEST(SglReaderStep, an_sgl_without_entries_is_left_at_once)
{
    const step_result at = read_step(0, 0, 1);

    EXPECT_TRUE(at.in_second);
    EXPECT_EQ(at.index, 0u);
}

TEST(SglReaderStep, only_16_bits_of_the_next_index_are_compared)
{
    const step_result at = read_step(3, 65535, 1);

    EXPECT_TRUE(at.in_first);
    EXPECT_EQ(at.index, 65536u);
}

TEST(SglReaderStep, the_last_used_entry_of_a_chain_moves_to_null_and_0)
{
    SGL      only  = {};
    SGL     *cur   = &only;
    uint32_t index = 4;
    only.entryNum  = 5;

    move2NextEntryAndModifyPSgl(&cur, &index);

    EXPECT_EQ(cur, nullptr);
    EXPECT_EQ(index, 0u);
}

TEST(SglReaderStep, nothing_is_counted)
{
    test_chain chain = chain_of({{8}, {8}});
    SGL       *cur   = chain.head();
    uint32_t   index = 0;

    move2NextEntryAndModifyPSgl(&cur, &index);

    EXPECT_EQ(chain.head()->entrySumInChain, 2u);
    EXPECT_EQ(chain.head()->entryNum, 1u);
    EXPECT_EQ(chain.sgl(1)->entryNum, 1u);
}

/* -------------------------------------------------------------------------- dump */

static std::string dump_line(const test_chain &chain, size_t sgl, uint32_t index)
{
    const SGL_ENTRY *entry = chain.entry(sgl, index);
    return text_of("[UMM_CMM] SGL entry detail info : buffer (%p), page contral (%p), "
                   "len (%u), current index (%u).",
                   static_cast<void *>(entry->buf), static_cast<void *>(entry->pageCtrl),
                   entry->len, index);
}

TEST(SglDump, a_null_chain_is_passed_over_in_silence)
{
    cpmm_print_sgl_detail(nullptr);

    EXPECT_NO_LINE();
}

TEST(SglDump, a_chain_that_counts_no_entries_logs_nothing)
{
    test_chain chain = chain_of({{8320}});
    chain.head()->entrySumInChain = 0;

    cpmm_print_sgl_detail(chain.head());

    EXPECT_NO_LINE();
}

TEST(SglDump, an_entry_is_described_with_its_page_and_its_index)
{
    page_ctrl  ctrl = {};
    test_chain chain = chain_of({{8320}});
    chain.entry(0, 0)->pageCtrl = &ctrl;

    cpmm_print_sgl_detail(chain.head());

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cpmm_print_sgl_detail", dump_line(chain, 0, 0));
}

TEST(SglDump, indices_start_again_in_each_sgl)
{
    test_chain chain = chain_of({{8320, 520}, {1040}});

    cpmm_print_sgl_detail(chain.head());

    const std::vector<std::string> lines = {dump_line(chain, 0, 0), dump_line(chain, 0, 1),
                                            dump_line(chain, 1, 0)};
    EXPECT_EQ(fake_log_texts(), lines);
}

TEST(SglDump, a_long_chain_is_dumped_in_part_only)
{
    test_chain chain = page_chain({64, 64});

    cpmm_print_sgl_detail(chain.head());

    EXPECT_EQ(fake_log().size(), 3u);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "cpmm_print_sgl_detail", dump_line(chain, 0, 2));
}

TEST(SglDump, all_its_lines_share_one_limiter)
{
    test_chain chain = chain_of({{8320}});
    EXPECT_LIMITED(cpmm_print_sgl_detail(chain.head()), dump_line(chain, 0, 0));
}

TEST(SglDump, sgls_without_entries_are_passed_over_also_a_first_one)
{
    test_chain chain = chain_of({{}, {520}, {}, {}, {1040}});

    cpmm_print_sgl_detail(chain.head());

    const std::vector<std::string> lines = {dump_line(chain, 1, 0), dump_line(chain, 4, 0)};
    EXPECT_EQ(fake_log_texts(), lines);
}

TEST(SglDump, a_chain_shorter_than_its_count_ends_quietly)
{
    test_chain chain = chain_of({{520}, {}});
    chain.head()->entrySumInChain = 9;

    cpmm_print_sgl_detail(chain.head());

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cpmm_print_sgl_detail", dump_line(chain, 0, 0));
}

TEST(SglDump, no_more_entries_are_dumped_than_the_head_counts)
{
    test_chain chain = chain_of({{520, 1040}});
    chain.head()->entrySumInChain = 1;

    cpmm_print_sgl_detail(chain.head());

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cpmm_print_sgl_detail", dump_line(chain, 0, 0));
}

TEST(SglDump, a_disabled_level_writes_nothing)
{
    test_chain chain = chain_of({{8320}});
    fake_set_log_level(ZYLOG_FATAL);

    cpmm_print_sgl_detail(chain.head());

    EXPECT_NO_LINE();
}
