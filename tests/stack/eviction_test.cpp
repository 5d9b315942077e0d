/*
 * The eviction timer on the real platform: it runs beside everything, also beside stops and starts.
 */
#include "node_process.h"

static constexpr uint32_t MODULE = 80;

namespace
{

/* A cache of pages that gives one back whenever it is asked. */
struct page_cache {
    std::mutex               mutex;
    std::condition_variable  emptied;
    std::vector<page_ctrl *> pages;
};

void give_one_back(uint64_t arg)
{
    page_cache                       *cache = reinterpret_cast<page_cache *>(arg);
    const std::lock_guard<std::mutex> guard(cache->mutex);
    if (cache->pages.empty())
        return;
    freeOnePage(cache->pages.back(), MODULE, __func__, __LINE__);
    cache->pages.pop_back();
    if (cache->pages.size() < 95)
        cache->emptied.notify_one();
}

} // namespace

TEST(Eviction, holders_are_asked_until_less_than_95_percent_are_in_use)
{
    static page_cache      cache; /* handlers are never taken back */
    const config_directory config({100, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    ASSERT_EQ(zyumm_page_evict_handler_reg(0, give_one_back, reinterpret_cast<uint64_t>(&cache),
                                           MODULE, __func__),
              0u);
    {
        std::unique_lock<std::mutex> guard(cache.mutex);
        for (int i = 0; i < 100; ++i)
            cache.pages.push_back(allocOnePageSync(MODULE, __func__, __LINE__));
        cache.emptied.wait(guard, [] { return cache.pages.size() < 95; });
        for (page_ctrl *page : cache.pages)
            freeOnePage(page, MODULE, __func__, __LINE__);
        cache.pages.clear();
    }
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(Eviction, counts_may_be_asked_for_while_the_library_stops_and_starts)
{
    const config_directory config({64, 16, 8});
    bool                   stop = false;
    std::atomic<uint64_t>  impossible{0};
    ASSERT_EQ(cmm_module_init(), 0u);

    std::thread asker([&stop, &impossible] {
        uint64_t total = 0, used = 0, free = 0;
        while (!__atomic_load_n(&stop, __ATOMIC_RELAXED)) {
            get_page_count(&total, &used, &free);
            if (used > 64 || (total != 0 && total != 64))
                impossible++;
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(cmm_module_exit(), 0u);
        EXPECT_EQ(cmm_module_init(), 0u);
    }
    __atomic_store_n(&stop, true, __ATOMIC_RELAXED);
    asker.join();

    EXPECT_EQ(impossible, 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}
