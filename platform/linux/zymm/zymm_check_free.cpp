/*
 * The first pass of a slab's check: everything that is free, wherever it lies. Numbers and
 * addresses are looked at before they are followed, and what is found a second time is not followed
 * again, so that a damaged list ends the walk and not the process.
 */
#include "zymm_address.h"
#include "zymm_cache.h"
#include "zymm_check.h"
#include "zymm_slab.h"

namespace zymm
{

struct free_walk {
    slab *s;
    object_marks *marks;
    check_findings *findings;
};

/* False when the object lies in another place already. */
static bool mark_place(const free_walk *walk, const object_place &place)
{
    const uint64_t number = uint64_t(place.in->first_number) + place.index;
    const bool is_first = !walk->marks->has(number);
    if (!is_first)
        walk->findings->add({"a free object lies in two places", place.object(),
                             place.tag()->load(std::memory_order_relaxed), 0, 0});
    walk->marks->set(number);
    return is_first;
}

static void mark_object(const free_walk *walk, void *object, uint32_t node)
{
    const object_place place = place_of(walk->s, object);
    if (place.in == nullptr) {
        walk->findings->add({"a list has what is no object", object, 0, 0, 0});
        return;
    }
    if (node != ALL_NODES && place.in->node != node)
        walk->findings->add(
            {"a magazine has an object of another node", object, 0, place.in->node, node});
    mark_place(walk, place);
}

static void mark_waiting(void *context, void *object)
{
    mark_object(static_cast<const free_walk *>(context), object, ALL_NODES);
}

static void mark_magazine(const free_walk *walk, const magazine *m)
{
    const uint32_t count = count_of(m);
    if (count > walk->s->cache_limit || count > MAGAZINE_OBJECTS) {
        walk->findings->add(
            {"a magazine has more objects than room", m, 0, count, walk->s->cache_limit});
        return;
    }
    for (uint32_t at = 0; at < count; at++)
        mark_object(walk, m->objects[at], m->node);
}

static void mark_caches(const free_walk *walk)
{
    for (const thread_cache *c = walk->s->caches; c != nullptr; c = c->next_of_slab) {
        mark_magazine(walk, c->loaded);
        mark_magazine(walk, c->previous);
        for (uint32_t node = 0; node < c->nodes; node++)
            mark_magazine(walk, c->remote[node]);
    }
}

static void mark_full(const free_walk *walk, const magazine_stack *stack, uint32_t node)
{
    uint64_t left = magazines_made(); /* a stack with more than these goes round in a circle */
    uint32_t number = uint32_t(stack->head.load(std::memory_order_acquire));
    while (number != 0) {
        const magazine *m = magazine_numbered(number);
        if (m == nullptr || left-- == 0) {
            walk->findings->add({"a stack of magazines is damaged", stack, 0, number, 0});
            return;
        }
        if (m->node != node)
            walk->findings->add(
                {"a magazine lies on another node than its own", m, 0, m->node, node});
        mark_magazine(walk, m);
        number = m->below.load(std::memory_order_relaxed);
    }
}

static void mark_loose(const free_walk *walk, depot *d, uint32_t node)
{
    uint32_t number = uint32_t(d->loose.load(std::memory_order_acquire));
    while (number != 0) {
        const object_place place = place_numbered(walk->s, number - 1);
        if (place.in == nullptr || place.in->node != node) {
            walk->findings->add({"a link of loose objects leads astray", d, 0, number, 0});
            return;
        }
        if (!mark_place(walk, place))
            return;
        number = place.in->links[place.index].load(std::memory_order_relaxed);
    }
}

void check_free_places(slab *s, object_marks *marks, check_findings *findings)
{
    free_walk walk = {s, marks, findings};
    mark_caches(&walk);
    quarantine_visit(s, mark_waiting, &walk);
    for (uint32_t node = 0; node < s->depots; node++) {
        depot *d = depot_of(s, node);
        for (const shard &each : d->shards)
            mark_full(&walk, &each.full, node);
        mark_loose(&walk, d, node);
    }
}

} // namespace zymm
