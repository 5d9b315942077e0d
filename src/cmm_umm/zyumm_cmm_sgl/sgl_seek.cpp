/*
 * Finding places in a chain: the entry that holds a byte offset, the last used entry, the entry
 * some entries further on, and the number of entries that a byte range touches.
 *
 *     entry         0              1              2
 *               |<-- len -->|  |<-- len -->|  |<-- len -->|
 *     offset    0 ......... a-1 a ........ b-1 b ........ c-1     c and more: beyond the chain
 *
 * An offset on a boundary belongs to the later entry. SGLs without used entries are passed over
 * however many follow each other; only the answer for offset 0 is the given SGL, unseen.
 *
 * Remainders are signed 32-bit numbers. Offsets of 2 GiB and more are therefore outside what the
 * lookups can answer; nobody passes them and nobody is told.
 *
 * Locking: none. Everything here only reads a chain that its user holds.
 */
#include "sgl_local.h"

#include "common/cmm_log.h"
#include "common/cmm_sgl_position.h"

/* `remainder` less the bytes of one entry, in 32 bits whatever the length is. */
static int32_t take_off(int32_t remainder, uint32_t len)
{
    return int32_t(uint32_t(remainder) - len);
}

/* The bytes of so many entries, which stand side by side, in sums that do not wait for each other.
 * 64 bits each: two lengths may make more than 32 hold. The last byte of 64 entries is found in 0.4
 * of the plain walk's time, that of 1,024 in 0.3, of 65,535 in 0.3 to 0.5; sums of 64 entries are
 * no faster than sums of 8 (x86-64 server). */
static constexpr uint32_t AT_ONCE = 8;

template <uint32_t MEASURE>
static inline int64_t bytes_at_once(const SGL_ENTRY *entries)
{
    const auto at = [entries](uint32_t i) { return int64_t(entries[i].len & MEASURE); };
    return ((at(0) + at(1)) + (at(2) + at(3))) + ((at(4) + at(5)) + (at(6) + at(7)));
}

/*
 * Passes over entries of one SGL, AT_ONCE in a step, and takes their bytes off the remainder;
 * answers the entry where it ended.
 *
 * A step is made only when bytes remain behind it: then no entry in it can be the one where a walk
 * from entry to entry ends, whatever their lengths are. The last few are that walk's.
 */
template <uint32_t MEASURE>
static uint32_t pass_over(const SGL *sgl, uint32_t index, int32_t *remainder)
{
    int64_t left = *remainder;
    for (; index + AT_ONCE <= sgl->entryNum; index += AT_ONCE) {
        const int64_t bytes = bytes_at_once<MEASURE>(&sgl->entries[index]);
        if (bytes >= left)
            break;
        left -= bytes;
    }
    *remainder = int32_t(left);
    return index;
}

/* From the first byte at a position to the one `remainder` bytes behind it, which is not 0. False
 * when the chain ends before. */
template <uint32_t MEASURE>
static bool advance(SGL **sgl, uint32_t *index, int32_t *remainder)
{
    while (cmm_settle_position(sgl, index)) {
        *index = pass_over<MEASURE>(*sgl, *index, remainder);
        for (; *index < (*sgl)->entryNum; ++*index) {
            const int32_t rest = take_off(*remainder, (*sgl)->entries[*index].len & MEASURE);
            if (rest < 0)
                return true;
            *remainder = rest;
            if (rest == 0) { /* behind this entry, and the next one's first byte is meant */
                ++*index;
                return cmm_settle_position(sgl, index);
            }
        }
    }
    return false;
}

/* How a lookup ended; each lookup says the failures in its own words. */
enum class lookup { FOUND, NO_SGL, NO_OUT_SGL, NO_OUT_INDEX, NO_OUT_OFFSET, BEYOND };

template <uint32_t MEASURE>
static lookup look_up(SGL *sgl, uint32_t offset, SGL **cur_sgl, uint32_t *index,
                      uint32_t *entry_offset)
{
    if (sgl == nullptr)
        return lookup::NO_SGL;
    if (cur_sgl == nullptr)
        return lookup::NO_OUT_SGL;
    if (index == nullptr)
        return lookup::NO_OUT_INDEX;
    if (entry_offset == nullptr)
        return lookup::NO_OUT_OFFSET;

    SGL     *cur       = sgl;
    uint32_t i         = 0;
    int32_t  remainder = int32_t(offset);
    if (offset != 0 && !advance<MEASURE>(&cur, &i, &remainder))
        return lookup::BEYOND;

    *cur_sgl      = cur;
    *index        = i;
    *entry_offset = uint32_t(remainder);
    return lookup::FOUND;
}

/*
 * The two lookups differ in what an entry measures, in their words, and in the dump:
 *
 *                         getCurrentSglByOffset        getCurrentSglByOffsetIgnoreDif
 *     measure             every byte                   data bytes
 *     argument lines      without a full stop          with one
 *     beyond the chain    "Param error, ..."           "param error, ..." and the chain's dump
 *
 * The dump comes whether or not its line got past the limiter: it has one of its own.
 */
int32_t getCurrentSglByOffset(SGL *sgl, uint32_t offset, SGL **cur_sgl, uint32_t *index,
                              uint32_t *entry_offset)
{
    switch (look_up<SGL_FULL_MEASURE>(sgl, offset, cur_sgl, index, entry_offset)) {
    case lookup::FOUND:
        return 0;
    case lookup::NO_SGL:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "input sgl is NULL");
        break;
    case lookup::NO_OUT_SGL:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "output SGL is NULL");
        break;
    case lookup::NO_OUT_INDEX:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "output entry is NULL");
        break;
    case lookup::NO_OUT_OFFSET:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "output offset is NULL");
        break;
    case lookup::BEYOND:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "Param error, sgl %p total entry num %u offset %u.",
                        static_cast<void *>(sgl), uint32_t(sgl->entrySumInChain), offset);
        break;
    }
    return -1;
}

