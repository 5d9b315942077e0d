/*
 * One operation for the page of every entry of a chain, front to back:
 *
 *     head                  second          last
 *     [a b] . .   ----->    [] . . .  --->  [c] . . .       operation(a), operation(b), operation(c)
 *
 * Taking and dropping one reference for each entry are such walks. The head's count says how many
 * entries there are; a chain that ends before them has been damaged, and what was done to the
 * entries up to there stays done.
 *
 * A page is not touched here after its operation, which may have freed it. The SGLs are the
 * caller's and stay.
 *
 * Locking: none; the operation brings its own.
 */
#include "sgl_local.h"

#include "zyumm_cmm_page.h"

#include "common/cmm_log.h"
#include "common/cmm_sgl_position.h"

int32_t traversePageInSgl(SGL *sgl, cmm_page_op_fn operation, uint32_t value, const char *text)
{
    if (sgl == nullptr || text == nullptr)
        return -1;

    const uint32_t total = sgl->entrySumInChain;
    SGL           *cur   = sgl;
    uint32_t       index = 0;
    for (uint32_t done = 0; done != total; ++done) {
        if (!cmm_settle_position(&cur, &index)) {
            CMM_LOG_LIMITED(ZYLOG_ERROR,
                            "Param error, sgl(%p), cur_sgl(%p), page_num(%u), cur_num(%u).",
                            static_cast<void *>(sgl), static_cast<void *>(cur), total, done);
            return -1;
        }
        cmm_ask_for_record(cur, index + CMM_RECORDS_AHEAD);
        operation(cur->entries[index].pageCtrl, value, text);
        ++index;
    }
    return 0;
}

int32_t incPageReferenceBySgl(SGL *sgl, uint32_t module_id, const char *func)
{
    return traversePageInSgl(sgl, incPageRefByFunc, module_id, func);
}

int32_t decPageReferenceBySgl(SGL *sgl, uint32_t module_id, const char *func)
{
    return traversePageInSgl(sgl, decPageRefByFunc, module_id, func);
}
