/*
 * Continuous partitions: one block a partition, and what a failed one leaves behind.
 */
#include "partition_test_help.h"

namespace
{

constexpr uint32_t UNTOUCHED = 0xDEAD;
void *const        NOT_NULL  = reinterpret_cast<void *>(0x1234);

struct created {
    uint32_t status;
    uint32_t id   = UNTOUCHED;
    void    *addr = NOT_NULL;

    created()
    {
        status = createContinuousPartition(40960, "block", 77, 5, &id, &addr, "the_caller");
    }
};

} // namespace

TEST(PartitionContinuous, the_block_and_its_id_are_handed_out)
{
    enter_library();

    const created block;

    EXPECT_EQ(block.status, 0u);
    EXPECT_EQ(block.id, 1u);
    EXPECT_EQ(reinterpret_cast<uint64_t>(block.addr), fake_last_call(OP_ucmm_mpool_alloc_i).result);
    EXPECT_EQ(getObjectSum(block.id), 1u);
    EXPECT_EQ(getBusyObjectSum(block.id), 1u);
    EXPECT_NO_LINE();
}

TEST(PartitionContinuous, the_pool_has_one_object_in_one_block)
{
    enter_library();

    const created block;

    const auto record = fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>();
    EXPECT_EQ(record.partition, g_cmm_umm_partition);
    EXPECT_EQ(record.obj_size, 40960u);
    EXPECT_EQ(record.zero, 0u);
    EXPECT_EQ(record.reserved_num, 1u);
    EXPECT_EQ(record.max_num, 1u);
    EXPECT_EQ(record.module_id, 77u);
    EXPECT_EQ(record.attr, 0x200u);
    EXPECT_EQ(record.cache_num, 0u);
    EXPECT_EQ(record.cache_size, 0u);
    EXPECT_STREQ(record.name, "block");
}

TEST(PartitionContinuous, sizes_beyond_32_bits_reach_the_memory_manager)
{
    enter_library();
    fake_fail(OP_zyumm_mpool_create);
    uint32_t id = UNTOUCHED;
    void *addr  = NOT_NULL;

    createContinuousPartition(0x123456789000, "huge", 77, 0, &id, &addr, "the_caller");

    EXPECT_EQ(fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>().obj_size,
              0x123456789000u);
}

TEST(PartitionContinuous, the_block_is_allocated_for_the_caller)
{
    enter_library();

    const created block;

    const fake_call allocated = fake_last_call(OP_ucmm_mpool_alloc_i);
    EXPECT_EQ(allocated.args.at(0).number, g_cmm_part_s[1].pool);
    EXPECT_EQ(allocated.args.at(1).number, 77u);
    EXPECT_EQ(allocated.args.at(2).text, "the_caller");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_alloc_i), 0u);
}

TEST(PartitionContinuous, callbacks_of_the_ids_former_owner_are_forgotten)
{
    enter_library();
    const auto init_cb = [](void *) {};
    const auto free_cb = [](void *, uint32_t, uint32_t, const char *) {};
    deleteStructurePartition(new_partition(4, init_cb, free_cb));

    const created block;

    ASSERT_EQ(block.id, 1u);
    EXPECT_EQ(g_cmm_part_s[1].init_cb, nullptr);
    EXPECT_EQ(g_cmm_part_s[1].free_cb, nullptr);
    EXPECT_EQ(g_cmm_part_s[1].part_id, 1u);
}

