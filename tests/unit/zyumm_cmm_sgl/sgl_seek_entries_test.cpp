/*
 * Finding entries in a chain: the last one, the one some entries further on, and how many of them a
 * byte range touches.
 */
#include <gtest/gtest.h>

#include <climits>

#include "expect_log.h"

#include "chain_builder.h"

/* ------------------------------------------------------------------- last used entry */

struct last_entry {
    SGL     *sgl   = reinterpret_cast<SGL *>(0x5a);
    uint32_t index = 0x5a;
};

static last_entry last_of(const test_chain &chain)
{
    last_entry last;
    getLastSgl(chain.head(), &last.sgl, &last.index);
    return last;
}

#define EXPECT_LAST(last_of_, sgl_, index_)                \
    do {                                                   \
        const last_entry last_entry_ = last_of_;           \
        EXPECT_EQ(last_entry_.sgl, sgl_);                  \
        EXPECT_EQ(last_entry_.index, uint32_t(index_));    \
    } while (0)

TEST(SglLast, a_null_out_sgl_is_refused_first_and_the_index_left_alone)
{
    uint32_t index = 7;

    getLastSgl(nullptr, nullptr, &index);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getLastSgl", "[UMM_CMM] Input sglPtr is NULL");
    EXPECT_EQ(index, 7u);
}

TEST(SglLast, a_null_out_index_is_refused_second_with_the_sgl_cleared)
{
    SGL  some = {};
    SGL *last = &some;

    getLastSgl(nullptr, &last, nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getLastSgl", "[UMM_CMM] Input entryIndex is NULL");
    EXPECT_EQ(last, nullptr);
}

TEST(SglLast, a_null_head_is_refused_third_with_both_cleared)
{
    SGL      some  = {};
    SGL     *last  = &some;
    uint32_t index = 7;

    getLastSgl(nullptr, &last, &index);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getLastSgl", "[UMM_CMM] Input sglHead is NULL");
    EXPECT_EQ(last, nullptr);
    EXPECT_EQ(index, 0u);
}

TEST(SglLast, a_head_that_counts_no_entries_has_no_last_one)
{
    const test_chain chain = chain_of({{}, {}});

    EXPECT_LAST(last_of(chain), nullptr, 0);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getLastSgl", "[UMM_CMM] Entry sum inchain is 0.");
}

TEST(SglLast, the_line_of_a_null_out_sgl_is_not_limited)
{
    EXPECT_NOT_LIMITED(getLastSgl(nullptr, nullptr, nullptr), "[UMM_CMM] Input sglPtr is NULL");
}

TEST(SglLast, the_line_of_a_null_out_index_is_not_limited)
{
    SGL *last = nullptr;
    EXPECT_NOT_LIMITED(getLastSgl(nullptr, &last, nullptr),
                       "[UMM_CMM] Input entryIndex is NULL");
}

TEST(SglLast, the_line_of_a_null_head_is_not_limited)
{
    SGL     *last  = nullptr;
    uint32_t index = 0;
    EXPECT_NOT_LIMITED(getLastSgl(nullptr, &last, &index), "[UMM_CMM] Input sglHead is NULL");
}

TEST(SglLast, the_line_of_an_empty_head_is_not_limited)
{
    const test_chain chain = chain_of({{}});
    EXPECT_NOT_LIMITED(last_of(chain), "[UMM_CMM] Entry sum inchain is 0.");
}

TEST(SglLast, the_65th_entry_is_the_second_sgls_first)
{
    const test_chain chain = page_chain({64, 1});

    EXPECT_LAST(last_of(chain), chain.sgl(1), 0);
    EXPECT_NO_LINE();
}

TEST(SglLast, the_only_entry_is_the_last)
{
    const test_chain chain = page_chain({1});

    EXPECT_LAST(last_of(chain), chain.head(), 0);
}

TEST(SglLast, a_full_sgl_ends_at_index_63)
{
    const test_chain chain = page_chain({64});

    EXPECT_LAST(last_of(chain), chain.head(), 63);
}

TEST(SglLast, gaps_are_passed_over)
{
    const test_chain chain = page_chain({0, 3, 0, 0, 5});

    EXPECT_LAST(last_of(chain), chain.sgl(4), 4);
}

TEST(SglLast, sgls_without_entries_behind_the_last_one_do_not_matter)
{
    const test_chain chain = page_chain({3, 0, 0});

    EXPECT_LAST(last_of(chain), chain.head(), 2);
}

TEST(SglLast, more_entries_in_the_last_sgl_than_are_left_are_a_disagreement)
{
    const test_chain chain = page_chain({64, 2});
    chain.head()->entrySumInChain = 65;

    EXPECT_LAST(last_of(chain), nullptr, 0);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getLastSgl", "[UMM_CMM] Entry sum expect 1 but 2");
}

TEST(SglLast, the_line_of_a_disagreement_is_not_limited)
{
    const test_chain chain = page_chain({64, 2});
    chain.head()->entrySumInChain = 65;

    EXPECT_NOT_LIMITED(last_of(chain), "[UMM_CMM] Entry sum expect 1 but 2");
}

TEST(SglLast, a_chain_that_ends_early_names_its_last_sgl)
{
    const test_chain chain = page_chain({64, 2});
    chain.head()->entrySumInChain = 67;

    EXPECT_LAST(last_of(chain), nullptr, 0);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getLastSgl",
                     text_of("[UMM_CMM] NextSgl of %p is NULL",
                             static_cast<void *>(chain.sgl(1))));
}

