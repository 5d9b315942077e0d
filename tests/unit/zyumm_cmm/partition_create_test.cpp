/*
 * Creation and deletion of structure partitions: each refusal, what it says, and what it leaves.
 */
#include "partition_test_help.h"

namespace
{

constexpr uint32_t UNTOUCHED = 0xDEAD;

void init_object(void *)
{
}

void free_object(void *, uint32_t, uint32_t, const char *)
{
}

uint32_t create_exp(const char *name, uint32_t *id)
{
    return createExpStructurePartition(2, 6, name, 77, 0x04, 64, id, init_object, free_object);
}

} // namespace

TEST(PartitionCreate, the_first_partition_gets_id_1)
{
    enter_library();
    const structure_mempool_para para = new_para();
    uint32_t id                       = UNTOUCHED;

    EXPECT_EQ(createStructureMempool(&para, &id), 0u);

    EXPECT_EQ(id, 1u);
    EXPECT_EQ(g_cmm_part_sum, 1u);
    EXPECT_NO_LINE();
}

TEST(PartitionCreate, the_entry_holds_pool_callbacks_and_id)
{
    enter_library();
    structure_mempool_para para = new_para();
    para.init_cb                = init_object;
    para.free_cb                = free_object;
    uint32_t id                 = UNTOUCHED;

    ASSERT_EQ(createStructureMempool(&para, &id), 0u);

    const cmm_partition &entry = g_cmm_part_s[id];
    EXPECT_EQ(entry.init_cb, init_object);
    EXPECT_EQ(entry.free_cb, free_object);
    EXPECT_EQ(entry.pool, fake_last_call(OP_zyumm_mpool_create).result);
    EXPECT_EQ(entry.part_id, 1u);
}

TEST(PartitionCreate, the_pool_is_made_from_the_parameter_record)
{
    enter_library();
    structure_mempool_para para = new_para();
    para.flags                  = 0x30;
    uint32_t id                 = UNTOUCHED;

    ASSERT_EQ(createStructureMempool(&para, &id), 0u);

    const auto record = fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>();
    EXPECT_EQ(record.partition, g_cmm_umm_partition);
    EXPECT_EQ(record.obj_size, 200u);
    EXPECT_EQ(record.reserved_num, 4u);
    EXPECT_EQ(record.max_num, 9u);
    EXPECT_EQ(record.module_id, 77u);
    EXPECT_EQ(record.attr, 0x106u);
    EXPECT_STREQ(record.name, "structures");
}

TEST(PartitionCreate, a_null_parameter_record_is_refused)
{
    uint32_t id = UNTOUCHED;

    EXPECT_EQ(createStructureMempool(nullptr, &id), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createStructureMempool",
                     "[UMM_CMM] createPara((nil)), partitionID(" + pointer_text(&id) + ").");
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionCreate, a_null_id_pointer_is_refused)
{
    const structure_mempool_para para = new_para();

    EXPECT_EQ(createStructureMempool(&para, nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createStructureMempool",
                     "[UMM_CMM] createPara(" + pointer_text(&para) + "), partitionID((nil)).");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_create), 0u);
}

TEST(PartitionCreate, the_line_about_null_arguments_is_limited)
{
    EXPECT_LIMITED(createStructureMempool(nullptr, nullptr),
                   "[UMM_CMM] createPara((nil)), partitionID((nil)).");
}

TEST(PartitionCreate, a_wrong_magic_is_refused_before_any_pool_is_created)
{
    enter_library();
    structure_mempool_para para = new_para();
    para.magic                  = 0x123456789ABCDEF0;
    uint32_t id                 = UNTOUCHED;

    EXPECT_EQ(createStructureMempool(&para, &id), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createStructureMempool",
                     "[UMM_CMM] createPara's magic is wrong.magic(0x123456789abcdef0).");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_create), 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionCreate, the_line_about_a_wrong_magic_is_limited)
{
    structure_mempool_para para = new_para();
    para.magic                  = 0xABCABD;
    uint32_t id                 = UNTOUCHED;

    EXPECT_LIMITED(createStructureMempool(&para, &id),
                   "[UMM_CMM] createPara's magic is wrong.magic(0xabcabd).");
}

