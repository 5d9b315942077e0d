/*
 * Quotas of the buffer pools and the threads' cache counts.
 */
#include "zyumm_cmm.h"

#include "config_documents.h"
#include "fake/expect_log.h"

static const cmm_pool_quota OLD = {9, 9, 9, 9, 9, 9, 9, 9};

/* What reading <io_pool .../> with these attributes gives, over a record full of nines. */
struct pool_reading {
    uint32_t       status;
    cmm_pool_quota quota;
};

static pool_reading read_pool(const std::string &attributes)
{
    entry        doc("<io_pool " + attributes + "/>");
    pool_reading read = {0, OLD};
    read.status = umm_parse_pool_quota_for_each(doc.first_child(), doc.top(), "io_pool",
                                                &read.quota);
    return read;
}

static bool same(const cmm_pool_quota &a, const cmm_pool_quota &b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

/* Attributes in the order in which they were asked for. */
static std::vector<std::string> attributes_read()
{
    std::vector<std::string> names;
    for (const fake_call &call : fake_calls(OP_zyax_xml_element_getattr))
        names.push_back(call.args[1].text);
    return names;
}

/* ------------------------------------------------------------------ one pool */

TEST(PoolQuota, all_attributes_are_stored)
{
    const pool_reading read = read_pool("reserve_size=\"10\" max_size=\"20\" extand_size=\"30\" "
                                        "max_limit=\"1\" leak_rate=\"40\" dontfork_flag=\"1\"");

    EXPECT_EQ(read.status, 0u);
    EXPECT_TRUE(same(read.quota, {10, 20, 30, 0, 1, 40, 1, 0}));
    EXPECT_ONLY_LINE(6, "umm_parse_pool_quota_for_each", "[UMM_CMM] Pool(io_pool), reserve(10), max(20), extand(30), max_limit(1), leak_rate(40), dontfork_flag(1).");
}

TEST(PoolQuota, the_three_sizes_are_enough)
{
    const pool_reading read = read_pool("reserve_size=\"10\" max_size=\"20\" extand_size=\"30\"");

    EXPECT_EQ(read.status, 0u);
    EXPECT_TRUE(same(read.quota, {10, 20, 30, 0, 0, 30, 0, 0}));
    EXPECT_ONLY_LINE(6, "umm_parse_pool_quota_for_each", "[UMM_CMM] Pool(io_pool), reserve(10), max(20), extand(30), max_limit(0), leak_rate(30), dontfork_flag(0).");
}

TEST(PoolQuota, optional_attributes_that_are_no_numbers_take_their_defaults)
{
    const pool_reading read = read_pool("reserve_size=\"10\" max_size=\"20\" extand_size=\"30\" "
                                        "max_limit=\"x\" leak_rate=\"-1\" dontfork_flag=\"\"");

    EXPECT_EQ(read.status, 0u);
    EXPECT_TRUE(same(read.quota, {10, 20, 30, 0, 0, 30, 0, 0}));
}

TEST(PoolQuota, a_leak_rate_of_0_is_no_default)
{
    const pool_reading read = read_pool("reserve_size=\"10\" max_size=\"20\" extand_size=\"30\" "
                                        "leak_rate=\"0\"");

    EXPECT_EQ(read.quota.leak_rate, 0u);
}

TEST(PoolQuota, an_absent_element_gives_zeros_leak_rate_included)
{
    entry          doc("<normal_pool reserve_size=\"1\" max_size=\"1\" extand_size=\"1\"/>");
    cmm_pool_quota quota = OLD;

    EXPECT_EQ(umm_parse_pool_quota_for_each(doc.first_child(), doc.top(), "io_pool", &quota), 0u);

    EXPECT_TRUE(same(quota, {0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_ONLY_LINE(6, "umm_parse_pool_quota_for_each", "[UMM_CMM] Pool(io_pool), reserve(0), max(0), extand(0), max_limit(0), leak_rate(0), dontfork_flag(0).");
}

TEST(PoolQuota, each_of_the_three_sizes_is_required)
{
    const std::vector<pool_reading> reads = {
        read_pool("max_size=\"20\" extand_size=\"30\""),
        read_pool("reserve_size=\"10\" extand_size=\"30\""),
        read_pool("reserve_size=\"10\" max_size=\"20\""),
        read_pool("reserve_size=\"ten\" max_size=\"20\" extand_size=\"30\""),
        read_pool("reserve_size=\"10\" max_size=\"-20\" extand_size=\"30\""),
        read_pool("reserve_size=\"10\" max_size=\"20\" extand_size=\"\""),
    };

    EXPECT_EQ(reads[0].status, 0xFFFFFFFF);
    EXPECT_EQ(reads[1].status, 0xFFFFFFFF);
    EXPECT_EQ(reads[2].status, 0xFFFFFFFF);
    EXPECT_EQ(reads[3].status, 0xFFFFFFFF);
    EXPECT_EQ(reads[4].status, 0xFFFFFFFF);
    EXPECT_EQ(reads[5].status, 0xFFFFFFFF);
    EXPECT_TRUE(same(reads[0].quota, OLD));
    EXPECT_TRUE(same(reads[2].quota, OLD));
    EXPECT_TRUE(same(reads[5].quota, OLD));
    EXPECT_NO_LINE();
}

TEST(PoolQuota, attributes_are_read_in_order)
{
    read_pool("dontfork_flag=\"1\" leak_rate=\"1\" max_limit=\"1\" extand_size=\"1\" "
              "max_size=\"1\" reserve_size=\"1\"");

    EXPECT_EQ(attributes_read(),
              (std::vector<std::string>{"reserve_size", "max_size", "extand_size", "max_limit",
                                        "leak_rate", "dontfork_flag"}));
}

TEST(PoolQuota, the_first_missing_size_ends_the_reading)
{
    read_pool("reserve_size=\"1\" extand_size=\"1\"");

    EXPECT_EQ(attributes_read(), (std::vector<std::string>{"reserve_size", "max_size"}));
}

TEST(PoolQuota, sizes_keep_their_low_32_bits)
{
    const pool_reading read = read_pool("reserve_size=\"4294967297\" max_size=\"4294967295\" "
                                        "extand_size=\"4294967296\"");

    EXPECT_TRUE(same(read.quota, {1, 4294967295, 0, 0, 0, 30, 0, 0}));
}

TEST(PoolQuota, a_leak_rate_of_150_is_stored_as_100_and_logged_as_150_is_kept)
{
    const pool_reading read = read_pool("reserve_size=\"1\" max_size=\"2\" extand_size=\"3\" "
                                        "leak_rate=\"150\"");

    EXPECT_EQ(read.quota.leak_rate, 100u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Pool set leak rate(150), adjust to 100.",
        "[UMM_CMM] Pool(io_pool), reserve(1), max(2), extand(3), max_limit(0), leak_rate(150), dontfork_flag(0).",
    }));
}

TEST(PoolQuota, a_dontfork_flag_of_7_is_stored_as_1_and_logged_as_1_is_kept)
{
    const pool_reading read = read_pool("reserve_size=\"1\" max_size=\"2\" extand_size=\"3\" "
                                        "dontfork_flag=\"7\"");

    EXPECT_EQ(read.quota.dontfork_flag, 1u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Pool set dont fork flag(7), adjust to 1.",
        "[UMM_CMM] Pool(io_pool), reserve(1), max(2), extand(3), max_limit(0), leak_rate(30), dontfork_flag(1).",
    }));
}

