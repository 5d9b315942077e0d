/*
 * Pages and the queue of requests for them with all levels off: the answers are the same, and not
 * a line is written.
 */
#include "unit/silence.h"

#include "page_fixture.h"

static constexpr uint32_t FAILURE = 0xFFFFFFFF;

/* ---- pool and zero pages */

TEST_F(Silence, a_pool_for_somebody_else_is_not_made)
{
    configure(0, 800);
    g_ucmm_config.io_pool.reserve_size = 1;
    EXPECT_EQ(create_page_mempool(), 0u);
    EXPECT_EQ(s_page_partition_id, 0u);
}

TEST_F(Silence, a_page_pool_that_cannot_be_made_is_a_failure)
{
    configure(0, 800);
    fake_fail(OP_zyumm_mpool_create);
    EXPECT_EQ(create_page_mempool(), FAILURE);
    fake_fail(OP_zyax_setmemory_ro, 1);
    EXPECT_EQ(create_page_mempool(), FAILURE);
    fake_fail(OP_zyax_setmemory_ro, 2);
    EXPECT_EQ(create_page_mempool(), FAILURE);
    fake_fail(OP_memcpy_s);
    EXPECT_EQ(create_page_mempool(), FAILURE);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(create_page_mempool(), FAILURE);
}

TEST_F(Silence, a_page_pool_from_outside_is_refused)
{
    configure(0, 800);
    EXPECT_EQ(zyumm_page_slab_create(9, 0, MODULE, nullptr), FAILURE);
    EXPECT_EQ(zyumm_page_slab_create(0, 0, MODULE, OWNER), FAILURE);
    EXPECT_EQ(zyumm_page_slab_create(9, 0, MODULE, OWNER), FAILURE);
    zyumm_partition_creator_set(CMM_CREATOR_PAGE);
    fake_fail(OP_zyumm_mpool_create);
    EXPECT_EQ(zyumm_page_slab_create(9, 0, MODULE, OWNER), FAILURE);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(zyumm_page_slab_create(9, 0, MODULE, OWNER), FAILURE);
}

TEST_F(Silence, a_second_pool_from_outside_is_the_first)
{
    start_pages();
    const uint64_t pool = s_page_partition_id;
    EXPECT_EQ(zyumm_page_slab_create_ex(9, 0, MODULE, OWNER), 0u);
    EXPECT_EQ(s_page_partition_id, pool);
}

TEST_F(Silence, a_pool_that_cannot_be_ended_is_a_failure)
{
    start_pages();
    fake_fail(OP_zymm_destory_slab);
    EXPECT_EQ(delete_page_mempool(), FAILURE);
    EXPECT_NE(s_page_partition_id, 0u);
}

TEST_F(Silence, zero_pages_that_are_gone_need_no_end)
{
    start_pages();
    umm_set_global_zero_page_ctrl_without_dif(nullptr);
    EXPECT_EQ(delete_page_mempool(), 0u);
}

TEST_F(Silence, zero_pages_in_use_are_not_ended)
{
    start_pages();
    getZeroPageCtrl()->ref = 2;
    EXPECT_EQ(delete_page_mempool(), FAILURE);
}

TEST_F(Silence, a_first_zero_page_that_stays_protected_is_a_failure)
{
    start_pages();
    fake_fail(OP_zyax_setmemory_rw, 1);
    EXPECT_EQ(delete_page_mempool(), FAILURE);
}

TEST_F(Silence, a_second_zero_page_that_stays_protected_is_a_failure)
{
    start_pages();
    fake_fail(OP_zyax_setmemory_rw, 2);
    EXPECT_EQ(delete_page_mempool(), FAILURE);
}

TEST_F(Silence, a_zero_page_partition_that_stays_is_a_failure)
{
    start_pages();
    fake_fail(OP_zyumm_mpool_delete);
    EXPECT_EQ(delete_page_mempool(), FAILURE);
}

/* ---- taking and giving back */

TEST_F(Silence, runs_that_cannot_be_had)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(2, &chain, MODULE, OWNER, 1);
    freeMultiPages(chain, MODULE, OWNER, 1);
    start_pages();
    allocMultiPagesSync(2, nullptr, MODULE, OWNER, 1);
    allocMultiPagesSync(0, &chain, MODULE, OWNER, 1);
    leave_pages(1);
    allocMultiPagesSync(2, &chain, MODULE, OWNER, 1);
    EXPECT_EQ(chain, nullptr);
    EXPECT_EQ(pages_out(), 0u);
}

TEST_F(Silence, nothing_is_given_back_for_nothing)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    freeOnePage(nullptr, MODULE, OWNER, 1);
    freeOnePage(ctrl, MODULE, nullptr, 1);
    EXPECT_EQ(ctrl->ref, 1);
}

