/*
 * A client's request, cut at the boundaries of stripes, and what a part of it needs of each page.
 *
 *     request   |---------------------------------------------|
 *     stripes   |     64 pages     |     64 pages     |
 *     part           |-------------|
 *     pages          [ 0 ][ 1 ][ 2 ]     the first and the last may be touched in part
 *
 * Masks of sectors have 16 bits, those of the page's valid bitmap 8: a bit for two sectors.
 */
#pragma once

#include <algorithm>
#include <cstdint>

#include "layout.h"

struct request_part {
    page_range     pages;
    uint32_t       offset; /* data bytes from the start of the first page */
    uint32_t       length; /* data bytes */
    uint8_t       *to;     /* a read's buffer */
    const uint8_t *from;   /* a write's data; null for zeros */

    /* The part of this part that lies in pages [index, index + count). */
    request_part slice(uint32_t index, uint32_t count) const
    {
        const uint32_t begin = std::max(offset, index * PAGE_DATA_SIZE);
        const uint32_t end = std::min(offset + length, (index + count) * PAGE_DATA_SIZE);
        const uint32_t skipped = begin - offset;
        return {{pages.first + index, count},
                begin - index * PAGE_DATA_SIZE,
                end - begin,
                to != nullptr ? to + skipped : nullptr,
                from != nullptr ? from + skipped : nullptr};
    }
};

/* Cuts [offset, offset + bytes) into parts of at most `longest` pages and calls `use` with each,
 * until one answers an errno. */
template <typename F>
int for_each_part(uint64_t offset, uint64_t bytes, uint8_t *to, const uint8_t *from,
                  uint32_t longest, F use)
{
    while (bytes > 0) {
        const uint64_t first = offset / PAGE_DATA_SIZE;
        const uint64_t stripe_end = (first / STRIPE_PAGES + 1) * STRIPE_PAGES;
        const uint64_t last = std::min(first + longest, stripe_end);
        const auto length = uint32_t(std::min(bytes, last * PAGE_DATA_SIZE - offset));
        const auto in_page = uint32_t(offset % PAGE_DATA_SIZE);
        const auto count = (in_page + length + PAGE_DATA_SIZE - 1) / PAGE_DATA_SIZE;

        if (const int failed = use(request_part{{first, count}, in_page, length, to, from}))
            return failed;
        offset += length;
        bytes -= length;
        to = to != nullptr ? to + length : nullptr;
        from = from != nullptr ? from + length : nullptr;
    }
    return 0;
}

/* Sectors that a slice of one page touches, and those that it covers from end to end. */
inline uint16_t sectors_between(uint32_t first, uint32_t end)
{
    return first < end ? uint16_t(((1u << end) - 1) & ~((1u << first) - 1)) : uint16_t(0);
}

inline uint16_t touched_sectors(const request_part &one)
{
    return sectors_between(one.offset / PAGE_SECTOR_DATA_SIZE,
                           (one.offset + one.length + PAGE_SECTOR_DATA_SIZE - 1) /
                               PAGE_SECTOR_DATA_SIZE);
}

inline uint16_t covered_sectors(const request_part &one)
{
    return sectors_between((one.offset + PAGE_SECTOR_DATA_SIZE - 1) / PAGE_SECTOR_DATA_SIZE,
                           (one.offset + one.length) / PAGE_SECTOR_DATA_SIZE);
}

/* Bits of the valid bitmap with any, or with both, of their sectors in the mask. */
inline uint8_t bits_with_any(uint16_t sectors)
{
    uint8_t bits = 0;
    for (uint32_t b = 0; b < 8; ++b)
        bits = uint8_t(bits | ((sectors >> 2 * b & 3) != 0 ? 1u << b : 0));
    return bits;
}

inline uint8_t bits_with_both(uint16_t sectors)
{
    return uint8_t(~bits_with_any(uint16_t(~sectors)));
}

/* The sectors of the bits. */
inline uint16_t sectors_of_bits(uint8_t bits)
{
    uint16_t sectors = 0;
    for (uint32_t b = 0; b < 8; ++b)
        sectors = uint16_t(sectors | ((bits >> b & 1) != 0 ? 3u << 2 * b : 0));
    return sectors;
}
