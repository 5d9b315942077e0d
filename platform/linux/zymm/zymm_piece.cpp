/*
 * Making and releasing pieces: memory from the enclosing pool or the system, the slab's attributes
 * put on it, links beside it, and its place in the address map and the slab's table. A step that
 * fails undoes the ones before it and answers why; the allocation or creation that wanted the piece
 * fails, nothing else happens.
 *
 * A piece's memory is backed when objects are first used, but for those that the slab has to keep
 * ready (min_num), whose links are backed too. Both prefer the piece's node.
 */
#include "zymm_piece.h"

#include <algorithm>
#include <sys/mman.h>

#include "zymm_address.h"
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

enum : uint64_t { MOST_OBJECTS_A_PIECE = 0x7FFFFFFF };

static control_store s_pieces = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};

static bool is_huge(const slab *s)
{
    return (s->attr & ZYMM_EXTRA_HUGE) != 0;
}

/* The holder of one block may protect parts of it, which would split a huge page; and its mapping
 * must not grow together with a neighbour's. */
static bool stays_apart(const slab *s)
{
    return (s->attr & ZYMM_EXTRA_ONE_BLOCK) != 0 && !is_huge(s);
}

static bool leaves_dumps(const slab *s)
{
    return (s->attr & ZYMM_SLAB_NODUMP) != 0 || is_kept_from_dumps(s->obj_size);
}

static char *from_system(const slab *s, uint64_t bytes, uint64_t *got)
{
    const uint64_t align = s->align > UNIT_BYTES ? s->align : uint64_t(UNIT_BYTES);
    *got = round_up(bytes, is_huge(s) ? HUGE_BYTES : UNIT_BYTES);
    return static_cast<char *>(is_huge(s) ? system_map_huge(*got) : system_map(*got, align));
}

static char *take_memory(slab *s, const piece_wish *wish, uint64_t *got)
{
    if (s->enclosing != nullptr)
        return pool_take(s->enclosing, s, wish->want, wish->least, s->align, got);
    char *memory = from_system(s, wish->want, got);
    if (memory == nullptr && wish->least < wish->want)
        memory = from_system(s, wish->least, got);
    return memory;
}

static void give_memory(slab *s, char *base, uint64_t bytes)
{
    if (s->enclosing != nullptr) {
        pool_give(s->enclosing, base, bytes);
        return;
    }
    guard_unpoison(base, bytes);
    system_unmap(base, bytes);
}

/* Null, or what could not be had. */
static const char *put_attributes(const slab *s, void *base, uint64_t bytes)
{
    if (is_huge(s) && s->enclosing != nullptr)
        madvise(base, bytes, MADV_HUGEPAGE); /* a wish, as in system_map_huge */
    if (stays_apart(s))
        madvise(base, bytes, MADV_NOHUGEPAGE); /* fails where there are none anyway */
    if (leaves_dumps(s) && madvise(base, bytes, MADV_DONTDUMP) != 0)
        return "memory cannot be left out of core dumps";
    if ((s->attr & ZYMM_SLAB_NOFORK) != 0 && madvise(base, bytes, MADV_DONTFORK) != 0)
        return "memory cannot be kept from forked children";
    if ((s->attr & ZYMM_EXTRA_LOCKED) != 0 && mlock(base, bytes) != 0)
        return "memory cannot be locked, see the limit of locked memory";
    return nullptr;
}

static uint32_t room_in(const slab *s, uint64_t bytes, uint64_t most)
{
    const uint64_t allowed = s->max_num - s->capacity.load(std::memory_order_relaxed);
    const uint64_t room =
        std::min({bytes / s->shape.stride, allowed, most, MOST_OBJECTS_A_PIECE + 0});
    return uint32_t(room);
}

/* Links, and tags where they do not lie behind the objects, in one mapping. */
static const char *make_side(const slab *s, piece *p)
{
    const uint64_t link_bytes = round_up(uint64_t(p->capacity) * sizeof(p->links[0]), 64);
    const uint64_t tag_bytes = s->shape.tag_offset == 0 ? p->capacity * sizeof(object_tag) : 0;
    p->side_bytes = link_bytes + tag_bytes;
    char *memory = static_cast<char *>(system_map(p->side_bytes, PAGE_BYTES));
    if (memory == nullptr)
        return "no memory for records";
    node_bind(memory, p->side_bytes, p->node);
    p->links = reinterpret_cast<std::atomic<uint32_t> *>(memory);
    p->tags = tag_bytes != 0 ? reinterpret_cast<object_tag *>(memory + link_bytes) : nullptr;
    return nullptr;
}

static void unmake_side(piece *p)
{
    system_unmap(p->links, p->side_bytes);
    p->links = nullptr;
    p->tags = nullptr;
}

static const char *back_kept(const slab *s, piece *p)
{
    const uint64_t bytes = uint64_t(p->keep) * s->shape.stride;
    if (!system_populate(p->base, bytes))
        return "no memory to back min_num objects";
    if (!system_populate(p->links, p->side_bytes))
        return "no memory to back records";
    return nullptr;
}

/* The steps after the memory; each leaves what piece_release undoes. */
static const char *furnish(slab *s, piece *p, uint64_t keep)
{
    node_bind(p->base, p->bytes, p->node);
    const char *failure = put_attributes(s, p->base, p->bytes);
    if (failure == nullptr)
        failure = make_side(s, p);
    if (failure != nullptr)
        return failure;

    p->keep = keep < p->capacity ? uint32_t(keep) : p->capacity;
    failure = p->keep != 0 ? back_kept(s, p) : nullptr;
    if (failure != nullptr)
        return failure;

    guard_poison(p->base, p->bytes);
    if (!address_enter(p->base, p->bytes, p))
        return "no memory for the address map";
    return table_enter(s, p) ? nullptr : "no memory for the table of pieces, or no number is left";
}

const char *piece_make(slab *s, const piece_wish *wish, piece **made)
{
    piece *p = static_cast<piece *>(store_get(&s_pieces, sizeof(piece)));
    if (p == nullptr)
        return "no memory for a descriptor";
    char *memory = take_memory(s, wish, &p->bytes);
    if (memory == nullptr) {
        store_put(&s_pieces, p);
        return s->enclosing != nullptr ? "the enclosing pool is used up" : "no memory";
    }

    p->base = memory;
    p->node = wish->node;
    p->carved.store(0, std::memory_order_relaxed);
    p->keep = 0;
    p->links = nullptr;
    p->tags = nullptr;
    p->side_bytes = 0;
    p->capacity = room_in(s, p->bytes, wish->most);
    p->room = p->capacity;
    p->owner.store(s, std::memory_order_release);
    const char *failure = furnish(s, p, wish->keep);
    if (failure != nullptr) {
        piece_release(s, p);
        return failure;
    }
    *made = p;
    return nullptr;
}

void piece_release(slab *s, piece *p)
{
    address_remove(p->base, p->bytes);
    p->owner.store(nullptr, std::memory_order_release);
    unmake_side(p);
    give_memory(s, p->base, p->bytes);
    store_put(&s_pieces, p);
}

} // namespace zymm
