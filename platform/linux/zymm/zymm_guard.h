/*
 * What is done to find writes that an object's holder must not do.
 *
 *     |<-------- obj_size -------->|<- GUARD_BYTES ->|<- up to the alignment ->|
 *
 * Under AddressSanitizer everything but the bytes of objects that are out is poisoned: a use after
 * free and a write past the end are reported at the guilty line. In the checking build
 * (-DZYMM_CHECKING) the guard is filled when an object goes out and looked at when it comes back,
 * but not under Valgrind, which sees every write to it itself.
 * In every other build there is no guard and nothing here costs anything.
 *
 * The layer itself never writes into an object that is free: what the last holder left in it stays
 * readable for those accessors of the library above that look at freed page records. In the
 * checking build that holds for the records alone: all else is filled while it waits
 * (zymm_quarantine.h).
 */
#pragma once

#include <stdint.h>
#include <string.h>

#if defined(__SANITIZE_ADDRESS__)
#define ZYMM_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZYMM_ASAN 1
#endif
#endif

#ifdef ZYMM_ASAN
#include <sanitizer/asan_interface.h>
#endif

/* Valgrind's requests are a few instructions that do nothing elsewhere. Under Valgrind no thread
 * has a cache, so the fast paths make none. */
#if !defined(ZYMM_ASAN) && !defined(__SANITIZE_THREAD__) && __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define ZYMM_VALGRIND 1
#endif

namespace zymm
{

#if defined(ZYMM_ASAN) || defined(ZYMM_CHECKING)
enum : uint64_t { GUARD_BYTES = 16 };
#else
enum : uint64_t { GUARD_BYTES = 0 };
#endif

enum : int { GUARD_FILL = 0xC5 };

/* Each object's way out and back is looked at, so no thread may keep objects to itself. */
#if defined(ZYMM_CHECKING)
constexpr bool GUARD_CHECKS_EACH_OBJECT = true;
#else
constexpr bool GUARD_CHECKS_EACH_OBJECT = false;
#endif

inline bool guard_is_valgrind()
{
#ifdef ZYMM_VALGRIND
    return RUNNING_ON_VALGRIND != 0;
#else
    return false;
#endif
}

/* Bytes between the objects are nobody's, not even the layer's. */
inline bool guard_watches_gaps()
{
#ifdef ZYMM_ASAN
    return true;
#else
    return guard_is_valgrind();
#endif
}

inline void guard_poison([[maybe_unused]] const void *memory, [[maybe_unused]] uint64_t bytes)
{
#ifdef ZYMM_ASAN
    ASAN_POISON_MEMORY_REGION(memory, bytes);
#endif
#ifdef ZYMM_VALGRIND
    VALGRIND_MAKE_MEM_NOACCESS(memory, bytes);
#endif
}

inline void guard_unpoison([[maybe_unused]] const void *memory, [[maybe_unused]] uint64_t bytes)
{
#ifdef ZYMM_ASAN
    ASAN_UNPOISON_MEMORY_REGION(memory, bytes);
#endif
#ifdef ZYMM_VALGRIND
    VALGRIND_MAKE_MEM_DEFINED(memory, bytes);
#endif
}

/* An object goes out: its bytes become usable and the guard behind them is set. */
inline void guard_open([[maybe_unused]] void *object, [[maybe_unused]] uint64_t obj_size)
{
#if defined(ZYMM_CHECKING) && !defined(ZYMM_ASAN)
    if (!guard_is_valgrind())
        memset(static_cast<char *>(object) + obj_size, GUARD_FILL, GUARD_BYTES);
#endif
#ifdef ZYMM_ASAN
    ASAN_UNPOISON_MEMORY_REGION(object, obj_size);
#endif
}

/* The same where it is Valgrind that watches: it learns who took the object, too. */
inline void guard_announce([[maybe_unused]] void *object, [[maybe_unused]] uint64_t obj_size)
{
#ifdef ZYMM_VALGRIND
    VALGRIND_MALLOCLIKE_BLOCK(object, obj_size, 0, 0);
#endif
}

/* An object comes back: nobody may touch it any more. */
inline void guard_close([[maybe_unused]] void *object, [[maybe_unused]] uint64_t stride)
{
#ifdef ZYMM_ASAN
    ASAN_POISON_MEMORY_REGION(object, stride);
#endif
}

/* The same where it is Valgrind that watches: it learns who gave the object back, too. */
inline void guard_withdraw([[maybe_unused]] void *object)
{
#ifdef ZYMM_VALGRIND
    VALGRIND_FREELIKE_BLOCK(object, 0);
#endif
}

/* False when somebody wrote past the end of the object that comes back. */
inline bool guard_is_whole([[maybe_unused]] const void *object, [[maybe_unused]] uint64_t obj_size)
{
#if defined(ZYMM_CHECKING) && !defined(ZYMM_ASAN)
    if (guard_is_valgrind())
        return true;
    const unsigned char *guard = static_cast<const unsigned char *>(object) + obj_size;
    for (uint64_t at = 0; at < GUARD_BYTES; at++) {
        if (guard[at] != GUARD_FILL)
            return false;
    }
#endif
    return true;
}

} // namespace zymm
