/*
 * Pools that enclose slabs, and raw memory.
 */
#include <gtest/gtest.h>

#include <cstring>

#include "slab_helpers.h"
#include "under_test.h"

namespace
{

uint64_t make_pool()
{
    return zymm_pool_create("enclosing", 4u << 20, 1u << 20, 386, "test");
}

uint64_t make_slab_in(uint64_t pool)
{
    zymm_slab_param param = slab_param(64, 10);
    param.pool_id         = pool;
    return zymm_create_slab(&param, 386, "test");
}

} // namespace

TEST(EnclosingPool, without_slabs_is_destroyed)
{
    const uint64_t pool = make_pool();
    EXPECT_NE(pool, 0u);
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}

TEST(EnclosingPool, serves_the_slabs_in_it)
{
    const uint64_t pool = make_pool();
    const uint64_t slab = make_slab_in(pool);
    ASSERT_NE(slab, 0u);
    void *const object = take(slab);
    ASSERT_NE(object, nullptr);
    memset(object, 1, 64);
    EXPECT_EQ(give(slab, object), 0);
    destroy(slab);
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}

TEST(EnclosingPool, is_not_destroyed_while_a_slab_lives_in_it)
{
    const uint64_t pool = make_pool();
    const uint64_t slab = make_slab_in(pool);
    EXPECT_NE(zymm_pool_destory(pool, 386, "test"), 0);
    EXPECT_NE(take(slab), nullptr);
    destroy(slab);
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}

TEST(EnclosingPool, that_is_stale_takes_no_slab)
{
    const uint64_t pool = make_pool();
    zymm_pool_destory(pool, 386, "test");
    EXPECT_EQ(make_slab_in(pool), 0u);
}

TEST(EnclosingPool, that_is_stale_is_not_destroyed_again_and_says_so)
{
    const uint64_t pool = make_pool();
    zymm_pool_destory(pool, 386, "test");
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(zymm_pool_destory(pool, 386, "test"), 0); }), 1u);
}

TEST(EnclosingPool, handle_0_is_quiet)
{
    EXPECT_EQ(error_lines_of([] { EXPECT_EQ(zymm_pool_destory(0, 386, "test"), 0); }), 0u);
}

TEST(RawMemory, is_as_large_as_asked)
{
    void *const memory = zymm_malloc(5640, 386, "test");
    ASSERT_NE(memory, nullptr);
    memset(memory, 1, 5640);
    zymm_free(memory, 386, "test");
}

TEST(RawMemory, that_is_null_is_freed_without_a_line)
{
    EXPECT_EQ(error_lines_of([] { zymm_free(nullptr, 386, "test"); }), 0u);
}
