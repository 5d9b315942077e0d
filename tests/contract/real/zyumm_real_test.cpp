/*
 * The unified memory manager over real memory: pools without a limit, handles of all kinds in one
 * space, public pools that grow.
 */
#include <cstring>

#include "contract/core/mpool_helpers.h"
#include "zymm_real_helpers.h"
#include "zyumm_pub.h"

namespace
{

uint32_t a_partition()
{
    static const uint32_t partition = zyumm_partition_create(1, 0, 0, "real");
    return partition;
}

void *take_of(uint64_t pool)
{
    return zyumm_mpool_alloc_i(pool, 386, "test");
}

} // namespace

TEST(ZyummReal, a_pool_without_a_limit_counts_what_it_has_carved)
{
    const uint64_t      pool = make_mpool(a_partition(), 1000, 0);
    std::vector<void *> taken;
    uint32_t            total     = 99;
    uint32_t            allocated = 99;
    EXPECT_EQ(mmGetObjectSum(pool), 0u);
    for (unsigned count = 0; count < 100000; count++)
        taken.push_back(take_of(pool));
    EXPECT_EQ(std::count(taken.begin(), taken.end(), nullptr), 0);
    for (unsigned count = 0; count < 40000; count++) {
        zyumm_mpool_free_i(pool, taken.back(), 386, "test");
        taken.pop_back();
    }
    EXPECT_EQ(get_mpool_alloc_info(pool, &total, &allocated), 0);
    EXPECT_GE(total, 100000u);
    EXPECT_LT(total, 100016u); /* up to 16 come into being at once */
    EXPECT_EQ(allocated, 60000u);
    EXPECT_EQ(mmGetObjectSum(pool), total);
    EXPECT_EQ(mmGetBusyObjectSum(pool), 60000u);
    EXPECT_EQ(mmGetUesdInfo(pool), 60000u);
    for (void *object : taken)
        zyumm_mpool_free_i(pool, object, 386, "test");
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST(ZyummReal, deleting_a_pool_gives_everything_back_but_not_while_objects_are_out)
{
    const uint64_t before = mapped_bytes();
    const uint64_t pool   = make_mpool(a_partition(), 8192, 1000);
    void *const    object = take_of(pool);
    const std::string log = log_of([&] { EXPECT_NE(zyumm_mpool_delete(pool), 0); });
    EXPECT_EQ(count_of(log, "still has 1 objects out"), 1u) << log;
    memset(object, 1, 8192);
    EXPECT_EQ(zyumm_mpool_free_i(pool, object, 386, "test"), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
    EXPECT_EQ(mapped_bytes(), before);
}

TEST(ZyummReal, refusals_are_logged_in_the_name_of_the_pool_operation)
{
    const uint64_t    pool = make_mpool(a_partition(), 64, 2);
    char              on_the_stack[64];
    const std::string log = log_of([&] {
        EXPECT_NE(zyumm_mpool_free_i(pool, on_the_stack, 386, "the_caller"), 0);
        EXPECT_EQ(zyumm_mpool_delete(pool), 0);
        EXPECT_EQ(take_of(pool), nullptr);
    });
    EXPECT_EQ(count_of(log, "zyumm_mpool_free_i"), 1u) << log;
    EXPECT_EQ(count_of(log, "the_caller"), 1u) << log;
    EXPECT_EQ(count_of(log, "zyumm_mpool_alloc_i"), 1u) << log;
}

TEST(ZyummReal, info_takes_slabs_and_pools_and_tells_the_whole_size)
{
    zymm_slab_param param = slab_param(8376, 10);
    strcpy(param.name, "PAGE PARTITION");
    param.min_num                = 2;
    const uint64_t       slab    = zymm_create_slab(&param, 386, "test");
    const uint64_t       pool    = make_mpool(a_partition(), 100, 0);
    zyumm_partition_info of_slab = {};
    zyumm_partition_info of_pool = {};
    void *const          object  = take(slab);
    EXPECT_EQ(zyumm_partition_info_get(slab, &of_slab), 0);
    EXPECT_EQ(zyumm_partition_info_get(pool, &of_pool), 0);
    EXPECT_STREQ(of_slab.name, "PAGE PARTITION");
    EXPECT_EQ(of_slab.obj_size, 8376u);
    EXPECT_EQ(of_slab.whole_size, zymm_object_whole_size_get(8376, 0, 8));
    EXPECT_EQ(of_slab.min_num, 2u);
    EXPECT_EQ(of_slab.max_num, 10u);
    EXPECT_EQ(of_slab.total, 10u);
    EXPECT_EQ(of_slab.used, 1u);
    EXPECT_EQ(of_slab.module_id, 386u);
    EXPECT_EQ(of_pool.max_num, 0u);
    EXPECT_EQ(of_pool.total, 0u);
    give(slab, object);
    destroy(slab);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST(ZyummReal, a_handle_of_one_kind_is_never_valid_as_another)
{
    const uint64_t       slab      = make_slab(64, 1);
    const uint64_t       enclosing = zymm_pool_create("enclosing", 65536, 0, 386, "test");
    const uint64_t       pub       = zyumm_pub_mpool_create("public", 65536, 0, 386);
    zyumm_partition_info info      = {};
    const std::string    log       = log_of([&] {
        EXPECT_EQ(take(enclosing), nullptr);
        EXPECT_EQ(take(pub), nullptr);
        EXPECT_NE(zymm_pool_destory(slab, 386, "test"), 0);
        EXPECT_NE(zyumm_pub_mpool_delete(slab), 0);
        EXPECT_NE(zyumm_partition_info_get(enclosing, &info), 0);
        EXPECT_EQ(pub_mpool_alloc_i(slab, 8, 386, "test"), nullptr);
    });
    EXPECT_EQ(count_of(log, "(stale or never made)"), 6u) << log;
    EXPECT_EQ(info.obj_size, 0u);
    destroy(slab);
    EXPECT_EQ(zymm_pool_destory(enclosing, 386, "test"), 0);
    EXPECT_EQ(zyumm_pub_mpool_delete(pub), 0);
}

TEST(ZyummPublic, serves_every_size_up_to_16_mib)
{
    const uint64_t before = mapped_bytes();
    const uint64_t pool   = zyumm_pub_mpool_create("public", 1048576, 1048576, 386);
    ASSERT_NE(pool, 0u);
    uint64_t wrong = 0;
    for (uint32_t size = 1; size <= 16777216; size = size * 2 + (size < 16777215 ? 1 : 0)) {
        unsigned char *object =
            static_cast<unsigned char *>(pub_mpool_alloc_i(pool, size, 386, "test"));
        wrong += object == nullptr;
        if (object == nullptr)
            continue;
        memset(object, 0x11, size);
        wrong += pub_mpool_free_i(pool, object, 386, "test") != 0;
    }
    void *const largest = pub_mpool_alloc_i(pool, 16777216, 386, "test");
    EXPECT_NE(largest, nullptr);
    EXPECT_EQ(pub_mpool_free_i(pool, largest, 386, "test"), 0);
    EXPECT_EQ(pub_mpool_alloc_i(pool, 16777217, 386, "test"), nullptr);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(zyumm_pub_mpool_delete(pool), 0);
    EXPECT_EQ(mapped_bytes(), before);
}

TEST(ZyummPublic, runs_dry_at_its_size_and_is_not_deleted_while_objects_are_out)
{
    const uint64_t pool   = zyumm_pub_mpool_create("public", 1048576, 0, 386);
    void *const    object = pub_mpool_alloc_i(pool, 524288 - 64, 386, "test");
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(pub_mpool_alloc_i(pool, 1048576, 386, "test"), nullptr);
    const std::string log = log_of([&] { EXPECT_NE(zyumm_pub_mpool_delete(pool), 0); });
    EXPECT_EQ(count_of(log, "still has 1 objects out"), 1u) << log;
    EXPECT_EQ(pub_mpool_free_i(pool, object, 386, "test"), 0);
    EXPECT_EQ(zyumm_pub_mpool_delete(pool), 0);
    EXPECT_NE(zyumm_pub_mpool_delete(0), 0);
}

TEST(ZyummDefaults, are_what_the_host_header_says)
{
    EXPECT_EQ(getLocalCacheDefaultNum(), 64u);
    EXPECT_EQ(getLocalCacheDefaultSize(), 262144u);
}