TEST(SglLast, the_line_of_a_chain_that_ends_early_is_not_limited)
{
    const test_chain chain = page_chain({2});
    chain.head()->entrySumInChain = 3;

    EXPECT_NOT_LIMITED(last_of(chain), text_of("[UMM_CMM] NextSgl of %p is NULL",
                                               static_cast<void *>(chain.head())));
}

/* ------------------------------------------------------------------- moving by entries */

struct place {
    SGL     *sgl;
    uint32_t index;
};

static place moved(SGL *sgl, uint32_t index, int32_t count)
{
    sglAndEntryOffsetPages(&sgl, &index, count);
    return {sgl, index};
}

#define EXPECT_PLACE(place_, sgl_, index_)                 \
    do {                                                   \
        const place at_ = place_;                          \
        EXPECT_EQ(at_.sgl, sgl_);                          \
        EXPECT_EQ(at_.index, uint32_t(index_));            \
        EXPECT_NO_LINE();                                  \
    } while (0)

TEST(SglMove, a_null_sgl_pointer_is_refused)
{
    uint32_t index = 7;

    sglAndEntryOffsetPages(nullptr, &index, 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "sglAndEntryOffsetPages", "[UMM_CMM] Input sglPtr is NULL");
    EXPECT_EQ(index, 7u);
}

TEST(SglMove, a_null_sgl_is_refused_with_the_pointers_address)
{
    SGL     *sgl   = nullptr;
    uint32_t index = 7;

    sglAndEntryOffsetPages(&sgl, &index, 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "sglAndEntryOffsetPages",
                     text_of("[UMM_CMM] Input sgl is NULL. sglPtr(%p)",
                             static_cast<void *>(&sgl)));
    EXPECT_EQ(index, 7u);
}

TEST(SglMove, a_null_index_loses_the_callers_sgl_is_kept)
{
    const test_chain chain = page_chain({64});
    SGL             *sgl   = chain.head();

    sglAndEntryOffsetPages(&sgl, nullptr, 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "sglAndEntryOffsetPages",
                     "[UMM_CMM] Input entryIndex is NULL");
    EXPECT_EQ(sgl, nullptr);
}

TEST(SglMove, a_null_sgl_is_found_before_a_null_index)
{
    SGL *sgl = nullptr;

    sglAndEntryOffsetPages(&sgl, nullptr, 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "sglAndEntryOffsetPages",
                     text_of("[UMM_CMM] Input sgl is NULL. sglPtr(%p)",
                             static_cast<void *>(&sgl)));
}

TEST(SglMove, the_line_of_a_null_sgl_pointer_is_not_limited)
{
    uint32_t index = 0;
    EXPECT_NOT_LIMITED(sglAndEntryOffsetPages(nullptr, &index, 1),
                       "[UMM_CMM] Input sglPtr is NULL");
}