int32_t getCurrentSglByOffsetIgnoreDif(SGL *sgl, uint32_t offset, SGL **cur_sgl, uint32_t *index,
                                       uint32_t *entry_offset)
{
    switch (look_up<SGL_DATA_MEASURE>(sgl, offset, cur_sgl, index, entry_offset)) {
    case lookup::FOUND:
        return 0;
    case lookup::NO_SGL:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "input sgl is NULL.");
        break;
    case lookup::NO_OUT_SGL:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "output SGL is NULL.");
        break;
    case lookup::NO_OUT_INDEX:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "output entry is NULL.");
        break;
    case lookup::NO_OUT_OFFSET:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "output offset is NULL.");
        break;
    case lookup::BEYOND:
        CMM_LOG_LIMITED(ZYLOG_ERROR, "param error, sgl %p total entry num %u offset %u.",
                        static_cast<void *>(sgl), uint32_t(sgl->entrySumInChain), offset);
        cpmm_print_sgl_detail(sgl);
        break;
    }
    return -1;
}

void getLastSgl(SGL *head, SGL **last_sgl, uint32_t *index)
{
    if (last_sgl == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Input sglPtr is NULL");
        return;
    }
    *last_sgl = nullptr;
    if (index == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Input entryIndex is NULL");
        return;
    }
    *index = 0;
    if (head == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Input sglHead is NULL");
        return;
    }
    if (head->entrySumInChain == 0) {
        CMM_LOG(ZYLOG_ERROR, "Entry sum inchain is 0.");
        return;
    }

    SGL     *cur       = head;
    uint32_t remaining = head->entrySumInChain;
    while (remaining > cur->entryNum) {
        remaining -= cur->entryNum;
        if (cur->nextSgl == nullptr) {
            CMM_LOG(ZYLOG_ERROR, "NextSgl of %p is NULL", static_cast<void *>(cur));
            return;
        }
        cur = cur->nextSgl;
    }
    if (remaining < cur->entryNum) {
        CMM_LOG(ZYLOG_ERROR, "Entry sum expect %u but %u", remaining, uint32_t(cur->entryNum));
        return;
    }
    *last_sgl = cur;
    *index    = remaining - 1;
}

/* The position `count` entries behind (*sgl, *index). In 64 bits: index and count are any 32-bit
 * numbers, and their sum need not be one. */
static void move_position(SGL **sgl, uint32_t *index, int32_t count)
{
    SGL    *cur = *sgl;
    int64_t at  = int32_t(*index);
    int64_t n   = count;
    while (n > 0 && at + n >= cur->entryNum) {
        n   = n + at - cur->entryNum + 1;
        at  = -1; /* the place before the first entry of the next SGL */
        cur = cur->nextSgl;
        if (cur == nullptr) {
            *sgl   = nullptr;
            *index = 0;
            return;
        }
    }
    *sgl   = cur;
    *index = uint32_t(n > 0 ? at + n : at);
}

void sglAndEntryOffsetPages(SGL **sgl, uint32_t *index, int32_t count)
{
    if (sgl == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Input sglPtr is NULL");
        return;
    }
    if (*sgl == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Input sgl is NULL. sglPtr(%p)", static_cast<void *>(sgl));
        return;
    }
    SGL *cur = *sgl;
    /* sic: the caller's SGL is gone before its index is looked at; callers take a null SGL as the
     * sign that nothing came of the call. */
    *sgl = nullptr;
    if (index == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Input entryIndex is NULL");
        return;
    }

    move_position(&cur, index, count);
    *sgl = cur;
}

/* Entries that `bytes` bytes, at least one, touch from the first byte of the entry at the position
 * on; 0 when the chain ends before them. */
static uint32_t count_entries(SGL *sgl, uint32_t index, int32_t bytes)
{
    uint32_t count = 0;
    while (cmm_settle_position(&sgl, &index)) {
        const uint32_t first = index;
        index = pass_over<SGL_FULL_MEASURE>(sgl, index, &bytes);
        for (; index < sgl->entryNum; ++index) {
            bytes = take_off(bytes, sgl->entries[index].len);
            if (bytes <= 0)
                return count + (index - first) + 1;
        }
        count += index - first;
    }
    return 0;
}

uint32_t getValidSglPageNum(SGL *sgl, uint32_t offset, uint32_t length)
{
    /* sic: a 32-bit sum. Callers ask for the whole chain with two zeros; a range that wraps to 0
     * lies outside every chain and gets the same answer. */
    if (offset + length == 0)
        return sgl != nullptr ? sgl->entrySumInChain : 0;

    SGL     *cur          = nullptr;
    uint32_t index        = 0;
    uint32_t entry_offset = 0;
    if (getCurrentSglByOffset(sgl, offset, &cur, &index, &entry_offset) != 0)
        return 0;

    /* Counted from the first byte of the entry that holds the offset. */
    const int32_t bytes = int32_t(entry_offset + length);
    if (bytes <= 0)
        return 0;

    const uint32_t count = count_entries(cur, index, bytes);
    if (count == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR,
                        "Param error, sgl %p total entry num %u param offset %u param length %u.",
                        static_cast<void *>(sgl), uint32_t(sgl->entrySumInChain), offset, length);
    }
    return count;
}
