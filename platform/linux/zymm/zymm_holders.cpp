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

#include "zymm_seam.h"
#include "zymm_settings.h"
#include "zymm_slab.h"
#include "zymm_system.h"
#include "zymm_tick.h"

namespace zymm
{

enum : uint64_t { FEWEST_ENTRIES = 64, MOST_ENTRIES = 65536, REPORTED_GROUPS = 16 };

static uint64_t hash_of(const call_site &site)
{
    uint64_t hash = 0xcbf29ce484222325ull ^ site.module_id ^ uint64_t(site.line) << 32;
    for (const char *at = text_of(site.func); *at != '\0'; at++)
        hash = (hash ^ uint8_t(*at)) * 0x100000001b3ull;
    return hash ^ hash >> 29;
}

static bool is_same_site(const holder_group *group, const call_site &site)
{
    if (group->module_id != site.module_id || group->line != site.line)
        return false;
    return group->func == site.func || strcmp(text_of(group->func), text_of(site.func)) == 0;
}

/* The site's group, or the empty entry where it belongs; null when the table is full. */
static holder_group *find_group(const holder_list *list, const call_site &site)
{
    const uint64_t hash = hash_of(site);
    for (uint64_t step = 0; step < list->capacity; step++) {
        holder_group *group = &list->groups[(hash + step) & (list->capacity - 1)];
        if (group->count == 0 || is_same_site(group, site))
            return group;
    }
    return nullptr;
}

static void count_object(void *context, uint64_t tag)
{
    holder_list *list = static_cast<holder_list *>(context);
    const uint32_t age = tick_now() - tag_tick(tag);
    const uint64_t leaked = is_leaked(age, list->leak_age) ? 1 : 0;
    list->objects++;
    list->leaked += leaked;
    const call_site site = site_of(tag_holder(tag));
    holder_group *group = find_group(list, site);
    const bool is_new = group != nullptr && group->count == 0;
    if (group == nullptr || (is_new && list->used > list->capacity / 2)) {
        list->ungrouped++;
        return;
    }
    if (is_new) {
        list->used++;
        *group = {site.func, 0, 0, age, site.module_id, site.line};
    }
    group->count++;
    group->leaked += leaked;
    group->oldest = std::max(group->oldest, age);
}

static bool holds_more(const holder_group &a, const holder_group &b)
{
    return a.count != b.count ? a.count > b.count : a.oldest > b.oldest;
}

bool holders_gather(slab *s, holder_list *list)
{
    const uint64_t wanted = std::clamp(2 * slab_used(s), FEWEST_ENTRIES + 0, MOST_ENTRIES + 0);
    uint64_t capacity = FEWEST_ENTRIES;
    while (capacity < wanted)
        capacity *= 2;
    void *memory = system_map(capacity * sizeof(holder_group), PAGE_BYTES);
    *list = {static_cast<holder_group *>(memory), 0, capacity, 0, 0, 0, leak_age_ns()};
    if (memory == nullptr)
        return false;

    slab_visit_out(s, count_object, list);
    std::sort(list->groups, list->groups + capacity, holds_more);
    return true;
}

void holders_release(holder_list *list)
{
    system_unmap(list->groups, list->capacity * sizeof(holder_group));
}

uint64_t age_seconds(uint32_t ticks)
{
    return (uint64_t(ticks) << TICK_SHIFT) / 1000000000;
}

bool is_leaked(uint32_t ticks, uint64_t leak_age)
{
    return uint64_t(ticks) << TICK_SHIFT >= leak_age;
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
