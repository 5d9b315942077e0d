/*
 * Which lines are written: one byte a module.
 *
 *     bit 7        the module has a level of its own
 *     bits 0 to 6  its level, exclusive-or ZYLOG_WARNING
 *
 * The exclusive-or makes the zeroed table say "warnings and worse" from the first instruction of
 * the process on, so that a check is one load and needs nothing to be initialised. A change of the
 * default level writes the whole table instead; that is rare, checks are not. The default stands
 * beside the table as well, for the list and for a module that gives its own level up.
 *
 * The index is the low 16 bits of the module id: that is all of an id that page records keep, too.
 */
#include "zyax_local.h"

#include <algorithm>
#include <iterator>
#include <strings.h>

static constexpr uint32_t MODULES    = 65536;
static constexpr uint8_t  OWN_LEVEL  = 0x80;
static constexpr uint8_t  LEVEL_BITS = 0x7f;

static uint8_t s_levels[MODULES];
static uint8_t s_default; /* as in the table */

/* By level; 0 and 1 are no levels of this log, and callers that use them mean the worst one. */
static const char *const NAMES[] = {"fatal",   "fatal",  "fatal", "error",
                                    "warning", "notice", "info",  "debug"};
static_assert(std::size(NAMES) == ZYAX_LOG_EVERYTHING + 1);

static uint8_t encode(uint32_t level)
{
    const uint32_t known = std::clamp(level, uint32_t(ZYLOG_FATAL), uint32_t(ZYAX_LOG_EVERYTHING));
    return uint8_t(known ^ ZYLOG_WARNING);
}

static uint32_t decode(uint8_t entry)
{
    return (entry & LEVEL_BITS) ^ ZYLOG_WARNING;
}

static uint8_t entry_of(uint32_t module_id)
{
    return __atomic_load_n(&s_levels[module_id % MODULES], __ATOMIC_RELAXED);
}

int zylog_level_check(uint32_t module_id, uint32_t level)
{
    return level <= decode(entry_of(module_id)) ? 0 : -1;
}

void zyax_log_set_level(uint32_t level)
{
    const uint8_t wanted = encode(level);
    /* Before the table, see zyax_log_clear_module_level. */
    __atomic_store_n(&s_default, wanted, __ATOMIC_SEQ_CST);
    for (uint8_t &place : s_levels) {
        uint8_t entry = __atomic_load_n(&place, __ATOMIC_SEQ_CST);
        /* A module that gets its own level at this moment keeps it. */
        while ((entry & OWN_LEVEL) == 0 &&
               !__atomic_compare_exchange_n(&place, &entry, wanted, true, __ATOMIC_RELAXED,
                                            __ATOMIC_RELAXED)) {
        }
    }
}

uint32_t zyax_log_get_level(void)
{
    return decode(__atomic_load_n(&s_default, __ATOMIC_RELAXED));
}

void zyax_log_set_module_level(uint32_t module_id, uint32_t level)
{
    __atomic_store_n(&s_levels[module_id % MODULES], uint8_t(encode(level) | OWN_LEVEL),
                     __ATOMIC_RELAXED);
}

/*
 * The default may be changed at this moment by a thread that passed this entry over, as it had a
 * level of its own. That thread stored the default before it looked at the entry, this one looks at
 * the default after it stored the entry: one of the two sees the other.
 */
void zyax_log_clear_module_level(uint32_t module_id)
{
    uint8_t *place = &s_levels[module_id % MODULES];
    uint8_t taken = __atomic_load_n(&s_default, __ATOMIC_SEQ_CST);
    __atomic_store_n(place, taken, __ATOMIC_SEQ_CST);

    uint8_t present = __atomic_load_n(&s_default, __ATOMIC_SEQ_CST);
    while (present != taken && __atomic_compare_exchange_n(place, &taken, present, false,
                                                           __ATOMIC_SEQ_CST, __ATOMIC_RELAXED)) {
        taken = present;
        present = __atomic_load_n(&s_default, __ATOMIC_SEQ_CST);
    }
}

const char *zyax_log_level_name(uint32_t level)
{
    return NAMES[std::min(level, uint32_t(ZYAX_LOG_EVERYTHING))];
}

int zyax_log_level_parse(const char *text, uint32_t *level)
{
    if (text == nullptr || level == nullptr)
        return -1;

    if (text[0] >= '0' && text[0] < '0' + int(std::size(NAMES)) && text[1] == '\0') {
        *level = std::max(uint32_t(text[0] - '0'), uint32_t(ZYLOG_FATAL));
        return 0;
    }
    for (uint32_t known = ZYLOG_FATAL; known < std::size(NAMES); ++known) {
        if (strcasecmp(text, NAMES[known]) == 0) {
            *level = known;
            return 0;
        }
    }
    return -1;
}

/* ---------------------------------------------------------------- the list */

namespace
{
/* A list that somebody else has room for: what does not fit is counted all the same. */
struct listing {
    zyax_log_module *modules;
    uint32_t room;
    uint32_t count;

    void add(uint32_t module_id, uint8_t entry)
    {
        if (count < room) {
            zyax_log_module *module = &modules[count];
            *module = {module_id, decode(entry), (entry & OWN_LEVEL) != 0, {}};
            strncpy_s(module->name, sizeof(module->name), zyax_pid_get_name(module_id),
                      sizeof(module->name) - 1);
        }
        ++count;
    }
};
} // namespace

static bool names_one_of(const uint32_t *named, uint32_t count, uint32_t low_bits)
{
    return std::any_of(named, named + count,
                       [=](uint32_t module_id) { return module_id % MODULES == low_bits; });
}

uint32_t zyax_log_list_modules(zyax_log_module *modules, uint32_t room)
{
    listing list = {modules, modules != nullptr ? room : 0, 0};
    uint32_t named[zyax::MAX_MODULE_NAMES];
    const uint32_t count = zyax::named_modules(named);

    uint32_t next = 0;
    for (uint32_t low_bits = 0; low_bits < MODULES; ++low_bits) {
        const uint8_t entry = entry_of(low_bits);
        if (next < count && named[next] == low_bits)
            list.add(named[next++], entry);
        else if ((entry & OWN_LEVEL) != 0 && !names_one_of(named, count, low_bits))
            list.add(low_bits, entry);
    }
    for (; next < count; ++next)
        list.add(named[next], entry_of(named[next]));
    return list.count;
}
