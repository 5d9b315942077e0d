/*
 * The SGL pool: who creates it and with what, what refuses it, and how it goes.
 */
#include <gtest/gtest.h>

#include "expect_log.h"

#include "chain_builder.h"
#include "zyumm_cmm.h"

static void configure(uint32_t sgl_min, uint32_t sgl_max)
{
    g_ucmm_config.sgl_min = sgl_min;
    g_ucmm_config.sgl_max = sgl_max;
}

/* Leaves the SGL pool to an outside component. */
static void configure_outside(uint32_t sgl_min, uint32_t sgl_max)
{
    configure(sgl_min, sgl_max);
    g_cmm_part_creator = 0x2;
}

/* The outside component's memory pool. */
static uint64_t outer_pool()
{
    return zymm_pool_create("outer", 1 << 20, 1 << 20, 77, "maker");
}

/* ------------------------------------------------------------------------- at the start */

TEST(SglPoolStart, a_maximum_of_0_makes_no_pool)
{
    configure(0, 0);

    EXPECT_EQ(cmm_create_sgl_mempool(), 0);

    EXPECT_EQ(g_sgl_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_NO_LINE();
}

TEST(SglPoolStart, a_minimum_without_a_maximum_makes_no_pool)
{
    configure(8, 0);

    EXPECT_EQ(cmm_create_sgl_mempool(), 0);

    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(SglPoolStart, a_pool_of_an_outside_creator_is_left_alone)
{
    configure_outside(8, 100);

    EXPECT_EQ(cmm_create_sgl_mempool(), 0);

    EXPECT_EQ(g_sgl_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_NO_LINE();
}

TEST(SglPoolStart, the_creator_bits_of_other_pools_do_not_matter)
{
    configure(8, 100);
    g_cmm_part_creator = 0x5;

    EXPECT_EQ(cmm_create_sgl_mempool(), 0);

    EXPECT_NE(g_sgl_partition_id, 0u);
}

TEST(SglPoolStart, the_pool_is_made_with_the_librarys_parameters)
{
    configure(8, 100);

    EXPECT_EQ(cmm_create_sgl_mempool(), 0);

    const zymm_slab_param param = fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "SGL PARTITION");
    EXPECT_EQ(param.module_id, 386u);
    EXPECT_EQ(param.align, 64u);
    EXPECT_EQ(param.attr, 2u);
    EXPECT_EQ(param.obj_size, 1584u);
    EXPECT_EQ(param.min_num, 8u);
    EXPECT_EQ(param.max_num, 100u);
    EXPECT_EQ(param.pool_id, 0u);
    EXPECT_NO_LINE();
}

TEST(SglPoolStart, the_pool_is_made_in_the_librarys_own_name_and_its_handle_kept)
{
    configure(8, 100);

    cmm_create_sgl_mempool();

    const fake_call call = fake_last_call(OP_zymm_create_slab);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "cmm_create_sgl_mempool");
    EXPECT_NE(g_sgl_partition_id, 0u);
    EXPECT_EQ(g_sgl_partition_id, call.result);
}

TEST(SglPoolStart, the_name_is_13_characters_copied_into_room_for_31)
{
    configure(8, 100);

    cmm_create_sgl_mempool();

    ASSERT_EQ(fake_count(OP_memcpy_s), 1u);
    const fake_call copy = fake_last_call(OP_memcpy_s);
    EXPECT_EQ(copy.args[1].number, 31u);
    EXPECT_EQ(copy.args[3].number, 13u);
}

TEST(SglPoolStart, a_failed_copy_of_the_name_fails_the_creation)
{
    configure(8, 100);
    fake_fail_with(OP_memcpy_s, 1, 34);

    EXPECT_EQ(cmm_create_sgl_mempool(), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cmm_create_sgl_mempool", "[UMM_CMM] memcpy_s error 34.");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_EQ(g_sgl_partition_id, 0u);
}

TEST(SglPoolStart, the_line_of_a_failed_copy_is_not_limited)
{
    configure(8, 100);
    fake_fail_always_with(OP_memcpy_s, 34);

    EXPECT_NOT_LIMITED(cmm_create_sgl_mempool(), "[UMM_CMM] memcpy_s error 34.");
}

TEST(SglPoolStart, a_refused_slab_fails_the_creation)
{
    configure(8, 100);
    fake_fail(OP_zymm_create_slab);

    EXPECT_EQ(cmm_create_sgl_mempool(), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cmm_create_sgl_mempool",
                     "[UMM_CMM] Sgl partition create failed.");
    EXPECT_EQ(g_sgl_partition_id, 0u);
}

TEST(SglPoolStart, the_line_of_a_refused_slab_is_not_limited)
{
    configure(8, 100);
    fake_fail_always(OP_zymm_create_slab);

    EXPECT_NOT_LIMITED(cmm_create_sgl_mempool(), "[UMM_CMM] Sgl partition create failed.");
}

/* -------------------------------------------------------------------- by an outside creator */

TEST(SglPoolOutside, a_null_function_is_refused_before_anything_else)
{
    configure(8, 100);

    EXPECT_EQ(zyumm_sgl_slab_create(0, 0, 77, nullptr), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_sgl_slab_create",
                     "[UMM_CMM] Zyumm sgl pool create failed, pool_id(0x0), module_id(77), "
                     "function((nil)).");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(SglPoolOutside, the_line_of_a_null_function_names_the_pool_and_is_not_limited)
{
    configure_outside(8, 100);

    EXPECT_NOT_LIMITED(zyumm_sgl_slab_create(0xabcdef0123, 0, 77, nullptr),
                       "[UMM_CMM] Zyumm sgl pool create failed, pool_id(0xabcdef0123), "
                       "module_id(77), function((nil)).");
}

TEST(SglPoolOutside, pool_0_is_refused_before_the_creator_mask_is_asked)
{
    configure(8, 100);

    EXPECT_EQ(zyumm_sgl_slab_create(0, 0, 77, "maker"), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_sgl_slab_create",
                     "[UMM_CMM] Zyumm sgl pool create failed, pool_id(0x0), module_id(77), "
                     "function(maker).");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(SglPoolOutside, the_line_of_pool_0_is_not_limited)
{
    configure_outside(8, 100);

    EXPECT_NOT_LIMITED(zyumm_sgl_slab_create(0, 0, 77, "maker"),
                       "[UMM_CMM] Zyumm sgl pool create failed, pool_id(0x0), module_id(77), "
                       "function(maker).");
}

TEST(SglPoolOutside, without_the_creator_bit_it_is_refused_as_if_the_pool_existed_is_kept)
{
    configure(8, 100);
    g_cmm_part_creator = 0x5;

    EXPECT_EQ(zyumm_sgl_slab_create(9, 0, 77, "maker"), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_sgl_slab_create",
                     "[UMM_CMM] Zyumm sgl pool has been created, sgl_partition_id(0x0), "
                     "module_id(77), function(maker).");
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(SglPoolOutside, a_second_pool_is_refused_and_the_first_stays)
{
    configure_outside(8, 100);
    const uint64_t pool = outer_pool();
    ASSERT_EQ(zyumm_sgl_slab_create(pool, 0, 77, "maker"), 0);
    const uint64_t first = g_sgl_partition_id;

    EXPECT_EQ(zyumm_sgl_slab_create(pool, 0, 78, "second"), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_sgl_slab_create",
                     text_of("[UMM_CMM] Zyumm sgl pool has been created, sgl_partition_id(0x%lx), "
                             "module_id(78), function(second).",
                             first));
    EXPECT_EQ(g_sgl_partition_id, first);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 1u);
}

TEST(SglPoolOutside, the_line_of_an_existing_pool_is_not_limited)
{
    configure(8, 100);

    EXPECT_NOT_LIMITED(zyumm_sgl_slab_create(9, 0, 77, "maker"),
                       "[UMM_CMM] Zyumm sgl pool has been created, sgl_partition_id(0x0), "
                       "module_id(77), function(maker).");
}

TEST(SglPoolOutside, the_pool_is_made_with_the_callers_parameters)
{
    configure_outside(8, 100);
    const uint64_t pool = outer_pool();

    EXPECT_EQ(zyumm_sgl_slab_create(pool, 0x10 | 0x40 | 0x1, 77, "maker"), 0);

    const zymm_slab_param param = fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "SGL PARTITION");
    EXPECT_EQ(param.module_id, 77u);
    EXPECT_EQ(param.attr, 0x82u);
    EXPECT_EQ(param.obj_size, 1584u);
    EXPECT_EQ(param.min_num, 8u);
    EXPECT_EQ(param.max_num, 100u);
    EXPECT_EQ(param.pool_id, pool);
    EXPECT_NO_LINE();
}

TEST(SglPoolOutside, the_alignment_stays_the_slab_layers_default)
{
    configure_outside(8, 100);
    const uint64_t pool = outer_pool();
    zymm_slab_param untouched = {};
    zymm_slab_param_init(&untouched);

    zyumm_sgl_slab_create(pool, 0x10, 77, "maker");

    const zymm_slab_param param = fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>();
    EXPECT_EQ(param.align, 8u);
    EXPECT_EQ(param.align, untouched.align);
}

TEST(SglPoolOutside, the_pool_is_made_in_the_callers_name_and_its_handle_kept)
{
    configure_outside(8, 100);
    const uint64_t pool = outer_pool();

    EXPECT_EQ(zyumm_sgl_slab_create(pool, 0, 77, "maker"), 0);

    const fake_call call = fake_last_call(OP_zymm_create_slab);
    EXPECT_EQ(call.args[1].number, 77u);
    EXPECT_EQ(call.args[2].text, "maker");
    EXPECT_NE(g_sgl_partition_id, 0u);
    EXPECT_EQ(g_sgl_partition_id, call.result);
}

TEST(SglPoolOutside, the_name_is_13_characters_copied_as_text_into_room_for_32)
{
    configure_outside(8, 100);
    const uint64_t pool = outer_pool();

    zyumm_sgl_slab_create(pool, 0, 77, "maker");

    ASSERT_EQ(fake_count(OP_strncpy_s), 1u);
    const fake_call copy = fake_last_call(OP_strncpy_s);
    EXPECT_EQ(copy.args[1].number, 32u);
    EXPECT_EQ(copy.args[2].text, "SGL PARTITION");
    EXPECT_EQ(copy.args[3].number, 13u);
}

TEST(SglPoolOutside, a_maximum_of_0_does_not_keep_the_pool_from_being_made)
{
    configure_outside(0, 0);
    const uint64_t pool = outer_pool();

    EXPECT_EQ(zyumm_sgl_slab_create(pool, 0, 77, "maker"), 0);

    EXPECT_EQ(fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>().max_num, 0u);
}

TEST(SglPoolOutside, a_refused_slab_leaves_no_pool)
{
    configure_outside(8, 100);
    fake_fail(OP_zymm_create_slab);

    EXPECT_EQ(zyumm_sgl_slab_create(0xabcdef0123, 0, 77, "maker"), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_sgl_slab_create",
                     "[UMM_CMM] Sgl partition create failed, pool_id(0xabcdef0123), "
                     "module_id(77), function_name(maker).");
    EXPECT_EQ(g_sgl_partition_id, 0u);
}

TEST(SglPoolOutside, the_line_of_a_refused_slab_is_not_limited)
{
    configure_outside(8, 100);
    fake_fail_always(OP_zymm_create_slab);

    EXPECT_NOT_LIMITED(zyumm_sgl_slab_create(9, 0, 77, "maker"),
                       "[UMM_CMM] Sgl partition create failed, pool_id(0x9), module_id(77), "
                       "function_name(maker).");
}

TEST(SglPoolOutside, after_a_refused_slab_the_creator_may_try_again)
{
    configure_outside(8, 100);
    const uint64_t pool = outer_pool();
    fake_fail(OP_zymm_create_slab);
    zyumm_sgl_slab_create(pool, 0, 77, "maker");

    EXPECT_EQ(zyumm_sgl_slab_create(pool, 0, 77, "maker"), 0);

    EXPECT_NE(g_sgl_partition_id, 0u);
}

/* ----------------------------------------------------------------------------- queries */

TEST(SglPoolQuery, usage_is_the_slabs_of_this_pool)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    fake_set_usage(100, 7);
    uint64_t total = 0;
    uint64_t used  = 0;

    EXPECT_EQ(zyumm_sgl_get_usage_info(&total, &used), 0);

    EXPECT_EQ(total, 100u);
    EXPECT_EQ(used, 7u);
    const fake_call call = fake_last_call(OP_zymm_slab_get_usage_info);
    EXPECT_EQ(call.args[0].number, g_sgl_partition_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(&total));
    EXPECT_EQ(call.args[2].number, reinterpret_cast<uint64_t>(&used));
}

TEST(SglPoolQuery, the_result_of_the_usage_query_is_passed_on)
{
    uint64_t total = 0;
    uint64_t used  = 0;
    fake_fail_with(OP_zymm_slab_get_usage_info, 1, 22);

    EXPECT_EQ(zyumm_sgl_get_usage_info(&total, &used), 22);
}

TEST(SglPoolQuery, usage_of_a_node_is_the_slabs_of_this_pool)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    zymm_numa_usage usage = {};

    EXPECT_EQ(zyumm_sgl_get_usage_by_numa(3, &usage), 0);

    const fake_call call = fake_last_call(OP_zymm_slab_get_usage_by_numa);
    EXPECT_EQ(call.args[0].number, g_sgl_partition_id);
    EXPECT_EQ(call.args[1].number, 3u);
    EXPECT_EQ(call.args[2].number, reinterpret_cast<uint64_t>(&usage));
}

TEST(SglPoolQuery, the_result_of_the_node_query_is_passed_on)
{
    zymm_numa_usage usage = {};
    fake_fail_with(OP_zymm_slab_get_usage_by_numa, 1, 22);

    EXPECT_EQ(zyumm_sgl_get_usage_by_numa(0, &usage), 22);
}

TEST(SglPoolQuery, facts_are_those_of_this_pool)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    zyumm_partition_info info = {};

    EXPECT_EQ(zyumm_sgl_info_get(&info), 0);

    const fake_call call = fake_last_call(OP_zyumm_partition_info_get);
    EXPECT_EQ(call.args[0].number, g_sgl_partition_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(&info));
}

