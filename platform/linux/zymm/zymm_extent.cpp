/*
 * Extents of an enclosing pool: bit maps of units, searched first fit.
 *
 * A search goes bit by bit. It happens when a slab takes a piece, which is rare and larger than
 * what the search costs: a pool of 16 GiB has 32 KiB of bits.
 */
#include "zymm_extent.h"

#include "zymm_system.h"

namespace zymm
{

static bool is_used(const extent *e, uint64_t unit)
{
    return (e->used[unit / 64] >> unit % 64 & 1) != 0;
}

static void mark(extent *e, uint64_t first, uint64_t units, bool used)
{
    for (uint64_t unit = first; unit < first + units; unit++) {
        const uint64_t bit = 1ull << unit % 64;
        e->used[unit / 64] = used ? e->used[unit / 64] | bit : e->used[unit / 64] & ~bit;
    }
}

extent *extent_make(uint64_t bytes)
{
    const uint64_t units = bytes / UNIT_BYTES;
    const uint64_t header_bytes = sizeof(extent) + round_up(units, 64) / 8;
    extent *e = static_cast<extent *>(system_map(header_bytes, PAGE_BYTES));
    if (e == nullptr)
        return nullptr;
    e->base = static_cast<char *>(system_map(bytes, HUGE_BYTES));
    if (e->base == nullptr) {
        system_unmap(e, header_bytes);
        return nullptr;
    }
    e->units = units;
    e->header_bytes = header_bytes;
    return e;
}

void extents_release(extent *first)
{
    while (first != nullptr) {
        extent *e = first;
        first = e->next;
        system_unmap(e->base, e->units * UNIT_BYTES);
        system_unmap(e, e->header_bytes);
    }
}

/* Improves *best by the extent's runs; true once a run of `want` units is found. */
static bool search(extent *e, uint64_t want, uint64_t align, unit_run *best)
{
    for (uint64_t at = 0; at < e->units;) {
        at = round_up(at, align);
        uint64_t length = 0;
        while (length < want && at + length < e->units && !is_used(e, at + length))
            length++;
        if (length > best->units)
            *best = {e, at, length};
        if (length == want)
            return true;
        at += length + 1;
    }
    return false;
}

unit_run extents_search(extent *first, uint64_t want, uint64_t align)
{
    unit_run best = {nullptr, 0, 0};
    for (extent *e = first; e != nullptr; e = e->next) {
        if (search(e, want, align, &best))
            break;
    }
    return best;
}

char *extent_use(const unit_run *run)
{
    mark(run->in, run->first, run->units, true);
    return run->in->base + run->first * UNIT_BYTES;
}

void extents_free(extent *first, const char *base, uint64_t bytes)
{
    for (extent *e = first; e != nullptr; e = e->next) {
        if (base >= e->base && base < e->base + e->units * UNIT_BYTES)
            mark(e, uint64_t(base - e->base) / UNIT_BYTES, bytes / UNIT_BYTES, false);
    }
}

} // namespace zymm
