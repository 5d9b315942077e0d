/*
 * Spin locks under real threads: more of them than cores, and each misuse that ends the process.
 */
#include "zyax.h"
#include "zyax_log.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <thread>
#include <vector>

static constexpr zyax_spinlock UNLOCKED = {0, 0xdead4ead, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF};

static void run_in_threads(int count, const std::function<void()> &body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(body);
    for (std::thread &thread : threads)
        thread.join();
}

static uint64_t count_with(zyax_spinlock *lock)
{
    uint64_t counter = 0;
    run_in_threads(8, [&] {
        for (int i = 0; i < 20000; ++i) {
            do_zyax_spinlock_lock(lock, __func__, __LINE__);
            ++counter;
            do_zyax_spinlock_unlock(lock);
        }
    });
    return counter;
}

TEST(ZyaxSpinlock, eight_threads_lose_no_count)
{
    zyax_spinlock lock = UNLOCKED;

    EXPECT_EQ(count_with(&lock), 160000u);
    EXPECT_EQ(lock.word, 0u);
    EXPECT_EQ(lock.magic, 0xdead4eadu);
    EXPECT_EQ(lock.owner_cpu, 0xFFFFFFFFu);
    EXPECT_EQ(lock.owner, 0xFFFFFFFFFFFFFFFFu);
}

TEST(ZyaxSpinlock, a_zeroed_record_is_completed_by_threads_that_race_for_its_first_use)
{
    zyax_spinlock lock = {};

    EXPECT_EQ(count_with(&lock), 160000u);
    EXPECT_EQ(lock.magic, 0xdead4eadu);
    EXPECT_EQ(lock.owner, 0xFFFFFFFFFFFFFFFFu);
}

TEST(ZyaxSpinlock, many_fresh_zeroed_records_are_completed_once_each)
{
    std::vector<zyax_spinlock> locks(2000);
    std::vector<uint64_t> counters(2000);

    run_in_threads(4, [&] {
        for (size_t i = 0; i < locks.size(); ++i) {
            do_zyax_spinlock_lock(&locks[i], __func__, __LINE__);
            ++counters[i];
            do_zyax_spinlock_unlock(&locks[i]);
        }
    });

    EXPECT_EQ(counters, std::vector<uint64_t>(2000, 4));
}

TEST(ZyaxSpinlock, a_trylock_of_eight_threads_never_lets_two_in)
{
    zyax_spinlock lock = UNLOCKED;
    uint64_t counter = 0;

    run_in_threads(8, [&] {
        for (int taken = 0; taken < 2000;) {
            if (do_zyax_spinlock_trylock(&lock, __func__, __LINE__) == 0) {
                sched_yield();
                continue;
            }
            ++counter;
            ++taken;
            do_zyax_spinlock_unlock(&lock);
        }
    });

    EXPECT_EQ(counter, 16000u);
}

TEST(ZyaxSpinlock, a_waiter_leaves_the_core_and_is_woken_by_the_unlock)
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, __func__, __LINE__);
    bool got_it = false;
    std::thread waiter([&] {
        do_zyax_spinlock_lock(&lock, __func__, __LINE__);
        got_it = true;
        do_zyax_spinlock_unlock(&lock);
    });

    /* 2 is how a waiter says that it is about to sleep. */
    while (__atomic_load_n(&lock.word, __ATOMIC_RELAXED) != 2)
        sched_yield();
    do_zyax_spinlock_unlock(&lock);
    waiter.join();

    EXPECT_TRUE(got_it);
    EXPECT_EQ(lock.word, 0u);
}

TEST(ZyaxSpinlock, a_trylock_by_the_holder_answers_busy)
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, __func__, __LINE__);

    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, __func__, __LINE__), 0);

    do_zyax_spinlock_unlock(&lock);
    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, __func__, __LINE__), 1);
    do_zyax_spinlock_unlock(&lock);
}