TEST(PoolQuota, a_max_limit_of_5_is_stored_as_1_and_logged_as_5_is_kept)
{
    const pool_reading read = read_pool("reserve_size=\"1\" max_size=\"2\" extand_size=\"3\" "
                                        "max_limit=\"5\"");

    EXPECT_EQ(read.quota.max_limit, 1u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Pool set max limit(5), adjust to 1.",
        "[UMM_CMM] Pool(io_pool), reserve(1), max(2), extand(3), max_limit(5), leak_rate(30), dontfork_flag(0).",
    }));
}

TEST(PoolQuota, a_record_is_not_touched_without_a_place_for_it)
{
    entry doc("<io_pool reserve_size=\"1\" max_size=\"2\" extand_size=\"3\"/>");

    EXPECT_EQ(umm_parse_pool_quota_for_each(doc.first_child(), doc.top(), "io_pool", nullptr),
              0xFFFFFFFF);

    EXPECT_NO_LINE();
}

/* ------------------------------------------------------------------ adjustment */

TEST(PoolAdjust, values_within_their_bounds_stay)
{
    cmm_pool_quota quota = {1, 2, 3, 0, 1, 100, 1, 0};

    umm_adjust_pool_config_info(&quota);

    EXPECT_TRUE(same(quota, {1, 2, 3, 0, 1, 100, 1, 0}));
    EXPECT_NO_LINE();
}

