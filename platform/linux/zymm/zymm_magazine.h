/*
 * Magazines: small stacks of free objects, and lock-free stacks of magazines.
 *
 *     thread cache: loaded | previous         a thread works on these two alone
 *                     ^ |
 *                     | v  whole magazines
 *     depot:        full -> full -> full      last in, first out
 *     the process:  empty -> empty -> ...     shared by all slabs
 *
 * A stack's head is one word: the number of the top magazine and a tag that every change counts up,
 * so that a head which looks the same is the same. Magazines have numbers because two of them fit a
 * word with a tag that does not come round while a thread sleeps; they are never unmapped, so a
 * thread that was overtaken reads a stale successor and its exchange fails.
 *
 * `count` and `objects` belong to the one thread that has the magazine in its cache, or that took
 * it off a stack; the stacks' release and acquire hand them over.
 */
#pragma once

#include <atomic>
#include <stdint.h>

namespace zymm
{

enum : uint32_t { MAGAZINE_OBJECTS = 64 };

struct alignas(64) magazine {
    std::atomic<uint32_t> count; /* written by its owner, read by queries at any time */
    uint32_t              number;
    std::atomic<uint32_t> below; /* number of the next magazine in a stack */
    uint32_t              node;  /* of all its objects */
    void                 *objects[MAGAZINE_OBJECTS];
};

inline uint32_t count_of(const magazine *m)
{
    return m->count.load(std::memory_order_relaxed);
}

inline void set_count(magazine *m, uint32_t count)
{
    m->count.store(count, std::memory_order_relaxed);
}

struct magazine_stack {
    std::atomic<uint64_t> head; /* tag << 32 | number; number 0 = empty */

    bool is_empty() const
    {
        return uint32_t(head.load(std::memory_order_relaxed)) == 0;
    }
};

void      stack_push(magazine_stack *stack, magazine *m);
magazine *stack_pop(magazine_stack *stack);

/* An empty magazine; null when there is no memory for one. Any thread, any signal handler. */
magazine *magazine_get();
void      magazine_put(magazine *m);

/* For checks: the magazine with this number, null when there is none; and how many there are. */
magazine *magazine_numbered(uint32_t number);
uint64_t  magazines_made();

/* Stands for a magazine where there is none: it never has an object nor room for one. */
extern magazine g_no_magazine;

} // namespace zymm
