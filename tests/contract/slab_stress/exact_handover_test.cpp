/*
 * 1,023 objects of 1,023 for one thread after another one had them all, whatever became of the
 * other: no object may be stranded in a cache that its owner does not come back to.
 */
#include <barrier>
#include <latch>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "stamped_slab.h"

namespace
{

enum : uint64_t { OBJECTS = 1023 };

const slab_kind HANDOVER_KINDS[] = {
    {"cached_small", ZYMM_SLAB_CACHED, 64, 1},
    {"cached_pages", ZYMM_SLAB_CACHED, 8376, 1},
    {"plain_small", 0, 64, 1},
    {"plain_pages", 0, 8376, 1},
};

void give_all(uint64_t slab, const std::vector<void *> &objects)
{
    for (void *object : objects)
        give(slab, object);
}

/* Number of objects that the calling thread gets before the slab is dry; gives them back. */
uint64_t obtainable(uint64_t slab)
{
    const std::vector<void *> taken = take_all(slab);
    give_all(slab, taken);
    return taken.size();
}

/* Takes and frees everything, says so, and sits in a system call that no signal interrupts. */
void sit_blocked(uint64_t slab, int read_end, std::latch *caches_are_full)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    obtainable(slab);
    caches_are_full->count_down();
    char byte = 0;
    while (read(read_end, &byte, 1) < 0) {
    }
}

} // namespace

class SlabHandover : public testing::TestWithParam<slab_kind>
{
protected:
    SlabHandover() : slab_(GetParam(), OBJECTS)
    {
    }

    uint64_t slab() const
    {
        return slab_.handle();
    }

    stamped_slab slab_;
};

TEST_P(SlabHandover, from_a_thread_that_lives_and_idles_is_complete)
{
    std::latch  caches_are_full(1);
    std::latch  may_end(1);
    std::thread other([&] {
        obtainable(slab());
        caches_are_full.count_down();
        may_end.wait();
    });
    caches_are_full.wait();
    EXPECT_EQ(used_of(slab()), 0u);
    EXPECT_EQ(obtainable(slab()), 1023u);
    may_end.count_down();
    other.join();
    slab_.expect_exact();
}

TEST_P(SlabHandover, from_a_thread_that_exited_is_complete)
{
    std::thread([&] { obtainable(slab()); }).join();
    EXPECT_EQ(used_of(slab()), 0u);
    EXPECT_EQ(obtainable(slab()), 1023u);
    slab_.expect_exact();
}

TEST_P(SlabHandover, from_a_thread_blocked_in_the_kernel_with_all_signals_masked_is_complete)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    std::latch  caches_are_full(1);
    std::thread other([&] { sit_blocked(slab(), ends[0], &caches_are_full); });
    caches_are_full.wait();
    EXPECT_EQ(obtainable(slab()), 1023u);
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    other.join();
    close(ends[0]);
    close(ends[1]);
    slab_.expect_exact();
}

TEST_P(SlabHandover, from_eight_idle_threads_that_shared_the_objects_is_complete)
{
    std::barrier all_have_taken(8);
    std::barrier all_have_freed(9);
    std::latch   may_end(1);
    std::thread  others([&] {
        in_threads(8, [&](unsigned) {
            std::vector<void *> taken;
            for (unsigned number = 0; number < 127; number++)
                taken.push_back(take(slab()));
            all_have_taken.arrive_and_wait();
            give_all(slab(), taken);
            all_have_freed.arrive_and_wait();
            may_end.wait();
        });
    });
    all_have_freed.arrive_and_wait();
    EXPECT_EQ(used_of(slab()), 0u);
    EXPECT_EQ(obtainable(slab()), 1023u);
    may_end.count_down();
    others.join();
    slab_.expect_exact();
}

TEST_P(SlabHandover, back_and_forth_between_two_threads_is_complete_each_time)
{
    std::barrier          turn(2);
    std::atomic<uint64_t> missing{0};
    in_threads(2, [&](unsigned number) {
        for (unsigned round = 0; round < 20; round++) {
            if (round % 2 == number)
                missing += OBJECTS - obtainable(slab());
            turn.arrive_and_wait();
        }
    });
    EXPECT_EQ(missing.load(), 0u);
    slab_.expect_exact();
}

TEST_P(SlabHandover, of_objects_that_others_freed_than_took_them_is_complete)
{
    std::barrier        step(2);
    std::vector<void *> taken;
    uint64_t            again = 0;
    in_threads(2, [&](unsigned number) {
        if (number == 0)
            taken = take_all(slab());
        step.arrive_and_wait();
        if (number == 1)
            give_all(slab(), taken);
        step.arrive_and_wait();
        if (number == 0)
            again = obtainable(slab());
        step.arrive_and_wait();
    });
    EXPECT_EQ(again, 1023u);
    slab_.expect_exact();
}

TEST_P(SlabHandover, of_one_object_out_of_a_full_slab_finds_the_one_that_is_free)
{
    std::vector<void *> all   = take_all(slab());
    uint64_t            wrong = 0;
    for (unsigned number = 0; number < 100; number++) {
        std::thread([&] { give(slab(), all[number * 10]); }).join();
        void *const object = take(slab());
        wrong += object != all[number * 10];
        wrong += take(slab()) != nullptr;
    }
    EXPECT_EQ(wrong, 0u);
    give_all(slab(), all);
    slab_.expect_exact();
}

TEST_P(SlabHandover, of_nothing_is_null_for_every_thread_while_all_objects_are_out)
{
    const std::vector<void *> all = take_all(slab());
    std::atomic<uint64_t>     given{0};
    in_threads(8, [&](unsigned) {
        for (unsigned number = 0; number < 500; number++)
            given += take(slab()) != nullptr;
    });
    EXPECT_EQ(given.load(), 0u);
    EXPECT_EQ(used_of(slab()), 1023u);
    give_all(slab(), all);
    slab_.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabHandover, testing::ValuesIn(HANDOVER_KINDS), kind_name);