TEST(ZyaxSpinlock, the_holder_and_its_core_are_in_the_record)
{
    zyax_spinlock lock = UNLOCKED;
    zyax_spinlock other = UNLOCKED;
    do_zyax_spinlock_lock(&lock, __func__, __LINE__);
    uint64_t stranger = 0;
    std::thread([&] {
        do_zyax_spinlock_lock(&other, __func__, __LINE__);
        stranger = other.owner;
        do_zyax_spinlock_unlock(&other);
    }).join();

    EXPECT_NE(lock.owner, 0u);
    EXPECT_NE(lock.owner, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_NE(lock.owner, stranger);
    EXPECT_LT(lock.owner_cpu, 4096u);
    do_zyax_spinlock_unlock(&lock);
}

TEST(ZyaxSpinlock, a_null_lock_is_reported_and_passed_over)
{
    testing::internal::CaptureStderr();

    do_zyax_spinlock_lock(nullptr, __func__, __LINE__);
    EXPECT_EQ(do_zyax_spinlock_trylock(nullptr, __func__, __LINE__), 0);
    do_zyax_spinlock_unlock(nullptr);

    zyax_log_flush();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Lock of a null spin lock."), std::string::npos);
    EXPECT_NE(log.find("Try-lock of a null spin lock."), std::string::npos);
    EXPECT_NE(log.find("Unlock of a null spin lock."), std::string::npos);
}

static void lock_twice()
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, "first_caller", 17);
    do_zyax_spinlock_lock(&lock, "second_caller", 18);
}

TEST(ZyaxSpinlockDeath, a_lock_taken_again_by_its_owner_ends_the_process)
{
    EXPECT_EXIT(lock_twice(), testing::KilledBySignal(SIGABRT),
                "fatal [0-9]+ zyax do_zyax_spinlock_lock [^ ]*spinlock.cpp:[0-9]+ Spin lock "
                "0x[0-9a-f]+ is taken again by its owner, called by second_caller line 18");
}

static void unlock_as_a_stranger()
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, __func__, __LINE__);
    std::thread([&] { do_zyax_spinlock_unlock(&lock); }).join();
}

TEST(ZyaxSpinlockDeath, an_unlock_by_a_thread_that_does_not_hold_it_ends_the_process)
{
    EXPECT_EXIT(unlock_as_a_stranger(), testing::KilledBySignal(SIGABRT),
                "fatal [0-9]+ zyax do_zyax_spinlock_unlock .* "
                "is unlocked by a thread that does not hold it");
}

static void unlock_a_free_lock()
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_unlock(&lock);
}

TEST(ZyaxSpinlockDeath, an_unlock_of_a_free_lock_ends_the_process)
{
    EXPECT_EXIT(unlock_a_free_lock(), testing::KilledBySignal(SIGABRT),
                "is unlocked by a thread that does not hold it");
}

static void lock_with_magic(uint32_t magic, uint64_t owner)
{
    zyax_spinlock lock = {0, magic, 0, owner};
    do_zyax_spinlock_lock(&lock, "the_caller", 5);
}

TEST(ZyaxSpinlockDeath, a_record_with_a_wrong_magic_ends_the_process)
{
    EXPECT_EXIT(lock_with_magic(0xdead4eae, 0), testing::KilledBySignal(SIGABRT),
                "has a wrong magic, called by the_caller line 5: word\\(0\\) "
                "magic\\(0xdead4eae\\)");
}

TEST(ZyaxSpinlockDeath, a_record_without_magic_that_is_not_all_zero_is_no_lock)
{
    EXPECT_EXIT(lock_with_magic(0, 1), testing::KilledBySignal(SIGABRT), "has a wrong magic");
}

static void trylock_with_wrong_magic()
{
    zyax_spinlock lock = {0, 1, 0, 0};
    do_zyax_spinlock_trylock(&lock, "the_caller", 5);
}

TEST(ZyaxSpinlockDeath, a_trylock_looks_at_the_magic_too)
{
    EXPECT_EXIT(trylock_with_wrong_magic(), testing::KilledBySignal(SIGABRT),
                "do_zyax_spinlock_trylock .* has a wrong magic, called by the_caller line 5");
}
