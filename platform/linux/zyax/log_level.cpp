/*
 * Which lines are written: one byte a module.
 *
 *     bit 7        the module has a level of its own
 *     bits 0 to 6  its level, exclusive-or ZYLOG_WARNING
 *
 * The exclusive-or makes the zeroed table say "warnings and worse" from the first instruction of
 * the process on, so that a check is one load and needs nothing to be initialised. A change of the
 * default level writes the whole table instead; that is rare, checks are not.
 *
 * The index is the low 16 bits of the module id: that is all of an id that page records keep, too.
 */
#include "zyax_local.h"

static constexpr uint32_t MODULES    = 65536;
static constexpr uint8_t  OWN_LEVEL  = 0x80;
static constexpr uint8_t  LEVEL_BITS = 0x7f;
static constexpr uint32_t EVERYTHING = 7;

static uint8_t s_levels[MODULES];

static uint8_t encode(uint32_t level)
{
    if (level < ZYLOG_FATAL)
        level = ZYLOG_FATAL;
    if (level > EVERYTHING)
        level = EVERYTHING;
    return uint8_t(level ^ ZYLOG_WARNING);
}

int zylog_level_check(uint32_t module_id, uint32_t level)
{
    const uint8_t entry = __atomic_load_n(&s_levels[module_id % MODULES], __ATOMIC_RELAXED);
    return level <= uint32_t((entry & LEVEL_BITS) ^ ZYLOG_WARNING) ? 0 : -1;
}

void zyax_log_set_level(uint32_t level)
{
    const uint8_t wanted = encode(level);
    for (uint8_t &place : s_levels) {
        uint8_t entry = __atomic_load_n(&place, __ATOMIC_RELAXED);
        /* A module that gets its own level at this moment keeps it. */
        while ((entry & OWN_LEVEL) == 0 &&
               !__atomic_compare_exchange_n(&place, &entry, wanted, true, __ATOMIC_RELAXED,
                                            __ATOMIC_RELAXED)) {
        }
    }
}

void zyax_log_set_module_level(uint32_t module_id, uint32_t level)
{
    __atomic_store_n(&s_levels[module_id % MODULES], uint8_t(encode(level) | OWN_LEVEL),
                     __ATOMIC_RELAXED);
}
