/*
 * Public pools: objects of any size.
 */
#include <gtest/gtest.h>

#include <cstring>

#include "under_test.h"
#include "zyumm.h"

TEST(PublicPool, gives_out_objects_of_any_size)
{
    const uint64_t pool  = make_public_pool();
    void *const    small = pub_mpool_alloc_i(pool, 1, 386, "test");
    void *const    large = pub_mpool_alloc_i(pool, 100000, 386, "test");
    ASSERT_NE(small, nullptr);
    ASSERT_NE(large, nullptr);
    memset(small, 1, 1);
    memset(large, 2, 100000);
    EXPECT_EQ(pub_mpool_free_i(pool, small, 386, "test"), 0);
    EXPECT_EQ(pub_mpool_free_i(pool, large, 386, "test"), 0);
}

TEST(PublicPool, has_nothing_above_16_mib)
{
    const uint64_t pool = make_public_pool();
    EXPECT_EQ(pub_mpool_alloc_i(pool, (16u << 20) + 1, 386, "test"), nullptr);
}

TEST(PublicPool, refuses_foreign_frees_with_a_line)
{
    const uint64_t pool = make_public_pool();
    char           on_the_stack[64];
    EXPECT_EQ(error_lines_of([&] {
        EXPECT_NE(pub_mpool_free_i(pool, on_the_stack, 386, "test"), 0);
    }), 1u);
}

TEST(PublicPool, handle_0_is_quiet)
{
    char object[64];
    EXPECT_EQ(error_lines_of([&] {
        EXPECT_EQ(pub_mpool_alloc_i(0, 64, 386, "test"), nullptr);
        EXPECT_NE(pub_mpool_free_i(0, object, 386, "test"), 0);
    }), 0u);
}

TEST(PublicPool, that_is_unknown_fails_with_a_line)
{
    EXPECT_EQ(error_lines_of([] {
        EXPECT_EQ(pub_mpool_alloc_i(0x1234567, 64, 386, "test"), nullptr);
    }), 1u);
}
