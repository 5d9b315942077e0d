/*
 * The time-out walk: fails every queued request that has waited longer than its time-out.
 *
 * It is the expiry function of both timers and runs in the platform's timer thread. It holds the
 * list lock all the time, the call-backs of expired requests included, so it keeps to a budget of
 * 1 ms and leaves a marker where it stopped:
 *
 *     marker          the next walk begins at
 *     null            the front
 *     a record R      the successor of R: the record at which the time ran out is passed over once
 *     the list head   the head's successor, which is the front
 *
 * The clock is read afresh for each record, under the lock. A record is dated before it is queued,
 * so a reading taken under the lock is never earlier than the date of a record found there, also
 * of one that was queued while this walk waited for the lock.
 *
 * Records that a retry run is serving are marked and passed over, however long they have waited.
 */
#include "page_local.h"

#include "common/cmm_log.h"
#include "common/cmm_probe.h"

static constexpr uint64_t WALK_BUDGET_NS = 1000000;
static constexpr uint64_t NS_PER_SECOND = 1000000000;
static constexpr uint64_t WALK_PERIOD = 500000; /* microseconds */

static bool is_expired(const page_retry_req *req, uint64_t now)
{
    return req->timeout != PAGE_TIMEOUT_NEVER &&
           now - req->enqueue_time > req->timeout * NS_PER_SECOND;
}

/*
 * The list lock is held over both call-backs: they may free pages, but not queue requests. The
 * marker never names a record that is gone, not even while they run.
 */
static void expire(page_retry_req *req, const char *func)
{
    CMM_PROBE_REQUEST_TIMED_OUT(req, req->page_cnt, req->enqueue_time, req->module_id,
                                req->func_name, req->line);
    if (s_hung_page_list_travel_node == &req->list)
        s_hung_page_list_travel_node = nullptr;
    retry_list_remove(req);

    req->failcbFunc(req->failcbArg);
    req->cbFunc(nullptr, req->cbArg, PAGE_RETRY_TIMED_OUT);
    zymm_slab_free(cmm_load_acquire(&s_page_request_id), req, req->module_id, func);
}

/* Walks on from the marker and answers the next one. */
static list_link *walk(uint64_t begin, const char *func)
{
    list_link *const head = &s_retry_req_list.head;
    if (retry_list_is_empty())
        return nullptr;

    list_link *const marker = s_hung_page_list_travel_node;
    list_link *link = (marker != nullptr ? marker : head)->next;
    while (link != head) {
        list_link *const next = link->next;
        const uint64_t now = zyax_time_getnanosec();
        /* sic: this record is passed over once; the timing of whoever times out relies on it. */
        if (now - begin > WALK_BUDGET_NS)
            return next != head ? link : nullptr;

        page_retry_req *req = retry_record(link);
        /* Acquire pairs with the release of the run that gave the record back. */
        if (cmm_load_acquire(&req->served) == 0 && is_expired(req, now))
            expire(req, func);
        link = next;
    }
    return retry_list_is_empty() ? nullptr : head;
}

void umm_hung_page_timeout_detect(void)
{
    const uint64_t begin = zyax_time_getnanosec();

    CMM_SPINLOCK_LOCK(&s_retry_req_list.lock);
    s_hung_page_list_travel_node = walk(begin, __func__);
    CMM_SPINLOCK_UNLOCK(&s_retry_req_list.lock);

    const int armed = zyax_timer_modify(&s_hung_page_timer, WALK_PERIOD);
    if (armed != 0)
        CMM_LOG(ZYLOG_ERROR, "hung page timeout timer modify ret(%d).", armed);
    CMM_PROBE_TIMEOUT_WALK(begin);
}
