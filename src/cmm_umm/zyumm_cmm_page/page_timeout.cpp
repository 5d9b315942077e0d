/*
 * Pages for callers that cannot wait but can be called back.
 *
 *     attempt(s) --- pages ---> cbFunc(pages, cbArg, 0), in the caller's thread
 *         |
 *       none --> a record at the queue's tail --- none ---> failcbFunc(failcbArg), then
 *                        |                                  cbFunc(null, cbArg, 0xFFFFFFFF)
 *                     waits for a retry run or the time-out walk
 *
 *                attempts before queueing   result          queued as
 *     one page   1                          page_ctrl *     type 1, count 1
 *     a run      2                          SGL *           type 0, the caller's count
 *
 * Once both call-backs are known to be there, every call ends in exactly one cbFunc.
 *
 * Queueing takes the list lock for the insertion alone and kicks nothing: whoever frees pages
 * does, and the embedding process polls, see page_do_retry.
 */
#include "page_local.h"

#include "common/cmm_log.h"
#include "common/cmm_probe.h"

static void refuse(page_retry_cb cbFunc, uint64_t cbArg, page_retry_fail_cb failcbFunc,
                   uint64_t failcbArg)
{
    failcbFunc(failcbArg);
    cbFunc(nullptr, cbArg, PAGE_RETRY_NOT_QUEUED);
}

/* The list's lock publishes the record; slab memory is used again, so every field is written. */
static void fill(page_retry_req *req, uint16_t output_type, uint32_t page_cnt, uint32_t timeout)
{
    retry_link_poison(&req->list);
    req->cbFuncNoRet = nullptr;
    req->output_type = output_type;
    req->page_cnt = page_cnt;
    cmm_store_relaxed(&req->served, 0u);
    req->enqueue_time = zyax_time_getnanosec();
    req->timeout = timeout;
}

uint32_t page_add_retry_req(uint16_t output_type, uint32_t page_cnt, uint32_t timeout,
                            page_retry_cb cbFunc, uint64_t cbArg, page_retry_fail_cb failcbFunc,
                            uint64_t failcbArg, uint32_t module_id, const char *func, uint32_t line)
{
    const uint64_t slab = cmm_load_acquire(&s_page_request_id);
    void *object = zymm_slab_malloc(slab, module_id, func, line);
    if (object == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Alloc mem for retry request failed, func(%s), line(%d).",
                cmm_text(func), int(line));
        CMM_PROBE_ALLOC_REFUSED("retry request", 1, module_id, func, line);
        return CMM_FAILURE;
    }

    page_retry_req *req = static_cast<page_retry_req *>(object);
    fill(req, output_type, page_cnt, timeout);
    req->cbFunc = cbFunc;
    req->cbArg = cbArg;
    req->failcbFunc = failcbFunc;
    req->failcbArg = failcbArg;
    req->func_name = func;
    req->line = uint16_t(line);
    req->module_id = uint16_t(module_id);

    /* Before it is: once it is queued it may be served, and a trace shall not see that first. */
    CMM_PROBE_REQUEST_QUEUED(object, page_cnt, timeout, module_id, func, line);
    CMM_SPINLOCK_LOCK(&s_retry_req_list.lock);
    retry_list_append(req);
    CMM_SPINLOCK_UNLOCK(&s_retry_req_list.lock);

    /* From the unlock on the record may be served and freed: only its address is still known. */
    CMM_LOG(ZYLOG_INFO, "Umm page_add_retry_req succ, pList(%p).", object);
    return CMM_OK;
}

/*
 * One page served at once is what nearly every call ends in. The two other ends stand apart, so
 * that it makes no room for them on its way.
 */
static constexpr char ONE_PAGE[] = "allocOnePageForPagePoolTimeOut";

