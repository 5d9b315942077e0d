/*
 * Exactness with real threads: never more than max_num out, never null while an object is free,
 * no object with two holders, none lost.
 */
#include <algorithm>
#include <random>
#include <set>

#include "zymm_real_helpers.h"

namespace
{

enum : unsigned { THREADS = 8, ROUNDS = 20000 };

/* What a holder writes into its object and expects to find there when it gives the object back. */
struct stamped {
    std::atomic<uint64_t> holder;
};

struct shared_facts {
    std::atomic<int64_t>  out{0};
    std::atomic<int64_t>  most{0};
    std::atomic<uint64_t> refused{0};
    std::atomic<uint64_t> two_holders{0};
    std::atomic<uint64_t> free_failed{0};
};

void note_most(shared_facts *facts, int64_t out)
{
    int64_t most = facts->most.load();
    while (out > most && !facts->most.compare_exchange_weak(most, out)) {
    }
}

/* Counted as out only while surely out, so that the count is never above the truth. */
void take_one(uint64_t slab, uint64_t mark, std::vector<void *> *held, shared_facts *facts)
{
    void *object = take(slab);
    if (object == nullptr) {
        facts->refused++;
        return;
    }
    note_most(facts, ++facts->out);
    static_cast<stamped *>(object)->holder.store(mark);
    held->push_back(object);
}

void give_one(uint64_t slab, uint64_t mark, std::vector<void *> *held, shared_facts *facts)
{
    void *object = held->back();
    held->pop_back();
    facts->two_holders += static_cast<stamped *>(object)->holder.load() != mark;
    --facts->out;
    facts->free_failed += give(slab, object) != 0;
}

void turn_over(uint64_t slab, unsigned number, unsigned hold_at_most, shared_facts *facts)
{
    std::minstd_rand    random(number + 1);
    std::vector<void *> held;
    for (unsigned round = 0; round < ROUNDS; round++) {
        const bool may_take = held.size() < hold_at_most;
        const bool takes    = held.empty() || (may_take && random() % 2 == 0);
        if (takes)
            take_one(slab, number + 1, &held, facts);
        else
            give_one(slab, number + 1, &held, facts);
    }
    while (!held.empty())
        give_one(slab, number + 1, &held, facts);
}

} // namespace

TEST(ZymmExact, threads_that_never_want_more_than_max_num_are_never_refused)
{
    const uint64_t slab = make_slab(64, 64);
    shared_facts   facts;
    in_threads(THREADS, [&](unsigned number) { turn_over(slab, number, 8, &facts); });
    EXPECT_EQ(facts.refused.load(), 0u);
    EXPECT_EQ(facts.two_holders.load(), 0u);
    EXPECT_EQ(facts.free_failed.load(), 0u);
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_EQ(take_all(slab).size(), 64u);
    destroy(slab);
}

TEST(ZymmExact, threads_that_want_far_too_many_never_get_more_than_max_num)
{
    const uint64_t slab = make_slab(64, 7);
    shared_facts   facts;
    in_threads(THREADS, [&](unsigned number) { turn_over(slab, number, 5, &facts); });
    EXPECT_LE(facts.most.load(), 7);
    EXPECT_EQ(facts.two_holders.load(), 0u);
    EXPECT_EQ(facts.free_failed.load(), 0u);
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_EQ(take_all(slab).size(), 7u);
    destroy(slab);
}

TEST(ZymmExact, threads_that_make_a_slab_grow_together_get_different_objects)
{
    const uint64_t                    slab = make_slab(8376, 4000);
    std::vector<std::vector<void *>>  taken(THREADS);
    in_threads(THREADS, [&](unsigned number) { taken[number] = take_all(slab); });
    std::set<void *> all;
    size_t           sum = 0;
    for (const std::vector<void *> &each : taken) {
        all.insert(each.begin(), each.end());
        sum += each.size();
    }
    EXPECT_EQ(sum, 4000u);
    EXPECT_EQ(all.size(), 4000u);
    EXPECT_EQ(used_of(slab), 4000u);
    destroy(slab);
}

TEST(ZymmExact, objects_freed_by_a_thread_that_exits_are_all_there_for_another)
{
    const uint64_t slab = make_slab(128, 1023);
    in_threads(1, [&](unsigned) {
        for (void *object : take_all(slab))
            give(slab, object);
    });
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_EQ(take_all(slab).size(), 1023u);
    destroy(slab);
}

TEST(ZymmExact, objects_may_be_freed_by_another_thread_than_took_them)
{
    const uint64_t         slab = make_slab(64, 16);
    std::atomic<void *>    box{nullptr};
    std::atomic<uint64_t>  wrong{0};
    in_threads(2, [&](unsigned number) {
        for (uint64_t round = 1; round <= 5000; round++) {
            if (number == 0) {
                uint64_t *object = static_cast<uint64_t *>(take(slab));
                wrong += object == nullptr;
                if (object != nullptr)
                    *object = round;
                while (box.load() != nullptr)
                    std::this_thread::yield();
                box.store(object);
            } else {
                void *object = nullptr;
                while ((object = box.exchange(nullptr)) == nullptr)
                    std::this_thread::yield();
                wrong += *static_cast<uint64_t *>(object) != round;
                wrong += give(slab, object) != 0;
            }
        }
    });
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}

TEST(ZymmExact, queries_and_dumps_run_beside_threads_that_allocate)
{
    const uint64_t        slab = make_slab(256, 5000);
    std::atomic<uint64_t> beyond{0};
    std::atomic<bool>     done{false};
    testing::internal::CaptureStdout();
    in_threads(4, [&](unsigned number) {
        for (unsigned round = 0; number != 0 && round < 20; round++)
            for (void *object : take_all(slab))
                give(slab, object);
        while (number == 0 && !done.load()) {
            beyond += used_of(slab) > 5000 || zymm_slab_get_leak_number(slab) > 5000;
            zymm_slab_dump_detailinfo(slab, 386, "test");
        }
        done = true;
    });
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(beyond.load(), 0u);
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}
