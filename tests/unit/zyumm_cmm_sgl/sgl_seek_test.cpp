/*
 * Finding a byte in a chain: the offset lookups in both measures. Finding entries is tested in
 * sgl_seek_entries_test.cpp.
 */
#include <gtest/gtest.h>

#include "expect_log.h"

#include "chain_builder.h"

/* What a lookup answered; what it did not write stays at these values. */
struct found {
    int32_t  status = 1;
    SGL     *sgl    = reinterpret_cast<SGL *>(0x5a);
    uint32_t index  = 0x5a;
    uint32_t offset = 0x5a;
};

static found find(const test_chain &chain, uint32_t offset)
{
    found at;
    at.status = getCurrentSglByOffset(chain.head(), offset, &at.sgl, &at.index, &at.offset);
    return at;
}

static found find_data(const test_chain &chain, uint32_t offset)
{
    found at;
    at.status =
        getCurrentSglByOffsetIgnoreDif(chain.head(), offset, &at.sgl, &at.index, &at.offset);
    return at;
}

#define EXPECT_FOUND(at_, sgl_, index_, offset_)           \
    do {                                                   \
        const found found_ = at_;                          \
        EXPECT_EQ(found_.status, 0);                       \
        EXPECT_EQ(found_.sgl, sgl_);                       \
        EXPECT_EQ(found_.index, uint32_t(index_));         \
        EXPECT_EQ(found_.offset, uint32_t(offset_));       \
        EXPECT_NO_LINE();                                  \
    } while (0)

/* Not found, and nothing written. */
#define EXPECT_NOT_FOUND(at_)                              \
    do {                                                   \
        const found found_ = at_;                          \
        EXPECT_EQ(found_.status, -1);                      \
        EXPECT_EQ(found_.sgl, reinterpret_cast<SGL *>(0x5a)); \
        EXPECT_EQ(found_.index, 0x5au);                    \
        EXPECT_EQ(found_.offset, 0x5au);                   \
    } while (0)

static std::string beyond_text(const char *param, const test_chain &chain, uint32_t entries,
                               uint32_t offset)
{
    return text_of("[UMM_CMM] %s error, sgl %p total entry num %u offset %u.", param,
                   static_cast<void *>(chain.head()), entries, offset);
}

/* ------------------------------------------------------------- full measure: arguments */

TEST(SglLookup, a_null_sgl_is_refused_before_any_other_argument)
{
    EXPECT_EQ(getCurrentSglByOffset(nullptr, 0, nullptr, nullptr, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset", "[UMM_CMM] input sgl is NULL");
}

TEST(SglLookup, a_null_out_sgl_is_refused_second)
{
    SGL sgl = {};

    EXPECT_EQ(getCurrentSglByOffset(&sgl, 0, nullptr, nullptr, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset", "[UMM_CMM] output SGL is NULL");
}

TEST(SglLookup, a_null_out_index_is_refused_third)
{
    SGL  sgl = {};
    SGL *cur = nullptr;

    EXPECT_EQ(getCurrentSglByOffset(&sgl, 0, &cur, nullptr, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset", "[UMM_CMM] output entry is NULL");
    EXPECT_EQ(cur, nullptr);
}

TEST(SglLookup, a_null_out_offset_is_refused_last)
{
    SGL      sgl   = {};
    SGL     *cur   = nullptr;
    uint32_t index = 7;

    EXPECT_EQ(getCurrentSglByOffset(&sgl, 0, &cur, &index, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset", "[UMM_CMM] output offset is NULL");
    EXPECT_EQ(cur, nullptr);
    EXPECT_EQ(index, 7u);
}

TEST(SglLookup, the_line_of_a_null_sgl_is_limited)
{
    EXPECT_LIMITED(getCurrentSglByOffset(nullptr, 0, nullptr, nullptr, nullptr),
                   "[UMM_CMM] input sgl is NULL");
}

TEST(SglLookup, the_line_of_a_null_out_sgl_is_limited)
{
    SGL sgl = {};
    EXPECT_LIMITED(getCurrentSglByOffset(&sgl, 0, nullptr, nullptr, nullptr),
                   "[UMM_CMM] output SGL is NULL");
}

TEST(SglLookup, the_line_of_a_null_out_index_is_limited)
{
    SGL  sgl = {};
    SGL *cur = nullptr;
    EXPECT_LIMITED(getCurrentSglByOffset(&sgl, 0, &cur, nullptr, nullptr),
                   "[UMM_CMM] output entry is NULL");
}

TEST(SglLookup, the_line_of_a_null_out_offset_is_limited)
{
    SGL      sgl   = {};
    SGL     *cur   = nullptr;
    uint32_t index = 0;
    EXPECT_LIMITED(getCurrentSglByOffset(&sgl, 0, &cur, &index, nullptr),
                   "[UMM_CMM] output offset is NULL");
}

/* ------------------------------------------------------------- full measure: places */

TEST(SglLookup, offset_0_is_the_first_entry)
{
    const test_chain chain = page_chain({64});

    EXPECT_FOUND(find(chain, 0), chain.head(), 0, 0);
}

TEST(SglLookup, offset_0_is_the_given_sgl_even_when_it_has_no_entries)
{
    const test_chain chain = chain_of({{}, {8320}});

    EXPECT_FOUND(find(chain, 0), chain.head(), 0, 0);
}

TEST(SglLookup, offset_0_of_a_chain_without_entries_is_found)
{
    const test_chain chain = chain_of({{}});

    EXPECT_FOUND(find(chain, 0), chain.head(), 0, 0);
}

TEST(SglLookup, the_second_byte_is_in_the_first_entry)
{
    const test_chain chain = page_chain({64});

    EXPECT_FOUND(find(chain, 1), chain.head(), 0, 1);
}

TEST(SglLookup, the_last_byte_of_a_page_is_in_it)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find(chain, 8319), chain.head(), 0, 8319);
}

TEST(SglLookup, the_boundary_of_two_entries_is_the_later_ones_first_byte)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find(chain, 8320), chain.head(), 1, 0);
}

TEST(SglLookup, the_boundary_of_two_full_sgls_is_the_second_ones_first_byte)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find(chain, 8320 * 64), chain.sgl(1), 0, 0);
}

TEST(SglLookup, the_byte_before_the_boundary_of_two_sgls_is_the_first_ones_last)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find(chain, 8320 * 64 - 1), chain.head(), 63, 8319);
}

