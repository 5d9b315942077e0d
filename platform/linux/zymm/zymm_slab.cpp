/*
 * Slabs as wholes: creation, destruction, and the walk over the objects that are out.
 *
 * A slab becomes known by its handle only when everything else is done, and is taken apart in the
 * opposite order: first nobody finds it any more, then its threads' caches go, then the memory.
 */
#include <string.h>

#include "bounded.h"
#include "zyax.h"
#include "zymm_cache.h"
#include "zymm_handle.h"
#include "zymm_holders.h"
#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_pool.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_settings.h"
#include "zymm_slab.h"
#include "zymm_store.h"
#include "zymm_system.h"

namespace zymm
{

static control_store s_slabs = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};

/* ------------------------------------------------------------------ whole slabs */

/* Null when the wishes can be served, else what is wrong with them. */
static const char *check_spec(const slab_spec *spec)
{
    const bool one_block = (spec->attr & ZYMM_EXTRA_ONE_BLOCK) != 0;
    const uint64_t stride = stride_of(spec->obj_size, spec->align, one_block);
    if (!is_power_of_two(spec->align) || spec->align > HUGE_BYTES)
        return "the alignment is no power of two up to 2 MiB";
    if (stride == 0)
        return "the object size is 0 or beyond the address space";
    if (spec->min_num > spec->max_num)
        return "min_num is larger than max_num";
    if (one_block && (spec->unlimited || spec->max_num == 0))
        return "one block needs a max_num";
    if (one_block && spec->max_num > UINT64_MAX / 4 / stride)
        return "one block exceeds the address space";
    return nullptr;
}

/* With the host's switch on, slabs that can fill a huge page take them; but never one block, parts
 * of which its holder may protect. */
static uint64_t attributes_of(const slab_spec *spec)
{
    const bool one_block = (spec->attr & ZYMM_EXTRA_ONE_BLOCK) != 0;
    const uint64_t stride = stride_of(spec->obj_size, spec->align, one_block);
    const bool fills_one = spec->max_num >= (HUGE_BYTES + stride - 1) / stride;
    return huge_pages_are_on() && fills_one && !one_block ? spec->attr | ZYMM_EXTRA_HUGE
                                                          : spec->attr;
}

static void reset_depots(slab *s)
{
    for (uint32_t node = 0; node < s->depots; node++) {
        depot *d = depot_of(s, node);
        d->first = nullptr;
        d->last = nullptr;
        d->carving = nullptr;
        d->carved.store(0, std::memory_order_relaxed);
        /* The tags of the heads go on counting: the record may have been another slab's. */
        d->loose.fetch_and(~uint64_t(UINT32_MAX), std::memory_order_relaxed);
    }
}

static void reset_counts(slab *s)
{
    s->carved.store(0, std::memory_order_relaxed);
    s->capacity.store(0, std::memory_order_relaxed);
    s->pieces.store(0, std::memory_order_relaxed);
    s->levels[0].store(s->first_pieces, std::memory_order_relaxed);
    s->open.fetch_and(~uint64_t(UINT32_MAX), std::memory_order_relaxed);
    s->gone_allocs.store(0, std::memory_order_relaxed);
    s->gone_frees.store(0, std::memory_order_relaxed);
    s->most_seen.store(0, std::memory_order_relaxed);
    for (std::atomic<int64_t> &out : s->gone_out)
        out.store(0, std::memory_order_relaxed);
    s->waiting.count.store(0, std::memory_order_relaxed);
    s->waiting.oldest = 0;
}

static void fill_slab(slab *s, const slab_spec *spec)
{
    memset(s->name, 0, sizeof s->name);
    strncpy_s(s->name, sizeof s->name, spec->name, sizeof s->name - 1);
    s->attr = attributes_of(spec);
    s->obj_size = spec->obj_size;
    s->shape = shape_of(spec->obj_size, spec->align, (spec->attr & ZYMM_EXTRA_ONE_BLOCK) != 0);
    s->min_num = spec->min_num;
    s->max_num = spec->max_num;
    s->group = spec->group;
    s->enclosing = nullptr;
    s->module_id = spec->module_id;
    s->align = spec->align;
    s->depots = node_count();
    s->cache_num = spec->cache_num;
    s->cache_size = spec->cache_size;
    s->unlimited = spec->unlimited;
    s->cache_limit = cache_limit_for(s);
    s->is_lost = false;
    s->caches = nullptr;
    reset_counts(s);
    reset_depots(s);
}

static pthread_rwlock_t s_gate = PTHREAD_RWLOCK_INITIALIZER;
static pthread_mutex_t  s_list_lock = PTHREAD_MUTEX_INITIALIZER;
static slab            *s_all_slabs;

gate_guard::gate_guard()
{
    pthread_rwlock_rdlock(&s_gate);
}

