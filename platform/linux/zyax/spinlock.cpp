/*
 * Spin locks that stand more threads than cores.
 *
 *     word         0 free, 1 held, 2 held and somebody may sleep on it
 *     magic        0xdead4ead; 0 only in an all-zero record that nobody has used yet
 *     owner_cpu    where the holder took it; a note for whoever reads a dump
 *     owner        identity of the holding thread; all ones or 0 when there is none
 *
 * A thread that finds the lock held spins for some microseconds, which is longer than any of the
 * sections that such locks guard. Then its holder is most likely not running, and spinning on would
 * only keep it off the core: the thread marks the word with 2 and sleeps in the kernel until the
 * unlock sees the mark.
 *
 * `word` carries the ordering: acquire when it is taken, release when it is given back. `owner` is
 * written by the holder alone, so that a thread which reads its own identity there holds the lock,
 * and any other value it may read says no more than "not me".
 *
 * A misuse ends the process: the record is either no lock, or what it guards is no longer to be
 * trusted. A null lock is reported and passed over.
 */
#include "zyax_local.h"

#include <linux/futex.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

static constexpr uint64_t FREE      = 0;
static constexpr uint64_t HELD      = 1;
static constexpr uint64_t CONTENDED = 2;
static constexpr uint32_t MAGIC     = 0xdead4ead;
static constexpr uint64_t NO_OWNER  = 0xFFFFFFFFFFFFFFFF;
static constexpr uint32_t NO_CPU    = 0xFFFFFFFF;
static constexpr uint32_t SPINS     = 100;

/* What a message can say about who calls; an unlock does not tell. */
struct lock_caller {
    const char *operation;
    const char *func;
    uint32_t line;
};

[[noreturn]] static void die(const zyax_spinlock *lock, const lock_caller &caller,
                             const char *reason)
{
    const char *func = caller.func != nullptr ? caller.func : "(unknown)";
    zylog(ZYAX_MODULE_ID, ZYLOG_FATAL, __FILE__, __LINE__, caller.operation, 0,
          "Spin lock %p %s, called by %s line %u: word(%lu) magic(0x%x) cpu(%u) owner(0x%lx), "
          "this thread is 0x%lx.",
          static_cast<const void *>(lock), reason, func, caller.line,
          __atomic_load_n(&lock->word, __ATOMIC_RELAXED),
          __atomic_load_n(&lock->magic, __ATOMIC_RELAXED),
          __atomic_load_n(&lock->owner_cpu, __ATOMIC_RELAXED),
          __atomic_load_n(&lock->owner, __ATOMIC_RELAXED), zyax::thread_identity());
    abort();
}

/*
 * Completes an all-zero record. A record is all zero as long as its magic is, since nobody touches
 * the rest before: so the rest is read first, and the exchange proves that it was read in time.
 */
static bool complete(zyax_spinlock *lock)
{
    const uint64_t rest = __atomic_load_n(&lock->word, __ATOMIC_ACQUIRE) |
                          __atomic_load_n(&lock->owner, __ATOMIC_ACQUIRE) |
                          __atomic_load_n(&lock->owner_cpu, __ATOMIC_ACQUIRE);
    uint32_t expected = 0;
    if (__atomic_compare_exchange_n(&lock->magic, &expected, MAGIC, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE))
        return rest == 0;
    return expected == MAGIC;
}

static void check_magic(zyax_spinlock *lock, const lock_caller &caller)
{
    const uint32_t magic = __atomic_load_n(&lock->magic, __ATOMIC_ACQUIRE);
    if (magic == MAGIC || (magic == 0 && complete(lock)))
        return;
    die(lock, caller, "has a wrong magic");
}

static bool is_mine(const zyax_spinlock *lock)
{
    return __atomic_load_n(&lock->owner, __ATOMIC_RELAXED) == zyax::thread_identity();
}

static bool try_take(zyax_spinlock *lock)
{
    uint64_t expected = FREE;
    return __atomic_compare_exchange_n(&lock->word, &expected, HELD, false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
}

static void note_owner(zyax_spinlock *lock)
{
    __atomic_store_n(&lock->owner, zyax::thread_identity(), __ATOMIC_RELAXED);
    __atomic_store_n(&lock->owner_cpu, uint32_t(sched_getcpu()), __ATOMIC_RELAXED);
}

/* The kernel compares the word's low half, which is where the state is. */
static long futex(zyax_spinlock *lock, int operation, uint32_t value)
{
    return syscall(SYS_futex, &lock->word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr,
                   0);
}

static void take_contended(zyax_spinlock *lock)
{
    for (uint32_t spin = 0; spin < SPINS; ++spin) {
        __builtin_ia32_pause();
        if (__atomic_load_n(&lock->word, __ATOMIC_RELAXED) == FREE && try_take(lock))
            return;
    }
    /* Whoever comes from here may leave others asleep, so it keeps the mark. */
    while (__atomic_exchange_n(&lock->word, CONTENDED, __ATOMIC_ACQUIRE) != FREE)
        futex(lock, FUTEX_WAIT, CONTENDED);
}

void do_zyax_spinlock_lock(zyax_spinlock *lock, const char *func, uint32_t line)
{
    if (lock == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Lock of a null spin lock.");
        return;
    }

    const lock_caller caller = {__func__, func, line};
    check_magic(lock, caller);
    if (!try_take(lock)) {
        if (is_mine(lock))
            die(lock, caller, "is taken again by its owner");
        take_contended(lock);
    }
    note_owner(lock);
}

int do_zyax_spinlock_trylock(zyax_spinlock *lock, const char *func, uint32_t line)
{
    if (lock == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Try-lock of a null spin lock.");
        return 0;
    }

    check_magic(lock, {__func__, func, line});
    if (!try_take(lock))
        return 0;
    note_owner(lock);
    return 1;
}

void do_zyax_spinlock_unlock(zyax_spinlock *lock)
{
    if (lock == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Unlock of a null spin lock.");
        return;
    }

    const lock_caller caller = {__func__, nullptr, 0};
    check_magic(lock, caller);
    if (!is_mine(lock))
        die(lock, caller, "is unlocked by a thread that does not hold it");
    __atomic_store_n(&lock->owner_cpu, NO_CPU, __ATOMIC_RELAXED);
    __atomic_store_n(&lock->owner, NO_OWNER, __ATOMIC_RELAXED);
    if (__atomic_exchange_n(&lock->word, FREE, __ATOMIC_RELEASE) == CONTENDED)
        futex(lock, FUTEX_WAKE, 1);
}