TEST(PoolAdjust, values_above_their_bounds_are_cut_with_a_line_each)
{
    cmm_pool_quota quota = {1, 2, 3, 4, 2, 101, 3, 5};

    umm_adjust_pool_config_info(&quota);

    EXPECT_TRUE(same(quota, {1, 2, 3, 4, 1, 100, 1, 5}));
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Pool set max limit(2), adjust to 1.",
        "[UMM_CMM] Pool set leak rate(101), adjust to 100.",
        "[UMM_CMM] Pool set dont fork flag(3), adjust to 1.",
    }));
    EXPECT_LAST_LINE(6, "umm_adjust_pool_config_info", "[UMM_CMM] Pool set dont fork flag(3), adjust to 1.");
    EXPECT_EQ(fake_log()[0].level, 6u);
    EXPECT_EQ(fake_log()[1].level, 6u);
}

TEST(PoolAdjust, bounds_are_compared_without_a_sign_and_printed_with_one)
{
    cmm_pool_quota quota = {0, 0, 0, 0, 4294967295, 0, 0, 0};

    umm_adjust_pool_config_info(&quota);

    EXPECT_EQ(quota.max_limit, 1u);
    EXPECT_ONLY_LINE(6, "umm_adjust_pool_config_info", "[UMM_CMM] Pool set max limit(-1), adjust to 1.");
}

TEST(PoolAdjust, a_null_record_is_left_alone)
{
    umm_adjust_pool_config_info(nullptr);

    EXPECT_NO_LINE();
}

/* ------------------------------------------------------------------ both pools */

static uint32_t read_pools(const std::string &parameters)
{
    entry doc(parameters);
    return umm_parse_pool_quota(doc.first_child(), doc.top());
}

TEST(PoolQuotas, each_pool_has_its_own_record)
{
    EXPECT_EQ(read_pools("<io_pool reserve_size=\"4\" max_size=\"5\" extand_size=\"6\"/>"
                         "<normal_pool reserve_size=\"1\" max_size=\"2\" extand_size=\"3\"/>"),
              0u);

    EXPECT_TRUE(same(g_ucmm_config.normal_pool, {1, 2, 3, 0, 0, 30, 0, 0}));
    EXPECT_TRUE(same(g_ucmm_config.io_pool, {4, 5, 6, 0, 0, 30, 0, 0}));
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Pool(normal_pool), reserve(1), max(2), extand(3), max_limit(0), leak_rate(30), dontfork_flag(0).",
        "[UMM_CMM] Pool(io_pool), reserve(4), max(5), extand(6), max_limit(0), leak_rate(30), dontfork_flag(0).",
    }));
}

