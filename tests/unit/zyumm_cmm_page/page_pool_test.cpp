/*
 * The page pool: who creates it, with which parameters, and how it goes.
 */
#include "page_fixture.h"

using PagePoolMade = with_pages;

/* What another component needs to create the pool: the creator's bit and a memory pool. */
static uint64_t become_creator()
{
    zyumm_partition_creator_set(0x1);
    const uint64_t pool = zymm_pool_create("outside", 1 << 20, 1 << 20, 55, "the test");
    forget_everything();
    return pool;
}

static uint32_t create_outside(uint64_t pool_id, const char *func = "outside")
{
    return zyumm_page_slab_create(pool_id, 0x10, 55, func);
}

/* All that a creation that gets through writes: what its eviction timer says. */
static const texts TIMER_TEXTS = {"[UMM_CMM] Zyumm page evict timer create begin, time(10).",
                                  "[UMM_CMM] Zyumm page evict timer create success, time(10)."};

static bool eviction_timer_runs()
{
    return fake_timer(&g_page_async_evict_handler.timer).armed;
}

/* ---- creation by the start of the library */

TEST(PagePool, a_maximum_of_0_makes_neither_pool_nor_zero_pages)
{
    configure(0, 0);
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_EQ(fake_count(OP_zyumm_mpool_create), 0u);
    EXPECT_NO_LINE();
}

TEST(PagePool, a_pool_that_exists_is_left_as_it_is)
{
    start_pages();
    const uint64_t handle = s_page_partition_id;
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(s_page_partition_id, handle);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
}

TEST(PagePool, the_creator_bit_leaves_the_pool_to_an_outside_component)
{
    configure(0, 80);
    zyumm_partition_creator_set(0x1);
    fake_forget_log();
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(s_zero_page_partition_id, 0u);
    EXPECT_NO_LINE();
}

TEST(PagePool, the_bits_of_the_other_pools_do_not_stop_it)
{
    configure(0, 80);
    zyumm_partition_creator_set(0x6);
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_NE(s_page_partition_id, 0u);
}

TEST(PagePool, a_reserved_io_pool_leaves_the_pool_to_its_owner)
{
    configure(0, 80);
    g_ucmm_config.io_pool.reserve_size = 1;
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(s_zero_page_partition_id, 0u);
    EXPECT_ONLY_LINE(ZYLOG_INFO, "create_page_mempool",
                     "[UMM_CMM] The page pool will be created by corvex.");
    EXPECT_NOT_LIMITED(create_page_mempool(), "[UMM_CMM] The page pool will be created by corvex.");
}

TEST(PagePool, the_start_asks_for_the_slab_with_these_parameters)
{
    configure(16, 80);
    EXPECT_EQ(create_page_mempool(), 0u);
    const fake_call call = fake_last_call(OP_zymm_create_slab);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "create_page_mempool");
    EXPECT_EQ(call.result, s_page_partition_id);
    const zymm_slab_param param = call.as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "PAGE PARTITION");
    EXPECT_EQ(param.module_id, 386u);
    EXPECT_EQ(param.attr, 2u);
    EXPECT_EQ(param.obj_size, 8376u);
    EXPECT_EQ(param.min_num, 16u);
    EXPECT_EQ(param.max_num, 80u);
    EXPECT_EQ(param.align, 64u);
    EXPECT_EQ(param.pool_id, 0u);
    EXPECT_EQ(fake_log_texts(), TIMER_TEXTS);
}

