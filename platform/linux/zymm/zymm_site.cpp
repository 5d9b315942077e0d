/*
 * Numbers of call sites: an open hash table of site numbers over an array of sites. Both only
 * grow; a reader walks the table with acquire loads and no lock, a writer publishes a finished
 * site with a release store under the lock.
 *
 * Sites are told apart by the address of their function's text, which is what makes the comparison
 * cheap; the same text may therefore have several numbers (one a library), and a report groups by
 * text. The address is never followed again after the text was copied.
 */
#include "zymm_site.h"

#include <atomic>
#include <string.h>

#include "bounded.h"
#include "zymm_lock.h"
#include "zymm_seam.h"

namespace zymm
{

enum : uint32_t { TABLE_ENTRIES = 2 * MOST_SITES, TEXT_BYTES = 104 };

struct site_record {
    const char *key; /* the caller's text, compared and never followed */
    uint32_t    module_id;
    uint32_t    line;
    bool        has_text;
    char        text[TEXT_BYTES];
};

static site_record           s_sites[MOST_SITES];
static std::atomic<uint32_t> s_table[TABLE_ENTRIES];
static uint32_t              s_used = SITE_OTHERS + 1;
static pthread_mutex_t       s_sites_lock = PTHREAD_MUTEX_INITIALIZER;

static uint32_t hash_of(const call_site &site)
{
    uint64_t hash = reinterpret_cast<uintptr_t>(site.func) * 0x9E3779B97F4A7C15ull;
    hash ^= (uint64_t(site.module_id) << 32 | site.line) * 0xC2B2AE3D27D4EB4Full;
    return uint32_t(hash ^ hash >> 32);
}

static bool is_same(const site_record *record, const call_site &site)
{
    return record->key == site.func && record->module_id == site.module_id &&
           record->line == site.line;
}

/* The table's entry that has the site, or the empty one where it belongs. */
static std::atomic<uint32_t> *find(const call_site &site, uint32_t *number)
{
    for (uint32_t at = hash_of(site);; at++) {
        std::atomic<uint32_t> *entry = &s_table[at % TABLE_ENTRIES];
        *number = entry->load(std::memory_order_acquire);
        if (*number == SITE_NOBODY || is_same(&s_sites[*number], site))
            return entry;
    }
}

static void fill(site_record *record, const call_site &site)
{
    record->key = site.func;
    record->module_id = site.module_id;
    record->line = site.line;
    record->has_text = site.func != nullptr;
    if (record->has_text)
        strncpy_s(record->text, sizeof record->text, site.func,
                  strnlen(site.func, sizeof record->text - 1));
}

uint32_t site_number(const call_site &site)
{
    uint32_t number = SITE_NOBODY;
    find(site, &number);
    if (number != SITE_NOBODY)
        return number;

    signal_guard quiet;
    scoped_lock held(&s_sites_lock);
    std::atomic<uint32_t> *entry = find(site, &number);
    if (number != SITE_NOBODY)
        return number;
    if (s_used == MOST_SITES)
        return SITE_OTHERS;
    number = s_used++;
    fill(&s_sites[number], site);
    entry->store(number, std::memory_order_release);
    return number;
}

void sites_close()
{
    pthread_mutex_lock(&s_sites_lock);
}

void sites_open()
{
    pthread_mutex_unlock(&s_sites_lock);
}

call_site site_of(uint32_t number)
{
    if (number == SITE_OTHERS || number >= MOST_SITES)
        return {"(further call sites)", 0, 0};
    const site_record *record = &s_sites[number];
    return {record->has_text ? record->text : nullptr, record->module_id, record->line};
}

void site_memory::clear()
{
    for (entry &e : entries)
        e.module_line = UNUSED;
}

void site_memory::remember(const call_site &site, uint32_t number)
{
    entry *e = &entries[(reinterpret_cast<uintptr_t>(site.func) / 8 ^ site.line) % ENTRIES];
    e->module_line = UNUSED;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    e->func = site.func;
    e->number = number;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    e->module_line = uint64_t(site.module_id) << 32 | site.line;
}

} // namespace zymm
