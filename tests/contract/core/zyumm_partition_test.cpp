/*
 * Partitions of the unified memory manager.
 */
#include <gtest/gtest.h>

#include "mpool_helpers.h"
#include "under_test.h"

TEST(UnifiedPartition, ids_differ_and_are_not_0)
{
    const uint32_t first  = zyumm_partition_create(0, 0, 0, "first");
    const uint32_t second = zyumm_partition_create(0, 0, 0, "second");
    EXPECT_NE(first, 0u);
    EXPECT_NE(second, 0u);
    EXPECT_NE(first, second);
    EXPECT_EQ(zyumm_partition_delete(first), 0);
    EXPECT_EQ(zyumm_partition_delete(second), 0);
}

TEST(UnifiedPartition, that_is_unknown_is_not_deleted_and_says_so)
{
    const uint32_t id = zyumm_partition_create(0, 0, 0, "once");
    EXPECT_EQ(zyumm_partition_delete(id), 0);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(zyumm_partition_delete(id), 0); }), 1u);
}

TEST(UnifiedPartition, is_deleted_while_its_pools_live_on)
{
    const uint32_t id   = zyumm_partition_create(0, 0, 0, "parent");
    const uint64_t pool = make_mpool(id, 64, 2);
    ASSERT_NE(pool, 0u);
    EXPECT_EQ(zyumm_partition_delete(id), 0);

    void *const object = zyumm_mpool_alloc_i(pool, 386, "test");
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(zyumm_mpool_free_i(pool, object, 386, "test"), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST(UnifiedPartition, that_is_deleted_takes_no_more_pools)
{
    const uint32_t id = zyumm_partition_create(0, 0, 0, "parent");
    zyumm_partition_delete(id);
    EXPECT_EQ(make_mpool(id, 64, 2), 0u);
}