TEST(PagePool, the_zero_pages_are_made_before_the_pool)
{
    configure(0, 80);
    fake_fail(OP_zyumm_mpool_create);
    EXPECT_EQ(create_page_mempool(), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_EQ(fake_log_texts(), (texts{"[UMM_CMM] create zero page pool failed.",
                                       "[UMM_CMM] create zero page pool failed, ret(-1)"}));
    EXPECT_LAST_LINE(ZYLOG_ERROR, "create_page_mempool",
                     "[UMM_CMM] create zero page pool failed, ret(-1)");
}

TEST(PagePool, failed_zero_pages_are_reported_each_time)
{
    configure(0, 80);
    fake_fail_always(OP_zyumm_mpool_create);
    EXPECT_NOT_LIMITED(create_page_mempool(), "[UMM_CMM] create zero page pool failed, ret(-1)");
}

TEST(PagePool, a_name_that_cannot_be_copied_fails_the_creation)
{
    configure(0, 80);
    fake_fail_always_with(OP_memcpy_s, 34);
    EXPECT_EQ(create_page_mempool(), 0xFFFFFFFFu);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "create_page_mempool", "[UMM_CMM] memcpy_s error 34.");
    EXPECT_NOT_LIMITED(create_page_mempool(), "[UMM_CMM] memcpy_s error 34.");
}

TEST(PagePool, the_name_is_copied_into_31_characters)
{
    configure(0, 80);
    create_page_mempool();
    const fake_call call = fake_last_call(OP_memcpy_s);
    EXPECT_EQ(call.args[1].number, 31u);
    EXPECT_EQ(call.args[3].number, 14u);
}

TEST(PagePool, a_slab_that_cannot_be_made_leaves_the_zero_pages)
{
    configure(0, 80);
    fake_fail_always(OP_zymm_create_slab);
    EXPECT_EQ(create_page_mempool(), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_NE(getZeroPageCtrlWithoutDif(), nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "create_page_mempool",
                     "[UMM_CMM] create page pool failed, ret(0)");
    EXPECT_NOT_LIMITED(create_page_mempool(), "[UMM_CMM] create page pool failed, ret(0)");
}

TEST(PagePool, creation_fails_at_every_refused_call_and_leaves_no_handle)
{
    configure(0, 80);
    for (fake_op op : {OP_zyumm_mpool_create, OP_ucmm_mpool_alloc_i, OP_zyax_setmemory_ro,
                       OP_memcpy_s, OP_zymm_create_slab}) {
        for_each_fault(op, [](const fault &f) {
            const uint32_t created = create_page_mempool();
            EXPECT_EQ(created, f.hit ? 0xFFFFFFFFu : 0u);
            EXPECT_EQ(s_page_partition_id == 0, f.hit);
            delete_page_mempool();
        });
    }
}

/* ---- creation by an outside component */

TEST(PagePool, an_outside_creator_must_say_who_it_is)
{
    become_creator();
    configure(0, 80);
    EXPECT_EQ(create_outside(0, nullptr), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_page_slab_create",
                     "[UMM_CMM] Zyumm page pool create failed, pool_id(0x0), module_id(55), "
                     "function((nil)).");
    EXPECT_NOT_LIMITED(create_outside(0xABC, nullptr),
                       "[UMM_CMM] Zyumm page pool create failed, pool_id(0xabc), module_id(55), "
                       "function((nil)).");
    EXPECT_EQ(s_zero_page_partition_id, 0u);
}

TEST(PagePool, an_outside_creator_must_bring_a_memory_pool)
{
    configure(0, 80);
    fake_forget_log();
    EXPECT_EQ(create_outside(0), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_page_slab_create",
                     "[UMM_CMM] Zyumm page pool create failed, pool_id(0x0), module_id(55), "
                     "function(outside).");
    EXPECT_NOT_LIMITED(create_outside(0),
                       "[UMM_CMM] Zyumm page pool create failed, pool_id(0x0), module_id(55), "
                       "function(outside).");
}

TEST(PagePool, the_words_for_an_existing_pool_refuse_a_process_that_is_no_creator_is_kept)
{
    const uint64_t pool = become_creator();
    configure(0, 80);
    zyumm_partition_creator_set(0x6);
    fake_forget_log();
    EXPECT_EQ(create_outside(pool), 0xFFFFFFFFu);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_page_slab_create",
                     "[UMM_CMM] Zyumm page pool has been created, page_partition_id(0x0), "
                     "module_id(55), func(outside).");
    EXPECT_EQ(s_zero_page_partition_id, 0u);
}

