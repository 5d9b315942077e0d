/*
 * Servers: threads that replace random objects of a set, die, and leave the set to a successor
 * that has allocated none of it.
 *
 * Sets change lineages too, through a board with a place for each. A thread gives back before it
 * takes, so that all sets together never want more than their places: in a tight slab every take
 * happens while nothing is free but what was given back a moment ago, maybe by another thread.
 */
#include "mailbox.h"
#include "stamped_slab.h"

namespace
{

enum : unsigned { LINEAGES = 4, GENERATIONS = 6, PLACES = 40, OPERATIONS = 1500 };

using item_set = std::vector<item>;

void serve(stamped_slab *slab, item_set *set)
{
    hand           self;
    const unsigned count = operations(OPERATIONS);
    for (unsigned number = 0; number < count; number++) {
        item &place = (*set)[self.pick(PLACES)];
        if (place.object != nullptr)
            slab->give(&self, place);
        place = slab->take(&self);
    }
}

void live_for_generations(stamped_slab *slab, mailbox<item_set> *board)
{
    for (unsigned generation = 0; generation < GENERATIONS; generation++) {
        item_set set;
        board->get(&set);
        std::thread([&] { serve(slab, &set); }).join();
        board->put(std::move(set));
    }
}

item_set filled_set(stamped_slab *slab, hand *self)
{
    item_set set(PLACES);
    for (item &place : set)
        place = slab->take(self);
    return set;
}

void give_set(stamped_slab *slab, hand *self, const item_set &set)
{
    for (const item &place : set)
        if (place.object != nullptr)
            slab->give(self, place);
}

} // namespace

class SlabServers : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabServers, inherit_objects_from_the_dead_and_lose_none)
{
    stamped_slab      slab(GetParam(), LINEAGES * PLACES);
    mailbox<item_set> board(LINEAGES);
    hand              self;
    for (unsigned number = 0; number < LINEAGES; number++)
        board.put(filled_set(&slab, &self));

    in_threads(LINEAGES, [&](unsigned) { live_for_generations(&slab, &board); });

    board.close();
    for (item_set set; board.get(&set);)
        give_set(&slab, &self, set);
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabServers, testing::ValuesIn(STRESS_KINDS), kind_name);
