/*
 * The registry: ids, the creator mask, and who sees which entry.
 */
#include <atomic>
#include <thread>

#include "partition_test_help.h"

TEST(PartitionCreator, at_load_no_pool_is_left_to_anybody_else)
{
    EXPECT_EQ(g_cmm_part_creator, 0u);
    EXPECT_EQ(zyumm_is_partition_creator(0xFFFFFFFFFFFFFFFF), 0u);
}

TEST(PartitionCreator, setting_replaces_the_mask)
{
    g_cmm_part_creator = 0x5;

    zyumm_partition_creator_set(0x12);

    EXPECT_EQ(g_cmm_part_creator, 0x12u);
    EXPECT_ONLY_LINE(ZYLOG_INFO, "zyumm_partition_creator_set",
                     "[UMM_CMM] Cmm common partition creator update 0x5 to 0x12.");
}

TEST(PartitionCreator, adding_keeps_what_was_there)
{
    g_cmm_part_creator = 0x5;

    zyumm_partition_creator_add(0x6);

    EXPECT_EQ(g_cmm_part_creator, 0x7u);
    EXPECT_ONLY_LINE(ZYLOG_INFO, "zyumm_partition_creator_add",
                     "[UMM_CMM] Cmm common partition creator add 0x5 0x6.");
}

TEST(PartitionCreator, all_64_bits_are_kept_and_printed)
{
    zyumm_partition_creator_set(0x8000000000000000);
    zyumm_partition_creator_add(0x4000000000000000);

    EXPECT_EQ(g_cmm_part_creator, 0xC000000000000000u);
    EXPECT_LAST_LINE(ZYLOG_INFO, "zyumm_partition_creator_add",
                     "[UMM_CMM] Cmm common partition creator add 0x8000000000000000 "
                     "0x4000000000000000.");
}

TEST(PartitionCreator, its_lines_are_not_limited)
{
    g_cmm_part_creator = 0x1;

    EXPECT_NOT_LIMITED(zyumm_partition_creator_set(0x1),
                       "[UMM_CMM] Cmm common partition creator update 0x1 to 0x1.");
    EXPECT_NOT_LIMITED(zyumm_partition_creator_add(0x1),
                       "[UMM_CMM] Cmm common partition creator add 0x1 0x1.");
}

TEST(PartitionCreator, any_common_bit_makes_the_answer_exactly_1)
{
    g_cmm_part_creator = 0xF0000000F0;

    EXPECT_EQ(zyumm_is_partition_creator(0x10), 1u);
    EXPECT_EQ(zyumm_is_partition_creator(0x1000000000), 1u);
    EXPECT_EQ(zyumm_is_partition_creator(0xFF), 1u);
    EXPECT_EQ(zyumm_is_partition_creator(0x0F), 0u);
    EXPECT_EQ(zyumm_is_partition_creator(0), 0u);
}

TEST(PartitionLookup, entries_of_ids_1_to_2047_are_found_in_use_or_not)
{
    EXPECT_EQ(get_cmm_partition_byid(1), &g_cmm_part_s[1]);
    EXPECT_EQ(get_cmm_partition_byid(2047), &g_cmm_part_s[2047]);
}

TEST(PartitionLookup, ids_outside_the_table_have_no_entry)
{
    EXPECT_EQ(get_cmm_partition_byid(0), nullptr);
    EXPECT_EQ(get_cmm_partition_byid(2048), nullptr);
    EXPECT_EQ(get_cmm_partition_byid(-1), nullptr);
    EXPECT_EQ(get_cmm_partition_byid(INT32_MIN), nullptr);
    EXPECT_EQ(get_cmm_partition_byid(INT32_MAX), nullptr);
}

TEST(PartitionId, the_lowest_free_id_comes_first)
{
    EXPECT_EQ(cmm_alloc_part_id(), 1u);
    EXPECT_EQ(cmm_alloc_part_id(), 2u);
    EXPECT_EQ(cmm_alloc_part_id(), 3u);
    g_cmm_part_s[2].part_id = 0;

    EXPECT_EQ(cmm_alloc_part_id(), 2u);
    EXPECT_EQ(cmm_alloc_part_id(), 4u);
}