TEST(PartitionContinuous, it_is_given_back_like_any_other)
{
    enter_library();
    const created block;

    freeStructure(block.addr, block.id, 77, "the_caller", 900);
    EXPECT_EQ(deleteStructurePartition(block.id), 0u);

    EXPECT_EQ(fake_handles_alive(), 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
}

TEST(PartitionContinuous, a_null_id_pointer_is_refused)
{
    void *addr = NOT_NULL;

    EXPECT_EQ(createContinuousPartition(64, "block", 77, 0, nullptr, &addr, "the_caller"),
              0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createContinuousPartition",
                     "[UMM_CMM] Check input failed when create part, part name(block) part "
                     "id((nil)) part addr(" +
                         pointer_text(&addr) + ").");
    EXPECT_EQ(addr, NOT_NULL);
}

TEST(PartitionContinuous, a_null_address_pointer_is_refused_before_anything_is_created)
{
    enter_library();
    uint32_t id = UNTOUCHED;

    EXPECT_EQ(createContinuousPartition(64, "block", 77, 0, &id, nullptr, "the_caller"),
              0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createContinuousPartition",
                     "[UMM_CMM] Check input failed when create part, part name(block) part id(" +
                         pointer_text(&id) + ") part addr((nil)).");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_create), 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionContinuous, the_line_about_refused_arguments_is_limited)
{
    EXPECT_LIMITED(createContinuousPartition(64, nullptr, 77, 0, nullptr, nullptr, "the_caller"),
                   "[UMM_CMM] Check input failed when create part, part name((null)) part "
                   "id((nil)) part addr((nil)).");
}

TEST(PartitionContinuous, a_null_name_is_not_checked)
{
    enter_library();
    uint32_t id = UNTOUCHED;
    void *addr  = NOT_NULL;

    EXPECT_EQ(createContinuousPartition(64, nullptr, 77, 0, &id, &addr, "the_caller"), 0u);

    EXPECT_STREQ(fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>().name, "");
    EXPECT_NO_LINE();
}

TEST(PartitionContinuous, names_are_cut_to_31_characters)
{
    enter_library();
    uint32_t id = UNTOUCHED;
    void *addr  = NOT_NULL;

    createContinuousPartition(64, "0123456789012345678901234567890123456789", 77, 0, &id, &addr,
                              "the_caller");

    EXPECT_STREQ(fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>().name,
                 "0123456789012345678901234567890");
}

TEST(PartitionContinuous, a_pool_that_cannot_be_made_fails_without_a_word)
{
    enter_library();
    fake_fail(OP_zyumm_mpool_create);

    const created block;

    EXPECT_EQ(block.status, 0xFFFFFFFFu);
    EXPECT_EQ(block.id, UNTOUCHED);
    EXPECT_EQ(block.addr, NOT_NULL);
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_NO_LINE();
}

TEST(PartitionContinuous, without_an_id_the_new_pool_is_kept)
{
    enter_library();
    reserve_ids(0);

    const created block;

    EXPECT_EQ(block.status, 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_WARNING, "createContinuousPartition",
                     "[UMM_CMM] PartId is large than limit: 2047.");
    EXPECT_TRUE(fake_handle_alive(fake_last_call(OP_zyumm_mpool_create).result));
    EXPECT_EQ(fake_count(OP_ucmm_mpool_alloc_i), 0u);
    EXPECT_EQ(block.id, UNTOUCHED);
    EXPECT_EQ(block.addr, NOT_NULL);
}

TEST(PartitionContinuous, the_line_about_a_missing_id_is_limited)
{
    enter_library();
    reserve_ids(0);

    EXPECT_LIMITED(created(), "[UMM_CMM] PartId is large than limit: 2047.");
}

TEST(PartitionContinuous, without_a_block_the_pool_goes_and_the_id_stays_reserved_is_kept)
{
    enter_library();
    fake_fail(OP_ucmm_mpool_alloc_i);

    const created block;

    const uint64_t pool = fake_last_call(OP_zyumm_mpool_create).result;
    EXPECT_EQ(block.status, 0xFFFFFFFFu);
    EXPECT_EQ(block.addr, nullptr);
    EXPECT_EQ(block.id, UNTOUCHED);
    EXPECT_FALSE(fake_handle_alive(pool));
    EXPECT_EQ(g_cmm_part_s[1].part_id, 1u);
    EXPECT_EQ(g_cmm_part_s[1].pool, pool);
    EXPECT_EQ(g_cmm_part_sum, 1u);
    EXPECT_NO_LINE();
}
