/*
 * Copies between flat buffers and the memory that a chain describes.
 *
 *     full measure   buffer  |<------------ 8,320 bytes ------------>|
 *                    entry   |<- 512 ->|8|<- 512 ->|8| ... |<- 512 ->|8|
 *
 *     data measure   buffer  |<- 512 ->|<- 512 ->| ... |<- 512 ->|      8,192 bytes
 *                            |          \         \
 *                    entry   |<- 512 ->|8|<- 512 ->|8| ... |<- 512 ->|8|
 *
 * In the data measure the 8 integrity bytes of a sector are neither read nor written.
 *
 * One core walks the chain for all four chain copies, and one walks the sectors of an entry for
 * both entry copies. A core never logs: it says how the copy ended and which piece failed, and what
 * is around it writes the line, with limiters that no two operations share.
 *
 * Every piece is one memcpy_s whose destination size is the piece itself: the room was measured
 * by the walk already, and what the bounded copy adds is the check of pointers and overlap.
 *
 * A copy of 0 bytes makes one copy of 0 bytes at the place it finds. In a chain without a single
 * used entry there is no such place, and it succeeds with nothing copied.
 *
 * Locking: none. Chain and buffer belong to the caller for the duration.
 *
 * Deliberately absent: undo. A failed copy leaves the pieces before the failure in place.
 */
#include "sgl_local.h"

#include <algorithm>

#include "bounded.h"

#include "common/cmm_log.h"
#include "common/cmm_sgl_position.h"

/* One memcpy_s; also what a failed copy has to say about it. */
struct piece {
    void       *dst;
    const void *src;
    uint32_t    len;
    uint32_t    offset; /* in its sector for an entry copy, in its entry for a chain copy */
};

/* The two directions: which side of a piece is the chain's memory and which the buffer. */
struct into_chain {
    using buffer = const void *;
    using bytes  = const uint8_t *;

    static piece between(uint8_t *memory, bytes side, uint32_t len, uint32_t offset)
    {
        return {memory, side, len, offset};
    }
};

struct out_of_chain {
    using buffer = void *;
    using bytes  = uint8_t *;

    static piece between(uint8_t *memory, bytes side, uint32_t len, uint32_t offset)
    {
        return {side, memory, len, offset};
    }
};

/* False when the copy failed; `failed` is the piece then. */
static inline bool copy_piece(const piece &part, piece *failed)
{
    if (memcpy_s(part.dst, part.len, part.src, part.len) == 0)
        return true;
    *failed = part;
    return false;
}

/* ------------------------------------------------------------------ one entry, data measure */

/*
 * One loop for the first, the whole and the last sector. Taken apart, so that whole sectors need no
 * minimum and no test of their rest, a hot copy of 256 KiB took 0.98 to 1.1 of the time: a sector's
 * copy is long enough to hide both.
 *
 * False when the copy of a piece failed, which `failed` is then.
 */
template <typename Way>
static bool copy_sectors(const SGL_ENTRY *entry, uint32_t offset, typename Way::bytes side,
                         uint32_t length, piece *failed)
{
    uint8_t *sector = entry->buf + size_t(offset / PAGE_SECTOR_DATA_SIZE) * PAGE_SECTOR_SIZE;
    offset %= PAGE_SECTOR_DATA_SIZE;

    for (;;) {
        const uint32_t count = std::min(PAGE_SECTOR_DATA_SIZE - offset, length);
        if (!copy_piece(Way::between(sector + offset, side, count, offset), failed))
            return false;
        length -= count;
        if (length == 0)
            return true;
        side += count;
        offset = 0;
        sector += PAGE_SECTOR_SIZE;
    }
}

int32_t copyDataFromBufferToEntryIgnoreDif(SGL_ENTRY *entry, uint32_t offset, const void *buffer,
                                           uint32_t length)
{
    piece      failed = {};
    const auto bytes  = static_cast<const uint8_t *>(buffer);
    if (copy_sectors<into_chain>(entry, offset, bytes, length, &failed))
        return 0;

    CMM_LOG(ZYLOG_ERROR, "Copy data failed. dest(%p) src(%p) len(%u) offset(%u)", failed.dst,
            failed.src, failed.len, failed.offset);
    return -1;
}

