/*
 * Objects of structure partitions: checks, call-backs and what reaches the memory manager.
 */
#include "partition_test_help.h"

namespace
{

struct freed_object {
    void       *object;
    uint32_t    part_id;
    uint32_t    module_id;
    const char *caller;
    uint64_t    given_back; /* objects that the memory manager had been given when it ran */
};

std::vector<void *>       initialised;
std::vector<freed_object> freed;

void note_init(void *object)
{
    initialised.push_back(object);
}

void note_free(void *object, uint32_t part_id, uint32_t module_id, const char *caller)
{
    freed.push_back({object, part_id, module_id, caller, fake_count(OP_zyumm_mpool_free_i)});
}

void *const NOT_NULL = reinterpret_cast<void *>(0x1234);

void *take(uint32_t id)
{
    void *object = NOT_NULL;
    allocStructure(77, id, &object, "the_caller");
    return object;
}

} // namespace

TEST(PartitionAlloc, the_object_comes_from_the_entrys_pool)
{
    enter_library();
    const uint32_t id = new_partition();

    void *object = take(id);

    const fake_call allocated = fake_last_call(OP_zyumm_mpool_alloc_i);
    EXPECT_EQ(allocated.args.at(0).number, g_cmm_part_s[id].pool);
    EXPECT_EQ(allocated.args.at(1).number, 77u);
    EXPECT_EQ(allocated.args.at(2).text, "the_caller");
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(allocated.result, reinterpret_cast<uint64_t>(object));
    EXPECT_NO_LINE();
}

TEST(PartitionAlloc, the_init_callback_runs_with_the_object)
{
    enter_library();
    const uint32_t id = new_partition(4, note_init);

    void *object = take(id);

    EXPECT_EQ(initialised, std::vector<void *>{object});
}

TEST(PartitionAlloc, the_init_callback_does_not_run_without_an_object)
{
    enter_library();
    const uint32_t id = new_partition(4, note_init);
    fake_fail(OP_zyumm_mpool_alloc_i);

    EXPECT_EQ(take(id), nullptr);

    EXPECT_TRUE(initialised.empty());
    EXPECT_NO_LINE();
}

TEST(PartitionAlloc, the_out_pointer_is_null_while_the_memory_manager_is_asked)
{
    enter_library();
    const uint32_t id = new_partition();
    void *object      = NOT_NULL;
    void *seen        = NOT_NULL;
    fake_hook(OP_zyumm_mpool_alloc_i, 1, [&] { seen = object; });

    allocStructure(77, id, &object, "the_caller");

    EXPECT_EQ(seen, nullptr);
    EXPECT_NE(object, nullptr);
}

TEST(PartitionAlloc, a_dry_partition_gives_null)
{
    enter_library();
    const uint32_t id = new_partition(1);
    ASSERT_NE(take(id), nullptr);

    EXPECT_EQ(take(id), nullptr);
}

TEST(PartitionAlloc, a_null_out_pointer_is_refused_first)
{
    allocStructure(77, 9999, nullptr, "the_caller");

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocStructure",
                     "[UMM_CMM] outstructurePtr is NULL.partitionID(9999)");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_alloc_i), 0u);
}

TEST(PartitionAlloc, the_line_about_a_null_out_pointer_is_limited)
{
    EXPECT_LIMITED(allocStructure(77, 1, nullptr, "the_caller"),
                   "[UMM_CMM] outstructurePtr is NULL.partitionID(1)");
}

TEST(PartitionAlloc, id_2048_is_too_big_and_named_as_the_maximum_is_kept)
{
    EXPECT_EQ(take(2048), nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocStructure",
                     "[UMM_CMM] partitionID(2048) is too big, max(2048)");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_alloc_i), 0u);
}

TEST(PartitionAlloc, the_largest_id_of_32_bits_is_too_big)
{
    EXPECT_EQ(take(0xFFFFFFFF), nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocStructure",
                     "[UMM_CMM] partitionID(4294967295) is too big, max(2048)");
}

TEST(PartitionAlloc, the_line_about_a_big_id_is_limited)
{
    EXPECT_LIMITED(take(2048), "[UMM_CMM] partitionID(2048) is too big, max(2048)");
}

TEST(PartitionAlloc, id_0_and_free_ids_are_left_to_the_memory_manager_is_kept)
{
    EXPECT_EQ(take(0), nullptr);
    EXPECT_EQ(take(2047), nullptr);

    EXPECT_EQ(fake_count(OP_zyumm_mpool_alloc_i), 2u);
    EXPECT_EQ(fake_last_call(OP_zyumm_mpool_alloc_i).args.at(0).number, 0u);
    EXPECT_NO_LINE();
}

TEST(PartitionFree, the_object_goes_back_to_the_entrys_pool)
{
    enter_library();
    const uint32_t id = new_partition();
    void *object      = take(id);

    EXPECT_EQ(freeStructure(object, id, 78, "the_other", 900), 0u);

    const fake_call given = fake_last_call(OP_zyumm_mpool_free_i);
    EXPECT_EQ(given.args.at(0).number, g_cmm_part_s[id].pool);
    EXPECT_EQ(given.args.at(1).number, reinterpret_cast<uint64_t>(object));
    EXPECT_EQ(given.args.at(2).number, 78u);
    EXPECT_EQ(given.args.at(3).text, "the_other");
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_NO_LINE();
}

