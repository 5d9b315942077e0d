/*
 * Second chains over the same pages.
 *
 *     source                 [a b . .] -> [. . . .] -> [c d e .]         (4 entries an SGL here)
 *     cloneSgl               [a b c d] -> [e . . .]                      a reference on each page
 *     cloneSglChain          [a b . .] -> [. . . .] -> [c d e .]         no reference
 *
 * A clone owns its pages as much as its source does: it is a page chain like any other, packed by
 * the writer's step. A copy made by cloneSglChain only borrows the pages and mirrors the source SGL
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
    uint32_t dst_index = 0;
    for (uint32_t left = total; left != 0; --left) {
        if (!cmm_settle_position(&src, &src_index)) {
            CMM_LOG_LIMITED(ZYLOG_ERROR, "srcSglPtr is NULL.");
            return;
        }
        const SGL_ENTRY *entry = &src->entries[src_index];
        dst->userFlag          = src->userFlag;
        dst->entries[dst_index] = *entry;
        incAndRetPageReference(entry->pageCtrl, func, line);
        move2NextEntryAndIncEntrySum(&dst, &dst_index, head);
        move2NextEntryAndModifyPSgl(&src, &src_index);
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
        std::fill_n(sgl->entries, sgl->entryNum, SGL_ENTRY{});
    freeSglChain(chain, CMM_SELF, CLONE_FREE_LINE);
}
