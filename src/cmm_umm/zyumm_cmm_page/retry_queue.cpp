/*
 * The queue of requests that wait for pages, the kick that every free gives it, and the run that
 * serves it.
 *
 *     s_retry_req_list    front (oldest) <-> ... <-> tail      head.next / head.prev
 *     s_enter_retry_cnt   0 --- kick ---> 1 (a run is pending) --- page_do_retry ends ---> 0
 *
 * A run takes requests from the front, strictly in order: one that cannot be satisfied holds back
 * all behind it. While a request is being served it stays on the list, marked:
 *
 *     trylock | mark the front | unlock      allocate, deliver      lock | unlink | unlock    free
 *                                   |
 *                                   +-- no pages: the mark is cleared, the run ends
 *
 * The mark lies in the record and is what keeps the time-out walk from expiring, and so freeing, a
 * record that a run still reads: the walk passes over marked records. It is set under the lock.
 * Clearing it after a failed attempt needs no lock: a release store is the run's last touch of the
 * record, and pairs with the walk's acquire load. A second run that finds the front marked ends.
 *
 * Requests that could be served can be left without a pending run (a budget that ended a run, a
 * busy lock, pages that came back just before the request was queued), so the embedding process
 * polls as zyumm_cmm_page.h says; nothing here starts a run by itself.
 */
#include "page_local.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"
#include "common/cmm_probe.h"

static constexpr uint64_t RUN_BUDGET_NS = 500000;
static constexpr uint64_t RETRY_TIMER_KICK = 100; /* microseconds */

/* What a link off the list holds: addresses that fault, and say in a debugger what happened. */
static constexpr uintptr_t POISON_NEXT = 0x100100;
static constexpr uintptr_t POISON_PREV = 0x200200;

uint64_t s_page_request_id;
sLockList s_retry_req_list;
uint32_t s_enter_retry_cnt;
uint32_t s_enter_retry_repeat_cnt;
uint32_t s_retry_times;
uint32_t s_retry_exit_count;
list_link *s_hung_page_list_travel_node;

void retry_link_poison(list_link *link)
{
    link->next = reinterpret_cast<list_link *>(POISON_NEXT);
    link->prev = reinterpret_cast<list_link *>(POISON_PREV);
}

/* The kick reads `sum` without the lock, so its writers, who all hold it, store it atomically. */
static void set_sum(uint64_t sum)
{
    cmm_store_relaxed(&s_retry_req_list.sum, sum);
}

void retry_list_reset(void)
{
    list_link *head = &s_retry_req_list.head;
    head->next = head;
    head->prev = head;
    set_sum(0);
}

bool retry_list_is_empty(void)
{
    const list_link *head = &s_retry_req_list.head;
    return head->next == nullptr || head->next == head;
}

void retry_list_append(page_retry_req *req)
{
    list_link *head = &s_retry_req_list.head;
    if (head->next == nullptr)
        retry_list_reset();

    list_link *link = &req->list;
    link->next = head;
    link->prev = head->prev;
    head->prev->next = link;
    head->prev = link;
    set_sum(s_retry_req_list.sum + 1);
}

void retry_list_remove(page_retry_req *req)
{
    list_link *link = &req->list;
    link->prev->next = link->next;
    link->next->prev = link->prev;
    retry_link_poison(link);
    set_sum(s_retry_req_list.sum - 1);
}

/* Takes the list lock if it is free; the sum is only told to who holds the lock. */
static bool trylock_spin_list_ret_sum(uint64_t *sum)
{
    if (!CMM_SPINLOCK_TRYLOCK(&s_retry_req_list.lock))
        return false;
    *sum = s_retry_req_list.sum;
    return true;
}

/* Marks the front record as being served; null when there is none to serve. */
static page_retry_req *take_front(void)
{
    uint64_t sum = 0;
    if (!trylock_spin_list_ret_sum(&sum))
        return nullptr;

    page_retry_req *front = nullptr;
    if (sum != 0) {
        page_retry_req *req = retry_record(s_retry_req_list.head.next);
        /* Acquire: the run that cleared the mark has made its last touch of the record. */
        if (cmm_load_acquire(&req->served) == 0) {
            cmm_store_relaxed(&req->served, 1u);
            front = req;
        }
    }
    CMM_SPINLOCK_UNLOCK(&s_retry_req_list.lock);
    return front;
}

