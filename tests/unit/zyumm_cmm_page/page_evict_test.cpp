/*
 * Eviction handlers, the threshold, and the timer.
 */
#include <thread>

#include "page_fixture.h"

using PageEvictMade = with_pages;

static constexpr char TICK[] = "zyumm_page_evict_timer_hendler";
static constexpr char CREATE[] = "zyumm_page_evict_timer_create";
static constexpr char REGISTER[] = "zyumm_page_evict_handler_reg";

static page_evict_table *const table = &g_page_async_evict_handler;

static std::vector<uint64_t> called; /* arguments of the handlers, in the order of their calls */

static void first_handler(uint64_t arg)
{
    called.push_back(arg);
}

static void second_handler(uint64_t arg)
{
    called.push_back(arg + 1000);
}

static uint32_t add_handler(uint64_t arg, page_evict_handler handler = first_handler)
{
    return zyumm_page_evict_handler_reg(0xDEAD, handler, arg, 55, "the cache");
}

static void fill_table(uint64_t handlers)
{
    for (uint64_t i = 1; i <= handlers; ++i)
        add_handler(i);
}

/* A tick with `used` of 1,000 pages out. */
static void tick_at(uint64_t used)
{
    g_ucmm_config.page_max = 1000;
    fake_set_usage(1000, used);
    zyumm_page_evict_timer_hendler();
}

/* ---- the table */

TEST(PageEvictTable, initialising_clears_all_of_it)
{
    memset(table, 0x5A, sizeof *table);
    zyumm_page_evict_handler_init();
    page_evict_table expected;
    memset(&expected, 0, sizeof expected);
    expected.lock.magic = 0xdead4ead;
    expected.lock.owner_cpu = 0xFFFFFFFF;
    expected.lock.owner = 0xFFFFFFFFFFFFFFFF;
    EXPECT_EQ(memcmp(table, &expected, 360), 0);
    const fake_call call = fake_last_call(OP_memset_s);
    EXPECT_EQ(call.args[0].number, reinterpret_cast<uint64_t>(table));
    EXPECT_EQ(call.args[1].number, 360u);
    EXPECT_EQ(call.args[2].number, 0u);
    EXPECT_EQ(call.args[3].number, 360u);
    EXPECT_NO_LINE();
}

TEST(PageEvictTable, its_own_fields_are_set_even_when_clearing_fails)
{
    memset(table, 0x5A, sizeof *table);
    fake_fail(OP_memset_s);
    zyumm_page_evict_handler_init();
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(table->spare, 0u);
    EXPECT_EQ(table->lock.word, 0u);
    EXPECT_EQ(table->lock.magic, 0xdead4eadu);
}

TEST(PageEvictTable, a_registered_handler_fills_the_first_entry)
{
    EXPECT_EQ(zyumm_page_evict_handler_reg(0xDEAD, first_handler, 7, 55, "the cache"), 0u);
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(table->entries[0].handler, first_handler);
    EXPECT_EQ(table->entries[0].arg, 7u);
    EXPECT_EQ(table->entries[0].module_id, 55u);
    EXPECT_EQ(table->entries[1].handler, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_INFO, REGISTER,
                     "[UMM_CMM] Zyumm page evict handler set success, module(55), "
                     "func(the cache).");
    EXPECT_EQ(fake_locks_held(), 0u);
}

TEST(PageEvictTable, each_registration_is_reported)
{
    EXPECT_NOT_LIMITED(add_handler(1),
                       "[UMM_CMM] Zyumm page evict handler set success, module(55), "
                       "func(the cache).");
}

TEST(PageEvictTable, the_first_registration_clears_the_table_and_no_later_one)
{
    table->entries[3].handler = second_handler;
    add_handler(1);
    EXPECT_EQ(table->entries[3].handler, nullptr);
    add_handler(2);
    EXPECT_EQ(table->count, 2u);
    EXPECT_EQ(table->entries[0].arg, 1u);
    EXPECT_EQ(table->entries[1].arg, 2u);
    EXPECT_EQ(fake_count(OP_memset_s), 1u);
}