TEST(PagePool, an_outside_creator_creates_the_pool_once)
{
    const uint64_t pool = become_creator();
    configure(0, 80);
    EXPECT_EQ(create_outside(pool), 0u);
    const uint64_t handle = s_page_partition_id;
    const std::string refusal = "[UMM_CMM] Zyumm page pool has been created, page_partition_id(" +
                                hex(handle) + "), module_id(55), func(outside).";
    fake_forget_log();
    EXPECT_EQ(create_outside(pool), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, handle);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_page_slab_create", refusal);
    EXPECT_NOT_LIMITED(create_outside(pool), refusal);
}

TEST(PagePool, an_outside_creator_fails_with_the_zero_pages)
{
    const uint64_t pool = become_creator();
    configure(0, 80);
    fake_fail_always(OP_zyumm_mpool_create);
    EXPECT_EQ(create_outside(pool), 0xFFFFFFFFu);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "zyumm_page_slab_create",
                     "[UMM_CMM] create zero page pool failed, ret(-1), module_id(55), "
                     "func(outside)");
    EXPECT_NOT_LIMITED(create_outside(pool),
                       "[UMM_CMM] create zero page pool failed, ret(-1), module_id(55), "
                       "func(outside)");
}

TEST(PagePool, an_outside_creator_asks_for_the_slab_with_these_parameters)
{
    const uint64_t pool = become_creator();
    configure(16, 80);
    EXPECT_EQ(zyumm_page_slab_create(pool, 0xFFFF, 55, "outside"), 0u);
    const fake_call call = fake_last_call(OP_zymm_create_slab);
    EXPECT_EQ(call.args[1].number, 55u);
    EXPECT_EQ(call.args[2].text, "outside");
    const zymm_slab_param param = call.as<zymm_slab_param>();
    EXPECT_STREQ(param.name, "PAGE PARTITION");
    EXPECT_EQ(param.module_id, 55u);
    EXPECT_EQ(param.attr, 0x882u);
    EXPECT_EQ(param.obj_size, 8376u);
    EXPECT_EQ(param.min_num, 16u);
    EXPECT_EQ(param.max_num, 80u);
    EXPECT_EQ(param.align, 64u);
    EXPECT_EQ(param.pool_id, pool);
    EXPECT_EQ(fake_log_texts(), TIMER_TEXTS);
}

TEST(PagePool, inside_the_buffer_pool_the_library_owns_it_and_reserves_nothing)
{
    const uint64_t pool = become_creator();
    configure(16, 80);
    g_ucmm_config.io_pool.pool_handle = pool;
    EXPECT_EQ(create_outside(pool), 0u);
    const fake_call call = fake_last_call(OP_zymm_create_slab);
    EXPECT_EQ(call.args[1].number, 55u);
    EXPECT_EQ(call.args[2].text, "outside");
    EXPECT_EQ(call.as<zymm_slab_param>().module_id, 386u);
    EXPECT_EQ(call.as<zymm_slab_param>().min_num, 0u);
    EXPECT_EQ(call.as<zymm_slab_param>().max_num, 80u);
    EXPECT_EQ(call.as<zymm_slab_param>().pool_id, pool);
}

