/*
 * Tag of an object: one word that says whether it is out, who holds it and since when.
 *
 *              63            44 43      32 31            12 11       0
 *     out     |        tick, 32 bits      |  holder's site | OUT_MARK |
 *     free    |  freer's site  |    0     |  holder's site | 0        |
 *
 * A tag of 0 is an object that was never handed out, so fresh memory needs no preparation. After a
 * free the last holder's site stays, beside the one who freed: a second free names both.
 *
 * The tag lies directly behind the object, where a write past the end hits the mark first: any
 * other mark than these two means that somebody wrote where he must not. In slabs whose objects
 * must lie side by side, or would waste their alignment, the tags are in an array beside the piece.
 *
 * Threads: written by whoever moves the object in or out, read by reports at any time; one atomic
 * word, relaxed: what orders one holder after another is the cache or depot between them.
 */
#pragma once

#include <atomic>
#include <stdint.h>

#include "zymm_site.h"

namespace zymm
{

using object_tag = std::atomic<uint64_t>;
static_assert(sizeof(object_tag) == 8);

enum : uint64_t { OUT_MARK = 0x5A7, MARK_MASK = 0xFFF };

constexpr uint64_t tag_out(uint64_t site, uint32_t tick)
{
    return uint64_t(tick) << 32 | site << 12 | OUT_MARK;
}

constexpr uint64_t tag_holder_bits(uint64_t tag)
{
    return tag & 0xFFFFF000u;
}

constexpr uint64_t tag_free(uint64_t out, uint64_t freer)
{
    return freer << 44 | tag_holder_bits(out);
}

constexpr bool is_out(uint64_t tag)
{
    return (tag & MARK_MASK) == OUT_MARK;
}

constexpr bool is_free(uint64_t tag)
{
    return (tag & MARK_MASK) == 0;
}

constexpr uint32_t tag_holder(uint64_t tag)
{
    return uint32_t(tag) >> 12;
}

constexpr uint32_t tag_freer(uint64_t tag)
{
    return uint32_t(tag >> 44);
}

constexpr uint32_t tag_tick(uint64_t tag)
{
    return uint32_t(tag >> 32);
}

} // namespace zymm
