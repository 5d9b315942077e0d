/*
 * Every access of the instrumented sources to memory, as the explorer sees it.
 *
 * The sources of the protocol are compiled once more with -fsanitize=thread, which makes the
 * compiler call a function for each access, and are linked with the functions below in place of
 * ThreadSanitizer's own: production code needs no hook to be stopped at each of its accesses.
 *
 *     memory of the world      atomic access, or made without a lock    a step
 *                              plain access under a lock                part of the current step
 *                              in a record that was freed               the run fails
 *     links off a list         addresses that nobody owns               the run fails
 *     all other memory         private to a thread, or constant         not looked at
 *
 * Under a lock a plain access needs no step of its own: whoever else touches the same memory
 * without the lock has a step there, and lies before or after the locked section's next step. Nor
 * does a plain read directly behind another: what could come between the two could come before.
 */
#include "retry_world.h"
#include "scheduler.h"

namespace
{

/* Where no object can lie: small numbers, and so what a link off a list holds. */
constexpr uintptr_t LOWEST_ADDRESS = 0x400000;

const char READS[] = "reads";
const char WRITES[] = "writes";

void access(const volatile void *at, bool writes, bool atomic, const char *label)
{
    if (!schedule::is_exploring())
        return;
    const uintptr_t address = reinterpret_cast<uintptr_t>(at);
    if (address < LOWEST_ADDRESS)
        schedule::fail("a link of a record that is off the list was followed");

    const world::memory kind = world::kind_of(address);
    if (kind == world::memory::FREED)
        schedule::fail("a record was touched after it was freed");
    if (kind == world::memory::OTHER)
        return;

    const schedule::object word = address / sizeof(uint64_t);
    const bool is_next_read = label == READS && schedule::current_step() == READS;
    if (is_next_read || (!atomic && schedule::holds_a_lock())) {
        schedule::touch(word, writes);
        return;
    }
    schedule::step(word, writes, label);
    if (world::kind_of(address) == world::memory::FREED)
        schedule::fail("a record was touched after it was freed");
}

} // namespace

/* The compiler's names. Its own declarations say void * for all of them. */
#define RUNTIME extern "C" __attribute__((visibility("default"), used))

#define PLAIN(size)                                                                                \
    RUNTIME void __tsan_read##size(void *at)                                                       \
    {                                                                                              \
        access(at, false, false, READS);                                                           \
    }                                                                                              \
    RUNTIME void __tsan_write##size(void *at)                                                      \
    {                                                                                              \
        access(at, true, false, WRITES);                                                           \
    }                                                                                              \
    RUNTIME void __tsan_unaligned_read##size(void *at)                                             \
    {                                                                                              \
        access(at, false, false, READS);                                                           \
    }                                                                                              \
    RUNTIME void __tsan_unaligned_write##size(void *at)                                            \
    {                                                                                              \
        access(at, true, false, WRITES);                                                           \
    }

PLAIN(1)
PLAIN(2)
PLAIN(4)
PLAIN(8)
PLAIN(16)

RUNTIME void __tsan_init()
{
}

RUNTIME void __tsan_func_entry(void *)
{
}

RUNTIME void __tsan_func_exit(void)
{
}

RUNTIME void __tsan_read_range(void *at, size_t)
{
    access(at, false, false, READS);
}

RUNTIME void __tsan_write_range(void *at, size_t)
{
    access(at, true, false, WRITES);
}

/* One thread of the system runs everything, so the operations themselves may be plain. */
#define ATOMIC(bits)                                                                               \
    RUNTIME uint##bits##_t __tsan_atomic##bits##_load(const volatile uint##bits##_t *at, int)      \
    {                                                                                              \
        access(at, false, true, "loads");                                                          \
        return *at;                                                                                \
    }                                                                                              \
    RUNTIME void __tsan_atomic##bits##_store(volatile uint##bits##_t *at, uint##bits##_t value,    \
                                             int)                                                  \
    {                                                                                              \
        access(at, true, true, "stores");                                                          \
        *at = value;                                                                               \
    }                                                                                              \
    ATOMIC_CHANGE(bits, exchange, value)                                                           \
    ATOMIC_CHANGE(bits, fetch_add, uint##bits##_t(before + value))                                 \
    ATOMIC_CHANGE(bits, fetch_sub, uint##bits##_t(before - value))                                 \
    ATOMIC_CHANGE(bits, fetch_or, uint##bits##_t(before | value))                                  \
    ATOMIC_CHANGE(bits, fetch_and, uint##bits##_t(before &value))                                  \
    RUNTIME uint##bits##_t __tsan_atomic##bits##_compare_exchange_val(                             \
        volatile uint##bits##_t *at, uint##bits##_t expected, uint##bits##_t desired, int, int)    \
    {                                                                                              \
        access(at, true, true, "compares and exchanges");                                          \
        const uint##bits##_t before = *at;                                                         \
        if (before == expected)                                                                    \
            *at = desired;                                                                         \
        return before;                                                                             \
    }                                                                                              \
    RUNTIME int __tsan_atomic##bits##_compare_exchange_strong(                                     \
        volatile uint##bits##_t *at, uint##bits##_t *expected, uint##bits##_t desired, int mo,     \
        int on_failure)                                                                            \
    {                                                                                              \
        const uint##bits##_t wanted = *expected;                                                   \
        *expected =                                                                                \
            __tsan_atomic##bits##_compare_exchange_val(at, wanted, desired, mo, on_failure);       \
        return *expected == wanted;                                                                \
    }

#define ATOMIC_CHANGE(bits, name, after)                                                           \
    RUNTIME uint##bits##_t __tsan_atomic##bits##_##name(volatile uint##bits##_t *at,               \
                                                        uint##bits##_t value, int)                 \
    {                                                                                              \
        access(at, true, true, #name);                                                             \
        const uint##bits##_t before = *at;                                                         \
        *at = after;                                                                               \
        return before;                                                                             \
    }

ATOMIC(8)
ATOMIC(16)
ATOMIC(32)
ATOMIC(64)
