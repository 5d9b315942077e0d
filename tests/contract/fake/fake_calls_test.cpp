/*
 * The fake platform itself: counting, recording, faults and hooks. The unit tests rest on them.
 */
#include <gtest/gtest.h>

#include <unistd.h>

#include "../core/mpool_helpers.h"
#include "../core/slab_helpers.h"
#include "fake.h"

/* ------------------------------------------------------------------ recording */

TEST(FakeCalls, are_recorded_in_order_with_their_arguments)
{
    const uint64_t slab   = make_slab(64, 2);
    void *const    object = zymm_slab_malloc(slab, 77, "owner", 12);
    zymm_slab_free(slab, object, 78, "freer");

    const std::vector<fake_call> calls = fake_calls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0].op, OP_zymm_slab_param_init);
    EXPECT_EQ(calls[1].op, OP_zymm_create_slab);
    EXPECT_EQ(calls[1].result, slab);
    EXPECT_EQ(calls[2].op, OP_zymm_slab_malloc);
    ASSERT_EQ(calls[2].args.size(), 4u);
    EXPECT_EQ(calls[2].args[0].number, slab);
    EXPECT_EQ(calls[2].args[1].number, 77u);
    EXPECT_EQ(calls[2].args[2].text, "owner");
    EXPECT_EQ(calls[2].args[3].number, 12u);
    EXPECT_EQ(calls[2].result, reinterpret_cast<uint64_t>(object));
    EXPECT_EQ(calls[3].op, OP_zymm_slab_free);
    EXPECT_EQ(calls[3].args[1].number, reinterpret_cast<uint64_t>(object));
    EXPECT_EQ(calls[3].args[3].text, "freer");
}

TEST(FakeCalls, keep_the_bytes_of_parameter_records)
{
    make_slab(8376, 5);
    make_mpool(9, 40960, 1);
    EXPECT_EQ(fake_last_call(OP_zymm_create_slab).as<zymm_slab_param>().obj_size, 8376u);
    EXPECT_EQ(fake_last_call(OP_zyumm_mpool_create).as<zyumm_mpool_param>().partition, 9u);
}

TEST(FakeCalls, of_quiet_operations_are_recorded_apart)
{
    char text[8];
    snprintf_s(text, 8, 7, "%d", 5);
    zyax_get_jiffies();
    EXPECT_EQ(fake_calls().size(), 0u);
    EXPECT_EQ(fake_calls(OP_snprintf_s).size(), 1u);
    EXPECT_EQ(fake_last_call(OP_snprintf_s).args[3].text, "%d");
    EXPECT_EQ(fake_last_call(OP_snprintf_s).result, 1u);
    EXPECT_EQ(fake_count(OP_zyax_get_jiffies), 1u);
}

TEST(FakeCalls, count_from_nothing_once_forgotten)
{
    make_slab(64, 2);
    fake_forget_calls();
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 0u);
    EXPECT_EQ(fake_calls().size(), 0u);
    EXPECT_EQ(fake_last_call(OP_zymm_create_slab).args.size(), 0u);
    make_slab(64, 2);
    EXPECT_EQ(fake_count(OP_zymm_create_slab), 1u);
}

TEST(FakeCalls, show_null_texts_as_such)
{
    zymm_slab_malloc(0, 1, nullptr, 1);
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[2].text, "(null)");
    EXPECT_EQ(fake_last_call(OP_zymm_slab_malloc).args[2].number, 0u);
}

TEST(FakeCalls, of_an_allocator_are_recorded_too)
{
    const zymm_slab_item table[] = {{64, 0, 0xFFFFFFFF, 3, 8, 0}};
    zymm_allocator       allocator;
    zymm_allocator_init(&allocator);
    allocator.create(&allocator, "table", table, 1, 0, 386, "test");
    EXPECT_EQ(fake_last_call(OP_zymm_allocator_create).args[1].text, "table");
    EXPECT_EQ(fake_last_call(OP_zymm_allocator_create).record.size(), 40u);
    EXPECT_EQ(fake_allocators_alive(), 1u);
    allocator.destroy(&allocator, 386, "test");
    EXPECT_EQ(fake_allocators_alive(), 0u);
}

