/*
 * The CRC is the storage acceleration library's, which picks the processor's best way.
 */
#include "protection.h"

#include <endian.h>
#include <isa-l/crc.h>

#include <cstring>

namespace {

constexpr uint16_t APPLICATION_TAG = 0x4E42;

struct information {
    uint16_t guard, application;
    uint32_t reference;
};

uint8_t *sector_at(uint8_t *page, uint32_t sector)
{
    return page + sector * PAGE_SECTOR_SIZE;
}

information expected(const uint8_t *sector, uint64_t number, uint32_t index)
{
    return {htobe16(crc16_t10dif(0, sector, PAGE_SECTOR_DATA_SIZE)), htobe16(APPLICATION_TAG),
            htobe32(uint32_t(number * PAGE_SECTORS + index))};
}

} // namespace

void protect_sectors(uint8_t *page, uint64_t number, uint16_t mask)
{
    for (uint32_t s = 0; s < PAGE_SECTORS; ++s) {
        if ((mask >> s & 1) == 0)
            continue;
        const information made = expected(sector_at(page, s), number, s);
        memcpy(sector_at(page, s) + PAGE_SECTOR_DATA_SIZE, &made, sizeof made);
    }
}

damage damage_of(const uint8_t *page, uint64_t number, uint32_t sector)
{
    const uint8_t *data = page + sector * PAGE_SECTOR_SIZE;
    const information right = expected(data, number, sector);
    information found;

    memcpy(&found, data + PAGE_SECTOR_DATA_SIZE, sizeof found);
    if (found.guard != right.guard)
        return damage::GUARD;
    if (found.application != right.application)
        return damage::APPLICATION_TAG;
    return found.reference != right.reference ? damage::REFERENCE_TAG : damage::NONE;
}

const char *name_of(damage what)
{
    switch (what) {
    case damage::GUARD:
        return "guard";
    case damage::APPLICATION_TAG:
        return "application tag";
    case damage::REFERENCE_TAG:
        return "reference tag";
    case damage::NONE:
        break;
    }
    return "nothing";
}

uint16_t damaged_sectors(const uint8_t *page, uint64_t number)
{
    uint16_t mask = 0;
    for (uint32_t s = 0; s < PAGE_SECTORS; ++s)
        if (damage_of(page, number, s) != damage::NONE)
            mask = uint16_t(mask | 1u << s);
    return mask;
}

bool is_hole(const uint8_t *page)
{
    return page[0] == 0 && memcmp(page, page + 1, PAGE_SIZE_WITH_DIF - 1) == 0;
}
