/*
 * What a slab says about itself.
 */
#include <gtest/gtest.h>

#include "slab_helpers.h"
#include "under_test.h"

TEST(SlabUsage, counts_what_callers_hold)
{
    const uint64_t slab  = make_slab(64, 10);
    void *const    one   = take(slab);
    uint64_t       total = 0;
    uint64_t       used  = 0;
    take(slab);
    EXPECT_EQ(zymm_slab_get_usage_info(slab, &total, &used), 0);
    EXPECT_EQ(total, 10u);
    EXPECT_EQ(used, 2u);

    give(slab, one);
    EXPECT_EQ(zymm_slab_get_usage_info(slab, &total, &used), 0);
    EXPECT_EQ(total, 10u);
    EXPECT_EQ(used, 1u);
    destroy(slab);
}

TEST(SlabUsage, does_not_count_objects_made_at_creation)
{
    zymm_slab_param param = slab_param(64, 10);
    param.min_num         = 5;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}

TEST(SlabUsage, of_no_slab_or_a_stale_one_fails_and_writes_nothing)
{
    uint64_t       total = 77;
    uint64_t       used  = 88;
    const uint64_t stale = make_stale_slab();
    EXPECT_NE(zymm_slab_get_usage_info(0, &total, &used), 0);
    EXPECT_NE(zymm_slab_get_usage_info(stale, &total, &used), 0);
    EXPECT_EQ(total, 77u);
    EXPECT_EQ(used, 88u);
}

TEST(SlabUsage, needs_places_to_go)
{
    const uint64_t slab  = make_slab(64, 10);
    uint64_t       count = 77;
    EXPECT_NE(zymm_slab_get_usage_info(slab, nullptr, &count), 0);
    EXPECT_NE(zymm_slab_get_usage_info(slab, &count, nullptr), 0);
    EXPECT_NE(zymm_slab_get_usage_by_numa(slab, 0, nullptr), 0);
    EXPECT_EQ(count, 77u);
    destroy(slab);
}

TEST(SlabUsageByNode, adds_up_to_what_callers_hold)
{
    const uint64_t slab = make_slab(64, 10);
    take(slab);
    take(slab);
    take(slab);
    uint64_t used = 0;
    for (uint32_t node = 0; node < 64; ++node) {
        zymm_numa_usage usage = {0, 0, 0};
        if (zymm_slab_get_usage_by_numa(slab, node, &usage) == 0)
            used += usage.used;
    }
    EXPECT_EQ(used, 3u);
    destroy(slab);
}

TEST(SlabUsageByNode, of_no_slab_or_a_stale_one_fails_and_writes_nothing)
{
    zymm_numa_usage usage = {7, 8, 9};
    const uint64_t  stale = make_stale_slab();
    EXPECT_NE(zymm_slab_get_usage_by_numa(0, 0, &usage), 0);
    EXPECT_NE(zymm_slab_get_usage_by_numa(stale, 0, &usage), 0);
    EXPECT_EQ(usage.total, 7u);
    EXPECT_EQ(usage.used, 8u);
    EXPECT_EQ(usage.cached, 9u);
}

TEST(SlabLeaks, are_no_objects_that_just_went_out)
{
    const uint64_t slab = make_slab(64, 10);
    take(slab);
    EXPECT_EQ(zymm_slab_get_leak_number(slab), 0u);
    destroy(slab);
}

TEST(SlabLeaks, of_no_slab_or_a_stale_one_are_0)
{
    EXPECT_EQ(zymm_slab_get_leak_number(0), 0u);
    EXPECT_EQ(zymm_slab_get_leak_number(make_stale_slab()), 0u);
}

TEST(SlabDump, works_for_a_slab_and_fails_for_none)
{
    const uint64_t slab  = make_slab(64, 10);
    const uint64_t stale = make_stale_slab();
    take(slab);
    EXPECT_EQ(zymm_slab_dump_usageinfo(slab, 386, "test"), 0);
    EXPECT_EQ(zymm_slab_dump_detailinfo(slab, 386, "test"), 0);
    EXPECT_NE(zymm_slab_dump_usageinfo(stale, 386, "test"), 0);
    EXPECT_NE(zymm_slab_dump_detailinfo(stale, 386, "test"), 0);
    EXPECT_NE(zymm_slab_dump_usageinfo(0, 386, "test"), 0);
    EXPECT_NE(zymm_slab_dump_detailinfo(0, 386, "test"), 0);
    destroy(slab);
}

TEST(ObjectNode, is_known_for_an_object_of_the_slab_only)
{
    const uint64_t slab  = make_slab(64, 10);
    const uint64_t other = make_slab(64, 10);
    void *const    object = take(slab);
    char           on_the_stack[64];
    EXPECT_LT(zymm_object_get_numaid(slab, object), 64u);
    EXPECT_EQ(zymm_object_get_numaid(other, object), 0xFFFFFFFFu);
    EXPECT_EQ(zymm_object_get_numaid(slab, on_the_stack), 0xFFFFFFFFu);
    EXPECT_EQ(zymm_object_get_numaid(slab, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(zymm_object_get_numaid(0, object), 0xFFFFFFFFu);
    destroy(slab);
    EXPECT_EQ(zymm_object_get_numaid(slab, object), 0xFFFFFFFFu);
    destroy(other);
}

TEST(ObjectNode, of_a_foreign_object_is_asked_for_with_a_line)
{
    const uint64_t slab = make_slab(64, 10);
    char           on_the_stack[64];
    EXPECT_EQ(error_lines_of([&] { zymm_object_get_numaid(slab, on_the_stack); }), 1u);
    destroy(slab);
}

TEST(WholeSize, is_no_less_than_the_object_at_its_alignment)
{
    EXPECT_GE(zymm_object_whole_size_get(8320, 0, 8), 8320u);
    EXPECT_GE(zymm_object_whole_size_get(100, 0, 64), 128u);
    EXPECT_GE(zymm_object_whole_size_get(100, 28, 8), 128u);
}

TEST(WholeSize, grows_with_the_object)
{
    EXPECT_LT(zymm_object_whole_size_get(8320, 0, 8), zymm_object_whole_size_get(8376, 0, 8));
}