int32_t copyDataFromEntryToBufferIgnoreDif(SGL_ENTRY *entry, uint32_t offset, void *buffer,
                                           uint32_t length)
{
    piece      failed = {};
    const auto bytes  = static_cast<uint8_t *>(buffer);
    if (copy_sectors<out_of_chain>(entry, offset, bytes, length, &failed))
        return 0;

    CMM_LOG(ZYLOG_ERROR, "Copy data failed. dest(%p) src(%p) len(%u) offset(%u)", failed.dst,
            failed.src, failed.len, failed.offset);
    return -1;
}

/* --------------------------------------------------------------------------- whole chains */

/* How a copy ended; each copy says the failures in its own words. */
enum class copy_end {
    DONE,
    NO_BUFFER,
    NOT_FOUND,    /* the offset lies beyond the chain */
    FIRST_FAILED, /* the copy of the first piece, which starts inside its entry */
    LATER_FAILED, /* the copy of a later piece, which starts with its entry */
    CHAIN_ENDED
};

/* What tells the chain copies apart besides direction and words: a parameter of the core, so that
 * each copy is an instance of it that calls what it needs directly. */
template <typename Way>
struct copy_measure {
    int32_t (*find)(SGL *sgl, uint32_t offset, SGL **cur_sgl, uint32_t *index,
                    uint32_t *entry_offset);
    uint32_t mask; /* over an entry's len */
    bool (*copy)(SGL_ENTRY *entry, uint32_t offset, typename Way::bytes side, uint32_t length);
};

/* A piece of an entry in the full measure: plain memory. */
template <typename Way>
static bool copy_plain(SGL_ENTRY *entry, uint32_t offset, typename Way::bytes side, uint32_t length)
{
    piece unread;
    return copy_piece(Way::between(entry->buf + offset, side, length, offset), &unread);
}

static bool copy_into_entry(SGL_ENTRY *entry, uint32_t offset, const uint8_t *side, uint32_t length)
{
    return copyDataFromBufferToEntryIgnoreDif(entry, offset, side, length) == 0;
}

static bool copy_out_of_entry(SGL_ENTRY *entry, uint32_t offset, uint8_t *side, uint32_t length)
{
    return copyDataFromEntryToBufferIgnoreDif(entry, offset, side, length) == 0;
}

static constexpr copy_measure<into_chain> FULL_INTO = {
    getCurrentSglByOffset, SGL_FULL_MEASURE, copy_plain<into_chain>};
static constexpr copy_measure<out_of_chain> FULL_OUT = {
    getCurrentSglByOffset, SGL_FULL_MEASURE, copy_plain<out_of_chain>};
static constexpr copy_measure<into_chain> DATA_INTO = {
    getCurrentSglByOffsetIgnoreDif, SGL_DATA_MEASURE, copy_into_entry};
static constexpr copy_measure<out_of_chain> DATA_OUT = {
    getCurrentSglByOffsetIgnoreDif, SGL_DATA_MEASURE, copy_out_of_entry};

/* `sgl` is not null; `failed` is the piece whose copy failed when the copy ended so. */
template <typename Way, const copy_measure<Way> &MEASURE>
static copy_end copy_chain(SGL *sgl, uint32_t offset, typename Way::buffer buffer, uint32_t length,
                           piece *failed)
{
    if (buffer == nullptr)
        return copy_end::NO_BUFFER;

    SGL     *cur   = nullptr;
    uint32_t index = 0;
    if (MEASURE.find(sgl, offset, &cur, &index, &offset) != 0)
        return copy_end::NOT_FOUND;

    auto     side       = static_cast<typename Way::bytes>(buffer);
    copy_end on_failure = copy_end::FIRST_FAILED;
    while (cmm_settle_position(&cur, &index)) {
        SGL_ENTRY     *entry = &cur->entries[index];
        const uint32_t count = std::min((entry->len & MEASURE.mask) - offset, length);
        if (!MEASURE.copy(entry, offset, side, count)) {
            *failed = Way::between(entry->buf + offset, side, count, offset);
            return on_failure;
        }
        side += count;
        length -= count;
        offset     = 0;
        on_failure = copy_end::LATER_FAILED;
        ++index;
        if (length == 0)
            return copy_end::DONE;
    }
    return length == 0 ? copy_end::DONE : copy_end::CHAIN_ENDED;
}

