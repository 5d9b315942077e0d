/*
 * Memory from the system: aligned mappings, their backing and their attributes.
 *
 * Everything the layer maps for objects, records and enclosing pools goes through here and is
 * counted, so that a test or an operator can see that a destroyed slab gave everything back.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

enum : uint64_t {
    PAGE_BYTES = 4096,
    UNIT_BYTES = 65536,   /* what pieces are made of, and the grain of the address map */
    HUGE_BYTES = 2097152, /* a huge page; also the largest alignment of an object */
};

constexpr uint64_t round_up(uint64_t value, uint64_t grain)
{
    return (value + grain - 1) / grain * grain;
}

constexpr bool is_power_of_two(uint64_t value)
{
    return value != 0 && (value & (value - 1)) == 0;
}

/* Zeroed memory, aligned to `align` (a power of two of at least a page), or null. */
void *system_map(uint64_t bytes, uint64_t align);

/* The same on huge pages where the system has them; both numbers multiples of HUGE_BYTES. */
void *system_map_huge(uint64_t bytes);

void system_unmap(void *memory, uint64_t bytes);

/* Whether the machine is as large as this at all; true when its size is unknown. */
bool system_has(uint64_t bytes);

/* Backs the range with pages at once. False when the system has too few. */
bool system_populate(void *memory, uint64_t bytes);

/* Bytes mapped at this moment through system_map and system_map_huge. */
uint64_t system_mapped_bytes();

} // namespace zymm
