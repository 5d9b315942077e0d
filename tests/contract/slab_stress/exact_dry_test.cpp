/*
 * Null means that max_num objects are out, and nothing else: under many threads that pull at a slab
 * which is dry most of the time.
 *
 * Two arguments show a wrong null.
 *
 * Permits. There are max_num of them; a thread takes an object only after it got a permit and lets
 * the permit go after it freed the object. While a thread with a permit asks, at most max_num - 1
 * objects can be out, so null is wrong at once and always.
 *
 * Conservation. Without permits, what can have been out at any moment of one call is at most
 *
 *     takes started until the call's end  - takes answered null until then - this take
 *   - frees finished before the call's start
 *
 * If that is below max_num, then null is wrong. The order of the readings makes each term err on
 * the safe side: `frees` is read before the call, `nulls` after it, `starts` after `nulls`.
 */
#include <barrier>

#include "stamped_slab.h"

namespace
{

enum : unsigned { THREADS = 8, ROUNDS = 4000 };

class permits
{
public:
    explicit permits(int64_t count) : left_(count)
    {
    }

    bool try_take()
    {
        int64_t left = left_.load(std::memory_order_relaxed);
        while (left > 0) {
            if (left_.compare_exchange_weak(left, left - 1, std::memory_order_acquire,
                                            std::memory_order_relaxed))
                return true;
        }
        return false;
    }

    void let_go()
    {
        left_.fetch_add(1, std::memory_order_release);
    }

private:
    std::atomic<int64_t> left_;
};

/* A burst of takes as long as there are permits, then a burst of frees in random order. */
void take_and_free_bursts(stamped_slab *slab, permits *left, unsigned longest)
{
    hand              self;
    std::vector<item> held;
    const unsigned    rounds = operations(ROUNDS) / longest;
    for (unsigned round = 0; round < rounds; round++) {
        for (unsigned number = self.pick(longest) + 1; number > 0 && left->try_take(); number--) {
            held.push_back(slab->take(&self));
            if (held.back().object == nullptr)
                held.pop_back(); /* counted as refused; the permit is lost with it */
        }
        for (size_t number = self.pick(longest) + 1; number > 0 && !held.empty(); number--) {
            std::swap(held[self.pick(static_cast<unsigned>(held.size()))], held.back());
            slab->give(&self, held.back());
            held.pop_back();
            left->let_go();
        }
    }
    for (const item &taken : held) {
        slab->give(&self, taken);
        left->let_go();
    }
}

/* All but `free_ones` objects are out for good while the threads turn over those. */
void turn_over_the_last(const slab_kind &kind, uint64_t objects, uint64_t free_ones)
{
    stamped_slab      slab(kind, objects);
    hand              self;
    std::vector<item> held;
    for (uint64_t number = free_ones; number < objects; number++)
        held.push_back(slab.take(&self));

    permits left(static_cast<int64_t>(free_ones));
    in_threads(2, [&](unsigned) { take_and_free_bursts(&slab, &left, 1); });

    EXPECT_EQ(slab.refused(), 0u);
    EXPECT_EQ(used_of(slab.handle()), objects - free_ones);
    for (const item &taken : held)
        slab.give(&self, taken);
    slab.expect_exact();
}

/* All threads ask a new slab for as many objects as it has, at the same moment: some find no room and
 * have to see that another one has just made it. */
void empty_new_slabs_at_once(const slab_kind &kind, unsigned slabs)
{
    for (unsigned number = 0; number < slabs; number++) {
        stamped_slab slab(kind, THREADS);
        std::barrier together(THREADS);
        in_threads(THREADS, [&](unsigned) {
            hand self;
            together.arrive_and_wait();
            const item taken = slab.take(&self);
            together.arrive_and_wait();
            if (taken.object != nullptr)
                slab.give(&self, taken);
        });
        ASSERT_EQ(slab.refused(), 0u) << "slab " << number;
        slab.expect_exact();
    }
}

struct conservation {
    std::atomic<uint64_t> starts{0};
    std::atomic<uint64_t> nulls{0};
    std::atomic<uint64_t> frees{0};
    std::atomic<uint64_t> wrong_nulls{0};
};

item take_judged(stamped_slab *slab, hand *self, conservation *sums)
{
    const uint64_t frees = sums->frees.load();
    sums->starts++;
    const item taken = slab->take(self);
    if (taken.object != nullptr)
        return taken;

    const uint64_t nulls    = sums->nulls.load();
    const uint64_t starts   = sums->starts.load();
    const uint64_t most_out = starts - nulls - 1 - frees;
    sums->wrong_nulls += most_out < slab->max_num();
    sums->nulls++;
    return taken;
}

void give_judged(stamped_slab *slab, hand *self, conservation *sums, std::vector<item> *held)
{
    slab->give(self, held->back());
    held->pop_back();
    sums->frees++;
}

void want_more_than_there_is(stamped_slab *slab, conservation *sums, unsigned hold_at_most)
{
    hand              self;
    std::vector<item> held;
    const unsigned    rounds = operations(ROUNDS);
    for (unsigned round = 0; round < rounds; round++) {
        const bool takes = held.empty() || (held.size() < hold_at_most && self.pick(3) != 0);
        if (!takes) {
            give_judged(slab, &self, sums, &held);
            continue;
        }
        const item taken = take_judged(slab, &self, sums);
        if (taken.object != nullptr)
            held.push_back(taken);
        else if (!held.empty())
            give_judged(slab, &self, sums, &held);
    }
    while (!held.empty())
        give_judged(slab, &self, sums, &held);
}

} // namespace

