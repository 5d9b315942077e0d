/*
 * What many threads count together: the last reference of a page, the ids of the registry.
 */
#include <array>
#include <set>

#include "node_process.h"

static constexpr uint32_t MODULE = 85;
static constexpr uint32_t HOLDERS = 8;
static constexpr uint32_t PAGES = 200;

namespace
{

/* Runs `body(number)` in as many threads as there are holders and waits for them. */
template <typename Body>
void in_all_holders(Body body)
{
    std::vector<std::thread> threads;
    for (uint32_t number = 0; number < HOLDERS; ++number)
        threads.emplace_back(body, number);
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace

TEST(Counting, of_eight_holders_exactly_one_sees_the_last_reference_of_each_page)
{
    const config_directory config({PAGES, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    std::array<page_ctrl *, PAGES> pages;
    std::array<std::atomic<uint32_t>, PAGES> last_seen = {};
    for (page_ctrl *&page : pages) {
        page = allocOnePageSync(MODULE, __func__, __LINE__);
        ASSERT_NE(page, nullptr);
    }

    /* Everybody takes a reference of everything, while the first one is still there. */
    in_all_holders([&](uint32_t) {
        for (page_ctrl *page : pages)
            incAndRetPageReference(page, "a holder", __LINE__);
    });
    for (page_ctrl *page : pages)
        EXPECT_EQ(decAndRetPageReference(page, MODULE, __func__, __LINE__), 8u);
    EXPECT_EQ(pages_out(), 200u);

    in_all_holders([&](uint32_t) {
        for (uint32_t i = 0; i < PAGES; ++i)
            last_seen[i] += decAndRetPageReference(pages[i], MODULE, "a holder", __LINE__) == 0;
    });
    for (const std::atomic<uint32_t> &seen : last_seen)
        EXPECT_EQ(seen, 1u);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/* 2,047 ids, of which the zero pages have one. */
TEST(Counting, eight_threads_that_fill_the_registry_get_each_id_once_and_no_more)
{
    const config_directory config({64, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    std::array<std::vector<uint32_t>, HOLDERS> mine;
    std::atomic<uint32_t> wrong{0};

    for (int round = 0; round < 2; ++round) {
        in_all_holders([&](uint32_t number) {
            uint32_t id = 0;
            while (createExpStructurePartition(0, 1, "one of many", number, 0, 64, &id, nullptr,
                                               nullptr) == 0)
                mine[number].push_back(id);
        });
        std::set<uint32_t> ids;
        size_t made = 0;
        for (const std::vector<uint32_t> &each : mine) {
            ids.insert(each.begin(), each.end());
            made += each.size();
        }
        EXPECT_EQ(made, 2046u);
        EXPECT_EQ(ids.size(), 2046u);
        EXPECT_EQ(g_cmm_part_sum, 2047u);

        in_all_holders([&](uint32_t number) {
            for (const uint32_t id : mine[number])
                wrong += deleteStructurePartition(id) != 0;
            mine[number].clear();
        });
        EXPECT_EQ(wrong, 0u);
        EXPECT_EQ(g_cmm_part_sum, 1u);
    }
    EXPECT_EQ(cmm_module_exit(), 0u);
}
