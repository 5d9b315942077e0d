/*
 * Parameter records and creation records: defaults, fields, and the two flag mappings.
 */
#include <cstring>

#include "partition_test_help.h"

namespace
{

zyumm_mpool_param from_flags(uint32_t flags)
{
    structure_mempool_para para = new_para();
    para.flags                  = flags;
    zyumm_mpool_param record;
    mm_mempool_para_init_by_pool_param(&record, &para);
    return record;
}

zyumm_mpool_param from_loose_flags(uint32_t flags)
{
    zyumm_mpool_param record;
    mm_mempool_para_init_by_param(&record, 1, 2, "loose", 77, flags, 64);
    return record;
}

} // namespace

TEST(PartitionParam, defaults_are_filled_in_over_whatever_was_there)
{
    fake_fail_with(OP_getLocalCacheDefaultNum, 1, 11);
    fake_fail_with(OP_getLocalCacheDefaultSize, 1, 22);
    structure_mempool_para para;
    memset(&para, 0xEE, sizeof para);

    initStructureMempoolPara(&para);

    EXPECT_EQ(para.magic, 0xABCABCu);
    EXPECT_EQ(para.reserved_num, 0u);
    EXPECT_EQ(para.max_num, 0u);
    EXPECT_EQ(para.name, nullptr);
    EXPECT_EQ(para.module_id, 0u);
    EXPECT_EQ(para.flags, 0u);
    EXPECT_EQ(para.obj_size, 0u);
    EXPECT_EQ(para.cache_num, 11u);
    EXPECT_EQ(para.cache_size, 22u);
    EXPECT_EQ(para.init_cb, nullptr);
    EXPECT_EQ(para.free_cb, nullptr);
    EXPECT_EQ(para.extra, 7u);
    EXPECT_NO_LINE();
}

TEST(PartitionParam, the_bytes_between_the_fields_are_zeroed_too)
{
    structure_mempool_para para;
    memset(&para, 0xEE, sizeof para);

    initStructureMempoolPara(&para);

    const char zero[4] = {};
    EXPECT_EQ(memcmp(reinterpret_cast<char *>(&para) + 44, zero, 4), 0);
    EXPECT_EQ(memcmp(reinterpret_cast<char *>(&para) + 68, zero, 4), 0);
}

TEST(PartitionParam, a_null_record_is_only_logged)
{
    initStructureMempoolPara(nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "initStructureMempoolPara", "[UMM_CMM] createPara is NULL.");
    EXPECT_EQ(fake_last_line().file, "src/cmm_umm/zyumm_cmm/partition_param.cpp");
    EXPECT_EQ(fake_count(OP_getLocalCacheDefaultNum), 0u);
}

TEST(PartitionParam, the_line_about_a_null_record_is_limited)
{
    EXPECT_LIMITED(initStructureMempoolPara(nullptr), "[UMM_CMM] createPara is NULL.");
}

TEST(PartitionParam, a_parameter_record_becomes_a_creation_record)
{
    g_cmm_umm_partition         = 5;
    structure_mempool_para para = new_para();
    para.cache_num              = 33;
    para.cache_size             = 44;
    zyumm_mpool_param record;
    memset(&record, 0xEE, sizeof record);

    EXPECT_EQ(mm_mempool_para_init_by_pool_param(&record, &para), 0);

    EXPECT_EQ(record.partition, 5u);
    EXPECT_EQ(record.obj_size, 200u);
    EXPECT_EQ(record.zero, 0u);
    EXPECT_EQ(record.reserved_num, 4u);
    EXPECT_EQ(record.max_num, 9u);
    EXPECT_EQ(record.module_id, 77u);
    EXPECT_EQ(record.attr, 0x2u);
    EXPECT_EQ(record.cache_num, 33u);
    EXPECT_EQ(record.cache_size, 44u);
    EXPECT_STREQ(record.name, "structures");
    EXPECT_EQ(record.pad0, 0u);
    EXPECT_EQ(record.pad1, 0u);
}

TEST(PartitionParam, loose_values_become_a_creation_record_without_caches)
{
    g_cmm_umm_partition = 5;
    zyumm_mpool_param record;
    memset(&record, 0xEE, sizeof record);

    EXPECT_EQ(mm_mempool_para_init_by_param(&record, 3, 8, "loose", 78, 0, 300), 0);

    EXPECT_EQ(record.partition, 5u);
    EXPECT_EQ(record.obj_size, 300u);
    EXPECT_EQ(record.zero, 0u);
    EXPECT_EQ(record.reserved_num, 3u);
    EXPECT_EQ(record.max_num, 8u);
    EXPECT_EQ(record.module_id, 78u);
    EXPECT_EQ(record.attr, 0u);
    EXPECT_EQ(record.cache_num, 0u);
    EXPECT_EQ(record.cache_size, 0u);
    EXPECT_STREQ(record.name, "loose");
}

