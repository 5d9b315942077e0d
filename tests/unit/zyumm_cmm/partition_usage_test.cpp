/*
 * Usage queries of structure partitions, and their three answers to an id that cannot be.
 */
#include "partition_test_help.h"

namespace
{

uint32_t partition_with_one_out()
{
    enter_library();
    const uint32_t id = new_partition(4);
    void *object      = nullptr;
    allocStructure(77, id, &object, "the_caller");
    return id;
}

} // namespace

TEST(PartitionUsage, both_counts_are_filled_in)
{
    const uint32_t id  = partition_with_one_out();
    uint32_t total     = 0;
    uint32_t allocated = 0;

    EXPECT_EQ(getPartitionAllocInfo(id, &total, &allocated), 0u);

    EXPECT_EQ(total, 4u);
    EXPECT_EQ(allocated, 1u);
    EXPECT_EQ(fake_last_call(OP_get_mpool_alloc_info).args.at(0).number, g_cmm_part_s[id].pool);
    EXPECT_NO_LINE();
}

TEST(PartitionUsage, the_memory_managers_answer_is_passed_back)
{
    const uint32_t id  = partition_with_one_out();
    uint32_t total     = 0;
    uint32_t allocated = 0;
    fake_fail_with(OP_get_mpool_alloc_info, 1, 7);

    EXPECT_EQ(getPartitionAllocInfo(id, &total, &allocated), 7u);
}

TEST(PartitionUsage, a_null_total_is_refused_before_the_id_is_looked_at)
{
    uint32_t allocated = 0;

    EXPECT_EQ(getPartitionAllocInfo(0, nullptr, &allocated), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPartitionAllocInfo",
                     "[UMM_CMM] Invalid param: totalCnt:(nil), allocCnt:" +
                         pointer_text(&allocated));
}

TEST(PartitionUsage, a_null_allocated_is_refused)
{
    uint32_t total = 0;

    EXPECT_EQ(getPartitionAllocInfo(1, &total, nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPartitionAllocInfo",
                     "[UMM_CMM] Invalid param: totalCnt:" + pointer_text(&total) +
                         ", allocCnt:(nil)");
    EXPECT_EQ(fake_count(OP_get_mpool_alloc_info), 0u);
}

TEST(PartitionUsage, the_line_about_null_pointers_is_limited)
{
    EXPECT_LIMITED(getPartitionAllocInfo(1, nullptr, nullptr),
                   "[UMM_CMM] Invalid param: totalCnt:(nil), allocCnt:(nil)");
}

TEST(PartitionUsage, an_id_outside_the_table_is_refused)
{
    uint32_t total     = 5;
    uint32_t allocated = 6;

    EXPECT_EQ(getPartitionAllocInfo(0, &total, &allocated), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "getPartitionAllocInfo",
                     "[UMM_CMM] can't find the mempool with partId[0]");

    EXPECT_EQ(getPartitionAllocInfo(2048, &total, &allocated), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "getPartitionAllocInfo",
                     "[UMM_CMM] can't find the mempool with partId[2048]");
    EXPECT_EQ(fake_count(OP_get_mpool_alloc_info), 0u);
    EXPECT_EQ(total, 5u);
    EXPECT_EQ(allocated, 6u);
}

TEST(PartitionUsage, a_refused_id_is_printed_with_a_sign_is_kept)
{
    uint32_t total     = 0;
    uint32_t allocated = 0;

    getPartitionAllocInfo(0xFFFFFFFF, &total, &allocated);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "getPartitionAllocInfo",
                     "[UMM_CMM] can't find the mempool with partId[-1]");
}

TEST(PartitionUsage, the_line_about_an_unknown_id_is_limited)
{
    uint32_t total     = 0;
    uint32_t allocated = 0;

    EXPECT_LIMITED(getPartitionAllocInfo(0, &total, &allocated),
                   "[UMM_CMM] can't find the mempool with partId[0]");
}

TEST(PartitionUsage, a_free_id_is_left_to_the_memory_manager)
{
    uint32_t total     = 0;
    uint32_t allocated = 0;

    EXPECT_EQ(getPartitionAllocInfo(9, &total, &allocated), 0xFFFFFFFFu);

    EXPECT_EQ(fake_last_call(OP_get_mpool_alloc_info).args.at(0).number, 0u);
}

TEST(PartitionUsage, sums_are_those_of_the_pool)
{
    const uint32_t id = partition_with_one_out();

    EXPECT_EQ(getObjectSum(id), 4u);
    EXPECT_EQ(getBusyObjectSum(id), 1u);

    EXPECT_EQ(fake_last_call(OP_mmGetObjectSum).args.at(0).number, g_cmm_part_s[id].pool);
    EXPECT_EQ(fake_last_call(OP_mmGetBusyObjectSum).args.at(0).number, g_cmm_part_s[id].pool);
}

TEST(PartitionUsage, the_two_sums_answer_a_bad_id_differently_is_kept)
{
    EXPECT_EQ(getObjectSum(0), 0u);
    EXPECT_EQ(getBusyObjectSum(0), 0xFFFFFFFFu);
    EXPECT_EQ(getObjectSum(2048), 0u);
    EXPECT_EQ(getBusyObjectSum(2048), 0xFFFFFFFFu);
    EXPECT_EQ(getObjectSum(0xFFFFFFFF), 0u);
    EXPECT_EQ(getBusyObjectSum(0xFFFFFFFF), 0xFFFFFFFFu);

    EXPECT_EQ(fake_count(OP_mmGetObjectSum), 0u);
    EXPECT_EQ(fake_count(OP_mmGetBusyObjectSum), 0u);
    EXPECT_NO_LINE();
}
