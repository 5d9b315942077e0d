/*
 * The consistency check of a slab: zymm_slab_check.
 *
 * The slab's threads are stopped as for an allocation that finds it dry, under the registry's lock;
 * then nothing of it moves but what two others may do. Another member of its enclosing pool may cut
 * uncarved ends off its pieces: the depots' locks keep it out. A signal handler of a thread that is
 * busy with another slab may pass by the caches: it marks the slab, and the check looks again. Each
 * carved object must be in exactly one place:
 *
 *     out     its tag says so, and it is in no list
 *     free    its tag says so, and it is in one cache, full magazine, stack of loose objects or
 *             quarantine
 *
 * So a first pass marks what is in lists (zymm_check_free.cpp), a second one goes over the pieces
 * and compares tags with marks, and at last the sums are compared with what was counted.
 */
#include "zymm_check.h"

#include <sched.h>

#include "zymm_address.h"
#include "zymm_cache.h"
#include "zymm_handle.h"
#include "zymm_lock.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_system.h"

namespace zymm
{

object_marks::object_marks(uint64_t numbers)
    : words_(nullptr), bytes_(round_up(numbers + 1, 64) / 8)
{
    words_ = static_cast<uint64_t *>(system_map(bytes_, PAGE_BYTES));
}

object_marks::~object_marks()
{
    system_unmap(words_, bytes_);
}

/* ------------------------------------------------------------------ pieces */

static void check_object(const object_place &place, const object_marks *marks, check_sums *sums,
                         check_findings *findings)
{
    const uint64_t tag = place.tag()->load(std::memory_order_relaxed);
    const bool is_in_list = marks->has(place.in->first_number + place.index);
    if (is_out(tag) && is_in_list)
        findings->add(
            {"an object is out and lies in a list of free ones", place.object(), tag, 0, 0});
    if (is_free(tag) && !is_in_list)
        findings->add({"a free object lies nowhere", place.object(), tag, 0, 0});
    if (!is_out(tag) && !is_free(tag))
        findings->add({"the tag behind an object is damaged", place.object(), tag, 0, 0});
    sums->out += is_in_list ? 0 : 1;
}

static void check_piece(slab *s, piece *p, check_findings *findings)
{
    const uint64_t carved = p->carved.load(std::memory_order_relaxed);
    if (p->owner.load(std::memory_order_relaxed) != s)
        findings->add({"a piece belongs to somebody else", p->base, 0, 0, 0});
    if (carved > p->capacity)
        findings->add({"a piece has more objects than room", p->base, 0, carved, p->capacity});
    if (p->capacity > p->room || p->keep > p->capacity || p->capacity * s->shape.stride > p->bytes)
        findings->add({"a piece has more room than memory", p->base, 0, p->capacity, p->room});
    if (address_find(p->base) != p || address_find(p->base + p->bytes - 1) != p)
        findings->add({"the address map does not know a piece", p->base, 0, 0, 0});
}

/* Room before the piece that is carved next would never be used. */
static void check_carving(const depot *d, check_findings *findings)
{
    for (const piece *p = d->first; p != nullptr && p != d->carving; p = p->next) {
        const uint64_t carved = p->carved.load(std::memory_order_relaxed);
        if (carved < p->capacity)
            findings->add({"room is skipped in a piece", p->base, 0, carved, p->capacity});
    }
}

void check_pieces(slab *s, uint32_t node, const object_marks *marks, check_sums *sums,
                  check_findings *findings)
{
    depot *d = depot_of(s, node);
    const uint64_t carved_before = sums->carved;
    for (piece *p = d->first; p != nullptr; p = p->next) {
        check_piece(s, p, findings);
        const uint32_t carved = p->carved.load(std::memory_order_relaxed);
        for (object_place at = {p, 0}; at.index < carved; at.index++)
            check_object(at, marks, sums, findings);
        sums->pieces++;
        sums->carved += carved;
        sums->capacity += p->capacity;
    }
    check_carving(d, findings);
    findings->expect("objects of a node", d->carved.load(std::memory_order_relaxed),
                     sums->carved - carved_before);
}

/* ------------------------------------------------------------------ sums */

static uint64_t open_caches(const slab *s)
{
    uint64_t open = 0;
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        open += c->limit != 0 ? 1 : 0;
    return open;
}

static void check_counts(slab *s, const check_sums *sums, check_findings *findings)
{
    uint64_t out = s->gone_allocs.load(std::memory_order_relaxed) -
                   s->gone_frees.load(std::memory_order_relaxed);
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        out += c->allocs.load(std::memory_order_relaxed) - c->frees.load(std::memory_order_relaxed);
    const uint64_t carved = s->carved.load(std::memory_order_relaxed);
    findings->expect("objects counted as out", out, sums->out);
    findings->expect("open caches", uint32_t(s->open.load(std::memory_order_relaxed)),
                     open_caches(s));
    findings->expect("pieces", s->pieces.load(std::memory_order_relaxed), sums->pieces);
    findings->expect("objects", carved, sums->carved);
    findings->expect("room for objects", s->capacity.load(std::memory_order_relaxed),
                     sums->capacity);
    if (carved > s->max_num || sums->capacity > s->max_num)
        findings->add({"more objects than max_num", nullptr, 0, carved, s->max_num});
}

static void check_node_counts(slab *s, uint32_t node, uint64_t is_out_there,
                              check_findings *findings)
{
    int64_t out = s->gone_out[node].load(std::memory_order_relaxed);
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        out += cache_out(c, node);
    findings->expect("objects of a node counted as out", uint64_t(out), is_out_there);
}

/* All depots' locks, in the order of their nodes. */
class all_depots
{
public:
    explicit all_depots(slab *s) : s_(s)
    {
        for (uint32_t node = 0; node < s_->depots; node++)
            pthread_mutex_lock(&depot_of(s_, node)->lock);
    }
    ~all_depots()
    {
        for (uint32_t node = s_->depots; node > 0; node--)
            pthread_mutex_unlock(&depot_of(s_, node - 1)->lock);
    }
    all_depots(const all_depots &) = delete;
    all_depots &operator=(const all_depots &) = delete;

private:
    slab *s_;
};

static void check_stopped(slab *s, check_findings *findings)
{
    const all_depots held(s);
    object_marks marks(table_numbers(s));
    if (!marks.is_made()) {
        findings->add({"no memory for the check itself", nullptr, 0, 0, 0});
        return;
    }
    check_free_places(s, &marks, findings);
    check_sums sums = {0, 0, 0, 0};
    for (uint32_t node = 0; node < s->depots; node++) {
        const uint64_t out_before = sums.out;
        check_pieces(s, node, &marks, &sums, findings);
        if (s->depots > 1)
            check_node_counts(s, node, sums.out - out_before, findings);
    }
    check_counts(s, &sums, findings);
}

/* False when a signal handler was at work meanwhile: what was found says nothing. */
static bool check_once(slab *s, check_findings *findings)
{
    registry_guard held;
    caches_stop(s, nullptr);
    const uint64_t open = s->open.load(std::memory_order_seq_cst);
    *findings = {};
    check_stopped(s, findings);
    const bool stood_still =
        uint32_t(open) == open_caches(s) && s->open.load(std::memory_order_seq_cst) == open;
    caches_resume(s);
    return stood_still;
}

static void report(const slab *s, const check_findings *findings)
{
    static const char operation[] = "zymm_slab_check";
    for (uint32_t at = 0; at < check_findings::KEPT && at < findings->found; at++) {
        const check_findings::finding *one = &findings->kept[at];
        const call_site holder = site_of(tag_holder(one->tag));
        if (one->tag != 0)
            ZYMM_ERROR(operation, "slab %s: %s: %p, tag 0x%lx, last held by %u %s line %u.",
                       s->name, one->what, one->object, one->tag, holder.module_id,
                       text_of(holder.func), holder.line);
        else
            ZYMM_ERROR(operation, "slab %s: %s: %p, %lu, should be %lu.", s->name, one->what,
                       one->object, one->is, one->should_be);
    }
    if (findings->found > check_findings::KEPT)
        ZYMM_ERROR(operation, "slab %s: and %lu more findings.", s->name,
                   findings->found - check_findings::KEPT);
}

} // namespace zymm

using namespace zymm;

/* A count of open caches that never comes right is damage and not a handler at work. */
enum : uint32_t { MOST_TURNS = 100 };

int zymm_slab_check(uint64_t handle)
{
    const gate_guard alive;
    slab *s = static_cast<slab *>(handle_expect(handle, HANDLE_SLAB, __func__, __func__));
    if (s == nullptr)
        return -1;
    if (s->is_lost)
        return 0;
    check_findings findings = {};
    for (uint32_t turn = 0; !check_once(s, &findings) && turn < MOST_TURNS; turn++)
        sched_yield();
    report(s, &findings);
    return findings.found == 0 ? 0 : -1;
}