TEST(PartitionCreate, without_a_pool_no_id_is_reserved)
{
    enter_library();
    const structure_mempool_para para = new_para();
    uint32_t id                       = UNTOUCHED;
    fake_fail(OP_zyumm_mpool_create);

    EXPECT_EQ(createStructureMempool(&para, &id), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createStructureMempool",
                     "[UMM_CMM] create mpool is fail. poolName(structures)");
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionCreate, the_line_about_a_failed_pool_is_limited)
{
    enter_library();
    const structure_mempool_para para = new_para();
    uint32_t id                       = UNTOUCHED;
    fake_fail_always(OP_zyumm_mpool_create);

    EXPECT_LIMITED(createStructureMempool(&para, &id),
                   "[UMM_CMM] create mpool is fail. poolName(structures)");
}

TEST(PartitionCreate, a_null_name_gives_an_unnamed_pool)
{
    enter_library();
    structure_mempool_para para = new_para();
    para.name                   = nullptr;
    uint32_t id                 = UNTOUCHED;

    EXPECT_EQ(createStructureMempool(&para, &id), 0u);

    EXPECT_STREQ(fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>().name, "");
    EXPECT_NO_LINE();
}

TEST(PartitionCreate, a_null_name_is_written_in_brackets)
{
    enter_library();
    structure_mempool_para para = new_para();
    para.name                   = nullptr;
    uint32_t id                 = UNTOUCHED;
    fake_fail(OP_zyumm_mpool_create);

    createStructureMempool(&para, &id);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createStructureMempool",
                     "[UMM_CMM] create mpool is fail. poolName((null))");
}

TEST(PartitionCreate, without_an_id_the_new_pool_is_kept)
{
    enter_library();
    reserve_ids(0);
    const structure_mempool_para para = new_para();
    uint32_t id                       = UNTOUCHED;

    EXPECT_EQ(createStructureMempool(&para, &id), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createStructureMempool",
                     "[UMM_CMM] create mpool is fail. part_id(2048) poolName(structures)");
    EXPECT_TRUE(fake_handle_alive(fake_last_call(OP_zyumm_mpool_create).result));
    EXPECT_EQ(fake_count(OP_zyumm_mpool_delete), 0u);
    EXPECT_EQ(g_cmm_part_sum, 2047u);
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionCreate, the_line_about_a_missing_id_is_limited)
{
    enter_library();
    reserve_ids(0);
    const structure_mempool_para para = new_para();
    uint32_t id                       = UNTOUCHED;

    EXPECT_LIMITED(createStructureMempool(&para, &id),
                   "[UMM_CMM] create mpool is fail. part_id(2048) poolName(structures)");
}

TEST(PartitionCreateLoose, the_entry_holds_pool_callbacks_and_id)
{
    enter_library();
    uint32_t id = UNTOUCHED;

    ASSERT_EQ(create_exp("loose", &id), 0u);

    ASSERT_EQ(id, 1u);
    const cmm_partition &entry = g_cmm_part_s[1];
    EXPECT_EQ(entry.init_cb, init_object);
    EXPECT_EQ(entry.free_cb, free_object);
    EXPECT_EQ(entry.pool, fake_last_call(OP_zyumm_mpool_create).result);
    EXPECT_EQ(entry.part_id, 1u);
    EXPECT_NO_LINE();
}

TEST(PartitionCreateLoose, the_pool_is_made_from_the_values)
{
    enter_library();
    uint32_t id = UNTOUCHED;

    ASSERT_EQ(create_exp("loose", &id), 0u);

    const auto record = fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>();
    EXPECT_EQ(record.partition, g_cmm_umm_partition);
    EXPECT_EQ(record.obj_size, 64u);
    EXPECT_EQ(record.reserved_num, 2u);
    EXPECT_EQ(record.max_num, 6u);
    EXPECT_EQ(record.module_id, 77u);
    EXPECT_EQ(record.attr, 0x40u);
    EXPECT_STREQ(record.name, "loose");
}

TEST(PartitionCreateLoose, a_null_name_is_refused_first)
{
    EXPECT_EQ(create_exp(nullptr, nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createExpStructurePartition",
                     "[UMM_CMM] invalid param, part name((nil)) ownerModuleID(77).");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_create), 0u);
}

TEST(PartitionCreateLoose, the_line_about_a_null_name_is_limited)
{
    EXPECT_LIMITED(create_exp(nullptr, nullptr),
                   "[UMM_CMM] invalid param, part name((nil)) ownerModuleID(77).");
}

TEST(PartitionCreateLoose, a_null_id_pointer_is_refused)
{
    EXPECT_EQ(create_exp("loose", nullptr), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createExpStructurePartition",
                     "[UMM_CMM] Check input failed when create part, part name(loose) "
                     "partid((nil)).");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_create), 0u);
}

