/*
 * What bounds the caches of threads: the process's cache numbers, a pool's own, and the number of
 * threads that may cache pages.
 */
#include <algorithm>
#include <latch>

#include "contract/core/mpool_helpers.h"
#include "zylog.h"
#include "zymm_real_helpers.h"

namespace
{

enum : uint64_t { PAGE_BYTES = 8376, OBJECTS = 400 };

uint64_t make_cached(uint64_t obj_size)
{
    zymm_slab_param param = slab_param(obj_size, OBJECTS);
    param.attr            = ZYMM_SLAB_CACHED;
    return zymm_create_slab(&param, 386, "test");
}

uint64_t make_cached_pool(uint64_t obj_size, uint32_t cache_num, uint32_t cache_size)
{
    const uint32_t    partition = zyumm_partition_create(1, 0, 0, "cached");
    zyumm_mpool_param param     = mpool_param(partition, obj_size, OBJECTS);
    param.attr                  = 0x2;
    param.cache_num             = cache_num;
    param.cache_size            = cache_size;
    return zyumm_mpool_create(&param);
}

uint64_t cached_of(uint64_t slab)
{
    uint64_t cached = 0;
    for (uint32_t node = 0;; node++) {
        zymm_numa_usage usage = {};
        if (node == 64 || zymm_slab_get_usage_by_numa(slab, node, &usage) != 0)
            return cached;
        cached += usage.cached;
    }
}

/* Takes many, gives them all back, and tells the most that was seen in caches on the way. */
uint64_t most_cached_by_one_thread(uint64_t slab)
{
    uint64_t                  most = 0;
    const std::vector<void *> all  = take_all(slab);
    EXPECT_EQ(all.size(), OBJECTS);
    for (void *object : all) {
        give(slab, object);
        most = std::max(most, cached_of(slab));
    }
    return most;
}

/* The same of a slab or pool that goes afterwards. */
uint64_t most_cached_in(uint64_t slab)
{
    const uint64_t most = most_cached_by_one_thread(slab);
    destroy(slab);
    return most;
}

} // namespace

/* Asking for usage of a node that is not there logs a line; it is not these tests' matter. */
class ZymmCacheNumbers : public testing::Test
{
protected:
    void SetUp() override
    {
#if defined(ZYMM_CHECKING)
        GTEST_SKIP() << "in the checking build no thread caches objects";
#endif
        zyax_log_set_level(ZYLOG_FATAL);
    }
};

TEST_F(ZymmCacheNumbers, without_a_setting_are_128_objects_and_16_large_ones)
{
    EXPECT_EQ(most_cached_in(make_cached(PAGE_BYTES)), 128u);
    EXPECT_EQ(most_cached_in(make_cached(64)), 128u);
    EXPECT_EQ(most_cached_in(make_cached(65536)), 128u);
    EXPECT_EQ(most_cached_in(make_cached(65537)), 16u);
}

TEST_F(ZymmCacheNumbers, of_the_process_bound_each_kind_of_slab_made_afterwards)
{
    const uint64_t before = make_cached(64);
    zymm_pool_cache_num_set(10, 20, 30, 0);
    EXPECT_EQ(most_cached_in(make_cached(PAGE_BYTES)), 10u);
    EXPECT_EQ(most_cached_in(make_cached(64)), 20u);
    EXPECT_EQ(most_cached_in(make_cached(65537)), 30u);
    EXPECT_EQ(most_cached_in(before), 128u);
}

TEST_F(ZymmCacheNumbers, of_1_switch_caching_off)
{
    zymm_pool_cache_num_set(1, 1, 1, 0);
    EXPECT_EQ(most_cached_in(make_cached(PAGE_BYTES)), 0u);
    EXPECT_EQ(most_cached_in(make_cached(64)), 0u);
}

TEST_F(ZymmCacheNumbers, are_at_most_128)
{
    zymm_pool_cache_num_set(0, 1000, 0, 0);
    EXPECT_EQ(most_cached_in(make_cached(64)), 128u);
}

TEST_F(ZymmCacheNumbers, are_none_for_a_slab_without_the_attribute)
{
    EXPECT_EQ(most_cached_in(make_slab(64, OBJECTS)), 0u);
}

TEST_F(ZymmCacheNumbers, of_a_pool_go_before_those_of_the_process)
{
    zymm_pool_cache_num_set(50, 50, 50, 0);
    EXPECT_EQ(most_cached_in(make_cached_pool(64, 12, 0)), 12u);
    EXPECT_EQ(most_cached_in(make_cached_pool(64, 12, 1u << 20)), 12u);
    EXPECT_EQ(most_cached_in(make_cached_pool(1024, 0, 24 * 1024)), 24u);
    EXPECT_EQ(most_cached_in(make_cached_pool(64, 0, 0)), 50u);
}

/* All threads stay alive with what they cached until the last one has looked. */
TEST_F(ZymmCacheNumbers, bound_the_threads_that_cache_pages)
{
    enum : unsigned { THREADS = 5, ALLOWED = 2, EACH = 10 };
    zymm_pool_cache_num_set(EACH, 0, 0, ALLOWED);
    const uint64_t        pages = make_cached(PAGE_BYTES);
    const uint64_t        small = make_cached(64);
    std::latch            through(THREADS);
    std::latch            looked(1);
    std::atomic<uint64_t> most{0};
    in_threads(THREADS, [&](unsigned number) {
        std::vector<void *> held;
        for (unsigned count = 0; count < 3 * EACH; count++)
            held.push_back(take(pages));
        for (void *object : held)
            give(pages, object);
        give(small, take(small));
        through.arrive_and_wait();
        if (number == 0) {
            most = cached_of(pages);
            looked.count_down();
        }
        looked.wait();
    });
    EXPECT_GT(most.load(), 0u);
    EXPECT_LE(most.load(), uint64_t(ALLOWED * EACH));
    EXPECT_EQ(take_all(pages).size(), OBJECTS);
    destroy(pages);
    destroy(small);
}

TEST_F(ZymmCacheNumbers, of_threads_count_pages_alone)
{
    zymm_pool_cache_num_set(0, 0, 0, 1);
    const uint64_t slab = make_cached(64);
    give(slab, take(slab));
    const uint64_t by_one = cached_of(slab);
    uint64_t       by_two = 0;
    std::thread([&] {
        give(slab, take(slab));
        by_two = cached_of(slab);
    }).join();
    EXPECT_GT(by_two, by_one);
    destroy(slab);
}

TEST_F(ZymmCacheNumbers, let_a_further_thread_cache_when_another_one_ended)
{
    zymm_pool_cache_num_set(10, 0, 0, 1);
    const uint64_t slab = make_cached(PAGE_BYTES);
    std::thread([&] { give(slab, take(slab)); }).join();
    EXPECT_EQ(cached_of(slab), 0u);
    EXPECT_EQ(most_cached_by_one_thread(slab), 10u);
    destroy(slab);
}
