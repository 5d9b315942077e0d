/*
 * Data through pages of the real pool, in both measures, by many threads.
 */
#include <cstring>
#include <random>
#include <vector>

#include "node_process.h"

static constexpr uint32_t MODULE = 78;

static std::vector<uint8_t> random_bytes(size_t count, uint32_t seed)
{
    std::mt19937         random(seed);
    std::vector<uint8_t> bytes(count);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

TEST(DataPath, a_mebibyte_comes_back_as_it_went_in_and_keeps_the_integrity_bytes)
{
    const config_directory config({256, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    const std::vector<uint8_t> source = random_bytes(1 << 20, 1);
    std::vector<uint8_t>       back(source.size());
    SGL                       *chain = nullptr;
    allocMultiPagesSync(128, &chain, MODULE, __func__, __LINE__);
    ASSERT_NE(chain, nullptr);

    EXPECT_EQ(copyDataFromBufferToSglIgnoreDif(chain, 0, source.data(), 1 << 20), 0);
    EXPECT_EQ(copyDataFromSglToBufferIgnoreDif(chain, 0, back.data(), 1 << 20), 0);
    EXPECT_EQ(source, back);

    std::vector<uint8_t> full(128 * 8320);
    EXPECT_EQ(copyDataFromSglToBuffer(chain, 0, full.data(), 128 * 8320), 0);
    EXPECT_EQ(memcmp(full.data() + 512, "CMMREDIF", 8), 0);
    EXPECT_EQ(memcmp(full.data() + 128 * 8320 - 8, "CMMREDIF", 8), 0);
    freeMultiPages(chain, MODULE, __func__, __LINE__);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(DataPath, threads_that_share_the_pool_never_see_each_others_bytes)
{
    const config_directory config({512, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    std::atomic<uint32_t>    wrong{0};
    std::vector<std::thread> threads;

    for (uint32_t id = 0; id < 8; ++id)
        threads.emplace_back([id, &wrong] {
            const std::vector<uint8_t> source = random_bytes(100000, id);
            std::vector<uint8_t>       back(source.size());
            for (uint32_t round = 0; round < 60; ++round) {
                SGL *chain = nullptr;
                allocMultiPagesSync(16, &chain, MODULE, __func__, __LINE__);
                const uint32_t at = round * 37;
                if (chain == nullptr ||
                    copyDataFromBufferToSglIgnoreDif(chain, at, source.data(), 100000) != 0 ||
                    copyDataFromSglToBufferIgnoreDif(chain, at, back.data(), 100000) != 0 ||
                    source != back)
                    wrong++;
                freeMultiPages(chain, MODULE, __func__, __LINE__);
            }
        });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(Structures, eight_threads_take_and_return_objects_of_partitions_they_make_themselves)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    std::atomic<uint32_t>    wrong{0};
    std::vector<std::thread> threads;

    for (uint32_t id = 0; id < 8; ++id)
        threads.emplace_back([id, &wrong] {
            for (uint32_t round = 0; round < 50; ++round) {
                uint32_t part_id = 0;
                void    *object  = nullptr;
                if (createStructurePartition(8, "thread's own", id, 0, 128, &part_id, nullptr,
                                             nullptr, 0) != 0) {
                    wrong++;
                    continue;
                }
                allocStructure(id, part_id, &object, __func__);
                if (object == nullptr || getBusyObjectSum(part_id) != 1)
                    wrong++;
                freeStructure(object, part_id, id, __func__, __LINE__);
                if (deleteStructurePartition(part_id) != 0)
                    wrong++;
            }
        });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(g_cmm_part_sum, 1u); /* the zero pages' */
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(PageDeathTest, a_page_freed_twice_ends_the_process_with_both_lines)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    page_ctrl *page = allocOnePageSync(MODULE, "the allocator", __LINE__);
    freeOnePage(page, MODULE, "the freer", __LINE__);

    EXPECT_DEATH(freeOnePage(page, 79, "the second freer", __LINE__),
                 "page flag expect 1 but 0, page was allocated by function\\(the allocator\\), "
                 "module\\(78\\), free_func\\(the second freer\\), free_mod\\(79\\)(.|\n)*"
                 "Page_ctrl\\(0x[0-9a-f]+\\) double free");
    EXPECT_EQ(cmm_module_exit(), 0u);
}