/* ------------------------------------------------------------------ faults and hooks */

TEST(FakeFault, strikes_the_nth_call_from_now_and_no_other)
{
    const uint64_t slab = make_slab(64, 10);
    take(slab);
    fake_fail(OP_zymm_slab_malloc, 2);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_FALSE(fake_fault_hit());
    EXPECT_EQ(take(slab), nullptr);
    EXPECT_TRUE(fake_fault_hit());
    EXPECT_NE(take(slab), nullptr);
    EXPECT_EQ(fake_objects_out(slab), 3u);
}

TEST(FakeFault, leaves_the_call_without_effect)
{
    const uint64_t slab   = make_slab(64, 10);
    void *const    object = take(slab);
    fake_fail(OP_zymm_slab_free);
    EXPECT_EQ(give(slab, object), -1);
    EXPECT_EQ(fake_objects_out(slab), 1u);
    EXPECT_EQ(give(slab, object), 0);
    EXPECT_EQ(fake_objects_out(slab), 0u);
}

TEST(FakeFault, answers_each_operations_own_failure)
{
    zyax_spinlock lock  = {};
    zyax_timer    timer = {};
    fake_fail(OP_do_zyax_spinlock_trylock);
    fake_fail(OP_zyax_timer_modify);
    fake_fail(OP_zyax_access);
    fake_fail(OP_zylog_level_check);
    fake_fail(OP_zymm_object_get_numaid);
    fake_fail(OP_zyumm_partition_create);
    fake_fail(OP_zymm_init_once);
    zyax_timer_init(&timer);
    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, "test", 1), 0);
    EXPECT_EQ(zyax_timer_modify(&timer, 5), 22);
    EXPECT_EQ(zyax_access("/", F_OK), -1);
    EXPECT_EQ(zylog_level_check(386, ZYLOG_FATAL), 1);
    EXPECT_EQ(zymm_object_get_numaid(0, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(zyumm_partition_create(0, 0, 0, "p"), 0u);
    EXPECT_EQ(zymm_init_once(nullptr, nullptr, nullptr, "once"), 0xFFFFFFFFu);
}

TEST(FakeFault, answers_a_given_value)
{
    fake_fail_with(OP_zyax_Init, 1, 5);
    fake_fail_always_with(OP_zyax_setmemory_ro, static_cast<uint64_t>(-9));
    EXPECT_EQ(zyax_Init(), 5);
    EXPECT_EQ(zyax_Init(), 0);
    EXPECT_EQ(zyax_setmemory_ro(nullptr, 1), -9);
    EXPECT_EQ(zyax_setmemory_ro(nullptr, 1), -9);
    fake_no_faults();
    EXPECT_EQ(zyax_setmemory_ro(nullptr, 1), -1);
}

TEST(FakeFault, sweep_fails_each_call_in_turn_and_ends)
{
    const uint64_t        slab = make_slab(64, 10);
    std::vector<uint64_t> hits;
    uint64_t              runs = 0;
    for_each_fault(OP_zymm_slab_malloc, [&](const fault &f) {
        ++runs;
        void *const first  = take(slab);
        void *const second = take(slab);
        EXPECT_EQ(f.hit, first == nullptr || second == nullptr);
        if (f.hit)
            hits.push_back(f.nth);
        give(slab, first != nullptr ? first : second);
    });
    EXPECT_EQ(runs, 3u);
    EXPECT_EQ(hits, (std::vector<uint64_t>{1, 2}));
}

TEST(FakeHook, runs_inside_its_call_before_the_effect)
{
    const uint64_t slab = make_slab(64, 10);
    uint64_t       seen = 99;
    fake_hook(OP_zymm_slab_malloc, 2, [&] { seen = fake_objects_out(slab); });
    take(slab);
    EXPECT_EQ(seen, 99u);
    take(slab);
    EXPECT_EQ(seen, 1u);
    take(slab);
    EXPECT_EQ(seen, 1u);
}

TEST(FakeHook, may_call_the_same_operation)
{
    const uint64_t slab = make_slab(64, 1);
    fake_hook(OP_zymm_slab_malloc, 1, [&] { take(slab); });
    EXPECT_EQ(take(slab), nullptr);
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 2u);
}
