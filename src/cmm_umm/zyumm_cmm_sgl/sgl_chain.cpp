/*
 * SGLs and chains: taking them from the pool, giving them back, and the two ways of stepping from
 * one entry to the next.
 *
 *     allocSglChain(130)     [ 64 free ] -> [ 64 free ] -> [ 64 free ] -> null
 *     130 writer's steps     [ 64 used ] -> [ 64 used ] -> [  2 used ] -> null
 *
 * The writer's step goes by capacity: it fills every SGL before it goes on to the next. The
 * reader's step goes by use: it leaves an SGL behind its last used entry, so that chains whose
 * inner SGLs have gaps are read in order too.
 *
 * Locking: none. The pool below is safe for all threads; a chain belongs to one user at a time.
 *
 * Deliberately absent: the entries are neither cleared on allocation (64 entries are 1,536 bytes,
 * and every user writes an entry before it counts it) nor looked at on release; page references
 * are the business of whoever holds them.
 */
#include "sgl_local.h"

#include "common/cmm_log.h"
#include "common/cmm_probe.h"
#include "common/cmm_sgl_position.h"

void allocOneSgl(SGL **out, uint32_t owner_id, const char *func, uint32_t line)
{
    if (out == nullptr)
        return;

    SGL *sgl = static_cast<SGL *>(zymm_slab_malloc(sgl_pool_handle(), owner_id, func, line));
    if (sgl != nullptr) {
        sgl->nextSgl         = nullptr;
        sgl->entrySumInChain = 0;
        sgl->entryNum        = 0;
        sgl->userFlag        = 0;
        sgl->userTag         = 0;
    } else {
        CMM_PROBE_ALLOC_REFUSED("sgl", 1, owner_id, func, line);
    }
    *out = sgl;
}

/* Links `count` new SGLs behind `last`; false when the pool ran out in between. */
static bool extend_chain(SGL *last, uint32_t count, uint32_t owner_id, const char *func,
                         uint32_t line)
{
    for (; count != 0; --count) {
        allocOneSgl(&last->nextSgl, owner_id, func, line);
        last = last->nextSgl;
        if (last == nullptr)
            return false;
    }
    return true;
}

void allocSglChain(SGL **out, uint32_t entry_cnt, uint32_t owner_id, const char *func,
                   uint32_t line)
{
    if (out == nullptr)
        return;
    *out = nullptr;
    if (entry_cnt == 0)
        return;

    SGL *head = nullptr;
    allocOneSgl(&head, owner_id, func, line);
    if (head == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "sglPtr is NULL.");
        return;
    }

    /* sic: 32-bit arithmetic. Counts whose rounding wraps come out as 0 SGLs and get the one that
     * every chain has; no head can count that many entries anyway. */
    const uint32_t sgl_cnt = (entry_cnt + SGL_MAX_ENTRY_NUM - 1) / SGL_MAX_ENTRY_NUM;
    if (sgl_cnt > 1 && !extend_chain(head, sgl_cnt - 1, owner_id, func, line)) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "nexSglPtr is NULL.");
        freeSglChain(head, owner_id, func, line);
        return;
    }
    *out = head;
}

void freeSglChain(SGL *chain, uint32_t owner_id, const char *func, uint32_t)
{
    if (chain == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Owner_func(%s), sglChain is NULL.", cmm_text(func));
        return;
    }

    while (chain != nullptr) {
        SGL *next = chain->nextSgl; /* the freed object is not ours to read any more */
        zymm_slab_free(sgl_pool_handle(), chain, owner_id, func);
        chain = next;
    }
}

void move2NextEntryAndIncEntrySum(SGL **cur_sgl, uint32_t *index, SGL *head)
{
    (*cur_sgl)->entryNum++;
    head->entrySumInChain++;

    if (*index + 1 >= SGL_MAX_ENTRY_NUM) {
        *cur_sgl = (*cur_sgl)->nextSgl;
        *index   = 0;
    } else {
        ++*index;
    }
}

void move2NextEntryAndModifyPSgl(SGL **cur_sgl, uint32_t *index)
{
    /* The width of `entryNum` is the width of the comparison. */
    if (uint16_t(*index + 1) >= (*cur_sgl)->entryNum) {
        *cur_sgl = (*cur_sgl)->nextSgl;
        *index   = 0;
    } else {
        ++*index;
    }
}

void cpmm_print_sgl_detail(SGL *sgl)
{
    if (sgl == nullptr)
        return;

    SGL     *cur   = sgl;
    uint32_t index = 0;
    for (uint32_t left = sgl->entrySumInChain; left != 0; --left) {
        if (!cmm_settle_position(&cur, &index))
            return;
        const SGL_ENTRY *entry = &cur->entries[index];
        CMM_LOG_LIMITED(
            ZYLOG_ERROR,
            "SGL entry detail info : buffer (%p), page contral (%p), len (%u), current index (%u).",
            static_cast<void *>(entry->buf), static_cast<void *>(entry->pageCtrl), entry->len,
            index);
        move2NextEntryAndModifyPSgl(&cur, &index);
    }
}