/* Leaves the record at the front; the walk may free it from the store on. */
static void put_back(page_retry_req *req)
{
    cmm_store_release(&req->served, 0u);
}

static void *attempt(const page_retry_req *req)
{
    if (req->output_type == PAGE_REQ_OUTPUT_PAGE)
        return allocOnePageSync(req->module_id, req->func_name, req->line);

    SGL *chain = nullptr;
    allocMultiPagesSync(req->page_cnt, &chain, req->module_id, req->func_name, req->line);
    return chain;
}

static void deliver(const page_retry_req *req, void *result, const char *func)
{
    CMM_PROBE_REQUEST_SERVED(req, req->page_cnt, req->enqueue_time, req->module_id, req->func_name,
                             req->line);
    if (req->cbFuncNoRet != nullptr)
        req->cbFuncNoRet(result, req->cbArg);
    else if (req->cbFunc != nullptr)
        req->cbFunc(result, req->cbArg, CMM_OK);
    else
        CMM_LOG_AS(func, ZYLOG_ERROR, "Umm page retry cb is NULL .");
}

/*
 * The walk's marker moves off the record in the same locked section that unlinks it: moved any
 * earlier, a walk in between could set it to the record again.
 */
static void remove_served(page_retry_req *req)
{
    CMM_SPINLOCK_LOCK(&s_retry_req_list.lock);
    if (s_hung_page_list_travel_node == &req->list)
        s_hung_page_list_travel_node = req->list.next;
    retry_list_remove(req);
    CMM_SPINLOCK_UNLOCK(&s_retry_req_list.lock);

    zymm_slab_free(cmm_load_acquire(&s_page_request_id), req, req->module_id, "page_do_retry");
}

/* Serves the front request; false when the run is to end. */
static bool do_retry_single(void)
{
    page_retry_req *req = take_front();
    if (req == nullptr)
        return false;

    const uint16_t output_type = req->output_type;
    if (output_type != PAGE_REQ_OUTPUT_PAGE && output_type != PAGE_REQ_OUTPUT_SGL) {
        put_back(req);
        CMM_LOG(ZYLOG_ERROR, "Retry req, but output_type(%u) is invalid.", output_type);
        return false;
    }

    void *result = attempt(req);
    if (result == nullptr)
        result = attempt(req);
    if (result == nullptr) {
        put_back(req);
        return false;
    }

    deliver(req, result, __func__);
    remove_served(req);
    return true;
}

void page_do_retry(void)
{
    const uint64_t begin = zyax_time_getnanosec();

    while (do_retry_single()) {
        if (zyax_time_getnanosec() - begin > RUN_BUDGET_NS)
            break;
    }

    /* sic: a plain subtract, so a run without a pending kick wraps the count to 0xFFFFFFFF;
     * embedders that count their runs rely on seeing it. The repeat count stays for the next
     * claim to clear. */
    cmm_atomic_sub(&s_enter_retry_cnt, 1u);
    CMM_PROBE_RETRY_RUN(begin);
}

/* Apart from the look at the list, which is all that most frees need. */
[[gnu::cold, gnu::noinline]] static uint32_t claim_retry_run(void)
{
    /* One claim from 0 to 1, never above: with an add and a subtract the count would be 2 for a
     * moment, long enough for the poller to run once too often. */
    if (!cmm_atomic_claim(&s_enter_retry_cnt, 0u, 1u)) {
        cmm_atomic_add_relaxed(&s_enter_retry_repeat_cnt, 1u);
        return CMM_OK;
    }

    cmm_store_relaxed(&s_enter_retry_repeat_cnt, 0u);
    const int armed = zyax_timer_modify(&s_retry_timer, RETRY_TIMER_KICK);
    if (armed != 0) {
        /* sic: the hung-page timer's words, which log filters of the node already know. */
        CMM_LOG_AS("page_start_retry", ZYLOG_ERROR, "set hung page timeout timer failed.");
        return CMM_FAILURE;
    }
    return CMM_OK;
}

uint32_t page_start_retry(void)
{
    /* A hint: a request that is being queued right now is the poller's. */
    return cmm_load_relaxed(&s_retry_req_list.sum) == 0 ? CMM_OK : claim_retry_run();
}