TEST(SglLookup, the_end_of_an_sgl_with_room_left_leads_to_the_next)
{
    const test_chain chain = page_chain({3, 64});

    EXPECT_FOUND(find(chain, 8320 * 3), chain.sgl(1), 0, 0);
}

TEST(SglLookup, the_last_byte_of_the_chain_is_found)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find(chain, 8320 * 128 - 1), chain.sgl(1), 63, 8319);
}

TEST(SglLookup, the_total_length_lies_beyond_the_chain)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_NOT_FOUND(find(chain, 8320 * 128));

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset",
                     beyond_text("Param", chain, 128, 1064960));
}

TEST(SglLookup, one_byte_more_than_the_total_length_lies_beyond_the_chain)
{
    const test_chain chain = chain_of({{100}});

    EXPECT_NOT_FOUND(find(chain, 101));
}

TEST(SglLookup, the_highest_offset_inside_the_domain_lies_beyond_a_short_chain)
{
    const test_chain chain = chain_of({{100}});

    EXPECT_NOT_FOUND(find(chain, 0x7fffffff));

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset",
                     beyond_text("Param", chain, 1, 2147483647));
}

TEST(SglLookup, the_line_of_an_offset_beyond_the_chain_is_limited)
{
    const test_chain chain = chain_of({{100}});

    EXPECT_LIMITED(find(chain, 100), beyond_text("Param", chain, 1, 100));
}

TEST(SglLookup, an_offset_beyond_the_chain_is_not_followed_by_a_dump)
{
    const test_chain chain = chain_of({{100}});

    find(chain, 100);

    EXPECT_EQ(fake_log_from("cpmm_print_sgl_detail").size(), 0u);
}

TEST(SglLookup, any_offset_above_0_passes_over_a_first_sgl_without_entries)
{
    const test_chain chain = chain_of({{}, {8320}});

    EXPECT_FOUND(find(chain, 1), chain.sgl(1), 0, 1);
}

TEST(SglLookup, sgls_without_entries_are_passed_over_however_many_follow_each_other)
{
    const test_chain chain = chain_of({{100}, {}, {}, {}, {100}});

    EXPECT_FOUND(find(chain, 150), chain.sgl(4), 0, 50);
}

TEST(SglLookup, a_boundary_before_sgls_without_entries_is_the_next_used_entry)
{
    const test_chain chain = chain_of({{100}, {}, {}, {100}});

    EXPECT_FOUND(find(chain, 100), chain.sgl(3), 0, 0);
}

TEST(SglLookup, the_total_length_lies_beyond_a_chain_that_ends_in_sgls_without_entries)
{
    const test_chain chain = chain_of({{100}, {}, {}});

    EXPECT_NOT_FOUND(find(chain, 100));
}

TEST(SglLookup, a_chain_without_entries_has_no_byte_1)
{
    const test_chain chain = chain_of({{}, {}});

    EXPECT_NOT_FOUND(find(chain, 1));

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffset", beyond_text("Param", chain, 0, 1));
}