TEST(PageEvictTable, the_entry_is_written_under_the_tables_lock)
{
    add_handler(1);
    bool held = false;
    uint32_t count = 0;
    fake_hook(OP_do_zyax_spinlock_unlock, 1, [&] {
        held = fake_lock_held(&table->lock);
        count = table->count;
    });
    add_handler(2);
    EXPECT_TRUE(held);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(fake_last_call(OP_do_zyax_spinlock_lock).args[1].text, REGISTER);
}

/* A registration that overtakes another one just before it gets the lock keeps its entry. */
TEST(PageEvictTable, the_free_entry_is_looked_for_under_the_lock)
{
    add_handler(1);
    fake_hook(OP_do_zyax_spinlock_lock, 1, [] { add_handler(2); });
    add_handler(3);
    EXPECT_EQ(table->count, 3u);
    EXPECT_EQ(table->entries[1].arg, 2u);
    EXPECT_EQ(table->entries[2].arg, 3u);
}

TEST(PageEvictTable, a_handler_may_be_registered_more_than_once)
{
    EXPECT_EQ(add_handler(1), 0u);
    EXPECT_EQ(add_handler(1), 0u);
    EXPECT_EQ(table->count, 2u);
    EXPECT_EQ(table->entries[1].handler, first_handler);
}

