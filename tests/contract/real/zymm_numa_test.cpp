/*
 * NUMA: the machine's own nodes, and made-up ones.
 */
#include "zymm_real_helpers.h"

namespace
{

thread_local uint32_t t_node = 0;

uint32_t my_node()
{
    return t_node;
}

void *take_on(uint64_t slab, uint32_t node)
{
    t_node = node;
    return take(slab);
}

zymm_numa_usage usage_on(uint64_t slab, uint32_t node)
{
    zymm_numa_usage usage = {99, 99, 99};
    EXPECT_EQ(zymm_slab_get_usage_by_numa(slab, node, &usage), 0);
    return usage;
}

} // namespace

TEST(ZymmNuma, node_0_of_a_machine_with_one_node_has_everything)
{
    if (zymm_topology_set(1, my_node) != 0)
        GTEST_SKIP() << "slabs exist already in this process";
    const uint64_t slab   = make_slab(64, 10);
    void *const    object = take(slab);
    EXPECT_EQ(usage_on(slab, 0).total, 10u);
    EXPECT_EQ(usage_on(slab, 0).used, 1u);
    EXPECT_EQ(usage_on(slab, 0).cached, 0u);
    EXPECT_EQ(zymm_object_get_numaid(slab, object), 0u);
    zymm_numa_usage untouched = {7, 8, 9};
    EXPECT_NE(zymm_slab_get_usage_by_numa(slab, 1, &untouched), 0);
    EXPECT_EQ(untouched.total, 7u);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmNuma, a_threads_memory_comes_from_its_own_node_first)
{
    if (zymm_topology_set(4, my_node) != 0)
        GTEST_SKIP() << "slabs exist already in this process";
    const uint64_t slab = make_slab(4096, 100000);
    void *const    zero = take_on(slab, 0);
    void *const    two  = take_on(slab, 2);
    EXPECT_EQ(zymm_object_get_numaid(slab, zero), 0u);
    EXPECT_EQ(zymm_object_get_numaid(slab, two), 2u);
    EXPECT_EQ(usage_on(slab, 0).used, 1u);
    EXPECT_EQ(usage_on(slab, 1).used, 0u);
    EXPECT_EQ(usage_on(slab, 2).used, 1u);
    EXPECT_EQ(give(slab, zero), 0); /* by a thread of node 2 */
    EXPECT_EQ(usage_on(slab, 0).used, 0u);
    EXPECT_NE(take_on(slab, 2), zero);
    void *const again = take_on(slab, 0);
    EXPECT_EQ(zymm_object_get_numaid(slab, again), 0u);
    EXPECT_EQ(again == zero, !FREED_OBJECTS_WAIT);
    log_of([&] { destroy(slab); });
}

TEST(ZymmNuma, other_nodes_objects_are_taken_before_an_allocation_fails)
{
    if (zymm_topology_set(4, my_node) != 0)
        GTEST_SKIP() << "slabs exist already in this process";
    zymm_slab_param param = slab_param(64, 10);
    param.min_num         = 10;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    t_node                = 3;
    EXPECT_EQ(take_all(slab).size(), 10u);
    EXPECT_EQ(usage_on(slab, 0).used, 3u);
    EXPECT_EQ(usage_on(slab, 1).used, 3u);
    EXPECT_EQ(usage_on(slab, 2).used, 2u);
    EXPECT_EQ(usage_on(slab, 3).used, 2u);
    log_of([&] { destroy(slab); });
}

TEST(ZymmNuma, threads_of_four_nodes_share_the_last_objects_exactly)
{
    if (zymm_topology_set(4, my_node) != 0)
        GTEST_SKIP() << "slabs exist already in this process";
    const uint64_t        slab = make_slab(64, 8);
    std::atomic<uint64_t> refused{0};
    in_threads(8, [&](unsigned number) {
        t_node = number % 4;
        for (unsigned round = 0; round < 5000; round++) {
            void *const object = take(slab);
            refused += object == nullptr;
            if (object != nullptr)
                give(slab, object);
        }
    });
    EXPECT_EQ(refused.load(), 0u);
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_EQ(take_all(slab).size(), 8u);
    log_of([&] { destroy(slab); });
}

TEST(ZymmNuma, the_topology_is_settled_by_the_first_slab)
{
    destroy(make_slab(64, 1));
    EXPECT_NE(zymm_topology_set(2, my_node), 0);
    EXPECT_NE(zymm_topology_set(0, my_node), 0);
    EXPECT_NE(zymm_topology_set(65, my_node), 0);
    EXPECT_NE(zymm_topology_set(2, nullptr), 0);
}
