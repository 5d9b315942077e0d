/*
 * Looks at slabs from outside: the list of all, one slab's numbers, who holds its objects, and one
 * object; zymm_host.h says what they promise.
 *
 * Consoles and collectors ask, at any moment and with handles that may be stale by then, so nothing
 * here logs. Each look stays inside the gate: a handle that is found there stays valid to its end.
 * Only zymm_object_look runs foreign code in there.
 */
#include <algorithm>
#include <string.h>

#include "zymm_handle.h"
#include "zymm_holders.h"
#include "zymm_host.h"
#include "zymm_lock.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_tick.h"

using namespace zymm;

static_assert(uint32_t(ZYMM_RECORD_ATTR_CACHED) == uint32_t(ZYMM_SLAB_CACHED));
static_assert(uint32_t(ZYMM_RECORD_ATTR_NODUMP) == uint32_t(ZYMM_SLAB_NODUMP));
static_assert(uint32_t(ZYMM_RECORD_ATTR_NOFORK) == uint32_t(ZYMM_SLAB_NOFORK));
static_assert(uint32_t(ZYMM_RECORD_ATTR_CLEARED) == uint32_t(ZYMM_EXTRA_CLEARED));
static_assert(uint32_t(ZYMM_RECORD_ATTR_LOCKED) == uint32_t(ZYMM_EXTRA_LOCKED));
static_assert(uint32_t(ZYMM_RECORD_ATTR_ONE_BLOCK) == uint32_t(ZYMM_EXTRA_ONE_BLOCK));
static_assert(uint32_t(ZYMM_RECORD_ATTR_HUGE_PAGES) == uint32_t(ZYMM_EXTRA_HUGE));

/* The slab, or null. Inside the gate. */
static slab *find_slab(uint64_t handle)
{
    return static_cast<slab *>(handle_body(handle, HANDLE_SLAB));
}

uint64_t zymm_slab_list(uint64_t *handles, uint64_t room)
{
    return handles_list(HANDLE_SLAB, handles, room);
}

struct piece_sum {
    uint64_t pieces, bytes;
};

static piece_sum sum_pieces(depot *d)
{
    piece_sum sum = {0, 0};
    scoped_lock held(&d->lock);
    for (const piece *p = d->first; p != nullptr; p = p->next) {
        sum.pieces++;
        sum.bytes += p->bytes;
    }
    return sum;
}

static void count_usage(slab *s, zymm_slab_record *record)
{
    const slab_counts counts = slab_counts_of(s);
    record->used = slab_used(s);
    record->total = total_of(s);
    record->made = s->carved.load(std::memory_order_relaxed);
    record->high_water = s->most_seen.load(std::memory_order_relaxed);
    record->allocs = counts.allocs;
    record->frees = counts.frees;
    record->bytes = 0;
    for (uint32_t node = 0; node < s->depots; node++)
        record->bytes += sum_pieces(depot_of(s, node)).bytes;
}

int zymm_slab_record_get(uint64_t handle, int with_leaks, zymm_slab_record *record)
{
    const gate_guard alive;
    slab *s = find_slab(handle);
    if (s == nullptr)
        return -1;
    record->handle = handle;
    memcpy(record->name, s->name, sizeof record->name);
    record->obj_size = s->obj_size;
    record->whole_size = zymm_object_whole_size_get(s->obj_size, 0, s->align);
    record->min_num = s->min_num;
    record->max_num = s->unlimited ? 0 : s->max_num;
    record->attr = s->attr;
    record->module_id = s->module_id;
    record->align = s->align;
    record->unlimited = s->unlimited ? 1 : 0;
    record->is_class = s->group != nullptr ? 1 : 0;
    record->leaked = with_leaks != 0 ? slab_leaked(s) : 0;
    count_usage(s, record);
    return 0;
}

int zymm_slab_node_get(uint64_t handle, uint32_t node, zymm_node_record *record)
{
    const gate_guard alive;
    slab *s = find_slab(handle);
    if (s == nullptr || node >= s->depots)
        return -1;
    depot *d = depot_of(s, node);
    record->used = slab_used_on(s, node);
    record->cached = slab_cached(s, node);
    record->made = d->carved.load(std::memory_order_relaxed);
    record->free = record->made > record->used ? record->made - record->used : 0;
    const piece_sum sum = sum_pieces(d);
    record->pieces = sum.pieces;
    record->bytes = sum.bytes;
    return 0;
}

/* ------------------------------------------------------------------ holders */

static bool leaks_more(const holder_group &a, const holder_group &b)
{
    return a.leaked != b.leaked ? a.leaked > b.leaked : a.oldest > b.oldest;
}

/* Leaves only the groups with leaked objects, and sorts them. */
static void keep_leaked(holder_list *list)
{
    holder_group *end = list->groups + list->used;
    std::sort(list->groups, end, leaks_more);
    while (list->used > 0 && list->groups[list->used - 1].leaked == 0)
        list->used--;
}

int zymm_slab_holders_get(uint64_t handle, uint32_t which, zymm_holder *holders, uint64_t room,
                          zymm_holder_sum *sum)
{
    holder_list list;
    {
        const gate_guard alive;
        slab *s = find_slab(handle);
        if (s == nullptr || !holders_gather(s, &list))
            return -1;
    }
    if (which == ZYMM_HOLDERS_LEAKED)
        keep_leaked(&list);
    for (uint64_t at = 0; at < std::min(list.used, room); at++) {
        const holder_group *group = &list.groups[at];
        holders[at] = {text_of(group->func), group->module_id,          group->line,
                       group->count,         group->leaked, age_seconds(group->oldest)};
    }
    *sum = {list.objects, list.leaked, list.used, list.ungrouped};
    holders_release(&list);
    return 0;
}

/* ------------------------------------------------------------------ one object */

static zymm_object_record describe(const object_place &place)
{
    const uint64_t tag = place.tag()->load(std::memory_order_relaxed);
    if (!is_out(tag))
        return {0, place.in->node, 0, 0, "", 0};
    const call_site site = site_of(tag_holder(tag));
    return {1,         place.in->node,     site.module_id,
            site.line, text_of(site.func), age_seconds(tick_refresh() - tag_tick(tag))};
}

int zymm_object_look(uint64_t handle, const void *object,
                     void (*look)(void *ctx, const zymm_object_record *record), void *ctx)
{
    const gate_guard alive;
    const slab *s = find_slab(handle);
    if (s == nullptr || s->is_lost)
        return -1;
    const object_place place = place_of(s, object);
    if (place.in == nullptr)
        return -1;
    const zymm_object_record record = describe(place);
    look(ctx, &record);
    return 0;
}
