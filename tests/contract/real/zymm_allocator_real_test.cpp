/*
 * The allocator over 141 size classes, in an enclosing pool, and raw blocks.
 */
#include <cstring>
#include <random>

#include "zymm_real_helpers.h"

namespace
{

/* 64 to 2048 doubling, 4 to 32 KiB by 4 KiB, 128 KiB to 16 MiB - 128 KiB by 128 KiB. */
std::vector<zymm_slab_item> make_table()
{
    std::vector<zymm_slab_item> table;
    for (uint64_t size = 64; size <= 2048; size *= 2)
        table.push_back({size, 0, 0xFFFFFFFF, 3, 8, 0});
    for (uint64_t size = 4096; size <= 32768; size += 4096)
        table.push_back({size, 0, 0xFFFFFFFF, 3, 4096, 0});
    for (uint64_t size = 0x20000; size <= 0xFE0000; size += 0x20000)
        table.push_back({size, 0, 0xFFFFFFFF, 1, 4096, 0});
    return table;
}

class ZymmAllocatorReal : public testing::Test {
protected:
    void SetUp() override
    {
        const std::vector<zymm_slab_item> table = make_table();
        ASSERT_EQ(table.size(), 141u);
        pool = zymm_pool_create("rdma_pool", 64u << 20, 4u << 20, 386, "test");
        zymm_allocator_init(&allocator);
        ASSERT_EQ(allocator.create(&allocator, "buffer_slab_table", table.data(), 141, pool, 386,
                                   "test"),
                  0);
    }

    void TearDown() override
    {
        EXPECT_EQ(allocator.destroy(&allocator, 386, "test"), 0);
        EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
    }

    void *alloc(uint64_t size)
    {
        return allocator.alloc(&allocator, size, 386, "test", 1);
    }

    int give_back(void *memory)
    {
        return allocator.free(&allocator, memory, 386, "test");
    }

    zymm_allocator allocator = {};
    uint64_t       pool      = 0;
};

} // namespace