gate_guard::~gate_guard()
{
    pthread_rwlock_unlock(&s_gate);
}

void gate_close()
{
    pthread_rwlock_wrlock(&s_gate);
}

void gate_open()
{
    pthread_rwlock_unlock(&s_gate);
}

/* The lock knows its writer by the thread's number, which is another one in the child. */
void gate_reset()
{
    s_gate = PTHREAD_RWLOCK_INITIALIZER;
}

void slabs_lose_unforked()
{
    for (slab *s = s_all_slabs; s != nullptr; s = s->next_slab)
        s->is_lost = (s->attr & ZYMM_SLAB_NOFORK) != 0;
}

static void list_slab(slab *s)
{
    scoped_lock held(&s_list_lock);
    s->prev_slab = nullptr;
    s->next_slab = s_all_slabs;
    if (s_all_slabs != nullptr)
        s_all_slabs->prev_slab = s;
    s_all_slabs = s;
}

static void unlist_slab(slab *s)
{
    scoped_lock held(&s_list_lock);
    if (s->prev_slab != nullptr)
        s->prev_slab->next_slab = s->next_slab;
    else
        s_all_slabs = s->next_slab;
    if (s->next_slab != nullptr)
        s->next_slab->prev_slab = s->prev_slab;
}

/* Queries that found the slab are through when this returns, and no further one finds it. */
static void make_unknown(slab *s)
{
    gate_close();
    handle_drop(s->handle, HANDLE_SLAB);
    gate_open();
}

/* Gives everything back that a slab has, also one that was never finished. */
static void dissolve(slab *s)
{
    if (s->handle != 0)
        make_unknown(s);
    const gate_guard no_fork;
    caches_dissolve(s);
    if (!s->is_lost)
        quarantine_empty(s); /* which looks at each object for the last time */
    s->handle = 0;
    unlist_slab(s);
    if (s->enclosing != nullptr)
        pool_unlist(s->enclosing, s);
    slab_release(s);
    if (s->enclosing != nullptr)
        pool_leave(s->enclosing);
    store_put(&s_slabs, s);
}

/* Null, or the step that failed. */
static const char *complete(slab *s, uint64_t pool_id)
{
    if (pool_id != 0) {
        s->enclosing = pool_join(pool_id, s);
        if (s->enclosing == nullptr)
            return "the enclosing pool is stale or was never made";
    }
    const char *failure = slab_back(s);
    if (failure != nullptr)
        return failure;
    s->handle = handle_make(HANDLE_SLAB, s);
    return s->handle != 0 ? nullptr : "no handle is left";
}

static slab *get_record()
{
    const uint64_t bytes = round_up(sizeof(slab), alignof(depot)) + node_count() * sizeof(depot);
    slab *s = static_cast<slab *>(store_get(&s_slabs, bytes));
    if (s != nullptr)
        s->handle = 0;
    return s;
}

slab *slab_create(const slab_spec *spec, const char *operation)
{
    caches_prepare();
    const char *failure = check_spec(spec);
    slab *s = nullptr;
    if (failure == nullptr) {
        const gate_guard no_fork;
        s = get_record();
        failure = s == nullptr ? "no memory for its record" : nullptr;
    }
    if (failure == nullptr) {
        const gate_guard no_fork;
        fill_slab(s, spec);
        list_slab(s);
        failure = complete(s, spec->pool_id);
    }
    if (failure == nullptr)
        return s;

    ZYMM_ERROR(operation, "slab %s of module %u: %s (size %lu, align %u, min %lu, max %lu).",
               text_of(spec->name), spec->module_id, failure, spec->obj_size, spec->align,
               spec->min_num, spec->max_num);
    if (s != nullptr)
        dissolve(s);
    return nullptr;
}

void slab_destroy(slab *s, const char *operation, const char *caller)
{
    if (slab_used(s) != 0)
        holders_report(s, operation, caller);
    dissolve(s);
}

static void visit_piece(const piece *p, visit_fn visit, void *context)
{
    const uint32_t carved = p->carved.load(std::memory_order_acquire);
    for (object_place at = {const_cast<piece *>(p), 0}; at.index < carved; at.index++) {
        const uint64_t tag = at.tag()->load(std::memory_order_relaxed);
        if (is_out(tag))
            visit(context, tag);
    }
}

static piece *piece_after(depot *d, const piece *p)
{
    scoped_lock held(&d->lock);
    return p == nullptr ? d->first : p->next;
}

void slab_visit_out(slab *s, visit_fn visit, void *context)
{
    tick_refresh();
    for (uint32_t node = 0; node < s->depots && !s->is_lost; node++) {
        depot *d = depot_of(s, node);
        for (piece *p = piece_after(d, nullptr); p != nullptr; p = piece_after(d, p))
            visit_piece(p, visit, context);
    }
}

} // namespace zymm
