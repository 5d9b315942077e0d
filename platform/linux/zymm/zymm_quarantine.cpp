/*
 * The quarantine's queue: a ring under a lock of its own, below which only the depot's loose
 * objects are touched. What is found is reported after the lock was given back, one object at a
 * time.
 */
#include "zymm_quarantine.h"

#include <string.h>

#include "zymm_cache.h"
#include "zymm_lock.h"
#include "zymm_seam.h"
#include "zymm_site.h"
#include "zymm_slab.h"

namespace zymm
{

enum : int { FREE_FILL = 0xD6 };

/* Under a tool that watches every byte nobody may look at a free object, and nobody has to. */
static bool is_filled()
{
#ifdef ZYMM_ASAN
    return false;
#else
    return !guard_is_valgrind();
#endif
}

/* Bytes of an object that are filled; the rest is a page's record and behind it the guard. */
static uint64_t filled_bytes(const slab *s)
{
    return s->obj_size == PAGE_OBJECT_BYTES ? uint64_t(SECTORS) * SECTOR_BYTES : s->obj_size;
}

static uint64_t sum_of_rest(const slab *s, const void *object)
{
    const uint64_t end = s->obj_size + GUARD_BYTES;
    uint64_t sum = 0xcbf29ce484222325ull;
    for (uint64_t at = filled_bytes(s); at < end; at++)
        sum = (sum ^ static_cast<const unsigned char *>(object)[at]) * 0x100000001b3ull;
    return sum;
}

/* The first byte that is not as it was left; obj_size when only a sum tells. */
static uint64_t first_change(const slab *s, const void *object)
{
    const unsigned char *bytes = static_cast<const unsigned char *>(object);
    const uint64_t filled = filled_bytes(s);
    for (uint64_t at = 0; at < filled; at++) {
        if (bytes[at] != FREE_FILL)
            return at;
    }
    return filled;
}

struct finding {
    void *object; /* null: nothing was found */
    uint64_t tag, offset;
};

/* Under the lock, which is not empty: the oldest becomes loose. */
static finding let_oldest_go(slab *s)
{
    quarantine *q = &s->waiting;
    void *object = q->waiting[q->oldest].object;
    const object_place place = place_of_own(s, object);
    const uint64_t tag = place.tag()->load(std::memory_order_relaxed);
    finding found = {nullptr, tag, 0};
    if (is_filled()) {
        found.offset = first_change(s, object);
        const bool is_whole =
            found.offset == filled_bytes(s) && sum_of_rest(s, object) == q->waiting[q->oldest].sum;
        found.object = is_whole ? nullptr : object;
    }
    loose_push(place);
    q->oldest = (q->oldest + 1) % QUARANTINED;
    q->count.store(q->count.load(std::memory_order_relaxed) - 1, std::memory_order_release);
    return found;
}

static void report(const slab *s, const finding &found)
{
    if (found.object == nullptr)
        return;
    const call_site holder = site_of(tag_holder(found.tag));
    const call_site freer = site_of(tag_freer(found.tag));
    ZYMM_ERROR("zymm_slab_free",
               "slab %s: object %p was written after it was freed, at byte %lu; freed by %u %s, "
               "held by %u %s line %u.",
               s->name, found.object, found.offset, freer.module_id, text_of(freer.func),
               holder.module_id, text_of(holder.func), holder.line);
}

void quarantine_put(slab *s, const object_place &place)
{
    quarantine *q = &s->waiting;
    void *object = place.object();
    if (is_filled())
        memset(object, FREE_FILL, filled_bytes(s));
    const uint64_t sum = is_filled() ? sum_of_rest(s, object) : 0;
    finding found = {nullptr, 0, 0};
    {
        signal_guard quiet;
        scoped_lock held(&q->lock);
        if (q->count.load(std::memory_order_relaxed) == QUARANTINED)
            found = let_oldest_go(s);
        const uint32_t count = q->count.load(std::memory_order_relaxed);
        q->waiting[(q->oldest + count) % QUARANTINED] = {object, sum};
        q->count.store(count + 1, std::memory_order_release);
    }
    report(s, found);
}

/* False when nothing waits. */
static bool let_one_go(slab *s)
{
    finding found = {nullptr, 0, 0};
    {
        signal_guard quiet;
        scoped_lock held(&s->waiting.lock);
        if (s->waiting.count.load(std::memory_order_relaxed) == 0)
            return false;
        found = let_oldest_go(s);
    }
    report(s, found);
    return true;
}

void quarantine_empty(slab *s)
{
    while (s->waiting.count.load(std::memory_order_acquire) != 0 && let_one_go(s)) {
    }
}

void quarantine_visit(slab *s, void (*visit)(void *context, void *object), void *context)
{
    quarantine *q = &s->waiting;
    const uint32_t count = q->count.load(std::memory_order_acquire);
    for (uint32_t at = 0; at < count; at++)
        visit(context, q->waiting[(q->oldest + at) % QUARANTINED].object);
}

} // namespace zymm