TEST(SglLookup, an_entry_of_no_bytes_holds_the_boundary_in_front_of_it)
{
    const test_chain chain = chain_of({{100, 0, 100}});

    EXPECT_FOUND(find(chain, 100), chain.head(), 1, 0);
}

TEST(SglLookup, an_entry_of_no_bytes_is_passed_over_behind_its_boundary)
{
    const test_chain chain = chain_of({{100, 0, 100}});

    EXPECT_FOUND(find(chain, 101), chain.head(), 2, 1);
}

/* The walk compares a signed remainder, so a single entry of 2 GiB or more holds every offset. */
TEST(SglLookup, an_entry_of_2_gib_holds_an_offset_as_a_shorter_one_does)
{
    SGL sgl            = {};
    sgl.entryNum       = 1;
    sgl.entries[0].len = 0x80000000;
    found at;

    at.status = getCurrentSglByOffset(&sgl, 0x7fffffff, &at.sgl, &at.index, &at.offset);

    EXPECT_FOUND(at, &sgl, 0, 0x7fffffff);
}

/* ------------------------------------------------------------- data measure: arguments */

TEST(SglLookupData, a_null_sgl_is_refused_before_any_other_argument)
{
    EXPECT_EQ(getCurrentSglByOffsetIgnoreDif(nullptr, 0, nullptr, nullptr, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffsetIgnoreDif",
                     "[UMM_CMM] input sgl is NULL.");
}

TEST(SglLookupData, a_null_out_sgl_is_refused_second)
{
    SGL sgl = {};

    EXPECT_EQ(getCurrentSglByOffsetIgnoreDif(&sgl, 0, nullptr, nullptr, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffsetIgnoreDif",
                     "[UMM_CMM] output SGL is NULL.");
}

TEST(SglLookupData, a_null_out_index_is_refused_third)
{
    SGL  sgl = {};
    SGL *cur = nullptr;

    EXPECT_EQ(getCurrentSglByOffsetIgnoreDif(&sgl, 0, &cur, nullptr, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffsetIgnoreDif",
                     "[UMM_CMM] output entry is NULL.");
    EXPECT_EQ(cur, nullptr);
}

TEST(SglLookupData, a_null_out_offset_is_refused_last)
{
    SGL      sgl   = {};
    SGL     *cur   = nullptr;
    uint32_t index = 7;

    EXPECT_EQ(getCurrentSglByOffsetIgnoreDif(&sgl, 0, &cur, &index, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getCurrentSglByOffsetIgnoreDif",
                     "[UMM_CMM] output offset is NULL.");
    EXPECT_EQ(cur, nullptr);
    EXPECT_EQ(index, 7u);
}

TEST(SglLookupData, the_line_of_a_null_sgl_is_limited)
{
    EXPECT_LIMITED(getCurrentSglByOffsetIgnoreDif(nullptr, 0, nullptr, nullptr, nullptr),
                   "[UMM_CMM] input sgl is NULL.");
}

TEST(SglLookupData, the_line_of_a_null_out_sgl_is_limited)
{
    SGL sgl = {};
    EXPECT_LIMITED(getCurrentSglByOffsetIgnoreDif(&sgl, 0, nullptr, nullptr, nullptr),
                   "[UMM_CMM] output SGL is NULL.");
}

TEST(SglLookupData, the_line_of_a_null_out_index_is_limited)
{
    SGL  sgl = {};
    SGL *cur = nullptr;
    EXPECT_LIMITED(getCurrentSglByOffsetIgnoreDif(&sgl, 0, &cur, nullptr, nullptr),
                   "[UMM_CMM] output entry is NULL.");
}

TEST(SglLookupData, the_line_of_a_null_out_offset_is_limited)
{
    SGL      sgl   = {};
    SGL     *cur   = nullptr;
    uint32_t index = 0;
    EXPECT_LIMITED(getCurrentSglByOffsetIgnoreDif(&sgl, 0, &cur, &index, nullptr),
                   "[UMM_CMM] output offset is NULL.");
}

/* ------------------------------------------------------------- data measure: places */

TEST(SglLookupData, offset_0_is_the_given_sgl_even_when_it_has_no_entries)
{
    const test_chain chain = chain_of({{}, {8320}});

    EXPECT_FOUND(find_data(chain, 0), chain.head(), 0, 0);
}

TEST(SglLookupData, the_last_data_byte_of_a_page_is_in_it)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find_data(chain, 8191), chain.head(), 0, 8191);
}

TEST(SglLookupData, the_boundary_of_two_pages_is_the_later_ones_first_byte)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find_data(chain, 8192), chain.head(), 1, 0);
}

