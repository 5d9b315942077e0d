/*
 * Growth of a slab: how large its pieces are, what is backed when it is created, and how one of the
 * threads that find a depot empty takes the next piece while the others wait for it.
 *
 *     standard piece: as many objects as fit 2 MiB (at least one), rounded up to whole units
 *     later pieces:   a quarter of what the slab has, up to 64 MiB, if that is more
 *     never more than max_num objects have room for
 *
 * In an enclosing pool pieces stay at the standard size: the budget is shared.
 *
 * Threads: the growth lock makes a slab grow by one piece at a time; the piece becomes visible, and
 * its first object goes out, in one section of the depot's lock.
 */
#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_piece.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_system.h"

namespace zymm
{

enum : uint64_t { STANDARD_BYTES = 2097152, LARGEST_BYTES = 67108864 };

uint64_t stride_of(uint64_t obj_size, uint64_t align)
{
    const bool align_fits = is_power_of_two(align) && align <= HUGE_BYTES;
    if (obj_size == 0 || obj_size > UINT64_MAX / 4 || !align_fits)
        return 0;
    return round_up(obj_size + GUARD_BYTES, align);
}

uint64_t standard_piece_bytes(uint64_t stride)
{
    const uint64_t objects = stride < STANDARD_BYTES ? STANDARD_BYTES / stride : 1;
    return round_up(objects * stride, UNIT_BYTES);
}

static uint64_t next_piece_bytes(const slab *s)
{
    const uint64_t standard = standard_piece_bytes(s->stride);
    const uint64_t capacity = s->capacity.load(std::memory_order_relaxed);
    uint64_t bytes = capacity * s->stride / 4;
    if (bytes > LARGEST_BYTES)
        bytes = LARGEST_BYTES;
    if (bytes < standard || s->enclosing != nullptr)
        bytes = standard;
    const uint64_t allowed = s->max_num - capacity;
    return allowed < bytes / s->stride ? allowed * s->stride : bytes;
}

static bool may_grow(const slab *s)
{
    return s->capacity.load(std::memory_order_relaxed) < s->max_num;
}

static object_record *take_locked(slab *s, uint32_t node, const holder *who)
{
    depot *d = depot_of(s, node);
    scoped_lock held(&d->lock);
    return depot_take(s, d, who);
}

static object_record *add_and_take(slab *s, piece *p, const holder *who)
{
    depot *d = depot_of(s, p->node);
    scoped_lock held(&d->lock);
    depot_add(s, d, p);
    return depot_take(s, d, who);
}

object_record *slab_grow(slab *s, uint32_t node, const holder *who)
{
    if (!may_grow(s))
        return nullptr;

    scoped_lock held(&s->growth);
    object_record *record = take_locked(s, node, who); /* another thread may have grown it */
    if (record != nullptr || !may_grow(s))
        return record;

    piece *p = nullptr;
    const piece_wish wish = {next_piece_bytes(s), s->stride, 0, UINT64_MAX, node};
    const char *failure = piece_make(s, &wish, &p);
    return failure == nullptr ? add_and_take(s, p, who) : nullptr;
}

/* Under the lock: members of the same enclosing pool may look at the depot already. */
static void add_piece(slab *s, piece *p)
{
    depot *d = depot_of(s, p->node);
    scoped_lock held(&d->lock);
    depot_add(s, d, p);
}

static const char *back_on_node(slab *s, uint32_t node, uint64_t objects, uint64_t least)
{
    /* With other nodes to back, a piece must not use up the room that they are to have. */
    const bool is_only_node = s->depots == 1;
    while (objects != 0) {
        piece *p = nullptr;
        const uint64_t most = is_only_node ? UINT64_MAX : objects;
        const piece_wish wish = {objects * s->stride, least, objects, most, node};
        const char *failure = piece_make(s, &wish, &p);
        if (failure != nullptr)
            return failure;
        objects -= p->keep;
        add_piece(s, p);
    }
    return nullptr;
}

static const char *back_one_block(slab *s)
{
    piece *p = nullptr;
    const uint64_t bytes = s->max_num * s->stride;
    const piece_wish wish = {bytes, bytes, s->min_num, s->max_num, node_here()};
    const char *failure = piece_make(s, &wish, &p);
    if (failure != nullptr)
        return failure;
    p->keep = p->capacity;
    add_piece(s, p);
    return nullptr;
}

/* A locked slab without a minimum takes its first piece at once: whether it may lock memory must
 * be known when it is created. */
static const char *back_first_piece(slab *s)
{
    piece *p = nullptr;
    const piece_wish wish = {next_piece_bytes(s), s->stride, 1, UINT64_MAX, node_here()};
    const char *failure = piece_make(s, &wish, &p);
    if (failure == nullptr)
        add_piece(s, p);
    return failure;
}

const char *slab_back(slab *s)
{
    if (s->min_num > UINT64_MAX / 4 / s->stride)
        return "min_num objects exceed the address space";
    if ((s->attr & ZYMM_EXTRA_ONE_BLOCK) != 0)
        return back_one_block(s);
    if (s->min_num == 0 && s->max_num != 0 && (s->attr & ZYMM_EXTRA_LOCKED) != 0)
        return back_first_piece(s);

    /* A pool's free memory may be in several runs; the system's is always one. */
    const char *failure = nullptr;
    for (uint32_t node = 0; node < s->depots && failure == nullptr; node++) {
        const uint64_t share = s->min_num / s->depots + (node < s->min_num % s->depots ? 1 : 0);
        const uint64_t least = s->enclosing != nullptr ? s->stride : share * s->stride;
        failure = back_on_node(s, node, share, least);
    }
    return failure;
}

static void release_depot(slab *s, depot *d)
{
    while (d->first != nullptr) {
        piece *p = d->first;
        d->first = p->next;
        piece_release(s, p);
    }
    d->last = nullptr;
    d->carving = nullptr;
    d->free_top = nullptr;
    d->free_count = 0;
    d->carved = 0;
}

void slab_release(slab *s)
{
    for (uint32_t node = 0; node < s->depots; node++)
        release_depot(s, depot_of(s, node));
    s->carved.store(0, std::memory_order_relaxed);
    s->capacity.store(0, std::memory_order_relaxed);
}

} // namespace zymm