TEST(PoolQuotas, a_bad_normal_pool_is_an_error_and_io_pool_is_not_read)
{
    g_ucmm_config.normal_pool = OLD;
    g_ucmm_config.io_pool     = OLD;

    EXPECT_EQ(read_pools("<normal_pool reserve_size=\"1\"/>"
                         "<io_pool reserve_size=\"4\" max_size=\"5\" extand_size=\"6\"/>"),
              0xFFFFFFFF);

    EXPECT_TRUE(same(g_ucmm_config.normal_pool, OLD));
    EXPECT_TRUE(same(g_ucmm_config.io_pool, OLD));
    EXPECT_ONLY_LINE(3, "umm_parse_pool_quota", "[UMM_CMM] CMM obtain normal_pool info failed.");
}

TEST(PoolQuotas, a_bad_io_pool_is_an_error_after_normal_pool_is_written)
{
    g_ucmm_config.io_pool = OLD;

    EXPECT_EQ(read_pools("<normal_pool reserve_size=\"1\" max_size=\"2\" extand_size=\"3\"/>"
                         "<io_pool reserve_size=\"4\" max_size=\"5\"/>"),
              0xFFFFFFFF);

    EXPECT_TRUE(same(g_ucmm_config.normal_pool, {1, 2, 3, 0, 0, 30, 0, 0}));
    EXPECT_TRUE(same(g_ucmm_config.io_pool, OLD));
    EXPECT_LAST_LINE(3, "umm_parse_pool_quota", "[UMM_CMM] CMM obtain io_pool info failed.");
}