TEST(SglMove, the_line_of_a_null_sgl_is_not_limited)
{
    SGL     *sgl   = nullptr;
    uint32_t index = 0;
    EXPECT_NOT_LIMITED(sglAndEntryOffsetPages(&sgl, &index, 1),
                       text_of("[UMM_CMM] Input sgl is NULL. sglPtr(%p)",
                               static_cast<void *>(&sgl)));
}

TEST(SglMove, the_line_of_a_null_index_is_not_limited)
{
    SGL  some = {};
    SGL *sgl  = nullptr;
    EXPECT_NOT_LIMITED((sgl = &some, sglAndEntryOffsetPages(&sgl, nullptr, 1)),
                       "[UMM_CMM] Input entryIndex is NULL");
}

TEST(SglMove, a_count_of_0_leaves_the_position)
{
    const test_chain chain = page_chain({64});
    EXPECT_PLACE(moved(chain.head(), 5, 0), chain.head(), 5);
}

TEST(SglMove, a_negative_count_leaves_the_position)
{
    const test_chain chain = page_chain({64});
    EXPECT_PLACE(moved(chain.head(), 5, -3), chain.head(), 5);
}

TEST(SglMove, the_lowest_count_leaves_the_position)
{
    const test_chain chain = page_chain({64});
    EXPECT_PLACE(moved(chain.head(), 5, INT_MIN), chain.head(), 5);
}

TEST(SglMove, a_count_of_0_leaves_even_a_position_behind_the_used_entries)
{
    const test_chain chain = page_chain({3});
    EXPECT_PLACE(moved(chain.head(), 40, 0), chain.head(), 40);
}

TEST(SglMove, within_an_sgl_the_index_grows)
{
    const test_chain chain = page_chain({64});
    EXPECT_PLACE(moved(chain.head(), 5, 58), chain.head(), 63);
}

TEST(SglMove, a_full_sgl_further_on_is_the_next_ones_first_entry)
{
    const test_chain chain = page_chain({64, 64});
    EXPECT_PLACE(moved(chain.head(), 0, 64), chain.sgl(1), 0);
}

TEST(SglMove, several_sgls_are_crossed)
{
    const test_chain chain = page_chain({64, 64, 64});
    EXPECT_PLACE(moved(chain.head(), 10, 130), chain.sgl(2), 12);
}

TEST(SglMove, only_used_entries_count)
{
    const test_chain chain = page_chain({3, 0, 2, 5});
    EXPECT_PLACE(moved(chain.head(), 1, 5), chain.sgl(3), 1);
}

TEST(SglMove, the_last_used_entry_can_be_reached)
{
    const test_chain chain = page_chain({64, 3});
    EXPECT_PLACE(moved(chain.head(), 0, 66), chain.sgl(1), 2);
}

TEST(SglMove, behind_the_last_used_entry_there_is_null_and_0)
{
    const test_chain chain = page_chain({64, 3});
    EXPECT_PLACE(moved(chain.head(), 0, 67), nullptr, 0);
}

TEST(SglMove, an_index_behind_the_used_entries_counts_on_from_there)
{
    const test_chain chain = page_chain({3, 10});
    EXPECT_PLACE(moved(chain.head(), 5, 2), chain.sgl(1), 4);
}

TEST(SglMove, the_index_is_taken_as_signed)
{
    const test_chain chain = page_chain({64});
    EXPECT_PLACE(moved(chain.head(), 0xFFFFFFFF, 1), chain.head(), 0);
}

TEST(SglMove, the_highest_count_ends_behind_the_chain)
{
    const test_chain chain = page_chain({64, 64});
    EXPECT_PLACE(moved(chain.head(), 63, INT_MAX), nullptr, 0);
}

TEST(SglMove, the_highest_index_and_count_do_not_overflow)
{
    const test_chain chain = page_chain({64, 64});
    EXPECT_PLACE(moved(chain.head(), INT_MAX, INT_MAX), nullptr, 0);
}

/* ------------------------------------------------------------------- entries of a range */