class SlabDry : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabDry, refuses_nobody_for_whom_an_object_must_be_free)
{
    stamped_slab slab(GetParam(), 64);
    permits      left(static_cast<int64_t>(slab.max_num()));
    in_threads(THREADS, [&](unsigned) { take_and_free_bursts(&slab, &left, 20); });
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabDry, answers_null_only_when_max_num_could_have_been_out)
{
    stamped_slab slab(GetParam(), 24);
    conservation sums;
    in_threads(THREADS, [&](unsigned) { want_more_than_there_is(&slab, &sums, 12); });
    EXPECT_EQ(sums.wrong_nulls.load(), 0u);
    EXPECT_EQ(sums.starts.load() - sums.nulls.load(), sums.frees.load());
    slab.expect_exact();
}

TEST_P(SlabDry, refuses_nobody_while_another_thread_makes_the_first_room)
{
    empty_new_slabs_at_once(GetParam(), 60);
}

TEST(SlabDryByPieces, refuses_nobody_while_each_object_needs_room_of_its_own)
{
    empty_new_slabs_at_once({"a_piece_each", 0, 3 << 20, 1}, 60);
}

TEST_P(SlabDry, with_63_of_64_out_serves_two_threads_that_share_the_last_one)
{
    turn_over_the_last(GetParam(), 64, 1);
}

TEST_P(SlabDry, with_62_of_64_out_serves_two_threads_that_turn_over_one_each)
{
    turn_over_the_last(GetParam(), 64, 2);
}

TEST_P(SlabDry, knows_what_is_out_whenever_its_threads_are_quiet)
{
    enum : unsigned { PHASES = 30 };
    stamped_slab          slab(GetParam(), THREADS * 10);
    std::barrier          quiet(THREADS + 1);
    std::atomic<uint64_t> held_by_all{0};
    std::thread           workers([&] {
        in_threads(THREADS, [&](unsigned) {
            hand              self;
            std::vector<item> held;
            for (unsigned phase = 0; phase < PHASES; phase++) {
                for (unsigned number = self.pick(10); number > held.size();)
                    held.push_back(slab.take(&self));
                for (unsigned number = self.pick(10); number < held.size(); held.pop_back())
                    slab.give(&self, held.back());
                held_by_all += held.size();
                quiet.arrive_and_wait();
                quiet.arrive_and_wait();
            }
            for (const item &taken : held)
                slab.give(&self, taken);
        });
    });
    uint64_t wrong = 0;
    for (unsigned phase = 0; phase < PHASES; phase++) {
        quiet.arrive_and_wait();
        wrong += used_of(slab.handle()) != held_by_all.exchange(0);
        quiet.arrive_and_wait();
    }
    workers.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabDry, testing::ValuesIn(STRESS_KINDS), kind_name);
