/*
 * The allocator over a table of size classes.
 */
#include <gtest/gtest.h>

#include <cstring>

#include "slab_helpers.h"
#include "under_test.h"

namespace
{

constexpr zymm_slab_item TABLE[] = {
    {64, 0, 0xFFFFFFFF, 3, 8, 0},
    {4096, 0, 0xFFFFFFFF, 3, 4096, 0},
    {0x20000, 0, 0xFFFFFFFF, 1, 4096, 0},
};

/* An allocator in a pool of its own. */
class Allocator : public testing::Test
{
protected:
    Allocator() : pool(zymm_pool_create("buffers", 4u << 20, 1u << 20, 386, "test"))
    {
        EXPECT_EQ(zymm_allocator_init(&allocator), 0);
    }

    ~Allocator() override
    {
        if (created) {
            EXPECT_EQ(destroy_it(), 0);
        }
        EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
    }

    int create()
    {
        const int result = allocator.create(&allocator, "table", TABLE, 3, pool, 386, "test");
        created          = result == 0;
        return result;
    }

    int destroy_it()
    {
        created = false;
        return allocator.destroy(&allocator, 386, "test");
    }

    void *alloc(uint64_t size)
    {
        return allocator.alloc(&allocator, size, 386, "test", 1);
    }

    int give_back(void *memory)
    {
        return allocator.free(&allocator, memory, 386, "test");
    }

    uint64_t       pool;
    zymm_allocator allocator;
    bool           created = false;
};

} // namespace

TEST_F(Allocator, has_all_its_operations_after_init)
{
    EXPECT_NE(allocator.create, nullptr);
    EXPECT_NE(allocator.alloc, nullptr);
    EXPECT_NE(allocator.destroy, nullptr);
    EXPECT_NE(allocator.free, nullptr);
}

TEST_F(Allocator, serves_every_size_up_to_its_largest_class)
{
    ASSERT_EQ(create(), 0);
    void *const small  = alloc(1);
    void *const middle = alloc(65);
    void *const large  = alloc(0x20000);
    ASSERT_NE(small, nullptr);
    ASSERT_NE(middle, nullptr);
    ASSERT_NE(large, nullptr);
    memset(small, 1, 64);
    memset(middle, 2, 4096);
    memset(large, 3, 0x20000);
    EXPECT_EQ(give_back(small), 0);
    EXPECT_EQ(give_back(middle), 0);
    EXPECT_EQ(give_back(large), 0);
}

TEST_F(Allocator, blocks_lie_as_their_class_says)
{
    ASSERT_EQ(create(), 0);
    void *const middle = alloc(4000);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(middle) % 4096, 0u);
    EXPECT_EQ(give_back(middle), 0);
}

TEST_F(Allocator, has_nothing_above_its_largest_class)
{
    ASSERT_EQ(create(), 0);
    EXPECT_EQ(alloc(0x20001), nullptr);
}

TEST_F(Allocator, refuses_memory_that_is_not_its_own)
{
    ASSERT_EQ(create(), 0);
    char on_the_stack[64];
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give_back(on_the_stack), 0); }), 1u);
}

TEST_F(Allocator, that_was_never_created_has_nothing)
{
    EXPECT_EQ(alloc(64), nullptr);
}

TEST_F(Allocator, that_was_never_created_is_not_destroyed_and_says_so)
{
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(destroy_it(), 0); }), 1u);
}

TEST_F(Allocator, that_is_destroyed_is_not_destroyed_again_and_has_nothing)
{
    ASSERT_EQ(create(), 0);
    EXPECT_EQ(destroy_it(), 0);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(destroy_it(), 0); }), 1u);
    EXPECT_EQ(alloc(64), nullptr);
}

TEST_F(Allocator, can_be_created_again_after_its_end)
{
    ASSERT_EQ(create(), 0);
    EXPECT_EQ(destroy_it(), 0);
    EXPECT_EQ(create(), 0);
    void *const block = alloc(64);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(give_back(block), 0);
}

TEST_F(Allocator, is_not_created_twice_and_says_so)
{
    ASSERT_EQ(create(), 0);
    EXPECT_EQ(error_lines_of([&] {
        EXPECT_NE(allocator.create(&allocator, "table", TABLE, 3, pool, 386, "test"), 0);
    }), 1u);
    void *const block = alloc(64);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(give_back(block), 0);
}

TEST_F(Allocator, keeps_its_pool_from_being_destroyed)
{
    ASSERT_EQ(create(), 0);
    EXPECT_NE(zymm_pool_destory(pool, 386, "test"), 0);
}

TEST_F(Allocator, of_no_table_is_refused)
{
    EXPECT_NE(allocator.create(&allocator, "table", nullptr, 3, pool, 386, "test"), 0);
    EXPECT_NE(allocator.create(&allocator, "table", TABLE, 0, pool, 386, "test"), 0);
}

TEST(AllocatorRecord, that_is_null_is_refused)
{
    EXPECT_NE(zymm_allocator_init(nullptr), 0);
}
