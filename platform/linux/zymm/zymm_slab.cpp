/*
 * Slabs: creation, destruction, and the way of an object out and back.
 *
 * An allocation asks, in this order: the depot of the calling thread's node; that depot made larger
 * by a piece; all depots at once. The last step holds all their locks, so that "nothing is free"
 * is true at one moment and not only of each depot in turn: null means that max_num objects are
 * out, or that there is no memory for more.
 *
 * A free goes by the address map: whose piece is it, does an object begin there, is it out. Each
 * answer but three times yes is a refusal that changes nothing; the line is written after the
 * lock is given up.
 */
#include <string.h>

#include "bounded.h"
#include "zyax.h"
#include "zymm_address.h"
#include "zymm_handle.h"
#include "zymm_holders.h"
#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_pool.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_store.h"
#include "zymm_system.h"

namespace zymm
{

static control_store s_slabs = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};

/* ------------------------------------------------------------------ out */

static object_record *take_from(slab *s, uint32_t node, const holder *who)
{
    depot *d = depot_of(s, node);
    scoped_lock held(&d->lock);
    return depot_take(s, d, who);
}

static object_record *take_from_any(slab *s, const holder *who)
{
    object_record *record = nullptr;
    for (uint32_t node = 0; node < s->depots; node++)
        pthread_mutex_lock(&depot_of(s, node)->lock);
    for (uint32_t node = 0; node < s->depots && record == nullptr; node++)
        record = depot_take(s, depot_of(s, node), who);
    for (uint32_t node = s->depots; node > 0; node--)
        pthread_mutex_unlock(&depot_of(s, node - 1)->lock);
    return record;
}

void *slab_alloc(slab *s, uint32_t module_id, const char *func, uint32_t line)
{
    const holder who = {func, module_id, line, zyax_time_getnanosec()};
    const uint32_t home = node_here();
    object_record *record = take_from(s, home, &who);
    if (record == nullptr)
        record = slab_grow(s, home, &who);
    if (record == nullptr)
        record = take_from_any(s, &who);
    if (record == nullptr)
        return nullptr;

    void *object = object_of(record);
    if ((s->attr & ZYMM_EXTRA_CLEARED) != 0)
        memset(object, 0, s->obj_size);
    return object;
}

/* ------------------------------------------------------------------ back */

enum free_verdict { FREE_DONE, FREE_DONE_OVERRUN, FREE_TWICE, FREE_NO_OBJECT };

static holder holder_of(const object_record *record)
{
    return {record->func, record->module_id, record->line, 0};
}

/* Gives the object back if it is out; *before is who held it, or gave it back before. */
static free_verdict give_back(slab *s, piece *p, const void *object, const holder *who,
                              holder *before)
{
    depot *d = depot_of(s, p->node);
    scoped_lock held(&d->lock);
    object_record *record = record_at(p, object);
    if (record == nullptr)
        return FREE_NO_OBJECT;

    *before = holder_of(record);
    if (record->state != OBJECT_OUT)
        return FREE_TWICE;
    const bool whole = guard_is_whole(object, s->obj_size);
    depot_give(d, record, who);
    return whole ? FREE_DONE : FREE_DONE_OVERRUN;
}

static void report_free(free_verdict verdict, const slab *s, const void *object, const holder *who,
                        const holder *before, const char *operation)
{
    const char *func = text_of(who->func);
    const char *other = text_of(before->func);
    if (verdict == FREE_TWICE)
        ZYMM_ERROR(operation,
                   "slab %s: object %p freed twice, by %u %s; already freed by %u %s, allocated "
                   "at line %u.",
                   s->name, object, who->module_id, func, before->module_id, other, before->line);
    if (verdict == FREE_NO_OBJECT)
        ZYMM_ERROR(operation, "slab %s: %p is no object of it, freed by %u %s.", s->name, object,
                   who->module_id, func);
    if (verdict == FREE_DONE_OVERRUN)
        ZYMM_ERROR(operation,
                   "slab %s: object %p was written past its end; held by %u %s line %u, freed by "
                   "%u %s.",
                   s->name, object, before->module_id, other, before->line, who->module_id, func);
}