TEST_F(Silence, a_zero_page_at_0_stays)
{
    start_pages();
    EXPECT_EQ(try_free_one_page(getZeroPageCtrl(), MODULE, OWNER, 1), 0u);
    EXPECT_NE(s_zero_page_address, nullptr);
}

TEST_F(Silence, a_page_given_back_twice_ends_the_process)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    freeOnePage(ctrl, MODULE, OWNER, 1);
    EXPECT_EXIT(freeOnePage(ctrl, MODULE, OWNER, 2), testing::KilledBySignal(SIGABRT), "^$");
    freeOnePage(nullptr, MODULE, OWNER, 1);
}

TEST_F(Silence, a_count_below_0_ends_the_process)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    ctrl->ref = 0;
    EXPECT_EXIT(freeOnePage(ctrl, MODULE, OWNER, 2), testing::KilledBySignal(SIGABRT), "^$");
    freeOnePage(nullptr, MODULE, OWNER, 1);
}

/* ---- references, attributes, counts */

TEST_F(Silence, references_of_nothing)
{
    EXPECT_EQ(incAndRetPageReference(nullptr, OWNER, 1), FAILURE);
    EXPECT_EQ(decAndRetPageReference(nullptr, MODULE, OWNER, 1), FAILURE);
    EXPECT_EQ(getPageReference(nullptr, OWNER), FAILURE);
    EXPECT_EQ(getPageAddrByPageCtrl(nullptr), nullptr);
    EXPECT_EQ(zyumm_page_get_numaid(nullptr), FAILURE);
}

TEST_F(Silence, references_without_a_name)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    EXPECT_EQ(incAndRetPageReference(ctrl, nullptr, 1), FAILURE);
    EXPECT_EQ(decAndRetPageReference(ctrl, MODULE, nullptr, 1), FAILURE);
    EXPECT_EQ(getPageReference(ctrl, nullptr), FAILURE);
    EXPECT_EQ(ctrl->ref, 1);
}

TEST_F(Silence, references_without_a_pool)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    s_page_partition_id = 0;
    EXPECT_EQ(decAndRetPageReference(ctrl, MODULE, OWNER, 1), FAILURE);
    EXPECT_EQ(ctrl->ref, 1);
}

TEST_F(Silence, a_reference_to_a_free_page_is_refused)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    ctrl->ref = 0;
    EXPECT_EQ(incAndRetPageReference(ctrl, OWNER, 1), FAILURE);
}

TEST_F(Silence, attributes_of_nothing)
{
    uint8_t is_zero = 7;
    getPageZeroFlags(nullptr, &is_zero);
    setPageZeroFlags(nullptr, 1);
    addPageValidBitMap(nullptr, 1);
    EXPECT_EQ(getPageValidBitMap(nullptr), 0u);
    EXPECT_EQ(is_zero, 7u);
}

TEST_F(Silence, attributes_of_a_free_page)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    ctrl->flags = 0;
    uint8_t is_zero = 7;
    getPageZeroFlags(ctrl, &is_zero);
    setPageZeroFlags(ctrl, 1);
    addPageValidBitMap(ctrl, 1);
    EXPECT_EQ(is_zero, 0u);
    EXPECT_EQ(ctrl->zero_flags, 0u);
    EXPECT_EQ(ctrl->valid_bitmap, 0u);
    EXPECT_EQ(getPageAddrByPageCtrl(ctrl), nullptr);
}

TEST_F(Silence, a_record_in_the_wrong_place_has_no_page)
{
    start_pages();
    page_ctrl *ctrl = take_page();
    page_ctrl copy = *ctrl;
    EXPECT_EQ(getPageAddrByPageCtrl(&copy), nullptr);
}

TEST_F(Silence, counts_of_pages_that_cannot_be_had)
{
    uint64_t total = 7, used = 7, free = 7;
    get_page_count(&total, &used, nullptr);
    get_page_count(nullptr, &used, &free);
    get_page_count(&total, nullptr, &free);
    EXPECT_EQ(total + used + free, 21u);
    g_ucmm_config.page_max = 5;
    get_page_count(&total, &used, &free);
    EXPECT_EQ(total + used + free, 0u);
}

/* ---- eviction */

static void on_short(uint64_t)
{
}

TEST_F(Silence, handlers_are_registered_until_the_table_is_full)
{
    EXPECT_EQ(zyumm_page_evict_handler_reg(0, nullptr, 0, MODULE, OWNER), FAILURE);
    uint32_t registered = 0;
    while (zyumm_page_evict_handler_reg(0, on_short, 0, MODULE, OWNER) == 0)
        ++registered;
    EXPECT_EQ(registered, g_page_async_evict_handler.count);
}

