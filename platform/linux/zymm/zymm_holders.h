/*
 * Who holds a slab's objects: grouped by module, function and line, top holders first.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

struct slab;

struct holder_group {
    const char *func; /* null marks an unused entry of the table when count is 0 */
    uint64_t    count;
    uint64_t    leaked; /* of these, out for at least the leak age */
    uint32_t    oldest; /* ticks since the oldest object's allocation */
    uint32_t    module_id;
    uint32_t    line;
};

struct holder_list {
    holder_group *groups; /* the first `used` entries, sorted */
    uint64_t      used;
    uint64_t      capacity; /* a power of two */
    uint64_t      objects;  /* all that are out */
    uint64_t      ungrouped; /* of these, met when the table was full */
    uint64_t      leaked;    /* of all that are out */
    uint64_t      leak_age;  /* ns */
};

/* Gathers and sorts; false when there is no memory for it. Released with holders_release. */
bool holders_gather(slab *s, holder_list *list);
void holders_release(holder_list *list);

/* Writes warning lines about the objects that are out: one that counts them, and one for each of
 * the largest groups. */
void holders_report(slab *s, const char *operation, const char *caller);

/* Whole seconds. */
uint64_t age_seconds(uint32_t ticks);

/* An object that has been out for so many ticks counts as leaked. */
bool is_leaked(uint32_t ticks, uint64_t leak_age);

} // namespace zymm
