/*
 * Start and stop of a process on the real platform.
 */
#include <cstring>
#include <vector>

#include "node_process.h"

TEST(StartStop, a_process_starts_from_a_document_and_stops_with_a_clean_audit)
{
    const config_directory config({256, 64, 32});

    ASSERT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(g_ucmm_config.page_max, 256u);
    EXPECT_NE(s_page_partition_id, 0u);
    EXPECT_NE(g_sgl_partition_id, 0u);
    EXPECT_NE(g_req_partition_id, 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
}

TEST(StartStop, a_process_may_start_again_after_a_clean_stop)
{
    const config_directory config({64, 16, 8});

    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(cmm_module_init(), 0u);
        page_ctrl *page = allocOnePageSync(7, __func__, __LINE__);
        ASSERT_NE(page, nullptr);
        freeOnePage(page, 7, __func__, __LINE__);
        ASSERT_EQ(cmm_module_exit(), 0u);
    }
}

TEST(StartStop, a_partition_that_a_client_forgot_fails_the_stop)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    uint32_t part_id = 0;
    ASSERT_EQ(createStructurePartition(4, "forgotten", 7, 0, 64, &part_id, nullptr, nullptr, 0), 0u);

    EXPECT_EQ(cmm_module_exit(), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(deleteStructurePartition(part_id), 0u);
}

TEST(StartStop, eight_threads_start_and_stop_the_library_as_one)
{
    const config_directory   config({64, 16, 8});
    std::vector<std::thread> threads;
    std::atomic<uint32_t>    failures{0};

    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&failures] {
            if (cmm_module_init() != 0)
                failures++;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0u);
    EXPECT_EQ(g_cmm_init_count, 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(cmm_module_exit(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
}

TEST(StartStop, a_missing_document_starts_a_process_without_pools)
{
    const config_directory config({64, 16, 8});
    remove((config.path() + "/node_config.xml").c_str());

    ASSERT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(allocOnePageSync(7, __func__, __LINE__), nullptr);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ZeroPages, hold_zeros_and_the_integrity_text_that_each_is_named_for)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);

    const std::vector<uint8_t> plain(getZeroPageCtrlWithoutDif()->page_addr,
                                     getZeroPageCtrlWithoutDif()->page_addr + 8320);
    const uint8_t *dif = getZeroPageCtrl()->page_addr;
    EXPECT_EQ(plain, std::vector<uint8_t>(8320, 0));
    EXPECT_EQ(memcmp(dif + 512, "CMMREDIF", 8), 0);
    EXPECT_EQ(memcmp(dif + 8312, "CMMREDIF", 8), 0);
    EXPECT_EQ(dif[520], 0);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(ZeroPagesDeathTest, cannot_be_written)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    uint8_t *data = getZeroPageCtrl()->page_addr;

    EXPECT_DEATH(*const_cast<volatile uint8_t *>(data) = 1, "");
    EXPECT_EQ(cmm_module_exit(), 0u);
}
