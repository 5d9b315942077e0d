/*
 * The buffer pool: where its sizes come from, what it is made of, and how it ends.
 */
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

#include "fake/expect_log.h"

namespace
{

constexpr char DEFAULTS_LINE[] = "[UMM_CMM] Do not need create public slab table.";

uint64_t pool_handle()
{
    return g_ucmm_config.io_pool.pool_handle;
}

/* Calls made since the last forgetting, by name. */
std::vector<std::string> steps()
{
    std::vector<std::string> names;
    for (const fake_call &call : fake_calls())
        names.emplace_back(fake_op_name(call.op));
    return names;
}

/* Creates a pool and answers the bytes asked for, and the extension's. */
struct asked {
    uint64_t size;
    uint64_t extension;

    bool operator==(const asked &) const = default;
};

asked create(uint64_t reserve_kib, uint64_t extend_kib)
{
    EXPECT_EQ(cmm_create_buffer_mempool(reserve_kib, extend_kib), 0u);
    const fake_call call = fake_last_call(OP_zymm_pool_create);
    return {call.args.at(1).number, call.args.at(2).number};
}

void expect_nothing_stands()
{
    EXPECT_EQ(pool_handle(), 0u);
    EXPECT_EQ(fake_handles_alive(), 0u);
    EXPECT_EQ(fake_allocators_alive(), 0u);
    EXPECT_EQ(fake_objects_out(), 0u);
}

} // namespace

/* ---------------------------------------------------------------------------- sizes */

TEST(BufferPoolCreate, at_load_there_is_none)
{
    EXPECT_EQ(pool_handle(), 0u);
    EXPECT_EQ(g_ucmm_config.buffer_allocator.create, nullptr);
    EXPECT_EQ(g_ucmm_config.buffer_allocator.destroy, nullptr);
}

TEST(BufferPoolCreate, arguments_are_kib)
{
    EXPECT_EQ(create(3, 5), (asked{3072, 5120}));
    EXPECT_NO_LINE();
}

TEST(BufferPoolCreate, a_reserve_alone_means_no_extension)
{
    EXPECT_EQ(create(1, 0), (asked{1024, 0}));
    EXPECT_NO_LINE();
}

TEST(BufferPoolCreate, an_extension_alone_means_no_reserve)
{
    EXPECT_EQ(create(0, 1), (asked{0, 1024}));
    EXPECT_NO_LINE();
}

TEST(BufferPoolCreate, arguments_go_before_the_configuration)
{
    g_ucmm_config.io_pool.reserve_size = 7;
    g_ucmm_config.io_pool.fourth_size  = 9;

    EXPECT_EQ(create(0, 1), (asked{0, 1024}));

    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 7u);
    EXPECT_EQ(g_ucmm_config.io_pool.fourth_size, 9u);
}

TEST(BufferPoolCreate, without_arguments_the_configured_sizes_serve)
{
    g_ucmm_config.io_pool.reserve_size = 7;
    g_ucmm_config.io_pool.extand_size  = 8;
    g_ucmm_config.io_pool.fourth_size  = 9;

    EXPECT_EQ(create(0, 0), (asked{7168, 9216}));

    EXPECT_NO_LINE();
    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 7u);
    EXPECT_EQ(g_ucmm_config.io_pool.fourth_size, 9u);
}

TEST(BufferPoolCreate, without_any_sizes_the_defaults_serve_and_are_written_back)
{
    EXPECT_EQ(create(0, 0), (asked{104857600, 4194304}));

    EXPECT_ONLY_LINE(ZYLOG_INFO, "cmm_create_buffer_mempool", DEFAULTS_LINE);
    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 102400u);
    EXPECT_EQ(g_ucmm_config.io_pool.fourth_size, 4096u);
}

TEST(BufferPoolCreate, a_configured_reserve_without_an_extension_is_not_enough)
{
    g_ucmm_config.io_pool.reserve_size = 7;

    EXPECT_EQ(create(0, 0), (asked{104857600, 4194304}));

    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 102400u);
    EXPECT_EQ(g_ucmm_config.io_pool.fourth_size, 4096u);
}

TEST(BufferPoolCreate, a_configured_extension_without_a_reserve_is_not_enough)
{
    g_ucmm_config.io_pool.fourth_size = 9;

    EXPECT_EQ(create(0, 0), (asked{104857600, 4194304}));

    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 102400u);
    EXPECT_EQ(g_ucmm_config.io_pool.fourth_size, 4096u);
}

