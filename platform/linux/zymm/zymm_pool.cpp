/*
 * Enclosing pools.
 *
 *     pool ── extent (size) ── extent (n x extension) ── ...
 *
 * The first extent has the pool's size, mapped when the pool is made and backed page by page as it
 * is used (a slab's min_num is backed at its creation). Once no run is long enough, the pool grows
 * by as many extensions as the request needs, in one extent. Sizes are rounded up to whole units.
 * Objects' links lie outside of the pool.
 *
 * A member that took a large piece has not carved all of it. When the pool is dry and cannot grow,
 * those uncarved ends are cut off and used for whoever asks, so no member starves beside memory
 * that nobody has ever used. Free objects stay with their slab; pieces come back when it goes.
 *
 * One lock a pool, over its extents and its list of members; the members' depots are locked below
 * it. A slab joins before it has pieces, is taken off the list before it gives them back, and
 * leaves after the last one: a listed member is always alive, and a pool outlives all its pieces.
 */
#include "zymm_pool.h"

#include <string.h>
#include <sys/mman.h>

#include "bounded.h"
#include "zymm_address.h"
#include "zymm_extent.h"
#include "zymm_handle.h"
#include "zymm_lock.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_store.h"
#include "zymm_system.h"

namespace zymm
{

struct pool {
    void           *store_link;
    pthread_mutex_t lock;
    char            name[32];
    uint64_t        extension;
    extent         *extents;
    slab           *members;
    uint64_t        member_count;
};

static control_store s_pools = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};

static bool grow_pool(pool *p, uint64_t least)
{
    if (p->extension == 0 || least > UINT64_MAX / 4)
        return false;
    extent *e = extent_make(round_up(least, p->extension));
    if (e == nullptr)
        return false;
    e->next = p->extents;
    p->extents = e;
    return true;
}

static unit_run longest_run(const pool *p, uint64_t want, uint64_t align)
{
    const uint64_t units = round_up(want, UNIT_BYTES) / UNIT_BYTES;
    return extents_search(p->extents, units, align > UNIT_BYTES ? align / UNIT_BYTES : 1);
}

/* Makes a run as it came from the system; what its last user asked of it must not linger. */
static void clean(char *base, uint64_t bytes)
{
    guard_unpoison(base, bytes);
    mprotect(base, bytes, PROT_READ | PROT_WRITE);
    munlock(base, bytes);
    madvise(base, bytes, MADV_DONTNEED);
    madvise(base, bytes, MADV_DODUMP);
    madvise(base, bytes, MADV_DOFORK);
}

static void give_locked(pool *p, char *base, uint64_t bytes)
{
    clean(base, bytes);
    extents_free(p->extents, base, bytes);
}

/* Cuts the uncarved end off a piece, whose depot is locked; the first object always stays. */
static void cut_piece(pool *p, slab *owner, piece *from)
{
    const uint64_t carved = from->carved.load(std::memory_order_relaxed);
    uint64_t keep = carved > from->keep ? carved : from->keep;
    if (keep == 0)
        keep = 1;
    const uint64_t bytes = round_up(keep * owner->shape.stride, UNIT_BYTES);
    if (bytes >= from->bytes)
        return;

    const uint64_t room = bytes / owner->shape.stride;
    const uint32_t capacity = room < from->capacity ? uint32_t(room) : from->capacity;
    address_remove(from->base + bytes, from->bytes - bytes);
    give_locked(p, from->base + bytes, from->bytes - bytes);
    owner->capacity.fetch_sub(from->capacity - capacity, std::memory_order_relaxed);
    from->capacity = capacity;
    from->bytes = bytes;
}

static void cut_member(pool *p, slab *member)
{
    for (uint32_t node = 0; node < member->depots; node++) {
        depot *d = depot_of(member, node);
        scoped_lock held(&d->lock);
        for (piece *each = d->first; each != nullptr; each = each->next)
            cut_piece(p, member, each);
    }
}

static void cut_others(pool *p, const slab *asker)
{
    for (slab *member = p->members; member != nullptr; member = member->pool_next) {
        if (member != asker)
            cut_member(p, member);
    }
}