/*
 * The four chain copies side by side; all lines are errors:
 *
 *                      full measure                    data measure
 *     null arguments   "... is NULL", limited          "... is NULL.", limited
 *     beyond chain     "Get current sgl ...", limited  "get current sgl ...", not limited
 *     failed piece     limited                         not limited, behind the entry copy's line
 *     chain ended      limited                         not limited
 *
 * The null chain is "dstSgl" on the way into the chain and "srcSgl" on the way out. In the data
 * measure a failed first piece names buf + data offset, which is not where in memory it lies: the
 * entry copy's own line in front has that address.
 *
 * Each measure says its failures in one place for both directions; `func` is the operation. Every
 * direction is an instance of its own, and so are the limiters in it: a flood of failed reads does
 * not silence the first failed write.
 */
template <typename Way, const copy_measure<Way> &MEASURE>
static int32_t full_copy(SGL *sgl, uint32_t offset, typename Way::buffer buffer, uint32_t length,
                         const char *func)
{
    piece failed = {};
    switch (copy_chain<Way, MEASURE>(sgl, offset, buffer, length, &failed)) {
    case copy_end::DONE:
        return 0;
    case copy_end::NO_BUFFER:
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR, "buffer is NULL");
        break;
    case copy_end::NOT_FOUND:
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR, "Get current sgl by buffer offset failed.");
        break;
    case copy_end::FIRST_FAILED:
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR,
                           "Copy data failed. dest(%p) src(%p) len(%u) offset(%u)", failed.dst,
                           failed.src, failed.len, failed.offset);
        break;
    case copy_end::LATER_FAILED:
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR, "Copy data failed. dest(%p) src(%p) len(%u)",
                           failed.dst, failed.src, failed.len);
        break;
    case copy_end::CHAIN_ENDED:
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR, "Sgl error.");
        break;
    }
    return -1;
}

template <typename Way, const copy_measure<Way> &MEASURE>
static int32_t data_copy(SGL *sgl, uint32_t offset, typename Way::buffer buffer, uint32_t length,
                         const char *func)
{
    piece failed = {};
    switch (copy_chain<Way, MEASURE>(sgl, offset, buffer, length, &failed)) {
    case copy_end::DONE:
        return 0;
    case copy_end::NO_BUFFER:
        CMM_LOG_LIMITED_AS(func, ZYLOG_ERROR, "buffer is NULL.");
        break;
    case copy_end::NOT_FOUND:
        CMM_LOG_AS(func, ZYLOG_ERROR, "get current sgl by buffer offset failed.");
        break;
    case copy_end::FIRST_FAILED:
        CMM_LOG_AS(func, ZYLOG_ERROR, "Copy data failed. dest(%p) src(%p) len(%u) offset(%u)",
                   failed.dst, failed.src, failed.len, failed.offset);
        break;
    case copy_end::LATER_FAILED:
        CMM_LOG_AS(func, ZYLOG_ERROR, "Copy data failed. dest(%p) src(%p) len(%u)", failed.dst,
                   failed.src, failed.len);
        break;
    case copy_end::CHAIN_ENDED:
        CMM_LOG_AS(func, ZYLOG_ERROR, "Sgl error.");
        break;
    }
    return -1;
}

int32_t copyDataFromBufferToSgl(SGL *dstSgl, uint32_t offset, const void *buffer, uint32_t length)
{
    if (dstSgl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "dstSgl is NULL");
        return -1;
    }

    return full_copy<into_chain, FULL_INTO>(dstSgl, offset, buffer, length, __func__);
}

int32_t copyDataFromSglToBuffer(SGL *srcSgl, uint32_t offset, void *buffer, uint32_t length)
{
    if (srcSgl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "srcSgl is NULL");
        return -1;
    }

    return full_copy<out_of_chain, FULL_OUT>(srcSgl, offset, buffer, length, __func__);
}

int32_t copyDataFromBufferToSglIgnoreDif(SGL *dstSgl, uint32_t offset, const void *buffer,
                                         uint32_t length)
{
    if (dstSgl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "dstSgl is NULL.");
        return -1;
    }

    return data_copy<into_chain, DATA_INTO>(dstSgl, offset, buffer, length, __func__);
}

int32_t copyDataFromSglToBufferIgnoreDif(SGL *srcSgl, uint32_t offset, void *buffer,
                                         uint32_t length)
{
    if (srcSgl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "srcSgl is NULL.");
        return -1;
    }

    return data_copy<out_of_chain, DATA_OUT>(srcSgl, offset, buffer, length, __func__);
}
