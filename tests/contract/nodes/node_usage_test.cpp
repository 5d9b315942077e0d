/*
 * Four nodes: whose memory an object is of, where it goes when it is freed on another node, what
 * the usage by node says, and that no node keeps an object from another in need.
 *
 * Each claim is made of slabs with and without per-thread caches.
 */
#include "contract/slab_stress/stamped_slab.h"
#include "four_nodes.h"

namespace
{

zymm_numa_usage usage_on(uint64_t slab, uint32_t node)
{
    zymm_numa_usage usage = {};
    EXPECT_EQ(zymm_slab_get_usage_by_numa(slab, node, &usage), 0);
    return usage;
}

uint64_t used_by_all_nodes(uint64_t slab)
{
    uint64_t used = 0;
    for (uint32_t node = 0; node < NODES; node++)
        used += usage_on(slab, node).used;
    return used;
}

std::vector<void *> take_on(uint64_t slab, uint32_t node, unsigned count)
{
    std::vector<void *> taken;
    on_node(node, [&] {
        while (taken.size() < count)
            taken.push_back(take(slab));
    });
    return taken;
}

void give_on(uint64_t slab, uint32_t node, const std::vector<void *> &objects)
{
    uint64_t failed = 0;
    on_node(node, [&] {
        for (void *object : objects)
            failed += give(slab, object) != 0;
    });
    EXPECT_EQ(failed, 0u);
}

uint64_t count_of_home(uint64_t slab, const std::vector<void *> &objects, uint32_t node)
{
    uint64_t count = 0;
    for (void *object : objects)
        count += zymm_object_get_numaid(slab, object) == node;
    return count;
}

/* Memory is taken in pieces, and a slab that fits into one piece has all of it on one node. */
const slab_kind NODE_KINDS[] = {
    {"cached_4k", ZYMM_SLAB_CACHED, 4096, 1},
    {"cached_pages", ZYMM_SLAB_CACHED, 8376, 1},
    {"plain_4k", 0, 4096, 1},
    {"plain_pages", 0, 8376, 1},
};

} // namespace

class SlabNodes : public testing::TestWithParam<slab_kind>
{
protected:
    SlabNodes() : slab_(GetParam(), 4000)
    {
    }

    uint64_t slab() const
    {
        return slab_.handle();
    }

    stamped_slab slab_;
};

TEST_P(SlabNodes, give_each_thread_objects_of_its_own_memory)
{
    std::vector<void *> taken[NODES];
    for (uint32_t node = 0; node < NODES; node++) {
        taken[node] = take_on(slab(), node, 100);
        EXPECT_EQ(count_of_home(slab(), taken[node], node), 100u);
    }
    for (uint32_t node = 0; node < NODES; node++)
        give_on(slab(), node, taken[node]);
    slab_.expect_exact();
}

TEST_P(SlabNodes, report_usage_that_adds_up)
{
    const std::vector<void *> one   = take_on(slab(), 1, 100);
    const std::vector<void *> three = take_on(slab(), 3, 50);
    EXPECT_EQ(usage_on(slab(), 1).used, 100u);
    EXPECT_EQ(usage_on(slab(), 3).used, 50u);
    EXPECT_EQ(used_by_all_nodes(slab()), 150u);
    EXPECT_EQ(used_of(slab()), 150u);
    give_on(slab(), 2, one);
    EXPECT_EQ(usage_on(slab(), 1).used, 0u);
    EXPECT_EQ(used_by_all_nodes(slab()), 50u);
    give_on(slab(), 3, three);
    EXPECT_EQ(used_by_all_nodes(slab()), 0u);
    slab_.expect_exact();
}

TEST_P(SlabNodes, report_usage_that_adds_up_when_every_object_is_out)
{
    std::vector<void *> taken;
    on_node(2, [&] { taken = take_all(slab()); });
    EXPECT_EQ(taken.size(), 4000u);
    EXPECT_EQ(used_by_all_nodes(slab()), 4000u);
    for (uint32_t node = 0; node < NODES; node++)
        EXPECT_EQ(usage_on(slab(), node).used, count_of_home(slab(), taken, node));
    give_on(slab(), 2, taken);
    slab_.expect_exact();
}

TEST_P(SlabNodes, get_their_objects_back_from_threads_of_other_nodes)
{
    const std::vector<void *> taken = take_on(slab(), 0, 500);
    give_on(slab(), 1, taken);
    EXPECT_EQ(usage_on(slab(), 0).used, 0u);

    const std::vector<void *> elsewhere = take_on(slab(), 1, 500);
    EXPECT_EQ(count_of_home(slab(), elsewhere, 1), 500u);
    const std::vector<void *> again = take_on(slab(), 0, 500);
    EXPECT_EQ(count_of_home(slab(), again, 0), 500u);
    give_on(slab(), 0, again);
    give_on(slab(), 1, elsewhere);
    slab_.expect_exact();
}

TEST_P(SlabNodes, get_their_objects_back_while_the_thread_that_freed_them_lives)
{
    const std::vector<void *> taken = take_on(slab(), 0, 500);
    std::vector<void *>       again;
    on_node(1, [&] {
        for (void *object : taken)
            give(slab(), object);
        again = take_on(slab(), 0, 500);
    });
    EXPECT_EQ(count_of_home(slab(), again, 0), 500u);
    give_on(slab(), 0, again);
    slab_.expect_exact();
}

TEST_P(SlabNodes, help_each_other_out_before_an_allocation_fails)
{
    std::vector<void *> of_all[NODES];
    for (uint32_t node = 0; node < NODES; node++)
        of_all[node] = take_on(slab(), node, 1000); /* the slab has carved all it may */
    for (uint32_t node = 1; node < NODES; node++)
        give_on(slab(), node, of_all[node]);
    std::vector<void *> rest;
    on_node(0, [&] { rest = take_all(slab()); });
    EXPECT_EQ(rest.size(), 3000u);
    EXPECT_EQ(used_of(slab()), 4000u);
    give_on(slab(), 3, rest);
    give_on(slab(), 3, of_all[0]);
    EXPECT_EQ(used_by_all_nodes(slab()), 0u);
    slab_.expect_exact();
}

TEST_P(SlabNodes, lose_nothing_when_objects_wander_between_all_of_them)
{
    std::vector<std::atomic<void *>> board(64);
    std::atomic<uint64_t>            wrong{0};
    in_threads(8, [&](unsigned number) {
        settle_on_node(number % NODES);
        hand           self;
        const unsigned rounds = operations(4000);
        for (unsigned round = 0; round < rounds; round++) {
            void *const object = take(slab());
            wrong += object == nullptr;
            void *const other = board[self.pick(64)].exchange(object);
            wrong += other != nullptr && give(slab(), other) != 0;
        }
    });
    for (std::atomic<void *> &place : board)
        if (place != nullptr)
            give(slab(), place);
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_EQ(used_by_all_nodes(slab()), 0u);
    slab_.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabNodes, testing::ValuesIn(NODE_KINDS), kind_name);
