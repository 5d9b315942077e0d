/*
 * The NUMA correction of object counts.
 */
#include "zyumm_cmm.h"

#include "fake/expect_log.h"

/* A pool's counts, before and after. */
struct counts {
    uint32_t min;
    uint32_t max;

    bool operator==(const counts &) const = default;
};

static counts corrected(counts given, uint32_t numa_factor, uint32_t num_factor)
{
    umm_fix_cmm_quota(&given.min, &given.max, numa_factor, num_factor);
    return given;
}

TEST(ConfigNuma, counts_grow_with_the_nodes_of_the_process_and_the_percentage)
{
    fake_set_numa(1, 0b0101, 4);

    EXPECT_EQ(corrected({1000, 2000}, 1, 50), (counts{1000, 2000}));
    EXPECT_EQ(corrected({1000, 2000}, 1, 100), (counts{2000, 4000}));
    EXPECT_NO_LINE();
}

TEST(ConfigNuma, any_factor_but_0_switches_the_correction_on)
{
    fake_set_numa(1, 0b1111, 4);

    EXPECT_EQ(corrected({10, 20}, 9, 100), (counts{40, 80}));
}

TEST(ConfigNuma, a_factor_of_0_changes_nothing)
{
    fake_set_numa(1, 0b0101, 4);

    EXPECT_EQ(corrected({1000, 2000}, 0, 50), (counts{1000, 2000}));
    EXPECT_EQ(fake_count(OP_zyax_numam_proc_numamask_get), 0u);
}

TEST(ConfigNuma, without_numa_nothing_changes)
{
    fake_set_numa(0, 0b0101, 4);

    EXPECT_EQ(corrected({1000, 2000}, 1, 50), (counts{1000, 2000}));
    EXPECT_EQ(fake_count(OP_zyax_numam_proc_numamask_get), 0u);
    EXPECT_EQ(fake_count(OP_zyax_numam_num_get), 0u);
}

TEST(ConfigNuma, an_unknown_mask_is_a_warning_and_changes_nothing)
{
    fake_set_numa(1, 0b0101, 4);
    fake_fail(OP_zyax_numam_proc_numamask_get);

    EXPECT_EQ(corrected({1000, 2000}, 1, 50), (counts{1000, 2000}));

    EXPECT_ONLY_LINE(4, "umm_fix_cmm_quota", "[UMM_CMM] CMM get proc numa mask failed.");
    EXPECT_EQ(fake_count(OP_zyax_numam_num_get), 0u);
}

TEST(ConfigNuma, the_warning_is_not_limited)
{
    fake_set_numa(1, 0b0101, 4);
    fake_fail_always(OP_zyax_numam_proc_numamask_get);

    EXPECT_NOT_LIMITED(corrected({1, 1}, 1, 1), "[UMM_CMM] CMM get proc numa mask failed.");
}

TEST(ConfigNuma, a_mask_without_nodes_counts_as_all_nodes)
{
    fake_set_numa(1, 0, 4);

    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{400, 800}));
}

TEST(ConfigNuma, nodes_beyond_the_machine_s_do_not_count)
{
    fake_set_numa(1, 0b110001, 4);

    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{100, 200}));
}

TEST(ConfigNuma, a_machine_without_nodes_takes_both_counts_to_0)
{
    fake_set_numa(1, 0b1, 0);

    EXPECT_EQ(corrected({1000, 2000}, 1, 100), (counts{0, 0}));
}

TEST(ConfigNuma, a_percentage_of_0_takes_both_counts_to_0)
{
    fake_set_numa(1, 0b11, 2);

    EXPECT_EQ(corrected({1000, 2000}, 1, 0), (counts{0, 0}));
}

TEST(ConfigNuma, the_division_truncates_and_comes_last)
{
    fake_set_numa(1, 0b111, 3);

    /* 11 x 33 x 3 = 1089; a division before the last product would give 9 or 0. */
    EXPECT_EQ(corrected({11, 1}, 1, 33), (counts{10, 0}));
}

TEST(ConfigNuma, node_31_stands_for_every_higher_bit_of_the_mask_is_kept)
{
    fake_set_numa(1, uint64_t(1) << 40, 32);

    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{100, 200}));
}

TEST(ConfigNuma, node_31_counts_once_for_all_bits_from_31_on_is_kept)
{
    fake_set_numa(1, 0xFFFFFFFF80000000, 32);

    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{100, 200}));
}

TEST(ConfigNuma, bit_32_alone_is_no_node_of_a_machine_with_31_is_kept)
{
    fake_set_numa(1, uint64_t(1) << 32, 31);

    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{3100, 6200}));
}

TEST(ConfigNuma, nodes_from_32_on_repeat_the_low_bits_is_kept)
{
    fake_set_numa(1, 0b1, 34);

    /* Nodes 0 and 32 both test bit 0. */
    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{200, 400}));
}

TEST(ConfigNuma, node_63_repeats_node_31_is_kept)
{
    fake_set_numa(1, uint64_t(1) << 63, 64);

    EXPECT_EQ(corrected({100, 200}, 1, 100), (counts{200, 400}));
}

TEST(ConfigNuma, products_wrap_at_32_bits)
{
    fake_set_numa(1, 0b11, 2);

    /* 4294967295 x 1 x 2 = 4294967294 and 3000000000 x 1 x 2 = 1705032704, modulo 2^32. */
    EXPECT_EQ(corrected({4294967295, 3000000000}, 1, 1), (counts{42949672, 17050327}));
}

TEST(ConfigNuma, null_counts_are_left_alone)
{
    fake_set_numa(1, 0b11, 2);
    uint32_t count = 1000;

    umm_fix_cmm_quota(nullptr, &count, 1, 100);
    umm_fix_cmm_quota(&count, nullptr, 1, 100);

    EXPECT_EQ(count, 1000u);
}
