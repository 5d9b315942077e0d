/*
 * Threads born and dying: short lives that leave caches behind, and objects in the hands of those
 * who survive them; and families, in which a parent splits what it holds among its children.
 */
#include "mailbox.h"
#include "stamped_slab.h"

namespace
{

enum : unsigned { SURVIVORS = 2, LIFE_LINES = 4, LIVES = 40, LIFE_HOLDS = 20, BOXED = 64 };
enum : unsigned { FAMILIES = 2, BIRTHS = 8, PARENT_HOLDS = 32, DEPTH = 3 };

/* Takes its fill, turns some of it over, frees a part and leaves the rest behind. */
void live_briefly(stamped_slab *slab, mailbox<item> *legacy)
{
    hand              self;
    std::vector<item> held;
    for (unsigned number = 0; number < LIFE_HOLDS; number++) {
        const item taken = slab->take(&self);
        if (taken.object != nullptr)
            held.push_back(taken);
    }
    const unsigned freed = self.pick(LIFE_HOLDS);
    for (unsigned number = 0; number < held.size(); number++) {
        if (number < freed)
            slab->give(&self, held[number]);
        else
            legacy->put(held[number]);
    }
}

void survive(stamped_slab *slab, mailbox<item> *legacy)
{
    hand self;
    for (item left; legacy->get(&left);) {
        slab->adopt(&self, &left);
        slab->give(&self, left);
    }
}

void give_all(stamped_slab *slab, hand *self, std::vector<item> *held)
{
    for (const item &taken : *held)
        slab->give(self, taken);
    held->clear();
}

/* Brings what it holds to `count` again after freeing a random part of it. */
void churn(stamped_slab *slab, hand *self, std::vector<item> *held, size_t count)
{
    while (!held->empty() && self->pick(4) != 0) {
        slab->give(self, held->back());
        held->pop_back();
    }
    while (held->size() < count) {
        const item taken = slab->take(self);
        if (taken.object == nullptr)
            return;
        held->push_back(taken);
    }
}

/* The caller's objects go down the family tree and come back as others. */
void raise_family(stamped_slab *slab, std::vector<item> *held, unsigned depth)
{
    hand         self;
    const size_t count = held->size();
    churn(slab, &self, held, count);
    if (depth == 0)
        return;
    const auto        middle = held->begin() + static_cast<std::ptrdiff_t>(held->size() / 2);
    std::vector<item> first(held->begin(), middle);
    std::vector<item> second(middle, held->end());
    held->clear();
    in_threads(2, [&](unsigned child) {
        raise_family(slab, child == 0 ? &first : &second, depth - 1);
    });
    held->insert(held->end(), first.begin(), first.end());
    held->insert(held->end(), second.begin(), second.end());
    churn(slab, &self, held, count);
}

} // namespace

class SlabLives : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabLives, of_threads_that_leave_objects_to_survivors_cost_no_object)
{
    const unsigned        lives = operations(LIVES);
    stamped_slab          slab(GetParam(), LIFE_LINES * LIFE_HOLDS + BOXED + SURVIVORS);
    mailbox<item>         legacy(BOXED);
    std::atomic<unsigned> at_work{LIFE_LINES};
    in_threads(LIFE_LINES + SURVIVORS, [&](unsigned number) {
        if (number >= LIFE_LINES) {
            survive(&slab, &legacy);
            return;
        }
        for (unsigned life = 0; life < lives; life++)
            std::thread([&] { live_briefly(&slab, &legacy); }).join();
        if (--at_work == 0)
            legacy.close();
    });
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabLives, of_families_that_split_what_they_hold_cost_no_object)
{
    stamped_slab slab(GetParam(), FAMILIES * PARENT_HOLDS);
    in_threads(FAMILIES, [&](unsigned) {
        hand              self;
        std::vector<item> held;
        const unsigned    births = operations(BIRTHS);
        for (unsigned birth = 0; birth < births; birth++) {
            churn(&slab, &self, &held, PARENT_HOLDS);
            raise_family(&slab, &held, DEPTH);
        }
        give_all(&slab, &self, &held);
    });
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabLives, testing::ValuesIn(STRESS_KINDS), kind_name);