TEST(BufferPoolCreate, the_line_says_that_nothing_is_created_although_it_is_is_kept)
{
    create(0, 0);

    EXPECT_EQ(fake_log_texts(), std::vector<std::string>{DEFAULTS_LINE});
    EXPECT_TRUE(fake_handle_alive(pool_handle()));
}

TEST(BufferPoolCreate, the_line_about_defaults_is_not_limited)
{
    EXPECT_NOT_LIMITED((g_ucmm_config.io_pool = {}, cmm_create_buffer_mempool(0, 0)),
                       DEFAULTS_LINE);
}

TEST(BufferPoolCreate, defaults_once_written_count_as_configured)
{
    create(0, 0);
    fake_forget_log();

    EXPECT_EQ(create(0, 0), (asked{104857600, 4194304}));

    EXPECT_NO_LINE();
}

TEST(BufferPoolCreate, nothing_but_the_two_sizes_and_the_handle_is_written_to_the_quota)
{
    g_ucmm_config.io_pool = {0, 2, 3, 0, 1, 6, 1, 0};

    create(0, 0);

    const cmm_pool_quota &quota = g_ucmm_config.io_pool;
    EXPECT_EQ(quota.max_size, 2u);
    EXPECT_EQ(quota.extand_size, 3u);
    EXPECT_EQ(quota.max_limit, 1u);
    EXPECT_EQ(quota.leak_rate, 6u);
    EXPECT_EQ(quota.dontfork_flag, 1u);
}

TEST(BufferPoolCreate, the_configured_minimum_of_pages_is_added_without_control_records_is_kept)
{
    g_ucmm_config.page_min = 10;
    g_ucmm_config.page_max = 20;

    EXPECT_EQ(create(1, 0), (asked{10 * 8320 + 1024, 0}));

    const fake_call whole = fake_last_call(OP_zymm_object_whole_size_get);
    EXPECT_EQ(whole.args.at(0).number, 8320u);
    EXPECT_EQ(whole.args.at(1).number, 0u);
    EXPECT_EQ(whole.args.at(2).number, 8u);
}

TEST(BufferPoolCreate, a_page_counts_as_much_as_the_slab_layer_spends_on_it)
{
    g_ucmm_config.page_min = 3;
    fake_fail_with(OP_zymm_object_whole_size_get, 1, 12288);

    EXPECT_EQ(create(1, 0), (asked{36864 + 1024, 0}));
}

TEST(BufferPoolCreate, sizes_beyond_4_gib_are_not_cut)
{
    g_ucmm_config.page_min = 0xFFFFFFFF;

    EXPECT_EQ(create(0x1000000, 0x800000),
              (asked{0xFFFFFFFFull * 8320 + (16ull << 30), 8ull << 30}));
}

TEST(BufferPoolCreate, with_defaults_the_pages_come_on_top)
{
    g_ucmm_config.page_min = 2;

    EXPECT_EQ(create(0, 0), (asked{2 * 8320 + 104857600, 4194304}));
}

/* -------------------------------------------------------------------------- creation */

TEST(BufferPoolCreate, pool_and_allocator_are_the_librarys)
{
    create(1, 1);

    const fake_call pool = fake_last_call(OP_zymm_pool_create);
    EXPECT_EQ(pool.args.at(0).text, "rdma_pool");
    EXPECT_EQ(pool.args.at(3).number, 386u);
    EXPECT_EQ(pool.args.at(4).text, "cmm_create_buffer_mempool");
    EXPECT_EQ(pool_handle(), pool.result);
    EXPECT_EQ(fake_last_call(OP_zymm_allocator_create).args.at(4).number, pool.result);
    EXPECT_EQ(fake_allocators_alive(), 1u);
}

TEST(BufferPoolCreate, the_steps_come_in_order)
{
    cmm_create_buffer_mempool(1, 1);

    EXPECT_EQ(steps(), (std::vector<std::string>{"zymm_object_whole_size_get", "zymm_pool_create",
                                                 "zymm_malloc", "zymm_allocator_init",
                                                 "zymm_allocator_create", "zymm_free"}));
}

TEST(BufferPoolCreate, buffers_can_be_had_from_it)
{
    create(1, 1);
    zymm_allocator *allocator = &g_ucmm_config.buffer_allocator;

    void *buffer = allocator->alloc(allocator, 5000, 77, "the test", 1);

    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(reinterpret_cast<uint64_t>(buffer) % 4096, 0u);
    EXPECT_EQ(allocator->free(allocator, buffer, 77, "the test"), 0);
    cmm_destory_buffer_mempool();
}