TEST(PartitionCreateLoose, the_line_about_a_null_id_pointer_is_limited)
{
    EXPECT_LIMITED(create_exp("loose", nullptr),
                   "[UMM_CMM] Check input failed when create part, part name(loose) "
                   "partid((nil)).");
}

TEST(PartitionCreateLoose, a_pool_that_cannot_be_made_fails_without_a_word)
{
    enter_library();
    uint32_t id = UNTOUCHED;
    fake_fail(OP_zyumm_mpool_create);

    EXPECT_EQ(create_exp("loose", &id), 0xFFFFFFFFu);

    EXPECT_NO_LINE();
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionCreateLoose, without_an_id_the_new_pool_is_kept)
{
    enter_library();
    reserve_ids(0);
    uint32_t id = UNTOUCHED;

    EXPECT_EQ(create_exp("loose", &id), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_WARNING, "createExpStructurePartition",
                     "[UMM_CMM] PartId: 2048 alloc error, max Id: 2047, ownerModuleID: 77.");
    EXPECT_TRUE(fake_handle_alive(fake_last_call(OP_zyumm_mpool_create).result));
    EXPECT_EQ(id, UNTOUCHED);
}

TEST(PartitionCreateLoose, the_line_about_a_missing_id_is_limited)
{
    enter_library();
    reserve_ids(0);
    uint32_t id = UNTOUCHED;

    EXPECT_LIMITED(create_exp("loose", &id),
                   "[UMM_CMM] PartId: 2048 alloc error, max Id: 2047, ownerModuleID: 77.");
}

TEST(PartitionCreateLoose, one_count_serves_as_reserve_and_as_maximum)
{
    enter_library();
    uint32_t id = UNTOUCHED;

    ASSERT_EQ(createStructurePartition(12, "simple", 78, 0x02, 48, &id, init_object, free_object,
                                       99),
              0u);

    const auto record = fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>();
    EXPECT_EQ(record.reserved_num, 12u);
    EXPECT_EQ(record.max_num, 12u);
    EXPECT_EQ(record.module_id, 78u);
    EXPECT_EQ(record.attr, 0x80u);
    EXPECT_EQ(record.obj_size, 48u);
    EXPECT_STREQ(record.name, "simple");
    EXPECT_EQ(g_cmm_part_s[id].init_cb, init_object);
    EXPECT_EQ(g_cmm_part_s[id].free_cb, free_object);
}

TEST(PartitionCreateLoose, the_simple_form_speaks_with_the_words_of_the_full_one)
{
    EXPECT_EQ(createStructurePartition(12, nullptr, 78, 0, 48, nullptr, nullptr, nullptr, 0),
              0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "createExpStructurePartition",
                     "[UMM_CMM] invalid param, part name((nil)) ownerModuleID(78).");
}

