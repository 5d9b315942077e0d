/*
 * Who holds a slab's objects.
 *
 * The groups are gathered in a hash table in memory of its own, made for one report: as many
 * entries as there are objects out, doubled, within bounds. Functions are compared by text, since
 * the same constant string may lie in several libraries. When more call sites hold objects than the
 * table has room for, the rest is counted and said, never dropped silently.
 *
 * Threads: any; objects that go out or come back meanwhile may or may not be seen.
 */
#include "zymm_holders.h"

#include <algorithm>
#include <string.h>

#include "zyax.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_system.h"

namespace zymm
{

enum : uint64_t { FEWEST_ENTRIES = 64, MOST_ENTRIES = 65536, REPORTED_GROUPS = 16 };

static uint64_t hash_of(const object_record *record)
{
    uint64_t hash = 0xcbf29ce484222325ull ^ record->module_id ^ uint64_t(record->line) << 32;
    for (const char *at = text_of(record->func); *at != '\0'; at++)
        hash = (hash ^ uint8_t(*at)) * 0x100000001b3ull;
    return hash ^ hash >> 29;
}

static bool is_same_site(const holder_group *group, const object_record *record)
{
    if (group->module_id != record->module_id || group->line != record->line)
        return false;
    return group->func == record->func || strcmp(text_of(group->func), text_of(record->func)) == 0;
}

/* The record's group, or the empty entry where it belongs; null when the table is full. */
static holder_group *find_group(const holder_list *list, const object_record *record)
{
    const uint64_t hash = hash_of(record);
    for (uint64_t step = 0; step < list->capacity; step++) {
        holder_group *group = &list->groups[(hash + step) & (list->capacity - 1)];
        if (group->count == 0 || is_same_site(group, record))
            return group;
    }
    return nullptr;
}

static void count_record(void *context, const object_record *record)
{
    holder_list *list = static_cast<holder_list *>(context);
    list->objects++;
    holder_group *group = find_group(list, record);
    const bool is_new = group != nullptr && group->count == 0;
    if (group == nullptr || (is_new && list->used > list->capacity / 2)) {
        list->ungrouped++;
        return;
    }
    if (is_new) {
        list->used++;
        *group = {record->func, 0, record->since, record->module_id, record->line};
    }
    group->count++;
    group->oldest = std::min(group->oldest, record->since);
}

static bool holds_more(const holder_group &a, const holder_group &b)
{
    return a.count != b.count ? a.count > b.count : a.oldest < b.oldest;
}

bool holders_gather(slab *s, holder_list *list)
{
    const uint64_t wanted = std::clamp(2 * slab_used(s), FEWEST_ENTRIES + 0, MOST_ENTRIES + 0);
    uint64_t capacity = FEWEST_ENTRIES;
    while (capacity < wanted)
        capacity *= 2;
    void *memory = system_map(capacity * sizeof(holder_group), PAGE_BYTES);
    *list = {static_cast<holder_group *>(memory), 0, capacity, 0, 0};
    if (memory == nullptr)
        return false;

    slab_visit_out(s, count_record, list);
    std::sort(list->groups, list->groups + capacity, holds_more);
    return true;
}

void holders_release(holder_list *list)
{
    system_unmap(list->groups, list->capacity * sizeof(holder_group));
}

uint64_t age_seconds(uint64_t since)
{
    const uint64_t now = zyax_time_getnanosec();
    return now > since ? (now - since) / 1000000000 : 0;
}

void holders_report(slab *s, const char *operation, const char *caller)
{
    holder_list list;
    const bool gathered = holders_gather(s, &list);
    ZYMM_WARN(operation, "slab %s of module %u goes with %lu objects out, caller %s.", s->name,
              s->module_id, slab_used(s), text_of(caller));
    if (!gathered)
        return;
    for (uint64_t at = 0; at < std::min(list.used, REPORTED_GROUPS + 0); at++) {
        const holder_group *group = &list.groups[at];
        ZYMM_WARN(operation, "slab %s: %lu objects out, module %u, %s line %u, oldest %lu s.",
                  s->name, group->count, group->module_id, text_of(group->func), group->line,
                  age_seconds(group->oldest));
    }
    if (list.used > REPORTED_GROUPS || list.ungrouped != 0)
        ZYMM_WARN(operation, "slab %s: and %lu more call sites, %lu objects not grouped.", s->name,
                  list.used > REPORTED_GROUPS ? list.used - REPORTED_GROUPS : 0, list.ungrouped);
    holders_release(&list);
}

} // namespace zymm
