/*
 * The configuration in bytes, word by word, and the registration of an outside buffer pool.
 */
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

#include "fake/expect_log.h"

namespace
{

constexpr uint64_t UNWRITTEN = 0xA5A5A5A5A5A5A5A5;

/* The 26 words of a record that held a pattern before the report. */
std::vector<uint64_t> report()
{
    cmm_config_info info;
    memset(&info, 0xA5, sizeof info);
    EXPECT_EQ(zyumm_cmm_config_info_get(&info), 0u);
    std::vector<uint64_t> words(sizeof info / 8);
    memcpy(words.data(), &info, sizeof info);
    return words;
}

uint64_t word_at(size_t offset)
{
    return report().at(offset / 8);
}

/* Every value of its own, so that a word in the wrong place is noticed. */
void configure_everything()
{
    g_ucmm_config.normal_pool = {1, 2, 3, 4, 5, 6, 7, 8};
    g_ucmm_config.io_pool     = {11, 12, 13, 14, 15, 16, 17, 18};
    g_ucmm_config.rdma_flag   = 21;
    g_ucmm_config.cache_size  = 22;
    g_ucmm_config.page_min    = 23;
    g_ucmm_config.page_max    = 24;
}

cmm_config_info with_pool(uint64_t pool)
{
    cmm_config_info info = {};
    info.pool_id         = pool;
    return info;
}

} // namespace

TEST(ConfigReport, the_record_has_208_bytes)
{
    EXPECT_EQ(sizeof(cmm_config_info), 208u);
}

TEST(ConfigReport, the_normal_pools_sizes_are_in_bytes)
{
    configure_everything();

    EXPECT_EQ(word_at(0), 1024u);
    EXPECT_EQ(word_at(8), 2048u);
    EXPECT_EQ(word_at(16), 3072u);
    EXPECT_EQ(word_at(24), 4096u);
}

TEST(ConfigReport, the_normal_pools_limit_rate_and_flag_are_reported_as_they_are)
{
    configure_everything();

    EXPECT_EQ(word_at(32), 5u);
    EXPECT_EQ(word_at(40), 6u);
    EXPECT_EQ(word_at(56), 7u);
}

TEST(ConfigReport, the_io_pools_sizes_are_in_bytes)
{
    configure_everything();

    EXPECT_EQ(word_at(72), 11264u);
    EXPECT_EQ(word_at(80), 12288u);
    EXPECT_EQ(word_at(88), 13312u);
    EXPECT_EQ(word_at(96), 14336u);
}

TEST(ConfigReport, the_io_pools_limit_rate_and_flag_are_reported_as_they_are)
{
    configure_everything();

    EXPECT_EQ(word_at(104), 15u);
    EXPECT_EQ(word_at(112), 16u);
    EXPECT_EQ(word_at(128), 17u);
}

TEST(ConfigReport, transport_cache_and_page_maximum)
{
    configure_everything();

    EXPECT_EQ(uint32_t(word_at(168)), 21u);
    EXPECT_EQ(word_at(176), 22528u);
    EXPECT_EQ(word_at(184), 24u);
}

TEST(ConfigReport, pages_count_with_their_control_records_is_kept)
{
    configure_everything();

    EXPECT_EQ(word_at(192), 23u * 8376u);
    EXPECT_EQ(word_at(200), 24u * 8376u);
    const fake_call whole = fake_last_call(OP_zymm_object_whole_size_get);
    EXPECT_EQ(whole.args.at(0).number, 8376u);
    EXPECT_EQ(whole.args.at(1).number, 0u);
    EXPECT_EQ(whole.args.at(2).number, 8u);
}

TEST(ConfigReport, pages_count_as_much_as_the_slab_layer_spends_on_them)
{
    configure_everything();
    fake_fail_always_with(OP_zymm_object_whole_size_get, 12288);

    EXPECT_EQ(word_at(192), 23u * 12288u);
    EXPECT_EQ(word_at(200), 24u * 12288u);
}

TEST(ConfigReport, the_words_between_stay_as_they_were)
{
    configure_everything();

    EXPECT_EQ(word_at(48), UNWRITTEN);
    EXPECT_EQ(word_at(64), UNWRITTEN);
    EXPECT_EQ(word_at(120), UNWRITTEN);
    EXPECT_EQ(word_at(136), UNWRITTEN);
    EXPECT_EQ(word_at(144), UNWRITTEN);
    EXPECT_EQ(word_at(152), UNWRITTEN);
    EXPECT_EQ(word_at(160), UNWRITTEN);
    EXPECT_EQ(uint32_t(word_at(168) >> 32), 0xA5A5A5A5u);
}

TEST(ConfigReport, figures_beyond_32_bits_are_not_cut)
{
    g_ucmm_config.cache_size           = 0xFFFFFFFF;
    g_ucmm_config.page_min             = 0xFFFFFFFE;
    g_ucmm_config.page_max             = 0xFFFFFFFF;
    g_ucmm_config.io_pool.reserve_size = 0x100000000;

    EXPECT_EQ(word_at(72), 0x40000000000u);
    EXPECT_EQ(word_at(176), 0x3FFFFFFFC00u);
    EXPECT_EQ(word_at(192), 0xFFFFFFFEull * 8376);
    EXPECT_EQ(word_at(200), 0xFFFFFFFFull * 8376);
}