static std::string range_text(const test_chain &chain, uint32_t entries, uint32_t offset,
                              uint32_t length)
{
    return text_of("[UMM_CMM] Param error, sgl %p total entry num %u param offset %u "
                   "param length %u.",
                   static_cast<void *>(chain.head()), entries, offset, length);
}

TEST(SglCount, offset_0_and_length_0_ask_for_the_whole_chain)
{
    const test_chain chain = page_chain({64, 3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 0), 67u);
    EXPECT_NO_LINE();
}

TEST(SglCount, the_whole_chain_is_what_the_head_says)
{
    const test_chain chain = page_chain({3});
    chain.head()->entrySumInChain = 500;

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 0), 500u);
}

TEST(SglCount, a_32_bit_sum_of_0_asks_for_the_whole_chain_too_is_kept)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 10, 0xFFFFFFF6), 3u);
}

TEST(SglCount, a_null_chain_has_no_entries_without_a_line)
{
    EXPECT_EQ(getValidSglPageNum(nullptr, 0, 0), 0u);

    EXPECT_NO_LINE();
}

TEST(SglCount, a_range_in_a_null_chain_fails_in_the_lookup)
{
    EXPECT_EQ(getValidSglPageNum(nullptr, 0, 1), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset", "[UMM_CMM] input sgl is NULL");
}

TEST(SglCount, an_offset_beyond_the_chain_fails_in_the_lookup)
{
    const test_chain chain = page_chain({1});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 8320, 1), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset",
                     text_of("[UMM_CMM] Param error, sgl %p total entry num 1 offset 8320.",
                             static_cast<void *>(chain.head())));
}

TEST(SglCount, one_byte_touches_one_entry)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 1), 1u);
    EXPECT_EQ(getValidSglPageNum(chain.head(), 8319, 1), 1u);
}

TEST(SglCount, no_bytes_inside_an_entry_count_that_entry)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 10, 0), 1u);
}

TEST(SglCount, no_bytes_on_an_entrys_first_byte_count_none)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 8320, 0), 0u);
    EXPECT_NO_LINE();
}

TEST(SglCount, a_range_across_a_boundary_touches_both)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 8000, 400), 2u);
}

TEST(SglCount, a_range_that_ends_with_an_entry_does_not_touch_the_next)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 8000, 320), 1u);
}

TEST(SglCount, the_whole_length_touches_every_entry)
{
    const test_chain chain = page_chain({64, 3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 8320 * 67), 67u);
    EXPECT_NO_LINE();
}

TEST(SglCount, a_range_goes_on_in_the_next_sgl)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 8320 * 63, 8321), 2u);
}

TEST(SglCount, a_range_one_byte_too_long_counts_none)
{
    const test_chain chain = page_chain({64, 3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 8320 * 67 + 1), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getValidSglPageNum", range_text(chain, 67, 0, 557441));
}

TEST(SglCount, the_line_of_a_range_beyond_the_chain_is_limited)
{
    const test_chain chain = page_chain({1});

    EXPECT_LIMITED(getValidSglPageNum(chain.head(), 100, 8320), range_text(chain, 1, 100, 8320));
}

TEST(SglCount, sgls_without_entries_are_passed_over_however_many_follow_each_other)
{
    const test_chain chain = page_chain({0, 0, 1, 0, 0, 1, 0});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 8321), 2u);
    EXPECT_NO_LINE();
}

TEST(SglCount, a_range_beyond_a_chain_that_ends_in_sgls_without_entries_counts_none)
{
    const test_chain chain = page_chain({1, 0, 0});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 8321), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getValidSglPageNum", range_text(chain, 1, 0, 8321));
}

TEST(SglCount, a_range_in_a_chain_without_entries_counts_none)
{
    const test_chain chain = page_chain({0, 0});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 1), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getValidSglPageNum", range_text(chain, 0, 0, 1));
}

TEST(SglCount, a_length_that_is_negative_as_a_signed_number_counts_none_without_a_line)
{
    const test_chain chain = page_chain({3});

    EXPECT_EQ(getValidSglPageNum(chain.head(), 10, 0x80000000), 0u);

    EXPECT_NO_LINE();
}