TEST(SglLookupData, the_boundary_of_two_full_sgls_is_the_second_ones_first_byte)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_FOUND(find_data(chain, 8192 * 64), chain.sgl(1), 0, 0);
}

TEST(SglLookupData, the_offset_in_the_entry_counts_data_bytes)
{
    const test_chain chain = page_chain({64});

    EXPECT_FOUND(find_data(chain, 8192 + 600), chain.head(), 1, 600);
}

TEST(SglLookupData, sgls_without_entries_are_passed_over_however_many_follow_each_other)
{
    const test_chain chain = chain_of({{}, {520}, {}, {}, {520}});

    EXPECT_FOUND(find_data(chain, 512), chain.sgl(4), 0, 0);
}

TEST(SglLookupData, an_entry_shorter_than_256_bytes_has_no_data)
{
    const test_chain chain = chain_of({{255, 520}});

    EXPECT_FOUND(find_data(chain, 1), chain.head(), 1, 1);
}

TEST(SglLookupData, an_entry_of_31_sectors_has_its_integrity_bytes_taken_off)
{
    const test_chain chain = chain_of({{520 * 31, 520}});

    EXPECT_FOUND(find_data(chain, 512 * 31), chain.head(), 1, 0);
}

TEST(SglLookupData, an_entry_of_32_sectors_keeps_its_integrity_bytes_is_kept)
{
    const test_chain chain = chain_of({{16640, 520}});

    EXPECT_FOUND(find_data(chain, 16639), chain.head(), 0, 16639);
    EXPECT_FOUND(find_data(chain, 16640), chain.head(), 1, 0);
}

TEST(SglLookupData, the_total_data_length_lies_beyond_the_chain)
{
    const test_chain chain = page_chain({64, 64});

    EXPECT_NOT_FOUND(find_data(chain, 8192 * 128));

    ASSERT_GE(fake_log().size(), 1u);
    EXPECT_EQ(fake_log()[0].level, 3u);
    EXPECT_EQ(fake_log()[0].func, "getCurrentSglByOffsetIgnoreDif");
    EXPECT_EQ(fake_log()[0].text, beyond_text("param", chain, 128, 1048576));
}

TEST(SglLookupData, the_line_of_an_offset_beyond_the_chain_is_limited)
{
    const test_chain chain = chain_of({{520}});

    EXPECT_LIMITED(find_data(chain, 512), beyond_text("param", chain, 1, 512));
}

TEST(SglLookupData, an_offset_beyond_the_chain_is_followed_by_the_chains_dump)
{
    const test_chain chain = chain_of({{520}, {1040}});

    EXPECT_NOT_FOUND(find_data(chain, 2000));

    ASSERT_EQ(fake_log().size(), 3u);
    EXPECT_EQ(fake_log()[0].func, "getCurrentSglByOffsetIgnoreDif");
    EXPECT_EQ(fake_log()[1].func, "cpmm_print_sgl_detail");
    EXPECT_LAST_LINE(ZYLOG_ERROR, "cpmm_print_sgl_detail",
                     text_of("[UMM_CMM] SGL entry detail info : buffer (%p), page contral ((nil)), "
                             "len (1040), current index (0).",
                             static_cast<void *>(chain.entry(1, 0)->buf)));
}

TEST(SglLookupData, the_dump_comes_also_when_the_line_itself_was_held_back)
{
    const test_chain empty = chain_of({{}});
    for (int i = 0; i < 3; ++i)
        find_data(empty, 1);
    const test_chain chain = chain_of({{520}});
    fake_forget_log();

    find_data(chain, 512);

    ASSERT_EQ(fake_log().size(), 1u);
    EXPECT_EQ(fake_last_line().func, "cpmm_print_sgl_detail");
}

TEST(SglLookupData, the_dump_is_made_also_when_the_level_is_off)
{
    const test_chain chain = chain_of({{520, 520}});
    fake_set_log_level(ZYLOG_FATAL);

    find_data(chain, 1024);

    /* One question for the line itself, and one for each entry of the dump. */
    EXPECT_EQ(fake_count(OP_zylog_level_check), 3u);
    EXPECT_NO_LINE();
}

TEST(SglLookupData, the_two_lookups_do_not_share_a_limiter)
{
    const test_chain chain = chain_of({{520}});
    EXPECT_LIMITED(getCurrentSglByOffset(chain.head(), 520, nullptr, nullptr, nullptr),
                   "[UMM_CMM] output SGL is NULL");

    getCurrentSglByOffsetIgnoreDif(chain.head(), 520, nullptr, nullptr, nullptr);

    EXPECT_EQ(fake_log_count("[UMM_CMM] output SGL is NULL."), 1u);
}