TEST(SglPoolQuery, the_result_of_the_facts_query_is_passed_on)
{
    zyumm_partition_info info = {};
    fake_fail_with(OP_zyumm_partition_info_get, 1, 22);

    EXPECT_EQ(zyumm_sgl_info_get(&info), 22);
}

/* -------------------------------------------------------------------------- destruction */

TEST(SglPoolStop, the_pool_is_destroyed_in_the_librarys_name)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    const uint64_t handle = g_sgl_partition_id;

    cmm_destory_sgl_mempool();

    const fake_call call = fake_last_call(OP_zymm_destory_slab);
    EXPECT_EQ(call.args[0].number, handle);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "cmm_destory_sgl_mempool");
    EXPECT_EQ(g_sgl_partition_id, 0u);
    EXPECT_EQ(fake_handles_alive(), 0u);
}

TEST(SglPoolStop, a_second_destruction_does_nothing)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    cmm_destory_sgl_mempool();

    cmm_destory_sgl_mempool();

    EXPECT_EQ(fake_count(OP_zymm_destory_slab), 1u);
    EXPECT_NO_LINE();
}

TEST(SglPoolStop, without_a_pool_nothing_is_destroyed)
{
    cmm_destory_sgl_mempool();

    EXPECT_EQ(fake_count(OP_zymm_destory_slab), 0u);
}

TEST(SglPoolStop, the_handle_is_forgotten_whatever_the_slab_layer_says)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    fake_fail(OP_zymm_destory_slab);

    cmm_destory_sgl_mempool();

    EXPECT_EQ(g_sgl_partition_id, 0u);
}

TEST(SglPoolStop, a_pool_can_be_made_again)
{
    configure(8, 100);
    cmm_create_sgl_mempool();
    cmm_destory_sgl_mempool();

    EXPECT_EQ(cmm_create_sgl_mempool(), 0);

    EXPECT_NE(g_sgl_partition_id, 0u);
}