[[gnu::cold, gnu::noinline]] static void refuse_one_page(page_retry_cb cbFunc, uint64_t cbArg,
                                                         page_retry_fail_cb failcbFunc,
                                                         uint64_t failcbArg)
{
    if (cbFunc == nullptr) {
        CMM_LOG_LIMITED_AS(ONE_PAGE, ZYLOG_ERROR,
                           "cbFunc NULL in allocOnePageForPagePoolTimeOut.");
        return;
    }
    if (failcbFunc == nullptr) {
        CMM_LOG_LIMITED_AS(ONE_PAGE, ZYLOG_ERROR,
                           "failcbFunc is NULL in allocOnePageForPagePoolTimeOut.");
        return;
    }
    CMM_LOG_LIMITED_AS(ONE_PAGE, ZYLOG_ERROR,
                       "func name is NULL in allocOnePageForPagePoolTimeOut.");
    refuse(cbFunc, cbArg, failcbFunc, failcbArg);
}

[[gnu::cold, gnu::noinline]] static void
queue_for_one_page(uint32_t timeout, page_retry_cb cbFunc, uint64_t cbArg,
                   page_retry_fail_cb failcbFunc, uint64_t failcbArg, uint32_t module_id,
                   const char *func, uint32_t line)
{
    CMM_LOG_LIMITED_AS(ONE_PAGE, ZYLOG_WARNING,
                       "Umm alloc one page with timeOut failed, func(%s), line(%u).", func, line);
    const uint32_t queued = page_add_retry_req(PAGE_REQ_OUTPUT_PAGE, 1, timeout, cbFunc, cbArg,
                                               failcbFunc, failcbArg, module_id, func, line);
    if (queued != CMM_OK)
        refuse(cbFunc, cbArg, failcbFunc, failcbArg);
}

[[gnu::flatten]] void allocOnePageForPagePoolTimeOut(const void *, uint32_t timeout,
                                                     page_retry_cb cbFunc, uint64_t cbArg,
                                                     page_retry_fail_cb failcbFunc,
                                                     uint64_t failcbArg, uint32_t module_id,
                                                     const char *func, uint32_t line)
{
    if (cbFunc == nullptr || failcbFunc == nullptr || func == nullptr) {
        refuse_one_page(cbFunc, cbArg, failcbFunc, failcbArg);
        return;
    }

    page_ctrl *ctrl = allocOnePageSync(module_id, func, line);
    if (ctrl == nullptr) {
        queue_for_one_page(timeout, cbFunc, cbArg, failcbFunc, failcbArg, module_id, func, line);
        return;
    }
    cbFunc(ctrl, cbArg, CMM_OK);
}

/* Null preset at each attempt: without a pool the allocator leaves its out pointer as it is. */
static SGL *attempt_run(uint32_t page_cnt, uint32_t module_id, const char *func, uint32_t line)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(page_cnt, &chain, module_id, func, line);
    return chain;
}

void allocMultiPagesForPagePoolTimeOut(uint32_t page_cnt, const void *, uint32_t timeout,
                                       page_retry_cb cbFunc, uint64_t cbArg,
                                       page_retry_fail_cb failcbFunc, uint64_t failcbArg,
                                       uint32_t module_id, const char *func, uint32_t line)
{
    if (cbFunc == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "cbFunc NULL in allocMultiPagesForPagePoolTimeOut.");
        return;
    }
    if (failcbFunc == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "failcbFunc is NULL in allocMultiPagesForPagePoolTimeOut.");
        return;
    }
    if (func == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "func name is NULL in allocMultiPagesForPagePoolTimeOut.");
        refuse(cbFunc, cbArg, failcbFunc, failcbArg);
        return;
    }

    /* sic: a run is tried twice, one page once; the callers' statistics of attempts rely on it. */
    SGL *chain = attempt_run(page_cnt, module_id, func, line);
    if (chain == nullptr)
        chain = attempt_run(page_cnt, module_id, func, line);
    if (chain != nullptr) {
        cbFunc(chain, cbArg, CMM_OK);
        return;
    }

    /* sic: a count that no run can have waits too; its caller relies on hearing of it through the
     * time-out alone. */
    CMM_LOG_LIMITED(ZYLOG_WARNING,
                    "Umm alloc multi page with timeOut failed, page_cnt(%u), func(%s), line(%u).",
                    page_cnt, func, line);
    const uint32_t queued = page_add_retry_req(PAGE_REQ_OUTPUT_SGL, page_cnt, timeout, cbFunc,
                                               cbArg, failcbFunc, failcbArg, module_id, func, line);
    if (queued != CMM_OK)
        refuse(cbFunc, cbArg, failcbFunc, failcbArg);
}
