/*
 * Spin locks: they record who holds what and really exclude, but never wait for themselves.
 *
 * A lock that its holder takes again, an unlock by a thread that does not hold it and a record that
 * was never initialised are what the real platform dies of, so the fake does too; a test meets them
 * as its death.
 *
 * Locks cannot fail: a fault set on lock or unlock is counted as hit and changes nothing. A trylock
 * fails as busy.
 */
#include <cstdio>
#include <cstdlib>
#include <set>

#include <sched.h>

#include "fake_local.h"

namespace
{

constexpr uint32_t LOCK_MAGIC = 0xdead4ead;
constexpr uint64_t NO_OWNER   = UINT64_MAX;

std::set<const zyax_spinlock *> &held_locks()
{
    static std::set<const zyax_spinlock *> *const held = new std::set<const zyax_spinlock *>;
    return *held;
}

uint64_t this_thread()
{
    static thread_local char place;
    return reinterpret_cast<uint64_t>(&place);
}

[[noreturn]] void die(const zyax_spinlock *lock, const char *why, const char *func, uint32_t line)
{
    fprintf(stderr, "fake: lock %p %s (%s:%u)\n", static_cast<const void *>(lock), why,
            func != nullptr ? func : "(null)", line);
    abort();
}

void check(zyax_spinlock *lock, const char *func, uint32_t line)
{
    if (lock == nullptr)
        die(lock, "is null", func, line);
    uint32_t magic = 0; /* an all-zero record is completed on first use */
    if (__atomic_compare_exchange_n(&lock->magic, &magic, LOCK_MAGIC, false, __ATOMIC_RELAXED,
                                    __ATOMIC_RELAXED))
        return;
    if (magic != LOCK_MAGIC)
        die(lock, "was never initialised", func, line);
}

bool held_by_caller(const zyax_spinlock *lock)
{
    return __atomic_load_n(&lock->word, __ATOMIC_RELAXED) != 0 &&
           __atomic_load_n(&lock->owner, __ATOMIC_RELAXED) == this_thread();
}

bool take(zyax_spinlock *lock)
{
    uint64_t unlocked = 0;
    if (!__atomic_compare_exchange_n(&lock->word, &unlocked, uint64_t{1}, false, __ATOMIC_ACQUIRE,
                                     __ATOMIC_RELAXED))
        return false;
    __atomic_store_n(&lock->owner_cpu, 0u, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->owner, this_thread(), __ATOMIC_RELAXED);

    const fake::guard guarded(fake::state_mutex());
    held_locks().insert(lock);
    return true;
}

} // namespace

void do_zyax_spinlock_lock(zyax_spinlock *lock, const char *func, uint32_t line)
{
    fake::call c(OP_do_zyax_spinlock_lock, lock, func, line);
    check(lock, func, line);
    if (held_by_caller(lock))
        die(lock, "is taken again by its holder", func, line);
    while (!take(lock))
        sched_yield();
}

int do_zyax_spinlock_trylock(zyax_spinlock *lock, const char *func, uint32_t line)
{
    fake::call c(OP_do_zyax_spinlock_trylock, lock, func, line);
    return c.answer<int>([&] {
        check(lock, func, line);
        return take(lock) ? 1 : 0;
    });
}

void do_zyax_spinlock_unlock(zyax_spinlock *lock)
{
    fake::call c(OP_do_zyax_spinlock_unlock, lock);
    check(lock, "unlock", 0);
    if (!held_by_caller(lock))
        die(lock, "is unlocked by a thread that does not hold it", "unlock", 0);
    {
        const fake::guard guarded(fake::state_mutex());
        held_locks().erase(lock);
    }
    __atomic_store_n(&lock->owner_cpu, 0xFFFFFFFFu, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->owner, NO_OWNER, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->word, uint64_t{0}, __ATOMIC_RELEASE);
}

bool fake_lock_held(const zyax_spinlock *lock)
{
    const fake::guard guarded(fake::state_mutex());
    return held_locks().count(lock) != 0;
}

uint64_t fake_locks_held()
{
    const fake::guard guarded(fake::state_mutex());
    return held_locks().size();
}
