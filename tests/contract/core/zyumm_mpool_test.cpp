/*
 * Memory pools of the unified memory manager.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "mpool_helpers.h"
#include "slab_helpers.h"
#include "under_test.h"

namespace
{

class MemoryPool : public testing::Test
{
protected:
    MemoryPool() : partition(zyumm_partition_create(0, 0, 0, "test"))
    {
    }

    ~MemoryPool() override
    {
        EXPECT_EQ(zyumm_partition_delete(partition), 0);
    }

    uint64_t make(uint64_t obj_size, uint64_t max_num)
    {
        return make_mpool(partition, obj_size, max_num);
    }

    uint64_t make_stale()
    {
        const uint64_t pool = make(64, 2);
        EXPECT_EQ(zyumm_mpool_delete(pool), 0);
        return pool;
    }

    static void *alloc(uint64_t pool)
    {
        return zyumm_mpool_alloc_i(pool, 386, "test");
    }

    static int give_back(uint64_t pool, void *object)
    {
        return zyumm_mpool_free_i(pool, object, 386, "test");
    }

    uint32_t partition;
};

} // namespace

TEST_F(MemoryPool, gives_out_exactly_its_maximum)
{
    const uint64_t pool  = make(64, 2);
    void *const    first = alloc(pool);
    void *const    other = alloc(pool);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(alloc(pool), nullptr);
    EXPECT_EQ(give_back(pool, first), 0);
    EXPECT_EQ(give_back(pool, other), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, with_a_maximum_of_0_has_no_limit)
{
    const uint64_t      pool = make(64, 0);
    std::vector<void *> objects;
    for (int i = 0; i < 5000; ++i)
        objects.push_back(alloc(pool));
    EXPECT_EQ(std::count(objects.begin(), objects.end(), nullptr), 0);
    EXPECT_EQ(mmGetBusyObjectSum(pool), 5000u);
    EXPECT_GE(mmGetObjectSum(pool), 5000u);
    for (void *object : objects)
        give_back(pool, object);
    EXPECT_EQ(mmGetBusyObjectSum(pool), 0u);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, gives_out_by_either_name)
{
    const uint64_t pool   = make(64, 1);
    void *const    object = ucmm_mpool_alloc_i(pool, 386, "test");
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(alloc(pool), nullptr);
    EXPECT_EQ(ucmm_mpool_alloc_i(pool, 386, "test"), nullptr);
    EXPECT_EQ(give_back(pool, object), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, is_not_deleted_while_an_object_is_out)
{
    const uint64_t pool   = make(64, 2);
    void *const    object = alloc(pool);
    EXPECT_NE(zyumm_mpool_delete(pool), 0);
    EXPECT_EQ(give_back(pool, object), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, in_partition_0_or_an_unknown_one_is_refused)
{
    EXPECT_EQ(make_mpool(0, 64, 2), 0u);
    EXPECT_EQ(make_mpool(partition + 1000, 64, 2), 0u);
}

TEST_F(MemoryPool, of_no_record_is_refused)
{
    EXPECT_EQ(zyumm_mpool_create(nullptr), 0u);
}

TEST_F(MemoryPool, of_more_reserved_objects_than_at_most_is_refused)
{
    zyumm_mpool_param param = mpool_param(partition, 64, 2);
    param.reserved_num      = 3;
    EXPECT_EQ(zyumm_mpool_create(&param), 0u);
}

TEST_F(MemoryPool, clears_objects_when_its_attribute_says_so)
{
    zyumm_mpool_param param = mpool_param(partition, 64, 1);
    param.attr              = 0x4;
    const uint64_t pool     = zyumm_mpool_create(&param);
    const char     zeros[64] = {};

    void *object = alloc(pool);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(memcmp(object, zeros, 64), 0);
    memset(object, 1, 64);
    give_back(pool, object);
    object = alloc(pool);
    EXPECT_EQ(memcmp(object, zeros, 64), 0);
    give_back(pool, object);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, serves_under_each_attribute_that_changes_no_content)
{
    for (uint64_t attr : {0x2u, 0x10u, 0x40u, 0x80u}) {
        SCOPED_TRACE(attr);
        zyumm_mpool_param param  = mpool_param(partition, 64, 1);
        param.attr               = attr;
        const uint64_t pool      = zyumm_mpool_create(&param);
        void *const    object    = alloc(pool);
        EXPECT_NE(object, nullptr);
        EXPECT_EQ(alloc(pool), nullptr);
        EXPECT_EQ(give_back(pool, object), 0);
        EXPECT_EQ(zyumm_mpool_delete(pool), 0);
    }
}

TEST_F(MemoryPool, of_one_block_lies_on_a_page)
{
    zyumm_mpool_param param = mpool_param(partition, 40960, 1);
    param.reserved_num      = 1;
    param.attr              = 0x200;
    const uint64_t pool     = zyumm_mpool_create(&param);
    ASSERT_NE(pool, 0u);

    void *const block = ucmm_mpool_alloc_i(pool, 386, "test");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 4096, 0u);
    memset(block, 1, 40960);
    EXPECT_EQ(ucmm_mpool_alloc_i(pool, 386, "test"), nullptr);
    EXPECT_EQ(give_back(pool, block), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, handle_0_is_quiet_but_is_not_deleted)
{
    char object[64];
    EXPECT_EQ(error_lines_of([&] {
        EXPECT_EQ(alloc(0), nullptr);
        EXPECT_EQ(ucmm_mpool_alloc_i(0, 386, "test"), nullptr);
        EXPECT_NE(give_back(0, object), 0);
        EXPECT_NE(zyumm_mpool_delete(0), 0);
    }), 0u);
}

TEST_F(MemoryPool, that_is_stale_fails_with_a_line)
{
    const uint64_t stale = make_stale();
    char           object[64];
    EXPECT_EQ(error_lines_of([&] { EXPECT_EQ(alloc(stale), nullptr); }), 1u);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give_back(stale, object), 0); }), 1u);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(zyumm_mpool_delete(stale), 0); }), 1u);
}

TEST_F(MemoryPool, refuses_double_and_foreign_frees_with_a_line)
{
    const uint64_t pool   = make(64, 2);
    void *const    object = alloc(pool);
    char           on_the_stack[64];
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give_back(pool, on_the_stack), 0); }), 1u);
    EXPECT_EQ(give_back(pool, object), 0);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give_back(pool, object), 0); }), 1u);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give_back(pool, nullptr), 0); }), 1u);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, counts_its_objects)
{
    const uint64_t pool      = make(64, 7);
    void *const    object    = alloc(pool);
    uint32_t       total     = 0;
    uint32_t       allocated = 0;
    EXPECT_EQ(get_mpool_alloc_info(pool, &total, &allocated), 0);
    EXPECT_EQ(total, 7u);
    EXPECT_EQ(allocated, 1u);
    EXPECT_EQ(mmGetObjectSum(pool), 7u);
    EXPECT_EQ(mmGetBusyObjectSum(pool), 1u);
    EXPECT_EQ(give_back(pool, object), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST_F(MemoryPool, that_is_stale_or_0_has_no_counts)
{
    const uint64_t stale     = make_stale();
    uint32_t       total     = 77;
    uint32_t       allocated = 88;
    EXPECT_NE(get_mpool_alloc_info(stale, &total, &allocated), 0);
    EXPECT_NE(get_mpool_alloc_info(0, &total, &allocated), 0);
    EXPECT_EQ(total, 77u);
    EXPECT_EQ(allocated, 88u);
    EXPECT_EQ(mmGetObjectSum(stale), 0u);
    EXPECT_EQ(mmGetObjectSum(0), 0u);
    EXPECT_EQ(mmGetBusyObjectSum(stale), 0u);
    EXPECT_EQ(mmGetBusyObjectSum(0), 0u);
}

TEST_F(MemoryPool, shares_the_space_of_handles_with_slabs)
{
    const uint64_t pool   = make(64, 7);
    const uint64_t slab   = make_slab(64, 7);
    void *const    object = alloc(pool);
    take(slab);
    take(slab);
    EXPECT_NE(pool, slab);
    EXPECT_EQ(used_of(pool), 1u);
    EXPECT_EQ(mmGetUesdInfo(slab), 2u);
    EXPECT_EQ(mmGetUesdInfo(pool), 1u);
    destroy(slab);
    EXPECT_EQ(give_back(pool, object), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST(UsedObjects, of_no_slab_or_a_stale_one_are_0)
{
    EXPECT_EQ(mmGetUesdInfo(0), 0u);
    EXPECT_EQ(mmGetUesdInfo(make_stale_slab()), 0u);
}

TEST_F(MemoryPool, tells_its_facts)
{
    zyumm_mpool_param param = mpool_param(partition, 100, 7);
    param.reserved_num      = 3;
    strcpy(param.name, "thirty_one_characters_are_a_nam");
    const uint64_t       pool   = zyumm_mpool_create(&param);
    void *const          object = alloc(pool);
    zyumm_partition_info info   = {};
    EXPECT_EQ(zyumm_partition_info_get(pool, &info), 0);
    EXPECT_STREQ(info.name, "thirty_one_characters_are_a_nam");
    EXPECT_EQ(info.obj_size, 100u);
    EXPECT_GE(info.whole_size, 100u);
    EXPECT_EQ(info.min_num, 3u);
    EXPECT_EQ(info.max_num, 7u);
    EXPECT_EQ(info.total, 7u);
    EXPECT_EQ(info.used, 1u);
    EXPECT_EQ(info.module_id, 386u);
    give_back(pool, object);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST(PartitionInfo, of_a_slab_is_known_too)
{
    zymm_slab_param param = slab_param(768, 5);
    strcpy(param.name, "requests");
    const uint64_t       slab = zymm_create_slab(&param, 386, "test");
    zyumm_partition_info info = {};
    take(slab);
    EXPECT_EQ(zyumm_partition_info_get(slab, &info), 0);
    EXPECT_STREQ(info.name, "requests");
    EXPECT_EQ(info.obj_size, 768u);
    EXPECT_EQ(info.total, 5u);
    EXPECT_EQ(info.used, 1u);
    destroy(slab);
}

TEST(PartitionInfo, of_no_handle_or_a_stale_one_fails_and_writes_nothing)
{
    zyumm_partition_info info = {};
    info.total                = 77;
    EXPECT_NE(zyumm_partition_info_get(0, &info), 0);
    EXPECT_NE(zyumm_partition_info_get(make_stale_slab(), &info), 0);
    EXPECT_EQ(info.total, 77u);
}
