/*
 * Second chains over the same pages.
 *
 *     source                 [a b . .] -> [. . . .] -> [c d e .]         (4 entries an SGL here)
 *     cloneSgl               [a b c d] -> [e . . .]                      a reference on each page
 *     cloneSglChain          [a b . .] -> [. . . .] -> [c d e .]         no reference
 *
 * A clone owns its pages as much as its source does: it is a page chain like any other, packed as
 * the writer's step packs. A copy made by cloneSglChain only borrows the pages and mirrors the source SGL
 * for SGL, so that a place found in the one is the same place in the other; freeCloneSgl takes it
 * back, and wipes it first: a freed SGL must not keep pointers to pages that others go on using.
 *
 * Both need SGLs from the pool while I/O runs, and either stands complete or not at all when the
 * pool is dry. Only a source that is shorter than its count leaves a partial clone, with the
 * references taken up to there: nobody can tell better than its holder what became of the rest.
 *
 * Locking: none. The source must not change meanwhile; reference counts are atomic, so that chains
 * that share pages are cloned and released on different threads at once.
 */
#include "sgl_local.h"

#include <string.h>

#include <algorithm>

#include "zyumm_cmm_page.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"
#include "common/cmm_sgl_position.h"

/* sic: fixed lines. Leak reports list a borrowed copy under these places, and the tools that group
 * the reports know them by number. */
static constexpr uint32_t CLONE_ALLOC_LINE = 989;
static constexpr uint32_t CLONE_UNDO_LINE  = 993;
static constexpr uint32_t CLONE_FREE_LINE  = 1046;

/*
 * Lays entries of the source, from `index` on, behind those of the clone, and takes a reference on
 * the page of each. The entries first and all at once: a locked addition waits for every store in
 * front of it. With the entry, its counts and its reference in turn, and calls for each, a clone of
 * 256 pages and its release take 2.0 times a bare loop that copies and counts; this way, 1.2.
 */
static void share_entries(SGL *clone, const SGL *src, uint32_t index, uint32_t count,
                          const char *func, uint32_t line)
{
    for (uint32_t i = 0; i < CMM_RECORDS_AHEAD; ++i)
        cmm_ask_for_record(src, index + i);
    std::copy_n(&src->entries[index], count, &clone->entries[clone->entryNum]);
    clone->userFlag = src->userFlag;
    clone->entryNum = uint16_t(clone->entryNum + count);
    for (uint32_t end = index + count; index != end; ++index) {
        cmm_ask_for_record(src, index + CMM_RECORDS_AHEAD);
        incAndRetPageReference(src->entries[index].pageCtrl, func, line);
    }
}

void cloneSgl(SGL *srcSgl, uint64_t key, SGL **out, uint32_t owner_id, const char *func,
              uint32_t line)
{
    if (out == nullptr)
        return;
    *out = nullptr;
    if (srcSgl == nullptr || srcSgl->userTag != key)
        return;

    const uint32_t total = srcSgl->entrySumInChain;
    allocSglChain(out, total, owner_id, func, line);
    SGL *head = *out;
    if (head == nullptr)
        return;

    SGL     *src       = srcSgl;
    uint32_t src_index = 0;
    SGL     *dst       = head;
    for (uint32_t left = total; left != 0;) {
        if (!cmm_settle_position(&src, &src_index)) {
            CMM_LOG_LIMITED(ZYLOG_ERROR, "srcSglPtr is NULL.");
            return;
        }
        const uint32_t count = std::min({left, src->entryNum - src_index,
                                         uint32_t(SGL_MAX_ENTRY_NUM - dst->entryNum)});
        share_entries(dst, src, src_index, count, func, line);
        head->entrySumInChain = uint16_t(head->entrySumInChain + count);
        left -= count;
        src_index += count;
        if (dst->entryNum == SGL_MAX_ENTRY_NUM)
            dst = dst->nextSgl;
    }
}

/* All of an SGL but its link. */
static void copy_sgl(SGL *copy, const SGL *src)
{
    copy->entrySumInChain = src->entrySumInChain;
    copy->entryNum        = src->entryNum;
    copy->userFlag        = src->userFlag;
    copy->userTag         = src->userTag;
    std::copy_n(src->entries, src->entryNum, copy->entries);
}

int32_t cloneSglChain(SGL *srcSgl, SGL **out)
{
    if (out == nullptr)
        return -1;
    *out = nullptr;
    if (srcSgl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "input sgl is null.");
        return -1;
    }

    SGL **link = out;
    for (const SGL *src = srcSgl; src != nullptr; src = src->nextSgl) {
        SGL *copy = nullptr;
        allocOneSgl(&copy, CMM_SELF, CLONE_ALLOC_LINE);
        if (copy == nullptr) {
            CMM_LOG_LIMITED(ZYLOG_ERROR, "alloc sgl failed.");
            if (*out != nullptr)
                freeSglChain(*out, CMM_SELF, CLONE_UNDO_LINE);
            *out = nullptr;
            return -1;
        }
        copy_sgl(copy, src);
        *link = copy;
        link  = &copy->nextSgl;
    }
    return 0;
}

void freeCloneSgl(SGL *chain)
{
    if (chain == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "input sgl is null.");
        return;
    }

    for (SGL *sgl = chain; sgl != nullptr; sgl = sgl->nextSgl)
        memset(sgl->entries, 0, sgl->entryNum * sizeof sgl->entries[0]);
    freeSglChain(chain, CMM_SELF, CLONE_FREE_LINE);
}