char *pool_take(pool *p, slab *asker, uint64_t want, uint64_t least, uint64_t align, uint64_t *got)
{
    const uint64_t least_units = round_up(least, UNIT_BYTES) / UNIT_BYTES;
    scoped_lock held(&p->lock);
    unit_run run = longest_run(p, want, align);
    if (run.units < least_units) {
        if (!grow_pool(p, least))
            cut_others(p, asker);
        run = longest_run(p, want, align);
    }
    if (run.in == nullptr || run.units < least_units)
        return nullptr;

    *got = run.units * UNIT_BYTES;
    return extent_use(&run);
}

void pool_give(pool *p, char *base, uint64_t bytes)
{
    scoped_lock held(&p->lock);
    give_locked(p, base, bytes);
}

pool *pool_join(uint64_t handle, slab *member)
{
    pool *p = static_cast<pool *>(handle_body(handle, HANDLE_POOL));
    if (p == nullptr)
        return nullptr;
    scoped_lock held(&p->lock);
    member->pool_prev = nullptr;
    member->pool_next = p->members;
    if (p->members != nullptr)
        p->members->pool_prev = member;
    p->members = member;
    p->member_count++;
    return p;
}

void pool_unlist(pool *p, slab *member)
{
    scoped_lock held(&p->lock);
    if (member->pool_prev != nullptr)
        member->pool_prev->pool_next = member->pool_next;
    else
        p->members = member->pool_next;
    if (member->pool_next != nullptr)
        member->pool_next->pool_prev = member->pool_prev;
}

void pool_leave(pool *p)
{
    scoped_lock held(&p->lock);
    p->member_count--;
}

/* A pool with its first extent but no handle yet; null when there is no memory. */
static pool *pool_make(const char *name, uint64_t size, uint64_t extension)
{
    pool *p = static_cast<pool *>(store_get(&s_pools, sizeof(pool)));
    if (p == nullptr)
        return nullptr;
    strncpy_s(p->name, sizeof p->name, name != nullptr ? name : "", sizeof p->name - 1);
    p->extension = round_up(extension, UNIT_BYTES);
    p->extents = nullptr;
    p->members = nullptr;
    p->member_count = 0;
    if (size == 0)
        return p;

    p->extents = extent_make(round_up(size, UNIT_BYTES));
    if (p->extents != nullptr)
        return p;
    store_put(&s_pools, p);
    return nullptr;
}

} // namespace zymm

using namespace zymm;

uint64_t zymm_pool_create(const char *name, uint64_t size, uint64_t extension, uint32_t module_id,
                          const char *func)
{
    const gate_guard no_fork;
    const bool sizes_make_sense = size <= UINT64_MAX / 4 && extension <= UINT64_MAX / 4;
    pool *p = sizes_make_sense ? pool_make(name, size, extension) : nullptr;
    const uint64_t handle = p != nullptr ? handle_make(HANDLE_POOL, p) : 0;
    if (handle != 0)
        return handle;

    ZYMM_ERROR(__func__, "pool %s: no memory or handle for %lu bytes, caller %u %s.",
               text_of(name), size, module_id, text_of(func));
    if (p != nullptr) {
        extents_release(p->extents);
        store_put(&s_pools, p);
    }
    return 0;
}

static uint64_t members_of(pool *p)
{
    scoped_lock held(&p->lock);
    return p->member_count;
}

int zymm_pool_destory(uint64_t handle, uint32_t module_id, const char *func)
{
    if (handle == 0)
        return 0;
    const gate_guard no_fork;
    pool *p = static_cast<pool *>(handle_expect(handle, HANDLE_POOL, __func__, func));
    if (p == nullptr)
        return -1;
    const uint64_t members = members_of(p);
    if (members != 0) {
        ZYMM_ERROR(__func__, "pool %s still holds %lu slabs, caller %u %s.", p->name, members,
                   module_id, text_of(func));
        return -1;
    }

    if (handle_drop(handle, HANDLE_POOL) == nullptr)
        return -1;
    extents_release(p->extents);
    p->extents = nullptr;
    store_put(&s_pools, p);
    return 0;
}
