/*
 * Rings: each thread produces for its right neighbour and consumes from its left one. An object
 * visits three threads, each of which makes it its own, before the last one frees it.
 *
 * What is out at most: two objects in a thread's hands and those in the boxes.
 */
#include <memory>

#include "mailbox.h"
#include "stamped_slab.h"

namespace
{

enum : unsigned { THREADS = 4, BOXED = 8, ROUNDS = 1200, HOPS = 3 };

struct traveller {
    item     carried;
    unsigned hops = 0;
};

using ring = std::vector<std::unique_ptr<mailbox<traveller>>>;

/* Receives one object; the next thread gets it, or the slab when it has been everywhere. */
traveller receive(stamped_slab *slab, hand *self, mailbox<traveller> *box)
{
    traveller arrived;
    box->get(&arrived);
    if (arrived.carried.object == nullptr)
        return traveller();
    if (++arrived.hops == HOPS) {
        slab->give(self, arrived.carried);
        return traveller();
    }
    slab->adopt(self, &arrived.carried);
    return arrived;
}

/* One box takes in as many as it gives out a round, so a full ring cannot stand still. */
void walk(stamped_slab *slab, ring *boxes, unsigned number)
{
    hand                      self;
    mailbox<traveller> *const left  = (*boxes)[number].get();
    mailbox<traveller> *const right = (*boxes)[(number + 1) % THREADS].get();
    traveller                 next;
    const unsigned            count = operations(ROUNDS);
    for (unsigned round = 0; round < count; round++) {
        if (next.carried.object == nullptr)
            next.carried = slab->take(&self);
        right->put(next);
        next = receive(slab, &self, left);
    }
    if (next.carried.object != nullptr)
        slab->give(&self, next.carried);
}

} // namespace

class SlabRing : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabRing, of_producers_that_consume_loses_nothing_and_never_runs_dry)
{
    stamped_slab slab(GetParam(), THREADS * (BOXED + 2));
    ring         boxes;
    for (unsigned number = 0; number < THREADS; number++)
        boxes.push_back(std::make_unique<mailbox<traveller>>(BOXED));

    in_threads(THREADS, [&](unsigned number) { walk(&slab, &boxes, number); });

    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabRing, testing::ValuesIn(STRESS_KINDS), kind_name);
