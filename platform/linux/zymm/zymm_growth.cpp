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
 * Threads: the growth lock makes a slab grow by one piece at a time; who comes second finds the
 * first one's piece.
 */
#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_piece.h"
#include "zymm_private.h"
#include "zymm_probe.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_system.h"

namespace zymm
{

enum : uint64_t { STANDARD_BYTES = 2097152, LARGEST_BYTES = 67108864 };

/* The tag follows the object unless that costs more than a word: where objects are to lie side by
 * side, or where a word more means a whole alignment more. Under tools that watch every byte what
 * lies between objects is forbidden to all, so tags lie elsewhere. */
static uint32_t tag_offset_of(uint64_t obj_size, uint64_t align, bool one_block)
{
    const uint64_t bare = round_up(obj_size + GUARD_BYTES, align);
    const uint64_t offset = round_up(obj_size + GUARD_BYTES, sizeof(object_tag));
    const uint64_t whole = round_up(offset + sizeof(object_tag), align);
    const uint64_t apart = bare + sizeof(object_tag);
    if (one_block || guard_watches_gaps() || whole > apart + apart / 64 || offset > UINT32_MAX)
        return 0;
    return uint32_t(offset);
}

/* Of an odd number, modulo 2^64: each step doubles the number of right bits. */
static uint64_t inverse_of(uint64_t odd)
{
    uint64_t inverse = odd;
    for (uint32_t step = 0; step < 6; step++)
        inverse *= 2 - odd * inverse;
    return inverse;
}

object_shape shape_of(uint64_t obj_size, uint64_t align, bool one_block)
{
    const uint32_t tag_offset = tag_offset_of(obj_size, align, one_block);
    const uint64_t used =
        tag_offset != 0 ? tag_offset + sizeof(object_tag) : obj_size + GUARD_BYTES;
    const uint64_t stride = round_up(used, align);
    const uint32_t turn = uint32_t(__builtin_ctzll(stride));
    return {stride, inverse_of(stride >> turn), turn, tag_offset};
}

uint64_t stride_of(uint64_t obj_size, uint64_t align, bool one_block)
{
    const bool align_fits = is_power_of_two(align) && align <= HUGE_BYTES;
    if (obj_size == 0 || obj_size > UINT64_MAX / 4 || !align_fits)
        return 0;
    return shape_of(obj_size, align, one_block).stride;
}

uint64_t standard_piece_bytes(uint64_t stride)
{
    const uint64_t objects = stride < STANDARD_BYTES ? STANDARD_BYTES / stride : 1;
    return round_up(objects * stride, UNIT_BYTES);
}

static uint64_t next_piece_bytes(const slab *s)
{
    const uint64_t standard = standard_piece_bytes(s->shape.stride);
    const uint64_t capacity = s->capacity.load(std::memory_order_relaxed);
    uint64_t bytes = capacity * s->shape.stride / 4;
    if (bytes > LARGEST_BYTES)
        bytes = LARGEST_BYTES;
    if (bytes < standard || s->enclosing != nullptr)
        bytes = standard;
    const uint64_t allowed = s->max_num - capacity;
    return allowed < bytes / s->shape.stride ? allowed * s->shape.stride : bytes;
}

static bool may_grow(const slab *s)
{
    return s->capacity.load(std::memory_order_relaxed) < s->max_num;
}

static bool has_room(slab *s, uint32_t node)
{
    depot *d = depot_of(s, node);
    scoped_lock held(&d->lock);
    for (const piece *p = d->carving; p != nullptr; p = p->next) {
        if (p->carved.load(std::memory_order_relaxed) < p->capacity)
            return true;
    }
    return false;
}

/* Under the lock: members of the same enclosing pool may look at the depot already. */
static void add_piece(slab *s, piece *p)
{
    depot *d = depot_of(s, p->node);
    scoped_lock held(&d->lock);
    depot_add(s, d, p);
}

bool slab_grow(slab *s, uint32_t node)
{
    if (!may_grow(s))
        return has_room(s, node);

    scoped_lock held(&s->growth);
    if (has_room(s, node)) /* another thread has grown it meanwhile */
        return true;
    if (!may_grow(s))
        return false;

    piece *p = nullptr;
    const piece_wish wish = {next_piece_bytes(s), s->shape.stride, 0, UINT64_MAX, node};
    const char *failure = piece_make(s, &wish, &p);
    if (failure != nullptr)
        return false;
    ZYMM_PROBE_SLAB_GROWN(s->name, node, p->capacity, p->bytes);
    add_piece(s, p); /* from here on other members of a pool may take from the piece */
    return true;
}

static const char *back_on_node(slab *s, uint32_t node, uint64_t objects, uint64_t least)
{
    /* With other nodes to back, a piece must not use up the room that they are to have. */
    const bool is_only_node = s->depots == 1;
    while (objects != 0) {
        piece *p = nullptr;
        const uint64_t most = is_only_node ? UINT64_MAX : objects;
        const piece_wish wish = {objects * s->shape.stride, least, objects, most, node};
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
    const uint64_t bytes = s->max_num * s->shape.stride;
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
    const piece_wish wish = {next_piece_bytes(s), s->shape.stride, 1, UINT64_MAX, node_here()};
    const char *failure = piece_make(s, &wish, &p);
    if (failure == nullptr)
        add_piece(s, p);
    return failure;
}

const char *slab_back(slab *s)
{
    if (s->min_num > UINT64_MAX / 4 / s->shape.stride)
        return "min_num objects exceed the address space";
    /* Of the whole, since each node's share alone may fit. */
    if (!system_has(s->min_num * s->shape.stride))
        return "no memory to back min_num objects";
    if ((s->attr & ZYMM_EXTRA_ONE_BLOCK) != 0)
        return back_one_block(s);
    if (s->min_num == 0 && s->max_num != 0 && (s->attr & ZYMM_EXTRA_LOCKED) != 0)
        return back_first_piece(s);

    /* A pool's free memory may be in several runs; the system's is always one. */
    const char *failure = nullptr;
    for (uint32_t node = 0; node < s->depots && failure == nullptr; node++) {
        const uint64_t share = s->min_num / s->depots + (node < s->min_num % s->depots ? 1 : 0);
        const uint64_t least = s->enclosing != nullptr ? s->shape.stride : share * s->shape.stride;
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
    for (shard &each : d->shards) {
        for (magazine *m = stack_pop(&each.full); m != nullptr; m = stack_pop(&each.full)) {
            set_count(m, 0);
            magazine_put(m);
        }
    }
}

void slab_release(slab *s)
{
    for (uint32_t node = 0; node < s->depots; node++)
        release_depot(s, depot_of(s, node));
    table_release(s);
}

} // namespace zymm