TEST(ConfigReport, the_report_has_no_line_and_changes_nothing)
{
    configure_everything();
    const cmm_config before = g_ucmm_config;

    report();

    EXPECT_EQ(memcmp(&g_ucmm_config, &before, sizeof before), 0);
    EXPECT_NO_LINE();
}

TEST(ConfigReport, a_null_record_is_refused)
{
    EXPECT_EQ(zyumm_cmm_config_info_get(nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_cmm_config_info_get",
                     "[UMM_CMM] Cmm config info get failed, param is NULL.");
    EXPECT_EQ(fake_count(OP_zymm_object_whole_size_get), 0u);
}

TEST(ConfigReport, the_line_of_a_null_record_is_not_limited)
{
    EXPECT_NOT_LIMITED(zyumm_cmm_config_info_get(nullptr),
                       "[UMM_CMM] Cmm config info get failed, param is NULL.");
}

TEST(PoolInfoSet, the_word_at_offset_64_becomes_the_buffer_pools_handle)
{
    cmm_config_info info;
    memset(&info, 0xA5, sizeof info);
    const uint64_t pool = 0x1234567890;
    memcpy(reinterpret_cast<uint8_t *>(&info) + 64, &pool, sizeof pool);

    EXPECT_EQ(zyumm_cmm_pool_info_set(&info, nullptr), 0u);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0x1234567890u);
}

TEST(PoolInfoSet, handle_and_allocator_are_printed)
{
    const cmm_config_info info      = with_pool(0x1234567890);
    const void           *allocator = reinterpret_cast<const void *>(0xABC);

    EXPECT_EQ(zyumm_cmm_pool_info_set(&info, allocator), 0u);

    EXPECT_ONLY_LINE(ZYLOG_INFO, "zyumm_cmm_pool_info_set",
                     "[UMM_CMM] Cmm pool info set success, pool id(0x1234567890), "
                     "allocator_lite(0xabc).");
}

TEST(PoolInfoSet, nothing_but_the_handle_is_written)
{
    cmm_config_info info = with_pool(0x77);
    info.normal_pool     = {1, 1, 1, 1, 1, 1, 1, 1};
    info.io_pool         = {1, 1, 1, 1, 1, 1, 1, 1};
    info.rdma_flag       = 1;
    info.cache_size      = 1;
    cmm_config expected  = {};
    expected.io_pool.pool_handle = 0x77;

    zyumm_cmm_pool_info_set(&info, nullptr);

    EXPECT_EQ(memcmp(&g_ucmm_config, &expected, sizeof expected), 0);
    EXPECT_TRUE(fake_calls().empty());
}

TEST(PoolInfoSet, its_line_is_not_limited)
{
    const cmm_config_info info = with_pool(0x77);
    EXPECT_NOT_LIMITED(zyumm_cmm_pool_info_set(&info, nullptr),
                       "[UMM_CMM] Cmm pool info set success, pool id(0x77), "
                       "allocator_lite((nil)).");
}

TEST(PoolInfoSet, a_null_record_fails_at_info_level_is_kept)
{
    EXPECT_EQ(zyumm_cmm_pool_info_set(nullptr, nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_INFO, "zyumm_cmm_pool_info_set",
                     "[UMM_CMM] Cmm pool info set failed, param is NULL.");
}

TEST(PoolInfoSet, a_null_record_leaves_the_handle)
{
    g_ucmm_config.io_pool.pool_handle = 0x77;

    zyumm_cmm_pool_info_set(nullptr, nullptr);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0x77u);
}

TEST(PoolInfoSet, the_line_of_a_null_record_is_not_limited)
{
    EXPECT_NOT_LIMITED(zyumm_cmm_pool_info_set(nullptr, nullptr),
                       "[UMM_CMM] Cmm pool info set failed, param is NULL.");
}

TEST(PoolInfoSet, a_pool_id_of_0_takes_the_buffer_pool_away)
{
    g_ucmm_config.io_pool.pool_handle = 0x77;
    const cmm_config_info none        = with_pool(0);

    EXPECT_EQ(zyumm_cmm_pool_info_set(&none, nullptr), 0u);

    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
    cmm_destory_buffer_mempool();
    EXPECT_TRUE(fake_calls().empty());
}

TEST(PoolInfoSet, a_registered_pool_is_destroyed_like_an_own_one)
{
    const uint64_t        pool = zymm_pool_create("outside", 1024, 0, 77, "the test");
    const cmm_config_info info = with_pool(pool);
    ASSERT_EQ(zyumm_cmm_pool_info_set(&info, nullptr), 0u);

    cmm_destory_buffer_mempool();

    EXPECT_FALSE(fake_handle_alive(pool));
    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
}