TEST(PartitionParam, names_are_cut_to_31_characters)
{
    structure_mempool_para para = new_para();
    para.name                   = "0123456789012345678901234567890123456789";
    zyumm_mpool_param record;

    EXPECT_EQ(mm_mempool_para_init_by_pool_param(&record, &para), 0);
    EXPECT_STREQ(record.name, "0123456789012345678901234567890");

    EXPECT_EQ(mm_mempool_para_init_by_param(&record, 1, 2, para.name, 77, 0, 64), 0);
    EXPECT_STREQ(record.name, "0123456789012345678901234567890");
    EXPECT_EQ(fake_last_call(OP_strncpy_s).args.at(1).number, 32u);
    EXPECT_EQ(fake_last_call(OP_strncpy_s).args.at(3).number, 31u);
}

TEST(PartitionParam, a_null_name_answers_the_copys_result_and_leaves_the_pool_unnamed)
{
    structure_mempool_para para = new_para();
    para.name                   = nullptr;
    zyumm_mpool_param record;

    EXPECT_NE(mm_mempool_para_init_by_pool_param(&record, &para), 0);
    EXPECT_STREQ(record.name, "");
    EXPECT_EQ(record.max_num, 9u);

    EXPECT_NE(mm_mempool_para_init_by_param(&record, 1, 2, nullptr, 77, 0, 64), 0);
    EXPECT_STREQ(record.name, "");
}

TEST(PartitionParam, the_result_is_that_of_the_names_copy)
{
    const structure_mempool_para para = new_para();
    zyumm_mpool_param record;
    fake_fail_with(OP_strncpy_s, 1, 34);
    fake_fail_with(OP_strncpy_s, 2, 35);

    EXPECT_EQ(mm_mempool_para_init_by_pool_param(&record, &para), 34);
    EXPECT_EQ(mm_mempool_para_init_by_param(&record, 1, 2, "loose", 77, 0, 64), 35);
}

TEST(PartitionParam, null_records_are_refused)
{
    const structure_mempool_para para = new_para();
    zyumm_mpool_param record;

    EXPECT_EQ(mm_mempool_para_init_by_pool_param(nullptr, &para), -1);
    EXPECT_EQ(mm_mempool_para_init_by_pool_param(&record, nullptr), -1);
    EXPECT_EQ(mm_mempool_para_init_by_param(nullptr, 1, 2, "loose", 77, 0, 64), -1);
    EXPECT_NO_LINE();
}

TEST(PartitionFlags, of_a_parameter_record_map_over_a_base_of_2)
{
    EXPECT_EQ(from_flags(0x00).attr, 0x2u);
    EXPECT_EQ(from_flags(0x02).attr, 0x82u);
    EXPECT_EQ(from_flags(0x04).attr, 0x42u);
    EXPECT_EQ(from_flags(0x10).attr, 0x6u);
    EXPECT_EQ(from_flags(0x20).attr, 0x102u);
    EXPECT_EQ(from_flags(0x40).attr, 0x402u);
}

TEST(PartitionFlags, of_a_parameter_record_add_up)
{
    EXPECT_EQ(from_flags(0x76).attr, 0x5C6u);
    EXPECT_EQ(from_flags(0x66).attr, 0x5C2u);
}

TEST(PartitionFlags, of_a_parameter_record_have_no_other_bits)
{
    EXPECT_EQ(from_flags(0xFFFFFF89).attr, 0x2u);
}

TEST(PartitionFlags, of_loose_values_map_over_nothing_is_kept)
{
    EXPECT_EQ(from_loose_flags(0x00).attr, 0x0u);
    EXPECT_EQ(from_loose_flags(0x02).attr, 0x80u);
    EXPECT_EQ(from_loose_flags(0x04).attr, 0x40u);
    EXPECT_EQ(from_loose_flags(0x10).attr, 0x4u);
    EXPECT_EQ(from_loose_flags(0x40).attr, 0x400u);
}

TEST(PartitionFlags, of_loose_values_cannot_lock_memory_is_kept)
{
    EXPECT_EQ(from_loose_flags(0x20).attr, 0x0u);
}

TEST(PartitionFlags, of_loose_values_add_up)
{
    EXPECT_EQ(from_loose_flags(0x76).attr, 0x4C4u);
}

TEST(PartitionFlags, of_loose_values_have_no_other_bits)
{
    EXPECT_EQ(from_loose_flags(0xFFFFFF89).attr, 0x0u);
}