TEST(BufferPoolCreate, a_pool_that_is_refused_fails_without_a_line)
{
    fake_fail(OP_zymm_pool_create);

    EXPECT_EQ(cmm_create_buffer_mempool(1, 1), 0xFFFFFFFFu);

    EXPECT_NO_LINE();
    EXPECT_EQ(fake_count(OP_zymm_malloc), 0u);
    expect_nothing_stands();
}

TEST(BufferPoolCreate, a_refused_pool_leaves_no_former_handle)
{
    g_ucmm_config.io_pool.pool_handle = 0x77;
    fake_fail(OP_zymm_pool_create);

    EXPECT_EQ(cmm_create_buffer_mempool(1, 1), 0xFFFFFFFFu);

    EXPECT_EQ(pool_handle(), 0u);
}

TEST(BufferPoolCreate, a_refused_pool_keeps_the_defaults_that_were_written)
{
    fake_fail(OP_zymm_pool_create);

    cmm_create_buffer_mempool(0, 0);

    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 102400u);
    EXPECT_EQ(g_ucmm_config.io_pool.fourth_size, 4096u);
}

TEST(BufferPoolCreate, without_an_allocator_the_pool_stays_and_its_handle_goes_is_kept)
{
    fake_fail(OP_zymm_allocator_create);

    EXPECT_EQ(cmm_create_buffer_mempool(1, 1), 0xFFFFFFFFu);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cmm_create_buffer_mempool",
                     "[UMM_CMM] Create allocator failed.");
    EXPECT_EQ(pool_handle(), 0u);
    EXPECT_EQ(fake_count(OP_zymm_pool_destory), 0u);
    EXPECT_TRUE(fake_handle_alive(fake_last_call(OP_zymm_pool_create).result));
    EXPECT_EQ(fake_objects_out(), 0u);
}

TEST(BufferPoolCreate, without_memory_for_the_table_both_operations_say_so)
{
    fake_fail(OP_zymm_malloc);

    EXPECT_EQ(cmm_create_buffer_mempool(1, 1), 0xFFFFFFFFu);

    EXPECT_EQ(fake_log_texts(),
              (std::vector<std::string>{"[UMM_CMM] Malloc slab table item fail.",
                                        "[UMM_CMM] Create allocator failed."}));
    EXPECT_EQ(fake_log()[0].func, "cmm_create_allocator");
    EXPECT_EQ(fake_log()[1].func, "cmm_create_buffer_mempool");
}

TEST(BufferPoolCreate, the_line_of_a_missing_allocator_is_not_limited)
{
    fake_fail_always(OP_zymm_allocator_create);

    EXPECT_NOT_LIMITED(cmm_create_buffer_mempool(1, 1), "[UMM_CMM] Create allocator failed.");
}

TEST(BufferPoolCreate, a_second_creation_forgets_the_first_pool_is_kept)
{
    create(1, 1);
    const uint64_t first = pool_handle();

    create(1, 1);

    EXPECT_NE(pool_handle(), first);
    EXPECT_TRUE(fake_handle_alive(first));
    EXPECT_EQ(fake_allocators_alive(), 2u);
}

/* Every step of the creation that can fail. */
static void expect_creation_fails_at_every(fake_op op)
{
    uint64_t failures = 0;
    for_each_fault(op, [&](const fault &f) {
        const uint32_t status = cmm_create_buffer_mempool(1, 1);
        EXPECT_EQ(fake_objects_out(), 0u) << f.nth;
        if (f.hit) {
            ++failures;
            EXPECT_EQ(status, 0xFFFFFFFFu) << f.nth;
            EXPECT_EQ(pool_handle(), 0u) << f.nth;
            EXPECT_EQ(fake_allocators_alive(), 0u) << f.nth;
        } else {
            EXPECT_EQ(status, 0u);
            EXPECT_EQ(fake_allocators_alive(), 1u);
        }
        cmm_destory_buffer_mempool();
    });
    EXPECT_EQ(failures, 1u);
}

TEST(BufferPoolCreateFaults, a_refused_pool_leaves_nothing_behind)
{
    expect_creation_fails_at_every(OP_zymm_pool_create);
}