TEST(PagePool, an_outside_creator_is_told_of_a_failed_slab)
{
    const uint64_t pool = become_creator();
    configure(0, 80);
    const std::string failure = "[UMM_CMM] Zyumm page pool created failed, pool_id(" + hex(pool) +
                                "), module(55), func(outside).";
    fake_fail_always(OP_zymm_create_slab);
    EXPECT_EQ(create_outside(pool), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_NE(getZeroPageCtrl(), nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "zyumm_page_slab_create", failure);
    EXPECT_NOT_LIMITED(create_outside(pool), failure);
}

TEST(PagePool, the_forgiving_creation_succeeds_twice)
{
    const uint64_t pool = become_creator();
    configure(0, 80);
    EXPECT_EQ(zyumm_page_slab_create_ex(pool, 0x10, 55, "outside"), 0u);
    const uint64_t handle = s_page_partition_id;
    const std::string exists = "[UMM_CMM] Zyumm page pool has been created, page_partition_id(" +
                               hex(handle) + "), module_id(55).";
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>().attr, 0x2u);
    fake_forget_log();
    EXPECT_EQ(zyumm_page_slab_create_ex(pool, 0x10, 55, "outside"), 0u);
    EXPECT_EQ(s_page_partition_id, handle);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 1u);
    EXPECT_ONLY_LINE(ZYLOG_INFO, "zyumm_page_slab_create_ex", exists);
    EXPECT_NOT_LIMITED(zyumm_page_slab_create_ex(pool, 0x10, 55, "outside"), exists);
}

TEST(PagePool, the_forgiving_creation_forgives_nothing_but_an_existing_pool)
{
    configure(0, 80);
    EXPECT_EQ(zyumm_page_slab_create_ex(0xABC, 0, 55, "outside"), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "zyumm_page_slab_create",
                     "[UMM_CMM] Zyumm page pool has been created, page_partition_id(0x0), "
                     "module_id(55), func(outside).");
}

/* ---- deletion */

TEST(PagePool, deleting_no_pool_succeeds_and_touches_nothing)
{
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_EQ(fake_count(OP_zymm_destory_slab), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PagePoolMade, deleting_the_pool_leaves_nothing_of_it)
{
    const uint64_t handle = s_page_partition_id;
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
    EXPECT_FALSE(fake_handle_alive(handle));
    const fake_call call = fake_last_call(OP_zymm_destory_slab);
    EXPECT_EQ(call.args[0].number, handle);
    EXPECT_EQ(call.args[1].number, 386u);
    EXPECT_EQ(call.args[2].text, "delete_page_mempool");
    EXPECT_EQ(fake_objects_out(), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PagePoolMade, a_pool_that_cannot_be_destroyed_stays)
{
    const uint64_t handle = s_page_partition_id;
    fake_fail_always(OP_zymm_destory_slab);
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    EXPECT_EQ(s_page_partition_id, handle);
    EXPECT_NE(getZeroPageCtrlWithoutDif(), nullptr);
    const std::string failure =
        "[UMM_CMM] Delete page pool error. partId[" + std::to_string(handle) + "]";
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "delete_page_mempool", failure);
    EXPECT_NOT_LIMITED(delete_page_mempool(), failure);
}

TEST_F(PagePoolMade, the_pool_can_be_made_again)
{
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_NE(take_page(), nullptr);
}

/* ---- the eviction timer */

TEST(PagePool, the_first_pool_starts_the_eviction_timer)
{
    configure(0, 80);
    EXPECT_FALSE(eviction_timer_runs());
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_TRUE(eviction_timer_runs());
}

TEST(PagePool, an_outside_creators_pool_starts_it_too)
{
    const uint64_t pool = become_creator();
    configure(0, 80);
    EXPECT_EQ(create_outside(pool), 0u);
    EXPECT_TRUE(eviction_timer_runs());
}

TEST(PagePool, only_a_pool_that_was_made_starts_the_eviction_timer)
{
    configure(0, 80);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(create_page_mempool(), 0xFFFFFFFFu);
    EXPECT_EQ(fake_count(OP_zyax_timer_init), 0u);
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_init), 1u);
}

TEST(PagePool, an_eviction_timer_that_cannot_be_started_fails_no_pool)
{
    configure(0, 80);
    fake_fail(OP_zyax_timer_init);
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_NE(s_page_partition_id, 0u);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "zyumm_page_evict_timer_create",
                     "[UMM_CMM] Zyumm page evict timer create failed, time(10).");
}

