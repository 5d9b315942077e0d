/*
 * Counts, leaks and dumps of the page pool.
 */
#include "page_fixture.h"

using PageUsage = with_pages;

struct counts {
    uint64_t total = 11, used = 22, free = 33;

    bool operator==(const counts &) const = default;
};

static counts counts_now()
{
    counts now;
    get_page_count(&now.total, &now.used, &now.free);
    return now;
}

TEST_F(PageUsage, pages_are_counted)
{
    take_page();
    take_page();
    EXPECT_EQ(counts_now(), (counts{800, 2, 798}));
    EXPECT_EQ(fake_last_call(OP_mmGetUesdInfo).args[0].number, s_page_partition_id);
    EXPECT_NO_LINE();
}

TEST_F(PageUsage, the_total_is_the_configurations_and_not_the_slabs)
{
    fake_set_usage(5000, 300);
    EXPECT_EQ(counts_now(), (counts{800, 300, 500}));
}

TEST_F(PageUsage, the_other_name_counts_the_same)
{
    take_page();
    counts now;
    zyumm_page_useinfo_get(&now.total, &now.used, &now.free);
    EXPECT_EQ(now, (counts{800, 1, 799}));
}

TEST(PageUsageAlone, without_a_maximum_there_is_nothing_and_no_line)
{
    EXPECT_EQ(counts_now(), (counts{0, 0, 0}));
    EXPECT_EQ(zyumm_page_leak_size_get(), 0u);
    EXPECT_EQ(fake_count(OP_mmGetUesdInfo), 0u);
    EXPECT_EQ(fake_count(OP_zymm_slab_get_leak_number), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PageUsage, a_maximum_taken_back_counts_as_none)
{
    take_page();
    g_ucmm_config.page_max = 0;
    EXPECT_EQ(counts_now(), (counts{0, 0, 0}));
    EXPECT_EQ(zyumm_page_leak_size_get(), 0u);
    EXPECT_NO_LINE();
}

TEST(PageUsageAlone, without_a_pool_there_is_nothing_and_a_line)
{
    configure(0, 80);
    EXPECT_EQ(counts_now(), (counts{0, 0, 0}));
    EXPECT_EQ(fake_count(OP_mmGetUesdInfo), 0u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "get_page_count", "[UMM_CMM] page part not init.");
    reopen_limiters();
    EXPECT_LIMITED(counts_now(), "[UMM_CMM] page part not init.");
}

/* ---- where to put the counts */

static void expect_refusal(uint64_t *total, uint64_t *used, uint64_t *free, const char *text)
{
    fake_forget_log();
    zyumm_page_useinfo_get(total, used, free);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "get_page_count", text);
    reopen_limiters();
    EXPECT_LIMITED(get_page_count(total, used, free), text);
}

TEST_F(PageUsage, the_place_for_free_pages_is_looked_at_first)
{
    expect_refusal(nullptr, nullptr, nullptr, "[UMM_CMM] page_free is NULL.");
}

TEST_F(PageUsage, with_free_and_total_missing_only_free_is_named)
{
    uint64_t used = 22;
    expect_refusal(nullptr, &used, nullptr, "[UMM_CMM] page_free is NULL.");
    EXPECT_EQ(used, 22u);
}

TEST_F(PageUsage, the_place_for_the_total_is_looked_at_second)
{
    uint64_t free = 33;
    expect_refusal(nullptr, nullptr, &free, "[UMM_CMM] page_total is NULL.");
    EXPECT_EQ(free, 33u);
}

TEST_F(PageUsage, the_place_for_used_pages_is_looked_at_last)
{
    uint64_t total = 11, free = 33;
    expect_refusal(&total, nullptr, &free, "[UMM_CMM] page_used is NULL.");
    EXPECT_EQ(total, 11u);
    EXPECT_EQ(free, 33u);
}

/* ---- leaks */

TEST_F(PageUsage, a_leaked_page_counts_8376_bytes)
{
    EXPECT_EQ(zyumm_page_leak_size_get(), 0u);
    fake_fail_with(OP_zymm_slab_get_leak_number, 1, 3);
    EXPECT_EQ(zyumm_page_leak_size_get(), 25128u);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_get_leak_number).args[0].number, s_page_partition_id);
}

TEST_F(PageUsage, leaked_bytes_are_reckoned_in_64_bits)
{
    fake_fail_with(OP_zymm_slab_get_leak_number, 1, 0xFFFFFFFF);
    EXPECT_EQ(zyumm_page_leak_size_get(), 35974646062920u);
}

TEST(PageUsageAlone, without_a_pool_nothing_has_leaked)
{
    configure(0, 80);
    EXPECT_EQ(zyumm_page_leak_size_get(), 0u);
    EXPECT_EQ(fake_count(OP_zymm_slab_get_leak_number), 0u);
    EXPECT_NO_LINE();
}

/* ---- dumps */

static void expect_dump(const fake_call &call, fake_op op)
{
    EXPECT_EQ(fake_op_name(call.op), std::string(fake_op_name(op)));
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "zyumm_page_usage_dump");
}

TEST_F(PageUsage, the_dump_shows_usage_and_then_details)
{
    EXPECT_EQ(zyumm_page_usage_dump(), 0);
    const std::vector<fake_call> calls = fake_calls();
    ASSERT_EQ(calls.size(), 2u);
    expect_dump(calls[0], OP_zymm_slab_dump_usageinfo);
    expect_dump(calls[1], OP_zymm_slab_dump_detailinfo);
    EXPECT_NO_LINE();
}

TEST_F(PageUsage, the_dumps_result_is_that_of_the_details)
{
    fake_fail_with(OP_zymm_slab_dump_usageinfo, 1, 5);
    EXPECT_EQ(zyumm_page_usage_dump(), 0);
    fake_fail_with(OP_zymm_slab_dump_detailinfo, 1, 6);
    EXPECT_EQ(zyumm_page_usage_dump(), 6);
}

/* ---- the entry point that does nothing */

TEST_F(PageUsage, setting_an_owner_of_a_chain_does_nothing)
{
    SGL chain;
    memset(&chain, 0x5A, sizeof chain);
    const SGL before = chain;
    updateSglPageOwner(&chain, 5, "owner", 1);
    updateSglPageOwner(nullptr, 5, nullptr, 1);
    EXPECT_EQ(memcmp(&chain, &before, sizeof chain), 0);
    EXPECT_EQ(fake_calls().size(), 0u);
    EXPECT_NO_LINE();
}
