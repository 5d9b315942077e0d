/*
 * T10 protection information: the 8 bytes behind each sector's data.
 *
 *     512      514               516                 520
 *     | guard  | application tag | reference tag     |      each big endian
 *
 * The guard is the CRC-16/T10-DIF of the 512 data bytes; the application tag says that this device
 * made it; the reference tag is the low half of the sector's number, so that a sector written to
 * another's place is noticed.
 *
 * Masks of sectors have bit s for sector s of a page, s from 0 to 15.
 */
#pragma once

#include <cstdint>

#include "zyumm_cmm_types.h"

inline constexpr uint16_t ALL_SECTORS = 0xFFFF;

/* Makes the protection information of the sectors in `mask`. `page` is the content of a page in
 * memory, `number` its place on the device. */
void protect_sectors(uint8_t *page, uint64_t number, uint16_t mask);

enum class damage { NONE, GUARD, APPLICATION_TAG, REFERENCE_TAG };

/* What is wrong with one sector, the first thing in the order of the fields. */
damage damage_of(const uint8_t *page, uint64_t number, uint32_t sector);

const char *name_of(damage what);

/* The sectors of a page that do not hold. */
uint16_t damaged_sectors(const uint8_t *page, uint64_t number);

/* True when all of the page's bytes are zero, protection information too: it was never written. */
bool is_hole(const uint8_t *page);