TEST_F(ZymmAllocatorReal, serves_every_class_and_the_sizes_around_it)
{
    uint64_t wrong = 0;
    for (const zymm_slab_item &item : make_table()) {
        for (uint64_t size : {item.obj_size - 1, item.obj_size}) {
            void *memory = alloc(size);
            wrong += memory == nullptr;
            if (memory == nullptr)
                continue;
            memset(memory, 0x77, size);
            wrong += reinterpret_cast<uintptr_t>(memory) % item.align != 0;
            wrong += give_back(memory) != 0;
        }
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(alloc(0xFE0001), nullptr);
}

TEST_F(ZymmAllocatorReal, keeps_blocks_of_threads_apart)
{
    std::atomic<uint64_t> wrong{0};
    in_threads(8, [&](unsigned number) {
        std::minstd_rand random(number + 7);
        for (unsigned round = 0; round < 2000; round++) {
            const uint64_t size = 1 + random() % 32768;
            unsigned char *memory = static_cast<unsigned char *>(alloc(size));
            if (memory == nullptr) {
                wrong++;
                continue;
            }
            memset(memory, int(number + 1), size);
            std::this_thread::yield();
            wrong += memory[0] != number + 1 || memory[size - 1] != number + 1;
            wrong += give_back(memory) != 0;
        }
    });
    EXPECT_EQ(wrong.load(), 0u);
}

TEST_F(ZymmAllocatorReal, refuses_double_foreign_and_interior_frees_with_a_line)
{
    char *const    memory = static_cast<char *>(alloc(4096));
    const uint64_t slab   = make_slab(4096, 1);
    void *const    object = take(slab);
    const std::string log = log_of([&] {
        EXPECT_NE(give_back(memory + 8), 0);
        EXPECT_NE(give_back(object), 0);
        EXPECT_EQ(give_back(memory), 0);
        EXPECT_NE(give_back(memory), 0);
    });
    EXPECT_EQ(count_of(log, "is no object of it"), 1u) << log;
    EXPECT_EQ(count_of(log, "is no memory of the allocator"), 1u) << log;
    EXPECT_EQ(count_of(log, "freed twice"), 1u) << log;
    give(slab, object);
    destroy(slab);
}

TEST(ZymmAllocatorLimits, a_used_up_class_does_not_draw_on_larger_ones)
{
    const zymm_slab_item table[] = {{64, 0, 2, 3, 8, 0}, {128, 1, 5, 3, 8, 0}};
    zymm_allocator       allocator;
    zymm_allocator_init(&allocator);
    ASSERT_EQ(allocator.create(&allocator, "two", table, 2, 0, 386, "test"), 0);
    EXPECT_NE(allocator.alloc(&allocator, 64, 386, "test", 1), nullptr);
    EXPECT_NE(allocator.alloc(&allocator, 1, 386, "test", 1), nullptr);
    EXPECT_EQ(allocator.alloc(&allocator, 64, 386, "test", 1), nullptr);
    EXPECT_NE(allocator.alloc(&allocator, 65, 386, "test", 1), nullptr);
    const std::string log = log_of([&] { allocator.destroy(&allocator, 386, "test"); });
    EXPECT_EQ(count_of(log, "goes with 2 objects out"), 1u) << log;
    EXPECT_EQ(count_of(log, "goes with 1 objects out"), 1u) << log;
}

TEST(ZymmAllocatorLimits, a_table_with_a_bad_class_is_refused_whole)
{
    const uint64_t       before  = mapped_bytes();
    const zymm_slab_item table[] = {{64, 10, 20, 3, 8, 0}, {128, 9, 5, 3, 8, 0}};
    zymm_allocator       allocator;
    zymm_allocator_init(&allocator);
    const std::string log = log_of(
        [&] { EXPECT_NE(allocator.create(&allocator, "bad", table, 2, 0, 386, "test"), 0); });
    EXPECT_EQ(count_of(log, "min_num is larger than max_num"), 1u) << log;
    EXPECT_EQ(mapped_bytes(), before);
    EXPECT_EQ(allocator.alloc(&allocator, 1, 386, "test", 1), nullptr);
}

TEST(ZymmBlocks, of_all_sizes_hold_what_was_asked_for)
{
    std::vector<std::pair<unsigned char *, uint64_t>> blocks;
    for (uint64_t size = 1; size < 40000000; size = size * 3 + 1) {
        unsigned char *block = static_cast<unsigned char *>(zymm_malloc(size, 386, "test"));
        ASSERT_NE(block, nullptr);
        memset(block, int(blocks.size()), size);
        blocks.emplace_back(block, size);
    }
    for (size_t at = 0; at < blocks.size(); at++) {
        EXPECT_EQ(blocks[at].first[0], at);
        EXPECT_EQ(blocks[at].first[blocks[at].second - 1], at);
        zymm_free(blocks[at].first, 386, "test");
    }
}

TEST(ZymmBlocks, freed_twice_or_never_given_are_refused_with_a_line)
{
    char              on_the_stack[8];
    void *const       small = zymm_malloc(100, 386, "test");
    void *const       large = zymm_malloc(5000000, 386, "test");
    const std::string log   = log_of([&] {
        zymm_free(small, 386, "test");
        zymm_free(small, 386, "again");
        zymm_free(large, 386, "test");
        zymm_free(large, 386, "again");
        zymm_free(on_the_stack, 386, "stack");
        zymm_free(nullptr, 386, "null");
    });
    EXPECT_EQ(count_of(log, "386 again"), 2u) << log;
    EXPECT_EQ(count_of(log, "386 stack"), 1u) << log;
    EXPECT_EQ(count_of(log, "386 null"), 0u) << log;
}

TEST(ZymmBlocks, no_slabs_object_is_a_block)
{
    const uint64_t    slab   = make_slab(64, 1);
    void *const       object = take(slab);
    const std::string log    = log_of([&] { zymm_free(object, 386, "test"); });
    EXPECT_EQ(count_of(log, "is no block of zymm_malloc"), 1u) << log;
    EXPECT_EQ(used_of(slab), 1u);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmBlocks, that_are_large_leave_nothing_behind)
{
    const uint64_t before = mapped_bytes();
    void *const    block  = zymm_malloc(100000000, 386, "test");
    EXPECT_GE(mapped_bytes(), before + 100000000);
    zymm_free(block, 386, "test");
    EXPECT_EQ(mapped_bytes(), before);
    EXPECT_EQ(zymm_malloc(UINT64_MAX, 386, "test"), nullptr);
    EXPECT_EQ(zymm_malloc(1ull << 47, 386, "test"), nullptr);
    EXPECT_EQ(mapped_bytes(), before);
}