TEST_F(Silence, an_eviction_timer_that_cannot_be_had)
{
    fake_fail(OP_zyax_timer_init);
    zyumm_page_evict_timer_create();
    EXPECT_FALSE(fake_timer(&g_page_async_evict_handler.timer).armed);
    zyumm_page_evict_timer_hendler();
    EXPECT_FALSE(fake_timer(&g_page_async_evict_handler.timer).armed);
}

/* ---- requests that wait */

TEST_F(Silence, requests_without_call_backs_are_not_queued)
{
    start_pages();
    start_queue();
    dry_pool();
    allocOnePageForPagePoolTimeOut(nullptr, 5, nullptr, 1, on_fail, 1, MODULE, OWNER, 21);
    allocOnePageForPagePoolTimeOut(nullptr, 5, on_end, 1, nullptr, 1, MODULE, OWNER, 21);
    allocMultiPagesForPagePoolTimeOut(2, nullptr, 5, nullptr, 1, on_fail, 1, MODULE, OWNER, 21);
    allocMultiPagesForPagePoolTimeOut(2, nullptr, 5, on_end, 1, nullptr, 1, MODULE, OWNER, 21);
    EXPECT_EQ(events, texts{});
    EXPECT_EQ(requests_out(), 0u);
}

TEST_F(Silence, requests_without_a_name_are_refused)
{
    start_pages();
    start_queue();
    allocOnePageForPagePoolTimeOut(nullptr, 5, on_end, 1, on_fail, 1, MODULE, nullptr, 21);
    allocMultiPagesForPagePoolTimeOut(2, nullptr, 5, on_end, 2, on_fail, 2, MODULE, nullptr, 21);
    EXPECT_EQ(events.size(), 4u);
    EXPECT_EQ(requests_out(), 0u);
}

TEST_F(Silence, requests_are_queued_and_refused)
{
    start_pages();
    start_queue();
    dry_pool();
    ask_page(1);
    ask_run(2, 2);
    EXPECT_EQ(queue(), (ids{1, 2}));
    fake_fail(OP_zymm_slab_malloc, 2); /* the first is for the page itself */
    ask_page(3);
    EXPECT_EQ(events.size(), 2u);
}

TEST_F(Silence, a_request_of_an_unknown_kind_stays)
{
    start_pages();
    start_queue();
    page_add_retry_req(7, 1, 5, on_end, 1, on_fail, 1, MODULE, OWNER, 21);
    run_once();
    EXPECT_EQ(queue(), ids{1});
}

TEST_F(Silence, a_served_request_without_a_call_back_goes)
{
    start_pages();
    start_queue();
    dry_pool();
    ask_page(1);
    queued(0)->cbFunc = nullptr;
    leave_pages(1);
    run_once();
    EXPECT_EQ(queue(), ids{});
}

TEST_F(Silence, timers_that_cannot_be_armed)
{
    start_pages();
    start_queue();
    dry_pool();
    ask_page(1);
    fake_fail_always(OP_zyax_timer_modify);
    EXPECT_EQ(page_start_retry(), FAILURE);
    umm_hung_page_timeout_detect();
    EXPECT_EQ(queue(), ids{1});
}

/* ---- start and stop of the queue */

TEST_F(Silence, a_queue_without_its_records_is_a_failure)
{
    configure(0, 800);
    fake_fail(OP_memcpy_s);
    EXPECT_EQ(page_init_retry(), FAILURE);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(page_init_retry(), FAILURE);
}

/* The step of one timer's start fails, then the same step of the other's. */
static void fail_both_timers_at(fake_op step)
{
    for (uint64_t timer = 1; timer <= 2; ++timer) {
        fake_fail(step, timer);
        EXPECT_EQ(page_init_retry(), FAILURE);
    }
}

TEST_F(Silence, a_queue_without_its_timers_is_a_failure)
{
    configure(0, 800);
    fail_both_timers_at(OP_zyax_timer_init);
    fail_both_timers_at(OP_zyax_timer_set_raw);
    fail_both_timers_at(OP_zyax_timer_add);
    fake_fail(OP_zyax_Init);
    EXPECT_EQ(page_init_retry(), FAILURE);
    EXPECT_EQ(fake_handles_alive(), 0u);
}

TEST_F(Silence, a_queue_in_use_is_ended_all_the_same)
{
    start_pages();
    start_queue();
    dry_pool();
    ask_page(1);
    fake_fail_always(OP_zyax_timer_delete);
    page_exit_retry();
    EXPECT_EQ(s_page_request_id, 0u);
}