TEST(BufferPoolCreateFaults, refused_memory_for_the_table_leaves_no_allocator)
{
    expect_creation_fails_at_every(OP_zymm_malloc);
}

TEST(BufferPoolCreateFaults, refused_operations_leave_no_allocator)
{
    expect_creation_fails_at_every(OP_zymm_allocator_init);
}

TEST(BufferPoolCreateFaults, a_refused_allocator_leaves_no_table)
{
    expect_creation_fails_at_every(OP_zymm_allocator_create);
}

/* ----------------------------------------------------------------------- destruction */

TEST(BufferPoolDestroy, allocator_and_pool_go_in_this_order_in_the_librarys_name)
{
    create(1, 1);
    const uint64_t pool = pool_handle();
    fake_forget_calls();

    cmm_destory_buffer_mempool();

    EXPECT_EQ(steps(),
              (std::vector<std::string>{"zymm_allocator_destroy", "zymm_pool_destory"}));
    const fake_call allocator = fake_last_call(OP_zymm_allocator_destroy);
    EXPECT_EQ(allocator.args.at(0).number,
              reinterpret_cast<uint64_t>(&g_ucmm_config.buffer_allocator));
    EXPECT_EQ(allocator.args.at(1).number, 386u);
    EXPECT_EQ(allocator.args.at(2).text, "cmm_destory_buffer_mempool");
    const fake_call destroyed = fake_last_call(OP_zymm_pool_destory);
    EXPECT_EQ(destroyed.args.at(0).number, pool);
    EXPECT_EQ(destroyed.args.at(1).number, 386u);
    EXPECT_EQ(destroyed.args.at(2).text, "cmm_destory_buffer_mempool");
    expect_nothing_stands();
    EXPECT_NO_LINE();
}

TEST(BufferPoolDestroy, without_a_pool_nothing_happens)
{
    cmm_destory_buffer_mempool();

    EXPECT_TRUE(fake_calls().empty());
    EXPECT_NO_LINE();
}

TEST(BufferPoolDestroy, a_second_time_nothing_happens)
{
    create(1, 1);
    cmm_destory_buffer_mempool();
    fake_forget_calls();

    cmm_destory_buffer_mempool();

    EXPECT_TRUE(fake_calls().empty());
    EXPECT_NO_LINE();
}

TEST(BufferPoolDestroy, a_pool_can_be_created_again)
{
    create(1, 1);
    cmm_destory_buffer_mempool();

    create(1, 1);

    EXPECT_TRUE(fake_handle_alive(pool_handle()));
    EXPECT_EQ(fake_allocators_alive(), 1u);
    EXPECT_NO_LINE();
}

TEST(BufferPoolDestroy, a_registered_pool_without_an_allocator_is_destroyed_alone)
{
    g_ucmm_config.io_pool.pool_handle = zymm_pool_create("outside", 1024, 0, 77, "the test");
    fake_forget_calls();

    cmm_destory_buffer_mempool();

    EXPECT_EQ(steps(), std::vector<std::string>{"zymm_pool_destory"});
    expect_nothing_stands();
}

TEST(BufferPoolDestroy, a_registered_pools_allocator_goes_first)
{
    g_ucmm_config.io_pool.pool_handle = zymm_pool_create("outside", 1024, 0, 77, "the test");
    ASSERT_EQ(cmm_create_allocator(), 0u);
    fake_forget_calls();

    cmm_destory_buffer_mempool();

    EXPECT_EQ(steps(),
              (std::vector<std::string>{"zymm_allocator_destroy", "zymm_pool_destory"}));
    expect_nothing_stands();
}

TEST(BufferPoolDestroy, an_allocator_that_cannot_be_destroyed_does_not_stop_it)
{
    create(1, 1);
    fake_fail(OP_zymm_allocator_destroy);

    cmm_destory_buffer_mempool();

    EXPECT_EQ(fake_count(OP_zymm_pool_destory), 1u);
    EXPECT_EQ(pool_handle(), 0u);
}

TEST(BufferPoolDestroy, a_pool_that_cannot_be_destroyed_is_forgotten)
{
    create(1, 1);
    const uint64_t pool = pool_handle();
    fake_fail(OP_zymm_pool_destory);

    cmm_destory_buffer_mempool();

    EXPECT_EQ(pool_handle(), 0u);
    EXPECT_TRUE(fake_handle_alive(pool));
    EXPECT_NO_LINE();
}
