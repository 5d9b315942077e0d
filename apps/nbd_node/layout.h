/*
 * Places and records of a backing file.
 *
 *     0          4096       8192              JOURNAL_END
 *     | header A | header B | journal places | page 0 | page 1 | ...
 *
 * A page on the file is a page in memory without its control record. Numbers are in the machine's
 * byte order: a file is used on the machine that made it, or on one like it.
 */
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyumm_cmm_types.h"

inline constexpr uint64_t HEADER_MAGIC  = 0x31454444424E4D43; /* "CMNBDDE1" as bytes */
inline constexpr uint64_t RECORD_MAGIC  = 0x315443454A424E4D; /* of a journal place */
inline constexpr uint32_t LAYOUT_VERSION = 1;

inline constexpr uint32_t STRIPE_PAGES = SGL_MAX_ENTRY_NUM; /* a run of pages is one SGL */

inline constexpr uint64_t HEADER_BYTES    = 4096;
inline constexpr uint64_t JOURNAL_OFFSET  = 2 * HEADER_BYTES;
inline constexpr uint32_t JOURNAL_PLACES  = 8;
inline constexpr uint64_t PLACE_BYTES     = HEADER_BYTES + STRIPE_PAGES * PAGE_SIZE_WITH_DIF;
inline constexpr uint64_t JOURNAL_END     = JOURNAL_OFFSET + JOURNAL_PLACES * PLACE_BYTES;

inline constexpr uint32_t STATE_CLOSED = 1; /* nothing is on its way, the journal is idle */
inline constexpr uint32_t STATE_OPEN   = 2;

struct file_header {
    uint64_t magic;
    uint32_t version;
    uint32_t state;    /* STATE_* */
    uint64_t sequence; /* of the two headers the valid one with the higher number counts */
    uint64_t size;     /* data bytes of the device */
    uint64_t epoch;    /* copies with a lower one than another were left behind */
    uint8_t  uuid[16]; /* of the device, the same in all copies */
    uint32_t reserved;
    uint32_t crc; /* CRC-32C of everything before it */
};

inline constexpr uint32_t RECORD_PAGES = 1; /* the pages' content follows */
inline constexpr uint32_t RECORD_TRIM  = 2; /* the pages become holes */

struct journal_record {
    uint64_t magic;
    uint64_t first; /* page */
    uint32_t count; /* pages, all of one stripe */
    uint32_t kind;  /* RECORD_* */
    uint32_t reserved;
    uint32_t crc; /* CRC-32C of everything before it, and of the pages */
};

static_assert(sizeof(file_header) == 64 && offsetof(file_header, crc) == 60);
static_assert(sizeof(journal_record) == 32 && offsetof(journal_record, crc) == 28);

/* Pages of a device; the last one may lie partly behind its end. */
inline uint64_t pages_of_device(uint64_t size)
{
    return (size + PAGE_DATA_SIZE - 1) / PAGE_DATA_SIZE;
}

inline uint64_t offset_of_page(uint64_t page)
{
    return JOURNAL_END + page * PAGE_SIZE_WITH_DIF;
}

inline uint64_t bytes_of_file(uint64_t size)
{
    return offset_of_page(pages_of_device(size));
}

/* A run of pages, all of one stripe. */
struct page_range {
    uint64_t first;
    uint32_t count;

    uint64_t end() const { return first + count; }
    bool overlaps(const page_range &other) const
    {
        return first < other.end() && other.first < end();
    }
};