TEST(PartitionDelete, the_pool_goes_and_the_id_is_free_again)
{
    enter_library();
    const uint32_t id   = new_partition();
    const uint64_t pool = g_cmm_part_s[id].pool;

    EXPECT_EQ(deleteStructurePartition(id), 0u);

    EXPECT_EQ(fake_last_call(OP_zyumm_mpool_delete).args.at(0).number, pool);
    EXPECT_FALSE(fake_handle_alive(pool));
    EXPECT_EQ(g_cmm_part_s[id].pool, 0u);
    EXPECT_EQ(g_cmm_part_s[id].part_id, 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_NO_LINE();
}

TEST(PartitionDelete, the_next_partition_gets_the_id_of_the_deleted_one)
{
    enter_library();
    ASSERT_EQ(new_partition(), 1u);
    ASSERT_EQ(new_partition(), 2u);

    deleteStructurePartition(1);

    EXPECT_EQ(new_partition(), 1u);
    EXPECT_EQ(new_partition(), 3u);
}

TEST(PartitionDelete, the_callbacks_stay_in_the_free_entry_is_kept)
{
    enter_library();
    const uint32_t id = new_partition(4, init_object, free_object);

    deleteStructurePartition(id);

    EXPECT_EQ(g_cmm_part_s[id].init_cb, init_object);
    EXPECT_EQ(g_cmm_part_s[id].free_cb, free_object);
}

/* Whoever takes the lock next may get the id, and must not lose his own handle to our store. */
TEST(PartitionDelete, the_handle_is_empty_before_the_lock_and_the_id_released_under_it)
{
    enter_library();
    const uint32_t id       = new_partition();
    uint64_t pool_at_lock   = 77;
    uint32_t id_at_lock     = 0;
    uint32_t id_at_unlock   = 77;
    uint32_t sum_at_unlock  = 77;
    fake_hook(OP_do_zyax_spinlock_lock, 1, [&] {
        pool_at_lock = g_cmm_part_s[id].pool;
        id_at_lock   = g_cmm_part_s[id].part_id;
    });
    fake_hook(OP_do_zyax_spinlock_unlock, 1, [&] {
        id_at_unlock  = g_cmm_part_s[id].part_id;
        sum_at_unlock = g_cmm_part_sum;
    });

    deleteStructurePartition(id);

    EXPECT_EQ(pool_at_lock, 0u);
    EXPECT_EQ(id_at_lock, id);
    EXPECT_EQ(id_at_unlock, 0u);
    EXPECT_EQ(sum_at_unlock, 1u);
}

TEST(PartitionDelete, a_partition_with_objects_out_stays)
{
    enter_library();
    const uint32_t id   = new_partition();
    const uint64_t pool = g_cmm_part_s[id].pool;
    void *object        = nullptr;
    allocStructure(77, id, &object, "the test");

    EXPECT_EQ(deleteStructurePartition(id), 0xFFFFFFFFu);

    EXPECT_LAST_LINE(ZYLOG_ERROR, "deleteStructurePartition",
                     "[UMM_CMM] The partition[1] delete failed, pool_id[" + std::to_string(pool) +
                         "].");
    EXPECT_EQ(g_cmm_part_s[id].pool, pool);
    EXPECT_EQ(g_cmm_part_s[id].part_id, id);
    EXPECT_EQ(g_cmm_part_sum, 1u);
}

TEST(PartitionDelete, a_free_id_is_refused_by_the_memory_manager)
{
    EXPECT_EQ(deleteStructurePartition(9), 0xFFFFFFFFu);

    EXPECT_EQ(fake_last_call(OP_zyumm_mpool_delete).args.at(0).number, 0u);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "deleteStructurePartition",
                     "[UMM_CMM] The partition[9] delete failed, pool_id[0].");
    EXPECT_EQ(g_cmm_part_sum, 0u);
}

TEST(PartitionDelete, a_second_deletion_fails)
{
    enter_library();
    const uint32_t id = new_partition();

    EXPECT_EQ(deleteStructurePartition(id), 0u);
    EXPECT_EQ(deleteStructurePartition(id), 0xFFFFFFFFu);

    EXPECT_EQ(g_cmm_part_sum, 0u);
}

TEST(PartitionDelete, the_line_about_a_refusal_is_limited)
{
    EXPECT_LIMITED(deleteStructurePartition(9),
                   "[UMM_CMM] The partition[9] delete failed, pool_id[0].");
}

TEST(PartitionDelete, id_0_counts_as_deleted_is_kept)
{
    EXPECT_EQ(deleteStructurePartition(0), 0u);

    EXPECT_ONLY_LINE(ZYLOG_WARNING, "deleteStructurePartition",
                     "[UMM_CMM] can't find the mempool with partId[0]");
    EXPECT_EQ(fake_count(OP_zyumm_mpool_delete), 0u);
}

TEST(PartitionDelete, ids_above_2047_count_as_deleted_is_kept)
{
    EXPECT_EQ(deleteStructurePartition(2048), 0u);
    EXPECT_LAST_LINE(ZYLOG_WARNING, "deleteStructurePartition",
                     "[UMM_CMM] can't find the mempool with partId[2048]");

    EXPECT_EQ(deleteStructurePartition(0xFFFFFFFF), 0u);
    EXPECT_LAST_LINE(ZYLOG_WARNING, "deleteStructurePartition",
                     "[UMM_CMM] can't find the mempool with partId[4294967295]");
}

TEST(PartitionDelete, the_line_about_an_unknown_id_is_limited)
{
    EXPECT_LIMITED(deleteStructurePartition(0),
                   "[UMM_CMM] can't find the mempool with partId[0]");
}

TEST(PartitionDelete, the_other_name_does_the_same)
{
    enter_library();
    const uint32_t id = new_partition();

    EXPECT_EQ(deletePartitionByID(id), 0u);
    EXPECT_EQ(g_cmm_part_sum, 0u);

    EXPECT_EQ(deletePartitionByID(0), 0u);
    EXPECT_LAST_LINE(ZYLOG_WARNING, "deleteStructurePartition",
                     "[UMM_CMM] can't find the mempool with partId[0]");
}