TEST(PartitionId, a_reserved_entry_holds_its_own_id_and_is_counted)
{
    cmm_alloc_part_id();
    cmm_alloc_part_id();

    EXPECT_EQ(g_cmm_part_s[1].part_id, 1u);
    EXPECT_EQ(g_cmm_part_s[2].part_id, 2u);
    EXPECT_EQ(g_cmm_part_s[0].part_id, 0u);
    EXPECT_EQ(g_cmm_part_sum, 2u);
}

TEST(PartitionId, there_are_2047_of_them)
{
    reserve_ids(1);

    EXPECT_EQ(cmm_alloc_part_id(), 2047u);
    EXPECT_EQ(g_cmm_part_sum, 2047u);
}

TEST(PartitionId, the_2048th_is_refused_and_the_count_restored)
{
    reserve_ids(0);
    fake_forget_calls();

    EXPECT_EQ(cmm_alloc_part_id(), 2048u);

    EXPECT_EQ(g_cmm_part_sum, 2047u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 0u);
}

TEST(PartitionId, a_full_table_with_a_low_count_leaves_the_count_raised_is_kept)
{
    reserve_ids(0);
    g_cmm_part_sum = 5;

    EXPECT_EQ(cmm_alloc_part_id(), 2048u);

    EXPECT_EQ(g_cmm_part_sum, 6u);
    EXPECT_EQ(fake_locks_held(), 0u);
}

TEST(PartitionId, the_registry_lock_is_taken_once_and_given_back)
{
    cmm_alloc_part_id();

    const fake_call taken = fake_last_call(OP_do_zyax_spinlock_lock);
    EXPECT_EQ(taken.args.at(0).number, reinterpret_cast<uint64_t>(&g_cmm_part_lock));
    EXPECT_EQ(taken.args.at(1).text, "cmm_alloc_part_id");
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_lock), 1u);
    EXPECT_EQ(fake_count(OP_do_zyax_spinlock_unlock), 1u);
}

TEST(PartitionId, the_count_is_raised_before_the_lock_and_the_entry_written_under_it)
{
    uint32_t sum_inside = 0;
    uint32_t id_before  = 77;
    fake_hook(OP_do_zyax_spinlock_lock, 1, [&] {
        sum_inside = g_cmm_part_sum;
        id_before  = g_cmm_part_s[1].part_id;
    });
    uint32_t id_at_unlock = 0;
    fake_hook(OP_do_zyax_spinlock_unlock, 1, [&] { id_at_unlock = g_cmm_part_s[1].part_id; });

    cmm_alloc_part_id();

    EXPECT_EQ(sum_inside, 1u);
    EXPECT_EQ(id_before, 0u);
    EXPECT_EQ(id_at_unlock, 1u);
}

/* Each thread marks the ids it holds: an id that two threads hold at once is marked already. */
TEST(PartitionThreads, no_id_is_held_by_two_threads_at_once)
{
    enter_library();
    static std::atomic<bool> held[2048];
    std::atomic<int> clashes = 0;
    std::atomic<int> refused = 0;
    const auto work          = [&] {
        for (int round = 0; round < 50; ++round) {
            const uint32_t id = new_partition(1);
            clashes += held[id].exchange(true) ? 1 : 0;
            void *object = nullptr;
            allocStructure(77, id, &object, "the thread");
            freeStructure(object, id, 77, "the thread", 1);
            held[id] = false;
            refused += deleteStructurePartition(id) != 0 ? 1 : 0;
        }
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back(work);
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(clashes, 0);
    EXPECT_EQ(refused, 0);
    EXPECT_EQ(g_cmm_part_sum, 0u);
    EXPECT_EQ(fake_handles_alive(), 0u);
}

TEST(PartitionThreads, racing_for_the_last_ids_gives_each_away_once)
{
    reserve_ids(4);
    std::atomic<int> got     = 0;
    std::atomic<int> refused = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { ++(cmm_alloc_part_id() <= 2047 ? got : refused); });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(got, 4);
    EXPECT_EQ(refused, 4);
    EXPECT_EQ(g_cmm_part_sum, 2047u);
}