TEST(PoolQuotas, an_existing_buffer_pool_s_handle_is_forgotten_is_kept)
{
    g_ucmm_config.io_pool.pool_handle = 4711;

    EXPECT_EQ(read_pools("<io_pool reserve_size=\"4\" max_size=\"5\" extand_size=\"6\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
}

TEST(PoolQuotas, none_of_their_lines_is_limited)
{
    EXPECT_NOT_LIMITED(read_pools("<normal_pool/>"), "[UMM_CMM] CMM obtain normal_pool info failed.");
    EXPECT_NOT_LIMITED(read_pools("<io_pool/>"), "[UMM_CMM] CMM obtain io_pool info failed.");
    EXPECT_NOT_LIMITED(read_pools(""), "[UMM_CMM] Pool(normal_pool), reserve(0), max(0), extand(0), max_limit(0), leak_rate(0), dontfork_flag(0).");
}

TEST(PoolQuotas, the_adjustment_s_lines_are_not_limited)
{
    const char pool[] = "reserve_size=\"1\" max_size=\"2\" extand_size=\"3\" max_limit=\"2\" "
                        "leak_rate=\"101\" dontfork_flag=\"2\"";

    EXPECT_NOT_LIMITED(read_pool(pool), "[UMM_CMM] Pool set max limit(2), adjust to 1.");
    EXPECT_NOT_LIMITED(read_pool(pool), "[UMM_CMM] Pool set leak rate(101), adjust to 100.");
    EXPECT_NOT_LIMITED(read_pool(pool), "[UMM_CMM] Pool set dont fork flag(2), adjust to 1.");
}

/* ------------------------------------------------------------------ cache size */

static uint32_t read_cache_size(const std::string &parameters)
{
    entry doc(parameters);
    return umm_parse_pool_cachesize(doc.first_child(), doc.top());
}

TEST(PoolCacheSize, the_size_is_stored)
{
    EXPECT_EQ(read_cache_size("<pool_threadcache cache_size=\"256\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.cache_size, 256u);
    EXPECT_ONLY_LINE(6, "umm_parse_pool_cachesize", "[UMM_CMM] Get pool cache_size(256K).");
}

TEST(PoolCacheSize, an_absent_element_stores_0_without_a_warning)
{
    g_ucmm_config.cache_size = 9;

    EXPECT_EQ(read_cache_size("<other/>"), 0u);

    EXPECT_EQ(g_ucmm_config.cache_size, 0u);
    EXPECT_ONLY_LINE(6, "umm_parse_pool_cachesize", "[UMM_CMM] Get pool cache_size(0K).");
}

TEST(PoolCacheSize, a_size_that_cannot_be_read_is_a_warning_and_stored_as_0)
{
    g_ucmm_config.cache_size = 9;

    EXPECT_EQ(read_cache_size("<pool_threadcache cache_size=\"256K\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.cache_size, 0u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Get mem_size_64G cache_size failed.",
        "[UMM_CMM] Get pool cache_size(0K).",
    }));
    EXPECT_EQ(fake_log()[0].level, 4u);
    EXPECT_EQ(fake_log()[0].func, "umm_parse_pool_cachesize");
}

TEST(PoolCacheSize, its_lines_are_not_limited)
{
    EXPECT_NOT_LIMITED(read_cache_size("<pool_threadcache/>"), "[UMM_CMM] Get mem_size_64G cache_size failed.");
    EXPECT_NOT_LIMITED(read_cache_size(""), "[UMM_CMM] Get pool cache_size(0K).");
}

/* ------------------------------------------------------------------ cache numbers */

/* What the slab layer is handed: page, inner 64K, outer 64K, threads. */
static std::vector<uint64_t> cache_numbers(const std::string &parameters)
{
    entry doc(parameters);
    EXPECT_EQ(umm_parse_pool_cachenum(doc.first_child(), doc.top()), 0u);
    std::vector<uint64_t> numbers;
    for (const fake_arg &arg : fake_last_call(OP_zymm_pool_cache_num_set).args)
        numbers.push_back(arg.number);
    return numbers;
}

TEST(PoolCacheNum, the_numbers_reach_the_slab_layer_in_its_own_order)
{
    EXPECT_EQ(cache_numbers("<pool_cachenum page=\"1\" page_maxcachethreadnum=\"2\" "
                            "64K_inner=\"3\" 64K_outer=\"4\"/>"),
              (std::vector<uint64_t>{1, 3, 4, 2}));
    EXPECT_EQ(fake_count(OP_zymm_pool_cache_num_set), 1u);
    EXPECT_NO_LINE();
}

TEST(PoolCacheNum, the_attributes_are_read_in_the_document_s_order)
{
    cache_numbers("<pool_cachenum 64K_outer=\"4\" page=\"1\"/>");

    EXPECT_EQ(attributes_read(),
              (std::vector<std::string>{"page", "page_maxcachethreadnum", "64K_inner",
                                        "64K_outer"}));
}

TEST(PoolCacheNum, numbers_that_cannot_be_read_are_0_without_a_line)
{
    EXPECT_EQ(cache_numbers("<pool_cachenum page=\"one\" 64K_inner=\"-1\" 64K_outer=\"4\"/>"),
              (std::vector<uint64_t>{0, 0, 4, 0}));
    EXPECT_NO_LINE();
}

TEST(PoolCacheNum, an_absent_element_is_a_warning_and_hands_zeros_down)
{
    EXPECT_EQ(cache_numbers("<other/>"), (std::vector<uint64_t>{0, 0, 0, 0}));

    EXPECT_ONLY_LINE(4, "umm_parse_pool_cachenum", "[UMM_CMM] Get pool_cachenum failed.");
}

TEST(PoolCacheNum, the_warning_is_not_limited)
{
    EXPECT_NOT_LIMITED(cache_numbers(""), "[UMM_CMM] Get pool_cachenum failed.");
}

TEST(PoolCacheNum, nothing_is_kept_in_the_record)
{
    const cmm_config zero = {};

    cache_numbers("<pool_cachenum page=\"1\" page_maxcachethreadnum=\"2\" 64K_inner=\"3\" "
                  "64K_outer=\"4\"/>");

    EXPECT_EQ(memcmp(&g_ucmm_config, &zero, sizeof zero), 0);
}
