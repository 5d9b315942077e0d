/*
 * The slow paths of a thread's cache: magazines from and to the depots, new objects, other nodes.
 *
 * An allocation asks, in this order: the thread's own magazines; its node's depot (a full magazine,
 * a loose object, a new one); the same after the depot was made larger by a piece; the other nodes'
 * depots. What is in other threads' caches is none of this file's business (zymm_object.cpp).
 *
 * Magazines have one node. On a machine with several, an object that comes back to a thread of
 * another node than its own gathers in a magazine for that node, which goes home when it is full.
 *
 * Locks: none but those of carving and growth, taken with signals blocked.
 */
#include "zymm_cache.h"

#include <utility>

#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_private.h"
#include "zymm_settings.h"

namespace zymm
{

enum : uint64_t { ONE_OPEN = 1, ONE_EPOCH = 1ull << 32 };
enum : uint32_t { CARVED_AT_ONCE = 16, SCARCE_DIVISOR = 8 };

static magazine *no_magazine()
{
    return &g_no_magazine;
}

/* ------------------------------------------------------------------ open and closed */

in_hand::in_hand(slab *s) : s_(s)
{
    s_->open.fetch_add(ONE_EPOCH + ONE_OPEN, std::memory_order_seq_cst);
}

in_hand::~in_hand()
{
    s_->open.fetch_add(ONE_EPOCH - ONE_OPEN, std::memory_order_seq_cst);
}

/* Whether one more thread may cache objects of the slab, seeing this many that do. */
static bool may_open(const slab *s, uint64_t open)
{
    const uint32_t most = s->obj_size == PAGE_OBJECT_BYTES ? page_cache_threads() : 0;
    return most == 0 || uint32_t(open) < most;
}

/* Counts one more that does; false when there are enough, also when two ask at once. */
static bool count_open(slab *s)
{
    uint64_t open = s->open.load(std::memory_order_relaxed);
    do {
        if (!may_open(s, open))
            return false;
    } while (!s->open.compare_exchange_weak(open, open + ONE_EPOCH + ONE_OPEN,
                                            std::memory_order_seq_cst, std::memory_order_relaxed));
    return true;
}

static uint32_t node_of(const thread_cache *c)
{
    return c->node.load(std::memory_order_relaxed);
}

/* Made-up nodes may change with every call, so every call has to look. */
static bool is_plain(const thread_cache *c)
{
    const slab *s = c->s;
    return !nodes_are_made_up() && s->shape.tag_offset != 0 &&
           (s->attr & ZYMM_EXTRA_CLEARED) == 0 && is_asymmetric();
}

void cache_settle(thread_cache *c)
{
    if (c->limit != 0)
        set_count(c->loaded, uint32_t(c->top - c->bottom));
}

void cache_arm(thread_cache *c)
{
    magazine *m = c->loaded;
    const bool serves = c->limit != 0 && m->node == node_of(c) && is_plain(c);
    c->bottom = m->objects;
    c->top = m->objects + count_of(m);
    c->end = m->objects + c->limit;
    c->word.store(serves ? c->s->handle : uint64_t(CACHE_IDLE), std::memory_order_release);
}

static void put_if_any(magazine *m)
{
    if (m != nullptr)
        magazine_put(m);
}

bool cache_open(thread_cache *c)
{
    slab *s = c->s;
    if (c->limit != 0)
        return true;
    if (s->cache_limit == 0 || !may_open(s, s->open.load(std::memory_order_relaxed)))
        return false;
    magazine *loaded = magazine_get();
    magazine *previous = loaded != nullptr ? magazine_get() : nullptr;
    if (previous == nullptr || !count_open(s)) {
        put_if_any(loaded);
        put_if_any(previous);
        return false;
    }
    loaded->node = node_of(c);
    previous->node = node_of(c);
    c->loaded = loaded;
    c->previous = previous;
    c->limit = s->cache_limit;
    return true;
}

static void drop_magazine(magazine **place)
{
    put_if_any(*place);
    *place = no_magazine();
}

void cache_close(thread_cache *c)
{
    if (c->limit == 0)
        return;
    c->limit = 0;
    c->balance = 0;
    drop_magazine(&c->loaded);
    drop_magazine(&c->previous);
    for (uint32_t node = 0; node < c->nodes; node++)
        drop_magazine(&c->remote[node]);
    c->s->open.fetch_add(ONE_EPOCH - ONE_OPEN, std::memory_order_seq_cst);
}

/* ------------------------------------------------------------------ magazines to the depots */

static void send_home(thread_cache *c, magazine *m)
{
    c->streak = 0;
    c->asks_ahead = 0;
    stack_push(&depot_of(c->s, m->node)->shards[c->shard].full, m);
}

/* Empties the place: the magazine goes home when it is worth it and an empty one can take its
 * place, else its objects become loose. */
static void surrender(thread_cache *c, magazine **place)
{
    magazine *m = *place;
    magazine *fresh = count_of(m) > c->limit / 4 ? magazine_get() : nullptr;
    if (fresh == nullptr) {
        magazine_spill(c->s, m);
        return;
    }
    fresh->node = m->node;
    send_home(c, m);
    *place = fresh;
}

void cache_surrender(thread_cache *c)
{
    surrender(c, &c->loaded);
    surrender(c, &c->previous);
    for (uint32_t node = 0; node < c->nodes; node++)
        surrender(c, &c->remote[node]);
}

void cache_spill(thread_cache *c)
{
    magazine_spill(c->s, c->loaded);
    magazine_spill(c->s, c->previous);
    for (uint32_t node = 0; node < c->nodes; node++)
        magazine_spill(c->s, c->remote[node]);
}

uint64_t cache_objects(const thread_cache *c)
{
    uint64_t sum = count_of(c->loaded) + count_of(c->previous);
    for (uint32_t node = 0; node < c->nodes; node++)
        sum += count_of(c->remote[node]);
    return sum;
}

/* ------------------------------------------------------------------ out */

/* On a machine with several nodes the cache moves with its thread. */
static void follow_node(thread_cache *c)
{
    if (c->nodes == 0)
        return;
    const uint32_t here = node_here();
    if (here == node_of(c))
        return;
    surrender(c, &c->loaded);
    surrender(c, &c->previous);
    std::atomic<int64_t> *out = &c->out[node_of(c)];
    out->store(cache_out(c, node_of(c)), std::memory_order_relaxed);
    c->memo_carved = 0;
    c->node.store(here, std::memory_order_relaxed);
}

static magazine *take_full(depot *d, uint32_t first_shard)
{
    for (uint32_t step = 0; step < MOST_SHARDS; step++) {
        magazine_stack *stack = &d->shards[(first_shard + step) % MOST_SHARDS].full;
        magazine *m = stack->is_empty() ? nullptr : stack_pop(stack);
        if (m != nullptr)
            return m;
    }
    return nullptr;
}

static bool has_full(depot *d)
{
    for (uint32_t at = 0; at < MOST_SHARDS; at++) {
        if (!d->shards[at].full.is_empty())
            return true;
    }
    return false;
}

static void *pop(magazine *m)
{
    const uint32_t count = count_of(m);
    if (count == 0)
        return nullptr;
    set_count(m, count - 1);
    return m->objects[count - 1];
}

/* Both magazines are empty: a full one takes the place of one of them. */
static void *load_full(thread_cache *c, depot *d)
{
    if (c->limit == 0 && (!has_full(d) || !cache_open(c)))
        return nullptr;
    magazine *m = take_full(d, c->shard);
    if (m == nullptr)
        return nullptr;
    magazine_put(c->previous);
    c->previous = c->loaded;
    c->loaded = m;
    c->asks_ahead = ++c->streak > COLD_STREAK && c->holds_pages;
    return pop(m);
}

/* How many objects to carve for one: fewer as fewer are left, so that nobody takes them all. */
static uint32_t carve_wish(const slab *s, uint32_t most)
{
    const uint64_t left = s->max_num - s->carved.load(std::memory_order_relaxed);
    const uint64_t wish = 1 + left / SCARCE_DIVISOR;
    return wish < most ? uint32_t(wish) : most;
}

static void *carve_into_cache(thread_cache *c, depot *d, uint32_t node)
{
    magazine *m = c->loaded;
    signal_guard quiet;
    m->node = node;
    set_count(m, depot_carve(c->s, d, m->objects, carve_wish(c->s, uint32_t(c->limit))));
    return pop(m);
}

/* For a closed cache or none: what is carved beyond the one becomes loose. */
static void *carve_one(slab *s, depot *d)
{
    void *objects[CARVED_AT_ONCE];
    in_hand marked(s);
    signal_guard quiet;
    const uint32_t count = depot_carve(s, d, objects, carve_wish(s, CARVED_AT_ONCE));
    for (uint32_t at = 0; at + 1 < count; at++)
        loose_push(place_of_own(s, objects[at]));
    return count != 0 ? objects[count - 1] : nullptr;
}

static void *carve(thread_cache *c, uint32_t node)
{
    depot *d = depot_of(c->s, node);
    void *object = nullptr;
    if (c->limit != 0)
        object = carve_into_cache(c, d, node);
    return object != nullptr ? object : carve_one(c->s, d);
}

static void *take_from(thread_cache *c, uint32_t node)
{
    slab *s = c->s;
    depot *d = depot_of(s, node);
    void *object = load_full(c, d);
    if (object == nullptr)
        object = loose_pop(s, d);
    if (object == nullptr && !is_carved_out(s))
        object = carve(c, node);
    return object;
}

/* True when the node has room to carve: of this call's making, or another thread's since the caller
 * found none. It may be gone again. */
static bool grow(slab *s, uint32_t node)
{
    if (is_carved_out(s))
        return false;
    tick_refresh();
    signal_guard quiet;
    return slab_grow(s, node);
}

void *cache_take(thread_cache *c)
{
    slab *s = c->s;
    follow_node(c);
    const uint32_t home = node_of(c);
    void *object = pop(c->loaded);
    if (object == nullptr) {
        std::swap(c->loaded, c->previous);
        object = pop(c->loaded);
    }
    if (object != nullptr)
        return object;

    object = take_from(c, home);
    while (object == nullptr && grow(s, home))
        object = take_from(c, home);
    for (uint32_t step = 1; step < s->depots && object == nullptr; step++)
        object = take_from(c, (home + step) % s->depots);
    if (object != nullptr && c->limit == 0 && c->balance != 0)
        c->balance--;
    return object;
}

/* ------------------------------------------------------------------ out, without a cache */

static void *take_one_from(slab *s, uint32_t node)
{
    depot *d = depot_of(s, node);
    void *object = loose_pop(s, d);
    if (object == nullptr && has_full(d)) {
        in_hand marked(s);
        magazine *m = take_full(d, 0);
        if (m != nullptr) {
            magazine_spill(s, m);
            magazine_put(m);
        }
        object = loose_pop(s, d);
    }
    if (object == nullptr && !is_carved_out(s))
        object = carve_one(s, d);
    return object;
}

void *depot_take_one(slab *s)
{
    const uint32_t home = node_here();
    void *object = take_one_from(s, home);
    while (object == nullptr && grow(s, home))
        object = take_one_from(s, home);
    for (uint32_t step = 1; step < s->depots && object == nullptr; step++)
        object = take_one_from(s, (home + step) % s->depots);
    return object;
}

/* ------------------------------------------------------------------ back */

static bool has_room(const thread_cache *c, magazine *m, uint32_t node)
{
    const uint32_t count = count_of(m);
    if (m == no_magazine() || count >= c->limit)
        return false;
    if (count == 0)
        m->node = node;
    return m->node == node;
}

/* An empty magazine for the place; what was there goes home if it has objects. */
static bool replace(thread_cache *c, magazine **place, uint32_t node)
{
    magazine *m = magazine_get();
    if (m == nullptr)
        return false;
    m->node = node;
    if (count_of(*place) != 0)
        send_home(c, *place);
    else
        magazine_put(*place);
    *place = m;
    return true;
}

/* The magazine that the object belongs into; null when no memory is left for one. */
static magazine *room_for(thread_cache *c, uint32_t node)
{
    if (node != node_of(c)) {
        magazine **remote = &c->remote[node];
        return has_room(c, *remote, node) || replace(c, remote, node) ? *remote : nullptr;
    }
    if (has_room(c, c->loaded, node))
        return c->loaded;
    std::swap(c->loaded, c->previous);
    return has_room(c, c->loaded, node) || replace(c, &c->loaded, node) ? c->loaded : nullptr;
}

/* The fast path may now give objects of this piece back. */
static void remember(thread_cache *c, const piece *p)
{
    if (p->node != node_of(c))
        return;
    c->memo_base = p->base;
    c->memo_carved = p->carved.load(std::memory_order_acquire);
}

void cache_give(thread_cache *c, const object_place &place)
{
    remember(c, place.in);
    if (c->limit == 0) {
        loose_push(place);
        if (c->s->cache_limit != 0 && ++c->balance >= c->s->cache_limit)
            cache_open(c);
        return;
    }
    magazine *m = room_for(c, place.in->node);
    if (m == nullptr) {
        loose_push(place);
        return;
    }
    const uint32_t count = count_of(m);
    m->objects[count] = place.object();
    set_count(m, count + 1);
}

/* ------------------------------------------------------------------ the other magazine */

static bool holds_more(thread_cache *c)
{
    return c->top == c->bottom && count_of(c->previous) != 0 && c->previous->node == node_of(c);
}

static bool holds_less(thread_cache *c)
{
    return c->top == c->end && has_room(c, c->previous, node_of(c));
}

static bool turn(uint64_t handle, bool (*other_serves)(thread_cache *c))
{
    thread_cache *c = fast_cache(t_thread, handle);
    if (c == nullptr)
        return false;
    if (!other_serves(c)) {
        cache_leave_fast(c, handle);
        return false;
    }
    cache_settle(c);
    std::swap(c->loaded, c->previous);
    cache_leave(c);
    return true;
}

bool cache_turn_to_take(uint64_t handle)
{
    return turn(handle, holds_more);
}

bool cache_turn_to_give(uint64_t handle)
{
    return turn(handle, holds_less);
}

/* ------------------------------------------------------------------ call sites */

void cache_meet_taker(thread_cache *c, const call_site &site, uint64_t number)
{
    c->taker = {site.func, site.module_id, site.line, tag_out(number, 0)};
}

void cache_meet_giver(thread_cache *c, const call_site &site, uint64_t number)
{
    c->giver = {site.func, site.module_id, site.line, tag_free(0, number)};
}

using meet_fn = void (*)(thread_cache *c, const call_site &site, uint64_t number);

static bool learn(uint64_t handle, const call_site &site, met_site thread_cache::*met, meet_fn meet)
{
    const site_memory::entry *known =
        t_thread->sites.recall(site.func, site.module_id, site.line);
    thread_cache *c = known != nullptr ? fast_cache(t_thread, handle) : nullptr;
    if (c == nullptr)
        return false;
    const bool is_new = !is_met(c->*met, site.func, site.module_id, site.line);
    if (is_new)
        meet(c, site, known->number);
    cache_leave_fast(c, handle);
    return is_new;
}

bool cache_learn_taker(uint64_t handle, const call_site &site)
{
    return learn(handle, site, &thread_cache::taker, cache_meet_taker);
}

bool cache_learn_giver(uint64_t handle, const call_site &site)
{
    return learn(handle, site, &thread_cache::giver, cache_meet_giver);
}

/* ------------------------------------------------------------------ counts */

void cache_count(thread_cache *c, uint32_t node, int64_t change)
{
    count_one(change > 0 ? &c->allocs : &c->frees);
    if (c->nodes != 0)
        c->out[node].store(c->out[node].load(std::memory_order_relaxed) + change,
                           std::memory_order_relaxed);
}

int64_t cache_out(const thread_cache *c, uint32_t node)
{
    const int64_t counted = c->out[node].load(std::memory_order_relaxed);
    if (node != node_of(c))
        return counted;
    int64_t fast = int64_t(c->allocs.load(std::memory_order_relaxed) -
                           c->frees.load(std::memory_order_relaxed));
    for (uint32_t at = 0; at < c->nodes; at++)
        fast -= c->out[at].load(std::memory_order_relaxed);
    return counted + fast;
}

} // namespace zymm
