/*
 * Depots: what is free and in no thread's cache, and how new objects are carved.
 *
 * Loose objects form a lock-free stack: each has a number in its slab, the head is the top one's
 * number with a tag that every change counts up, and the links lie beside the pieces, so that
 * nothing is ever written into an object that is free. One exchange takes an object or gives it
 * back: at no moment is a free object invisible to others, which is what lets a dry pool answer
 * null without asking anybody.
 *
 * An object is carved when nothing free is left: it gets the next place in the piece, and a ticket
 * from the slab's count, of which there are max_num.
 */
#include <string.h>

#include "zymm_address.h"
#include "zymm_lock.h"
#include "zymm_private.h"
#include "zymm_slab.h"
#include "zymm_system.h"

namespace zymm
{

depot *depot_of(slab *s, uint32_t node)
{
    char *behind = reinterpret_cast<char *>(s) + round_up(sizeof(slab), alignof(depot));
    return reinterpret_cast<depot *>(behind) + node;
}

/* ------------------------------------------------------------------ objects */

char *object_place::object() const
{
    return in->base + index * in->owner.load(std::memory_order_relaxed)->shape.stride;
}

object_tag *object_place::tag() const
{
    if (in->tags != nullptr)
        return in->tags + index;
    const slab *s = in->owner.load(std::memory_order_relaxed);
    return reinterpret_cast<object_tag *>(object() + s->shape.tag_offset);
}

object_place place_of(const slab *s, const void *object)
{
    piece *p = address_find(object);
    if (p == nullptr || p->owner.load(std::memory_order_acquire) != s)
        return {nullptr, 0};
    const uint64_t offset =
        reinterpret_cast<uintptr_t>(object) - reinterpret_cast<uintptr_t>(p->base);
    const uint64_t index = s->shape.index(offset);
    if (index >= p->carved.load(std::memory_order_acquire))
        return {nullptr, 0};
    return {p, uint32_t(index)};
}

/* ------------------------------------------------------------------ table of pieces */

static piece **table_slot(slab *s, uint32_t at)
{
    const uint32_t shifted = at + FIRST_LEVEL_PIECES;
    const uint32_t level = uint32_t(__builtin_clz(FIRST_LEVEL_PIECES) - __builtin_clz(shifted));
    piece **entries = s->levels[level].load(std::memory_order_acquire);
    return entries + (shifted - (FIRST_LEVEL_PIECES << level));
}

static bool make_level(slab *s, uint32_t at)
{
    const uint32_t shifted = at + FIRST_LEVEL_PIECES;
    const uint32_t level = uint32_t(__builtin_clz(FIRST_LEVEL_PIECES) - __builtin_clz(shifted));
    if (level >= LEVELS)
        return false;
    if (s->levels[level].load(std::memory_order_relaxed) != nullptr)
        return true;
    void *memory = system_map((sizeof(piece *) * FIRST_LEVEL_PIECES) << level, PAGE_BYTES);
    s->levels[level].store(static_cast<piece **>(memory), std::memory_order_release);
    return memory != nullptr;
}

uint64_t table_numbers(slab *s)
{
    const uint32_t count = s->pieces.load(std::memory_order_acquire);
    if (count == 0)
        return 0;
    const piece *last = *table_slot(s, count - 1);
    return uint64_t(last->first_number) + last->room;
}

bool table_enter(slab *s, piece *p)
{
    const uint32_t count = s->pieces.load(std::memory_order_relaxed);
    const uint64_t first = table_numbers(s);
    if (first + p->room > UINT32_MAX - 1 || !make_level(s, count))
        return false;
    p->first_number = uint32_t(first);
    *table_slot(s, count) = p;
    s->pieces.store(count + 1, std::memory_order_release);
    return true;
}

void table_release(slab *s)
{
    for (uint32_t level = 1; level < LEVELS; level++) {
        system_unmap(s->levels[level].load(std::memory_order_relaxed),
                     (sizeof(piece *) * FIRST_LEVEL_PIECES) << level);
        s->levels[level].store(nullptr, std::memory_order_relaxed);
    }
    s->pieces.store(0, std::memory_order_relaxed);
}

/* The object with this number; the number came from a stack, so there is one. */
static object_place place_at(slab *s, uint32_t number)
{
    uint32_t low = 0;
    uint32_t high = s->pieces.load(std::memory_order_acquire);
    while (high - low > 1) {
        const uint32_t middle = low + (high - low) / 2;
        if ((*table_slot(s, middle))->first_number <= number)
            low = middle;
        else
            high = middle;
    }
    piece *p = *table_slot(s, low);
    return {p, number - p->first_number};
}

object_place place_numbered(slab *s, uint64_t number)
{
    if (number >= table_numbers(s))
        return {nullptr, 0};
    const object_place place = place_at(s, uint32_t(number));
    return place.index < place.in->carved.load(std::memory_order_acquire)
               ? place
               : object_place{nullptr, 0};
}

/* ------------------------------------------------------------------ loose objects */

static uint64_t next_head(uint64_t head, uint32_t number_and_one)
{
    return ((head >> 32) + 1) << 32 | number_and_one;
}

void loose_push(const object_place &place)
{
    slab *s = place.in->owner.load(std::memory_order_relaxed);
    std::atomic<uint64_t> *top = &depot_of(s, place.in->node)->loose;
    const uint32_t own = place.in->first_number + place.index + 1;
    uint64_t head = top->load(std::memory_order_relaxed);
    do {
        place.in->links[place.index].store(uint32_t(head), std::memory_order_relaxed);
    } while (!top->compare_exchange_weak(head, next_head(head, own), std::memory_order_acq_rel,
                                         std::memory_order_relaxed));
}

void *loose_pop(slab *s, depot *d)
{
    uint64_t head = d->loose.load(std::memory_order_acquire);
    while (uint32_t(head) != 0) {
        const object_place top = place_at(s, uint32_t(head) - 1);
        const uint32_t below = top.in->links[top.index].load(std::memory_order_relaxed);
        if (d->loose.compare_exchange_weak(head, next_head(head, below),
                                           std::memory_order_acq_rel, std::memory_order_acquire))
            return top.object();
    }
    return nullptr;
}

void magazine_spill(slab *s, magazine *m)
{
    const uint32_t count = count_of(m);
    for (uint32_t at = 0; at < count; at++)
        loose_push(place_of_own(s, m->objects[at]));
    set_count(m, 0);
}

/* ------------------------------------------------------------------ carving */

/* So many more objects may exist: all callers together get max_num, whatever their order. */
static uint32_t take_tickets(slab *s, uint32_t wanted)
{
    uint64_t carved = s->carved.load(std::memory_order_relaxed);
    while (carved < s->max_num) {
        const uint64_t left = s->max_num - carved;
        const uint32_t taken = left < wanted ? uint32_t(left) : wanted;
        if (s->carved.compare_exchange_weak(carved, carved + taken, std::memory_order_relaxed))
            return taken;
    }
    return 0;
}

uint32_t depot_carve(slab *s, depot *d, void **objects, uint32_t wanted)
{
    scoped_lock held(&d->lock);
    piece *p = d->carving;
    while (p != nullptr && p->carved.load(std::memory_order_relaxed) == p->capacity)
        p = p->next;
    d->carving = p;
    if (p == nullptr)
        return 0;

    const uint32_t first = p->carved.load(std::memory_order_relaxed);
    const uint32_t room = p->capacity - first;
    const uint32_t taken = take_tickets(s, room < wanted ? room : wanted);
    for (uint32_t at = 0; at < taken; at++)
        objects[taken - 1 - at] = p->base + (first + at) * s->shape.stride;
    p->carved.store(first + taken, std::memory_order_release);
    d->carved.fetch_add(taken, std::memory_order_relaxed);
    return taken;
}

void depot_add(slab *s, depot *d, piece *p)
{
    p->next = nullptr;
    if (d->last == nullptr)
        d->first = p;
    else
        d->last->next = p;
    d->last = p;
    if (d->carving == nullptr)
        d->carving = p;
    s->capacity.fetch_add(p->capacity, std::memory_order_relaxed);
}

} // namespace zymm
