/*
 * Spin locks: what one thread alone can see of them, and that two exclude each other.
 */
#include <gtest/gtest.h>

#include <thread>

#include "zyax.h"

namespace
{

constexpr zyax_spinlock UNLOCKED = {0, 0xdead4ead, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF};

} // namespace

TEST(SpinLock, that_is_free_can_be_tried)
{
    zyax_spinlock lock = UNLOCKED;
    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, "test", 1), 1);
    do_zyax_spinlock_unlock(&lock);
}

TEST(SpinLock, is_busy_for_its_own_holder)
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, "test", 1);
    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, "test", 2), 0);
    do_zyax_spinlock_unlock(&lock);
}

TEST(SpinLock, is_busy_for_another_thread_while_held)
{
    zyax_spinlock lock  = UNLOCKED;
    int           taken = -1;
    do_zyax_spinlock_lock(&lock, "test", 1);
    std::thread([&] { taken = do_zyax_spinlock_trylock(&lock, "other", 2); }).join();
    do_zyax_spinlock_unlock(&lock);
    EXPECT_EQ(taken, 0);
}

TEST(SpinLock, is_free_again_after_its_unlock)
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, "test", 1);
    do_zyax_spinlock_unlock(&lock);
    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, "test", 2), 1);
    do_zyax_spinlock_unlock(&lock);
}

TEST(SpinLock, of_zeros_is_a_valid_free_one)
{
    zyax_spinlock lock = {};
    do_zyax_spinlock_lock(&lock, "test", 1);
    EXPECT_EQ(do_zyax_spinlock_trylock(&lock, "test", 2), 0);
    do_zyax_spinlock_unlock(&lock);
    EXPECT_EQ(lock.magic, 0xdead4eadu);
}

TEST(SpinLock, is_the_same_record_as_before_once_it_is_unlocked)
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, "test", 1);
    do_zyax_spinlock_unlock(&lock);
    EXPECT_EQ(lock.word, 0u);
    EXPECT_EQ(lock.magic, 0xdead4eadu);
    EXPECT_EQ(lock.owner, 0xFFFFFFFFFFFFFFFFu);
}

TEST(SpinLock, excludes_threads_from_each_other)
{
    zyax_spinlock lock  = UNLOCKED;
    uint64_t      count = 0;
    const auto    work  = [&] {
        for (int i = 0; i < 2000; ++i) {
            do_zyax_spinlock_lock(&lock, "test", 1);
            ++count;
            do_zyax_spinlock_unlock(&lock);
        }
    };
    std::thread first(work);
    std::thread second(work);
    std::thread third(work);
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(count, 6000u);
}

TEST(SpinLockDeathTest, taken_again_by_its_holder_ends_the_process)
{
    zyax_spinlock lock = UNLOCKED;
    do_zyax_spinlock_lock(&lock, "test", 1);
    EXPECT_EXIT(do_zyax_spinlock_lock(&lock, "test", 2), testing::KilledBySignal(SIGABRT), "lock");
    do_zyax_spinlock_unlock(&lock);
}

TEST(SpinLockDeathTest, unlocked_while_free_ends_the_process)
{
    zyax_spinlock lock = UNLOCKED;
    EXPECT_EXIT(do_zyax_spinlock_unlock(&lock), testing::KilledBySignal(SIGABRT), "lock");
}

TEST(SpinLockDeathTest, without_its_magic_ends_the_process)
{
    zyax_spinlock lock = {0, 0xA5A5A5A5, 0, 0};
    EXPECT_EXIT(do_zyax_spinlock_lock(&lock, "test", 1), testing::KilledBySignal(SIGABRT), "lock");
}