TEST(PageEvictTable, no_handler_is_refused_before_the_table_is_touched)
{
    EXPECT_EQ(add_handler(1, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(fake_count(OP_memset_s), 0u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
    const std::string text =
        "[UMM_CMM] Zyumm page evict handler set failed, handler is NULL, func(the cache).";
    EXPECT_ONLY_LINE(ZYLOG_ERROR, REGISTER, text);
    EXPECT_NOT_LIMITED(add_handler(1, nullptr), text);
}

TEST(PageEvictTable, a_registration_by_nobody_is_written_so)
{
    EXPECT_EQ(zyumm_page_evict_handler_reg(0, nullptr, 1, 55, nullptr), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(
        ZYLOG_ERROR, REGISTER,
        "[UMM_CMM] Zyumm page evict handler set failed, handler is NULL, func((null)).");
    EXPECT_EQ(zyumm_page_evict_handler_reg(0, first_handler, 1, 55, nullptr), 0u);
    EXPECT_LAST_LINE(
        ZYLOG_INFO, REGISTER,
        "[UMM_CMM] Zyumm page evict handler set success, module(55), func((null)).");
    fill_table(7);
    EXPECT_EQ(zyumm_page_evict_handler_reg(0, first_handler, 1, 55, nullptr), 0xFFFFFFFFu);
    EXPECT_LAST_LINE(ZYLOG_ERROR, REGISTER,
                     "[UMM_CMM] Zyumm handler set failed, over max(8),func((null)).");
}

TEST(PageEvictTable, the_eighth_handler_is_the_last_one)
{
    fill_table(7);
    EXPECT_EQ(add_handler(8), 0u);
    EXPECT_EQ(table->count, 8u);
    EXPECT_EQ(table->entries[7].arg, 8u);
    fake_forget_log();
    EXPECT_EQ(add_handler(9), 0xFFFFFFFFu);
    EXPECT_EQ(table->count, 8u);
    EXPECT_EQ(table->entries[7].arg, 8u);
    EXPECT_EQ(fake_locks_held(), 0u);
    const std::string text = "[UMM_CMM] Zyumm handler set failed, over max(8),func(the cache).";
    EXPECT_ONLY_LINE(ZYLOG_ERROR, REGISTER, text);
    EXPECT_NOT_LIMITED(add_handler(9), text);
}

TEST(PageEvictTable, a_count_beyond_the_table_is_refused_as_well)
{
    add_handler(1);
    table->count = 0xFFFFFFFF;
    EXPECT_EQ(add_handler(2), 0xFFFFFFFFu);
    EXPECT_EQ(table->count, 0xFFFFFFFFu);
}

TEST(PageEvictTable, handlers_registered_before_the_pool_stay)
{
    add_handler(1);
    start_pages(1000);
    EXPECT_EQ(table->count, 1u);
    tick_at(1000);
    EXPECT_EQ(called, (ids{1}));
}

/* ---- the timer */

TEST(PageEvictTimer, it_is_started_with_these_parameters)
{
    zyumm_page_evict_timer_create();
    const fake_timer_state state = fake_timer(&table->timer);
    EXPECT_TRUE(state.armed);
    EXPECT_EQ(state.expires, 10u);
    EXPECT_EQ(state.flags, 0u);
    EXPECT_EQ(state.fn, zyumm_page_evict_timer_hendler);
    EXPECT_EQ(state.fn_name, "zyumm_page_evict_timer_hendler");
    EXPECT_EQ(state.file, "src/cmm_umm/zyumm_cmm_page/page_evict.cpp");
    EXPECT_NE(fake_last_call(OP_zyax_timer_set_raw).args[6].number, 0u);
}

TEST(PageEvictTimer, it_clears_the_table_unless_a_handler_is_registered)
{
    zyumm_page_evict_timer_create();
    EXPECT_EQ(fake_count(OP_memset_s), 1u);
    EXPECT_EQ(table->lock.magic, 0xdead4eadu);
    add_handler(1);
    EXPECT_EQ(fake_count(OP_memset_s), 1u);
    EXPECT_TRUE(fake_timer(&table->timer).armed);
}

TEST(PageEvictTimer, its_begin_and_success_are_reported)
{
    zyumm_page_evict_timer_create();
    EXPECT_EQ(fake_log_texts(), (texts{"[UMM_CMM] Zyumm page evict timer create begin, time(10).",
                                       "[UMM_CMM] Zyumm page evict timer create success, time(10)."}));
    EXPECT_EQ(fake_log()[0].level, 6u);
    EXPECT_EQ(fake_log()[0].func, CREATE);
    EXPECT_LAST_LINE(ZYLOG_INFO, CREATE,
                     "[UMM_CMM] Zyumm page evict timer create success, time(10).");
}

static void create_again()
{
    table->timer = {};
    zyumm_page_evict_timer_create();
}

TEST(PageEvictTimer, each_begin_and_success_is_reported)
{
    EXPECT_NOT_LIMITED(create_again(), "[UMM_CMM] Zyumm page evict timer create begin, time(10).");
    EXPECT_NOT_LIMITED(create_again(), "[UMM_CMM] Zyumm page evict timer create success, time(10).");
}

static void expect_failed_creation()
{
    zyumm_page_evict_timer_create();
    EXPECT_EQ(fake_log_texts(), (texts{"[UMM_CMM] Zyumm page evict timer create begin, time(10).",
                                       "[UMM_CMM] Zyumm page evict timer create failed, time(10)."}));
    EXPECT_LAST_LINE(ZYLOG_ERROR, CREATE,
                     "[UMM_CMM] Zyumm page evict timer create failed, time(10).");
    EXPECT_FALSE(fake_timer(&table->timer).armed);
}

TEST(PageEvictTimer, a_timer_that_cannot_be_initialised_is_a_failure)
{
    fake_fail(OP_zyax_timer_init);
    expect_failed_creation();
    EXPECT_EQ(fake_count(OP_zyax_timer_set_raw), 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_add), 0u);
}

TEST(PageEvictTimer, a_timer_that_is_initialised_already_is_a_failure_here_is_kept)
{
    fake_fail_with(OP_zyax_timer_init, 1, 17);
    expect_failed_creation();
    EXPECT_EQ(fake_count(OP_zyax_timer_set_raw), 0u);
}

TEST(PageEvictTimer, a_timer_that_cannot_be_set_is_a_failure)
{
    fake_fail(OP_zyax_timer_set_raw);
    expect_failed_creation();
    EXPECT_EQ(fake_count(OP_zyax_timer_add), 0u);
}

TEST(PageEvictTimer, a_timer_that_cannot_be_added_is_a_failure)
{
    fake_fail(OP_zyax_timer_add);
    expect_failed_creation();
}

TEST(PageEvictTimer, each_failure_is_reported_and_nothing_retried)
{
    fake_fail_always(OP_zyax_timer_init);
    EXPECT_NOT_LIMITED(zyumm_page_evict_timer_create(),
                       "[UMM_CMM] Zyumm page evict timer create failed, time(10).");
    EXPECT_EQ(fake_count(OP_zyax_timer_init), 5u);
}

/* ---- the threshold */

TEST_F(PageEvictMade, below_95_percent_nobody_is_called)
{
    fill_table(3);
    tick_at(949);
    EXPECT_EQ(called, ids{});
}

TEST_F(PageEvictMade, from_95_percent_on_all_are_called_in_order)
{
    fill_table(2);
    add_handler(3, second_handler);
    fake_forget_log();
    tick_at(950);
    EXPECT_EQ(called, (ids{1, 2, 1003}));
    EXPECT_NO_LINE();
}

TEST_F(PageEvictMade, handlers_are_called_again_at_every_tick)
{
    add_handler(1);
    tick_at(1000);
    tick_at(1000);
    EXPECT_EQ(called, (ids{1, 1}));
}

TEST_F(PageEvictMade, the_threshold_is_reckoned_in_64_bits)
{
    add_handler(1);
    g_ucmm_config.page_max = 0xFFFFFFFF;
    fake_set_usage(0xFFFFFFFF, 0xF3333332); /* 94.9999999 % */
    zyumm_page_evict_timer_hendler();
    EXPECT_EQ(called, ids{});
    fake_set_usage(0xFFFFFFFF, 0xF3333333);
    zyumm_page_evict_timer_hendler();
    EXPECT_EQ(called, (ids{1}));
}

TEST_F(PageEvictMade, an_entry_without_a_handler_is_passed_over)
{
    fill_table(3);
    table->entries[1].handler = nullptr;
    tick_at(1000);
    EXPECT_EQ(called, (ids{1, 3}));
}

TEST_F(PageEvictMade, without_handlers_a_tick_only_rearms)
{
    fake_forget_calls();
    tick_at(1000);
    EXPECT_EQ(called, ids{});
    EXPECT_EQ(fake_count(OP_mmGetUesdInfo), 1u);
    EXPECT_EQ(fake_last_call(OP_mmGetUesdInfo).args[0].number, s_page_partition_id);
    EXPECT_EQ(fake_count(OP_zyax_timer_modify), 1u);
    EXPECT_EQ(fake_last_call(OP_zyax_timer_modify).args[0].number,
              reinterpret_cast<uint64_t>(&table->timer));
    EXPECT_EQ(fake_last_call(OP_zyax_timer_modify).args[1].number, 10u);
    EXPECT_NO_LINE();
}

static uint64_t locks_in_handler;
static uint64_t rearmed_in_handler;

static void look_around(uint64_t)
{
    locks_in_handler = fake_locks_held();
    rearmed_in_handler = fake_count(OP_zyax_timer_modify);
    add_handler(5, second_handler);
}

TEST_F(PageEvictMade, a_handler_runs_without_a_lock_and_before_the_timer_is_armed_again)
{
    add_handler(1, look_around);
    fake_forget_calls();
    locks_in_handler = rearmed_in_handler = 99;
    tick_at(1000);
    EXPECT_EQ(locks_in_handler, 0u);
    EXPECT_EQ(rearmed_in_handler, 0u);
    EXPECT_EQ(fake_count(OP_zyax_timer_modify), 1u);
}

TEST_F(PageEvictMade, a_handler_that_another_one_registers_runs_in_the_same_tick)
{
    add_handler(1, look_around);
    tick_at(1000);
    EXPECT_EQ(called, (ids{1005}));
}

static page_ctrl *cached_page;

static void give_back(uint64_t)
{
    if (cached_page != nullptr)
        freeOnePage(cached_page, MODULE, "the cache", 12);
    cached_page = nullptr;
}

TEST_F(PageEvictMade, a_handler_may_free_pages_for_those_who_wait)
{
    start_queue();
    add_handler(1, give_back);
    cached_page = take_page();
    dry_pool();
    ask_page(1);
    tick_at(1000);
    run_once();
    EXPECT_EQ(events, (texts{"end 1 0x0"}));
    freeOnePage(static_cast<page_ctrl *>(results[0]), MODULE, OWNER, 12);
}

TEST(PageEvict, a_maximum_of_0_calls_everybody_at_every_tick_is_kept)
{
    add_handler(1);
    zyumm_page_evict_timer_create();
    fake_forget_log();
    zyumm_page_evict_timer_hendler();
    zyumm_page_evict_timer_hendler();
    EXPECT_EQ(called, (ids{1, 1}));
    EXPECT_NO_LINE();
}

static void tick_without_pool()
{
    g_ucmm_config.page_max = 1000;
    zyumm_page_evict_timer_hendler();
}

TEST(PageEvict, without_a_pool_a_tick_says_so_and_calls_nobody)
{
    add_handler(1);
    zyumm_page_evict_timer_create();
    fake_forget_log();
    tick_without_pool();
    EXPECT_EQ(called, ids{});
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "get_page_count", "[UMM_CMM] page part not init.");
    reopen_limiters();
    EXPECT_LIMITED(tick_without_pool(), "[UMM_CMM] page part not init.");
}

TEST_F(PageEvictMade, a_timer_that_cannot_be_armed_again_is_reported_each_time)
{
    fake_fail_always(OP_zyax_timer_modify);
    zyumm_page_evict_timer_hendler();
    EXPECT_ONLY_LINE(ZYLOG_ERROR, TICK,
                     "[UMM_CMM] Zyumm page evict timer modify failed, time(10).");
    EXPECT_NOT_LIMITED(zyumm_page_evict_timer_hendler(),
                       "[UMM_CMM] Zyumm page evict timer modify failed, time(10).");
}

/* ---- many threads */

static uint64_t bad_calls;

static void expect_own_arg(uint64_t arg)
{
    if (arg < 100 || arg >= 108)
        ++bad_calls;
}

/* The entry is complete before it is counted, so a tick beside a registration never sees a part. */
TEST_F(PageEvictMade, ticks_run_beside_registrations)
{
    g_ucmm_config.page_max = 1000;
    fake_set_usage(1000, 1000);
    std::thread timer([] {
        for (int i = 0; i < 300; ++i)
            zyumm_page_evict_timer_hendler();
    });
    for (uint64_t i = 0; i < 8; ++i)
        add_handler(100 + i, expect_own_arg);
    timer.join();
    EXPECT_EQ(bad_calls, 0u);
    EXPECT_EQ(table->count, 8u);
}

TEST(PageEvictTable, registrations_on_many_threads_fill_the_table_once)
{
    std::vector<std::thread> threads;
    uint32_t refused = 0;
    for (uint64_t i = 0; i < 4; ++i)
        threads.emplace_back([&refused, i] {
            for (uint64_t k = 0; k < 3; ++k)
                if (add_handler(i * 3 + k) != 0)
                    __atomic_add_fetch(&refused, 1u, __ATOMIC_RELAXED);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(refused, 4u);
    EXPECT_EQ(table->count, 8u);
}
