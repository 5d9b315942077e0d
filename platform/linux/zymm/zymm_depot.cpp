/*
 * Depots: free objects of one node, last in first out, so that the object handed out next is the
 * one whose lines a core touched last.
 *
 * Every function here runs under the depot's lock, and there is no other way for an object to go
 * out or come back: the state in its record, the depot's count and the poison of its bytes change
 * together. The lock is also what orders the last holder's accesses before the next holder's.
 *
 * An object is carved when no free one is left: it gets the next place in the piece, and a ticket
 * from the slab's count, of which there are max_num.
 */
#include <string.h>

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

object_record *piece_records(const piece *p)
{
    return p->records;
}

piece *piece_of(const object_record *record)
{
    const object_record *first = record - record->index;
    return reinterpret_cast<const records_head *>(first - 1)->owner;
}

void *object_of(const object_record *record)
{
    const piece *p = piece_of(record);
    const slab *s = p->owner.load(std::memory_order_relaxed);
    return p->base + record->index * s->stride;
}

object_record *record_at(const piece *p, const void *object)
{
    const slab *s = p->owner.load(std::memory_order_relaxed);
    const uint64_t offset =
        reinterpret_cast<uintptr_t>(object) - reinterpret_cast<uintptr_t>(p->base);
    const uint64_t index = offset / s->stride;
    if (index * s->stride != offset || index >= p->carved)
        return nullptr;
    return p->records + index;
}

/* One more object may exist: true for max_num callers, whatever their order. */
static bool take_ticket(slab *s)
{
    uint64_t carved = s->carved.load(std::memory_order_relaxed);
    while (carved < s->max_num) {
        if (s->carved.compare_exchange_weak(carved, carved + 1, std::memory_order_relaxed))
            return true;
    }
    return false;
}

static object_record *carve(slab *s, depot *d)
{
    while (d->carving != nullptr && d->carving->carved == d->carving->capacity)
        d->carving = d->carving->next;
    if (d->carving == nullptr || !take_ticket(s))
        return nullptr;

    piece *p = d->carving;
    object_record *record = p->records + p->carved;
    record->index = p->carved;
    p->carved++;
    d->carved++;
    return record;
}

static object_record *pop(depot *d)
{
    object_record *record = d->free_top;
    if (record == nullptr)
        return nullptr;
    d->free_top = record->below;
    d->free_count--;
    return record;
}

object_record *depot_take(slab *s, depot *d, const holder *who)
{
    object_record *record = pop(d);
    if (record == nullptr)
        record = carve(s, d);
    if (record == nullptr)
        return nullptr;

    record->func = who->func;
    record->module_id = who->module_id;
    record->line = who->line;
    record->since = who->since;
    record->state = OBJECT_OUT;
    guard_open(object_of(record), s->obj_size);
    return record;
}

void depot_give(depot *d, object_record *record, const holder *who)
{
    const slab *s = piece_of(record)->owner.load(std::memory_order_relaxed);
    guard_poison(object_of(record), s->stride);
    record->func = who->func; /* from here on it says who gave the object back */
    record->module_id = who->module_id;
    record->state = OBJECT_FREE;
    record->below = d->free_top;
    d->free_top = record;
    d->free_count++;
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
