/*
 * Enclosing pools as budgets: they run dry, grow by their extension, get everything back.
 */
#include <set>

#include "zymm_real_helpers.h"

namespace
{

uint64_t make_in(uint64_t pool, uint64_t obj_size, uint64_t max_num, uint64_t min_num = 0)
{
    zymm_slab_param param = slab_param(obj_size, max_num);
    param.pool_id         = pool;
    param.min_num         = min_num;
    return zymm_create_slab(&param, 386, "test");
}

uint64_t make_pool(uint64_t size, uint64_t extension)
{
    return zymm_pool_create("the pool", size, extension, 386, "test");
}

void end(uint64_t pool)
{
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}

} // namespace

TEST(ZymmPoolReal, without_extension_runs_dry_at_its_size)
{
    const uint64_t pool = make_pool(1048576, 0);
    const uint64_t slab = make_in(pool, 65536 - 64, 1000);
    EXPECT_EQ(take_all(slab).size(), 16u);
    log_of([&] { destroy(slab); });
    end(pool);
}

TEST(ZymmPoolReal, with_extension_grows_each_time_it_is_used_up)
{
    const uint64_t pool   = make_pool(1048576, 1048576);
    const uint64_t before = mapped_bytes();
    const uint64_t slab   = make_in(pool, 65536 - 64, 48);
    for (unsigned count = 0; count < 16; count++)
        EXPECT_NE(take(slab), nullptr);
    EXPECT_LT(mapped_bytes(), before + 1048576);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_GT(mapped_bytes(), before + 1048576);
    EXPECT_EQ(take_all(slab).size(), 31u);
    EXPECT_GT(mapped_bytes(), before + 2 * 1048576);
    EXPECT_LT(mapped_bytes(), before + 3 * 1048576);
    log_of([&] { destroy(slab); });
    end(pool);
}

TEST(ZymmPoolReal, of_size_0_lives_on_its_extension)
{
    const uint64_t pool = make_pool(0, 131072);
    const uint64_t slab = make_in(pool, 1000, 200);
    EXPECT_EQ(take_all(slab).size(), 200u);
    log_of([&] { destroy(slab); });
    end(pool);
}

TEST(ZymmPoolReal, grows_by_several_extensions_for_an_object_larger_than_one)
{
    const uint64_t pool = make_pool(65536, 65536);
    const uint64_t slab = make_in(pool, 1000000, 2);
    EXPECT_EQ(take_all(slab).size(), 2u);
    log_of([&] { destroy(slab); });
    end(pool);
}

TEST(ZymmPoolReal, sized_by_whole_sizes_holds_that_many_objects)
{
    const uint64_t pool = make_pool(1000 * zymm_object_whole_size_get(8320, 0, 8), 0);
    const uint64_t slab = make_in(pool, 8320, 1000);
    EXPECT_EQ(take_all(slab).size(), 1000u);
    log_of([&] { destroy(slab); });
    end(pool);
}

TEST(ZymmPoolReal, backs_min_num_of_its_slabs_or_fails_their_creation)
{
    const uint64_t    pool = make_pool(1048576, 0);
    const std::string log  = log_of([&] { EXPECT_EQ(make_in(pool, 4000, 1000, 1000), 0u); });
    EXPECT_EQ(count_of(log, "the enclosing pool is used up"), 1u) << log;
    const uint64_t slab = make_in(pool, 4000, 1000, 200);
    ASSERT_NE(slab, 0u);
    EXPECT_GE(resident_pages(take(slab), 4000 * 200 - 4096), 195u);
    log_of([&] { destroy(slab); });
    end(pool);
}

TEST(ZymmPoolReal, lets_no_slab_starve_beside_memory_that_another_never_used)
{
    const uint64_t pool  = make_pool(1048576, 0);
    const uint64_t first = make_in(pool, 64, 1000000);
    void *const    one   = take(first);
    const uint64_t other = make_in(pool, 65536 - 64, 1000);
    EXPECT_EQ(take_all(other).size(), 15u);
    EXPECT_EQ(give(first, one), 0);
    EXPECT_EQ(take_all(first).size(), 65536 / STRIDE_OF_64);
    log_of([&] {
        destroy(first);
        destroy(other);
    });
    end(pool);
}

TEST(ZymmPoolReal, never_takes_away_what_is_backed_for_min_num)
{
    const uint64_t pool  = make_pool(1048576, 0);
    const uint64_t first = make_in(pool, 65536 - 64, 1000, 10);
    const uint64_t other = make_in(pool, 65536 - 64, 1000);
    EXPECT_EQ(take_all(other).size(), 6u);
    EXPECT_EQ(take_all(first).size(), 10u);
    log_of([&] {
        destroy(first);
        destroy(other);
    });
    end(pool);
}

TEST(ZymmPoolReal, gets_a_destroyed_slabs_memory_back)
{
    const uint64_t pool = make_pool(1048576, 0);
    uint64_t       slab = make_in(pool, 65536 - 64, 1000);
    EXPECT_EQ(take_all(slab).size(), 16u);
    log_of([&] { destroy(slab); });
    slab = make_in(pool, 1048576 - 64, 1);
    char *const whole = static_cast<char *>(take(slab));
    ASSERT_NE(whole, nullptr);
    EXPECT_EQ(whole[0], 0);
    EXPECT_EQ(whole[1000000], 0);
    give(slab, whole);
    destroy(slab);
    end(pool);
}

TEST(ZymmPoolReal, destroyed_gives_everything_back)
{
    const uint64_t before = mapped_bytes();
    const uint64_t pool   = make_pool(1048576, 65536);
    const uint64_t slab   = make_in(pool, 1000, 5000);
    EXPECT_EQ(take_all(slab).size(), 5000u);
    EXPECT_NE(zymm_pool_destory(pool, 386, "test"), 0);
    log_of([&] { destroy(slab); });
    end(pool);
    EXPECT_EQ(mapped_bytes(), before);
}

TEST(ZymmPoolReal, more_than_the_address_space_is_refused_with_a_line)
{
    const std::string log = log_of([] {
        EXPECT_EQ(make_pool(UINT64_MAX, 0), 0u);
        EXPECT_EQ(make_pool(1ull << 47, 0), 0u);
    });
    EXPECT_EQ(count_of(log, "no memory or handle"), 2u) << log;
}

TEST(ZymmPoolReal, serves_slabs_of_many_threads_and_cuts_them_without_losing_an_object)
{
    const uint64_t        pool = make_pool(8 * 1048576, 0);
    std::atomic<uint64_t> wrong{0};
    std::atomic<uint64_t> objects{0};
    in_threads(8, [&](unsigned number) {
        for (unsigned round = 0; round < 40; round++) {
            const uint64_t            slab  = make_in(pool, 200 + 900 * number, 600);
            std::vector<void *>       taken = take_all(slab);
            const std::set<void *>    unique(taken.begin(), taken.end());
            wrong += unique.size() != taken.size();
            objects += taken.size();
            for (void *object : taken)
                wrong += give(slab, object) != 0;
            destroy(slab);
        }
    });
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_GT(objects.load(), 0u);
    end(pool);
}