TEST_F(PagePoolMade, the_eviction_timer_outlives_the_pool_and_is_made_once)
{
    EXPECT_EQ(delete_page_mempool(), 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_delete), 0u);
    EXPECT_TRUE(eviction_timer_runs());
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_init), 0u);
    EXPECT_NO_LINE();
}

TEST_F(PagePoolMade, a_tick_after_a_failed_destruction_still_asks_for_counts)
{
    fake_fail(OP_zymm_destory_slab);
    EXPECT_EQ(delete_page_mempool(), 0xFFFFFFFFu);
    zyumm_page_evict_timer_hendler();
    EXPECT_EQ(fake_count(OP_mmGetUesdInfo), 1u);
}

/* ---- queries and single pages */

TEST_F(PagePoolMade, usage_is_the_slab_layers)
{
    fake_set_usage(80, 7);
    uint64_t total = 0, used = 0;
    EXPECT_EQ(zyumm_page_get_usage_info(&total, &used), 0);
    EXPECT_EQ(total, 80u);
    EXPECT_EQ(used, 7u);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_get_usage_info).args[0].number, s_page_partition_id);
    fake_fail_with(OP_zymm_slab_get_usage_info, 1, 5);
    EXPECT_EQ(zyumm_page_get_usage_info(&total, &used), 5);
}

TEST_F(PagePoolMade, usage_of_a_node_is_the_slab_layers)
{
    zymm_numa_usage usage = {};
    fake_fail_with(OP_zymm_slab_get_usage_by_numa, 1, 6);
    EXPECT_EQ(zyumm_page_get_usage_by_numa(3, &usage), 6);
    const fake_call call = fake_last_call(OP_zymm_slab_get_usage_by_numa);
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, 3u);
    EXPECT_EQ(call.args[2].number, reinterpret_cast<uint64_t>(&usage));
}

TEST_F(PagePoolMade, information_about_the_pool_is_the_memory_managers)
{
    zyumm_partition_info info = {};
    fake_fail_with(OP_zyumm_partition_info_get, 1, 8);
    EXPECT_EQ(zyumm_page_info_get(&info), 8);
    const fake_call call = fake_last_call(OP_zyumm_partition_info_get);
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(&info));
}

TEST(PagePool, freeing_a_record_changes_its_state_and_its_bitmap_only)
{
    page_ctrl ctrl;
    memset(&ctrl, 0x5A, sizeof ctrl);
    page_ctrl expected = ctrl;
    expected.flags = 0;
    expected.valid_bitmap = 0;
    set_page_ctrl_free(&ctrl);
    EXPECT_EQ(memcmp(&ctrl, &expected, sizeof ctrl), 0);
}

TEST_F(PagePoolMade, a_page_goes_back_to_the_slab_with_the_freeing_callers_identity)
{
    page_ctrl *ctrl = take_page();
    uint8_t *page = ctrl->page_addr;
    EXPECT_EQ(free_one_page(ctrl, 78, "the freer", 12), 0);
    const fake_call call = fake_last_call(OP_zymm_slab_free);
    EXPECT_EQ(call.args[0].number, s_page_partition_id);
    EXPECT_EQ(call.args[1].number, reinterpret_cast<uint64_t>(page));
    EXPECT_EQ(call.args[2].number, 78u);
    EXPECT_EQ(call.args[3].text, "the freer");
    EXPECT_EQ(pages_out(), 0u);
}

TEST_F(PagePoolMade, the_slabs_answer_to_a_free_comes_back)
{
    page_ctrl *ctrl = take_page();
    fake_fail_with(OP_zymm_slab_free, 1, 9);
    EXPECT_EQ(free_one_page(ctrl, 78, "the freer", 12), 9);
}
