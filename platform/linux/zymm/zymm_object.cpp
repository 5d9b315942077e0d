/*
 * The way of an object out and back, beyond the fast path of zymm_cache.h: whose cache serves, what
 * the object's tag says, and what happens when nothing is left.
 *
 * Null is exact. An allocation that found nothing looks whether anything can be hidden at all: no
 * cache is open, no object in a hand, and every depot is empty, all at one moment. That is so when
 * the words that every change counts up are the same on a second look. Otherwise it stops the
 * slab's other threads, empties their caches, and takes what there is while nobody else moves:
 *
 *     found less than a magazine    it becomes loose and all caches are closed: the slab is scarce,
 *                                   and threads that turn over the last objects disturb nobody
 *     found more                    it goes into the depot as it is, and the caches stay open
 *
 * In the checking build no thread has a cache, and what comes back waits in the slab's quarantine;
 * it counts as hidden and is made loose in the same place.
 */
#include <string.h>

#include "zymm_cache.h"
#include "zymm_holders.h"
#include "zymm_node.h"
#include "zymm_private.h"
#include "zymm_probe.h"
#include "zymm_seam.h"

namespace zymm
{

/* ------------------------------------------------------------------ dry */

/* Adds up what changes with every object that comes or goes; false when there is one to be had. */
static bool sum_of_empty_depots(slab *s, uint64_t *sum)
{
    *sum = 0;
    for (uint32_t node = 0; node < s->depots; node++) {
        depot *d = depot_of(s, node);
        const uint64_t loose = d->loose.load(std::memory_order_acquire);
        uint64_t tops = uint32_t(loose);
        *sum += loose >> 32;
        for (uint32_t at = 0; at < MOST_SHARDS; at++) {
            const uint64_t full = d->shards[at].full.head.load(std::memory_order_acquire);
            tops += uint32_t(full);
            *sum += full >> 32;
        }
        if (tops != 0)
            return false;
    }
    return true;
}

/* The threads' caches are empty, and so was everything else at one moment of this call. */
static bool is_surely_dry(slab *s)
{
    const uint64_t open = s->open.load(std::memory_order_acquire);
    uint64_t first = 0;
    uint64_t second = 0;
    if (uint32_t(open) != 0 || !sum_of_empty_depots(s, &first))
        return false;
    if (s->waiting.count.load(std::memory_order_acquire) != 0)
        return false;
    return sum_of_empty_depots(s, &second) && first == second &&
           s->open.load(std::memory_order_acquire) == open;
}

static uint64_t cached_by_all(slab *s)
{
    uint64_t sum = 0;
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        sum += cache_objects(c);
    return sum;
}

/* All owners are stopped. */
static void empty_all_caches(slab *s)
{
    const bool is_scarce = cached_by_all(s) < s->cache_limit;
    for (thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab) {
        if (is_scarce)
            cache_spill(c);
        else
            cache_surrender(c);
        if (is_scarce)
            cache_close(c);
    }
}

/* `own` is null for a thread without a cache. Under the registry's lock, which is held until the
 * object is stamped and counted: whoever stops the threads finds each object out or in its
 * place. */
static void *take_with_all_stopped(slab *s, thread_cache *own)
{
    caches_stop(s, own);
    empty_all_caches(s);
    quarantine_empty(s);
    void *object = own != nullptr ? cache_take(own) : depot_take_one(s);
    caches_resume(s);
    ZYMM_PROBE_CACHES_DRAINED(s->name, object);
    return object;
}

/* ------------------------------------------------------------------ out */

static void report_taken_twice(const slab *s, const void *object, uint64_t tag)
{
    const call_site holder = site_of(tag_holder(tag));
    ZYMM_ERROR("zymm_slab_malloc",
               "slab %s: object %p was free and held at once, it was freed twice in the same "
               "moment; held by %u %s line %u.",
               s->name, object, holder.module_id, text_of(holder.func), holder.line);
}

/* False when the object is somebody's: two threads freed it at once. It is his alone from now
 * on. */
static bool stamp(slab *s, void *object, uint32_t site)
{
    object_tag *tag = place_of_own(s, object).tag();
    const uint64_t before = tag->load(std::memory_order_relaxed);
    if (is_out(before)) {
        report_taken_twice(s, object, before);
        return false;
    }
    tag->store(tag_out(site, tick_now()), std::memory_order_relaxed);
    guard_open(object, s->obj_size);
    guard_announce(object, s->obj_size);
    return true;
}

static void count_alloc(slab *s, thread_cache *c, const void *object)
{
    const uint32_t node = s->depots == 1 ? 0 : place_of_own(s, object).in->node;
    if (c == nullptr) {
        s->gone_allocs.fetch_add(1, std::memory_order_relaxed);
        s->gone_out[node].fetch_add(1, std::memory_order_relaxed);
        return;
    }
    cache_count(c, node, 1);
}

/* A signal handler in a thread that is busy: the depots alone serve. What only a stop of all
 * threads would find stays where it is; the thread would wait for itself, or for one that waits for
 * it. */
static void *take_in_handler(slab *s, uint32_t site)
{
    const in_hand marked(s);
    void *object = nullptr;
    do {
        object = depot_take_one(s);
        if (object == nullptr && s->waiting.count.load(std::memory_order_acquire) != 0) {
            quarantine_empty(s);
            object = depot_take_one(s);
        }
    } while (object != nullptr && !stamp(s, object, site));
    if (object != nullptr)
        count_alloc(s, nullptr, object);
    return object;
}

static void *take_without_cache(slab *s, uint32_t site)
{
    registry_guard held;
    void *object = nullptr;
    do {
        object = depot_take_one(s);
        if (object == nullptr)
            object = take_with_all_stopped(s, nullptr);
    } while (object != nullptr && !stamp(s, object, site));
    if (object != nullptr)
        count_alloc(s, nullptr, object);
    return object;
}

/* The cache is entered. */
static void *take_with_cache(slab *s, thread_cache *c, const call_site &who, uint32_t site)
{
    cache_meet_taker(c, who, site);
    void *object = nullptr;
    do {
        object = cache_take(c);
    } while (object != nullptr && !stamp(s, object, site));
    if (object != nullptr)
        count_alloc(s, c, object);
    cache_leave(c);
    return object;
}

static void *take_last(slab *s, thread_cache *c, uint32_t site)
{
    if (is_surely_dry(s))
        return nullptr;
    if (thread_is_busy())
        return take_in_handler(s, site);
    registry_guard held;
    void *object = nullptr;
    do {
        object = take_with_all_stopped(s, c);
    } while (object != nullptr && !stamp(s, object, site));
    if (object != nullptr)
        count_alloc(s, nullptr, object);
    return object;
}

void *slab_alloc(slab *s, uint32_t module_id, const char *func, uint32_t line)
{
    if (s->is_lost || (is_carved_out(s) && is_surely_dry(s)))
        return nullptr;
    thread_cache *c = cache_of(s);
    const call_site who = {func, module_id, line};
    const uint32_t site = site_for(who);
    void *object = nullptr;
    if (c != nullptr && cache_enter(c)) {
        object = take_with_cache(s, c, who, site);
        if (object == nullptr)
            object = take_last(s, c, site);
    } else if (thread_is_busy()) {
        object = take_in_handler(s, site);
    } else {
        object = take_without_cache(s, site);
    }
    if (object != nullptr && (s->attr & ZYMM_EXTRA_CLEARED) != 0)
        memset(object, 0, s->obj_size);
    return object;
}

/* ------------------------------------------------------------------ back */

enum free_verdict { FREE_DONE, FREE_DONE_OVERRUN, FREE_TWICE, FREE_NO_OBJECT };

/* Turns the tag from out to free; *before is what it was. */
static free_verdict mark_free(const slab *s, const object_place &place, uint32_t site,
                              uint64_t *before)
{
    object_tag *tag = place.tag();
    *before = tag->load(std::memory_order_relaxed);
    do {
        if (is_free(*before))
            return tag_holder(*before) == SITE_NOBODY ? FREE_NO_OBJECT : FREE_TWICE;
    } while (!tag->compare_exchange_weak(*before, tag_free(*before, site),
                                         std::memory_order_relaxed));
    const bool is_whole = is_out(*before) && guard_is_whole(place.object(), s->obj_size);
    return is_whole ? FREE_DONE : FREE_DONE_OVERRUN;
}

static void count_free(slab *s, thread_cache *c, uint32_t node)
{
    if (c == nullptr) {
        s->gone_frees.fetch_add(1, std::memory_order_relaxed);
        s->gone_out[node].fetch_sub(1, std::memory_order_relaxed);
        return;
    }
    cache_count(c, node, -1);
}

/* Into the cache, which is entered, or to the depot when there is none. */
static free_verdict give_to(slab *s, thread_cache *c, const object_place &place, uint32_t site,
                            uint64_t *before)
{
    const free_verdict verdict = mark_free(s, place, site, before);
    if (verdict != FREE_DONE && verdict != FREE_DONE_OVERRUN)
        return verdict;

    guard_close(place.object(), s->shape.stride);
    guard_withdraw(place.object());
    if constexpr (GUARD_CHECKS_EACH_OBJECT)
        quarantine_put(s, place);
    else if (c != nullptr)
        cache_give(c, place);
    else
        loose_push(place);
    count_free(s, c, place.in->node);
    return verdict;
}

static free_verdict give_with_cache(slab *s, thread_cache *c, const object_place &place,
                                    const call_site &who, uint32_t site, uint64_t *before)
{
    cache_meet_giver(c, who, site);
    const free_verdict verdict = give_to(s, c, place, site, before);
    cache_leave(c);
    return verdict;
}

static free_verdict give_back(slab *s, const object_place &place, const call_site &who,
                              uint64_t *before)
{
    const uint32_t site = site_for(who);
    thread_cache *c = cache_of(s);
    if (c != nullptr && cache_enter(c))
        return give_with_cache(s, c, place, who, site, before);
    if (thread_is_busy()) {
        const in_hand marked(s);
        return give_to(s, nullptr, place, site, before);
    }
    registry_guard held;
    return give_to(s, nullptr, place, site, before);
}

static void report_free(free_verdict verdict, const slab *s, const void *object,
                        const call_site &who, uint64_t before, const char *operation)
{
    const call_site holder = site_of(tag_holder(before));
    const call_site freer = site_of(tag_freer(before));
    const char *func = text_of(who.func);
    if (verdict == FREE_TWICE)
        ZYMM_ERROR(operation,
                   "slab %s: object %p freed twice, by %u %s; already freed by %u %s, allocated "
                   "by %u %s line %u.",
                   s->name, object, who.module_id, func, freer.module_id, text_of(freer.func),
                   holder.module_id, text_of(holder.func), holder.line);
    if (verdict == FREE_NO_OBJECT)
        ZYMM_ERROR(operation, "slab %s: %p is no object of it, freed by %u %s.", s->name, object,
                   who.module_id, func);
    if (verdict == FREE_DONE_OVERRUN)
        ZYMM_ERROR(operation,
                   "slab %s: object %p was written past its end; held by %u %s line %u, freed by "
                   "%u %s.",
                   s->name, object, holder.module_id, text_of(holder.func), holder.line,
                   who.module_id, func);
}

int slab_free(slab *s, void *object, uint32_t module_id, const char *func, const char *operation)
{
    const call_site who = {func, module_id, 0};
    uint64_t before = 0;
    free_verdict verdict = FREE_NO_OBJECT;
    const object_place place = s->is_lost ? object_place{nullptr, 0} : place_of(s, object);
    if (place.in != nullptr)
        verdict = give_back(s, place, who, &before);
    if (verdict == FREE_DONE)
        return 0;

    report_free(verdict, s, object, who, before, operation);
    return verdict == FREE_DONE_OVERRUN ? 0 : -1;
}

} // namespace zymm