TEST(PartitionFree, the_free_callback_runs_before_the_object_goes_back)
{
    enter_library();
    const uint32_t id = new_partition(4, nullptr, note_free);
    void *object      = take(id);

    freeStructure(object, id, 78, "the_other", 900);

    ASSERT_EQ(freed.size(), 1u);
    EXPECT_EQ(freed[0].object, object);
    EXPECT_EQ(freed[0].part_id, id);
    EXPECT_EQ(freed[0].module_id, 78u);
    EXPECT_STREQ(freed[0].caller, "the_other");
    EXPECT_EQ(freed[0].given_back, 0u);
    EXPECT_EQ(fake_count(OP_zyumm_mpool_free_i), 1u);
}

TEST(PartitionFree, a_big_id_is_refused_first)
{
    EXPECT_EQ(freeStructure(nullptr, 2048, 78, "the_other", 900), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeStructure",
                     "[UMM_CMM] partitionID(2048) is too big, max(2048)");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_free_i), 0u);
}

TEST(PartitionFree, the_line_about_a_big_id_is_limited)
{
    EXPECT_LIMITED(freeStructure(nullptr, 2048, 78, "the_other", 900),
                   "[UMM_CMM] partitionID(2048) is too big, max(2048)");
}

TEST(PartitionFree, a_null_object_is_refused)
{
    EXPECT_EQ(freeStructure(nullptr, 2047, 78, "the_other", 900), 0u);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeStructure",
                     "[UMM_CMM] structurePtr is NULL.partitionID(2047)");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_free_i), 0u);
}

TEST(PartitionFree, the_line_about_a_null_object_is_limited)
{
    EXPECT_LIMITED(freeStructure(nullptr, 1, 78, "the_other", 900),
                   "[UMM_CMM] structurePtr is NULL.partitionID(1)");
}

TEST(PartitionFree, id_0_and_free_ids_are_left_to_the_memory_manager_is_kept)
{
    int object = 0;

    EXPECT_EQ(freeStructure(&object, 0, 78, "the_other", 900), 0u);
    EXPECT_EQ(freeStructure(&object, 2047, 78, "the_other", 900), 0u);

    EXPECT_EQ(fake_count(OP_zyumm_mpool_free_i), 2u);
    EXPECT_EQ(fake_last_call(OP_zyumm_mpool_free_i).args.at(0).number, 0u);
}

TEST(PartitionFree, a_refusal_of_the_memory_manager_is_not_passed_on)
{
    enter_library();
    const uint32_t id = new_partition();
    void *object      = take(id);
    fake_fail(OP_zyumm_mpool_free_i);

    EXPECT_EQ(freeStructure(object, id, 78, "the_other", 900), 0u);
    EXPECT_NO_LINE();
}

TEST(PublicPool, an_object_is_asked_for_with_size_module_and_caller)
{
    int object = 0;
    fake_fail_with(OP_pub_mpool_alloc_i, 1, reinterpret_cast<uint64_t>(&object));
    void *out = nullptr;

    EXPECT_EQ(allocStructureFromPubPool(0x50, &out, 77, "the_caller", 4096), 0u);

    const fake_call asked = fake_last_call(OP_pub_mpool_alloc_i);
    EXPECT_EQ(asked.args.at(0).number, 0x50u);
    EXPECT_EQ(asked.args.at(1).number, 4096u);
    EXPECT_EQ(asked.args.at(2).number, 77u);
    EXPECT_EQ(asked.args.at(3).text, "the_caller");
    EXPECT_EQ(out, &object);
}

TEST(PublicPool, without_an_object_null_is_stored)
{
    void *out = NOT_NULL;
    fake_fail(OP_pub_mpool_alloc_i);

    EXPECT_EQ(allocStructureFromPubPool(0x50, &out, 77, "the_caller", 4096), 0xFFFFFFFFu);

    EXPECT_EQ(out, nullptr);
    EXPECT_NO_LINE();
}

TEST(PublicPool, a_null_out_pointer_is_refused_before_anything_is_allocated)
{
    EXPECT_EQ(allocStructureFromPubPool(0x50, nullptr, 77, "the_caller", 4096), 0xFFFFFFFFu);

    EXPECT_EQ(fake_count(OP_pub_mpool_alloc_i), 0u);
    EXPECT_NO_LINE();
}

TEST(PublicPool, a_free_passes_everything_on_and_the_answer_back)
{
    int object = 0;
    fake_fail_with(OP_pub_mpool_free_i, 1, 17);

    EXPECT_EQ(freeStructureToPubPool(0x50, &object, 77, "the_caller"), 17);

    const fake_call given = fake_last_call(OP_pub_mpool_free_i);
    EXPECT_EQ(given.args.at(0).number, 0x50u);
    EXPECT_EQ(given.args.at(1).number, reinterpret_cast<uint64_t>(&object));
    EXPECT_EQ(given.args.at(2).number, 77u);
    EXPECT_EQ(given.args.at(3).text, "the_caller");
}