int slab_free(slab *s, void *object, uint32_t module_id, const char *func, const char *operation)
{
    const holder who = {func, module_id, 0, 0};
    holder before = {nullptr, 0, 0, 0};
    free_verdict verdict = FREE_NO_OBJECT;
    piece *p = address_find(object);
    if (p != nullptr && p->owner.load(std::memory_order_acquire) == s)
        verdict = give_back(s, p, object, &who, &before);
    if (verdict == FREE_DONE)
        return 0;

    report_free(verdict, s, object, &who, &before, operation);
    return verdict == FREE_DONE_OVERRUN ? 0 : -1;
}

/* ------------------------------------------------------------------ whole slabs */

/* Null when the wishes can be served, else what is wrong with them. */
static const char *check_spec(const slab_spec *spec)
{
    const uint64_t stride = stride_of(spec->obj_size, spec->align);
    const bool one_block = (spec->attr & ZYMM_EXTRA_ONE_BLOCK) != 0;
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

static void reset_depots(slab *s)
{
    for (uint32_t node = 0; node < s->depots; node++) {
        depot *d = depot_of(s, node);
        d->free_top = nullptr;
        d->free_count = 0;
        d->carved = 0;
        d->first = nullptr;
        d->last = nullptr;
        d->carving = nullptr;
    }
}

static void fill_slab(slab *s, const slab_spec *spec)
{
    memset(s->name, 0, sizeof s->name);
    strncpy_s(s->name, sizeof s->name, spec->name, sizeof s->name - 1);
    s->attr = spec->attr;
    s->obj_size = spec->obj_size;
    s->stride = stride_of(spec->obj_size, spec->align);
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
    s->carved.store(0, std::memory_order_relaxed);
    s->capacity.store(0, std::memory_order_relaxed);
    reset_depots(s);
}

static pthread_rwlock_t s_lifetime = PTHREAD_RWLOCK_INITIALIZER;

query_guard::query_guard()
{
    pthread_rwlock_rdlock(&s_lifetime);
}

query_guard::~query_guard()
{
    pthread_rwlock_unlock(&s_lifetime);
}

/* Queries that found the slab are through when this returns, and no further one finds it. */
static void make_unknown(slab *s)
{
    pthread_rwlock_wrlock(&s_lifetime);
    handle_drop(s->handle, HANDLE_SLAB);
    pthread_rwlock_unlock(&s_lifetime);
    s->handle = 0;
}

/* Gives everything back that a slab has, also one that was never finished. */
static void dissolve(slab *s)
{
    if (s->handle != 0)
        make_unknown(s);
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

slab *slab_create(const slab_spec *spec, const char *operation)
{
    const char *failure = check_spec(spec);
    slab *s = nullptr;
    if (failure == nullptr) {
        const uint64_t bytes =
            round_up(sizeof(slab), alignof(depot)) + node_count() * sizeof(depot);
        s = static_cast<slab *>(store_get(&s_slabs, bytes));
        failure = s == nullptr ? "no memory for its record" : nullptr;
    }
    if (failure == nullptr) {
        s->handle = 0;
        fill_slab(s, spec);
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

uint64_t slab_used(slab *s)
{
    uint64_t used = 0;
    for (uint32_t node = 0; node < s->depots; node++) {
        depot *d = depot_of(s, node);
        scoped_lock held(&d->lock);
        used += d->carved - d->free_count;
    }
    return used;
}

static void visit_piece(depot *d, piece *p, visit_fn visit, void *context)
{
    enum : uint32_t { OBJECTS_A_LOCK = 1024 };
    for (uint32_t from = 0;; from += OBJECTS_A_LOCK) {
        scoped_lock held(&d->lock);
        for (uint32_t index = from; index < p->carved && index - from < OBJECTS_A_LOCK; index++) {
            if (p->records[index].state == OBJECT_OUT)
                visit(context, &p->records[index]);
        }
        if (p->carved <= from + OBJECTS_A_LOCK)
            return;
    }
}

static piece *piece_after(depot *d, const piece *p)
{
    scoped_lock held(&d->lock);
    return p == nullptr ? d->first : p->next;
}

void slab_visit_out(slab *s, visit_fn visit, void *context)
{
    for (uint32_t node = 0; node < s->depots; node++) {
        depot *d = depot_of(s, node);
        for (piece *p = piece_after(d, nullptr); p != nullptr; p = piece_after(d, p))
            visit_piece(d, p, visit, context);
    }
}

} // namespace zymm
