/*
 * Start and stop of the retry machinery: the slab of request records, the list, the two timers.
 *
 *     timer              armed first        armed again                      runs
 *     s_hung_page_timer  500,000 us, start  500,000 us, by each walk         the time-out walk
 *     s_retry_timer      500,000 us, start  100 us, by a kick that claims    the time-out walk
 *
 * sic: both timers run the same walk, the retry timer too. Embedders rely on it: serving the queue
 * is their thread's work and never done in the timer thread.
 *
 * Start and stop run in the thread that starts or stops the library and take no lock. A stop calls
 * nobody back: the memory of requests still queued goes with their slab, and the list is left as
 * it was, with a line that says so.
 */
#include "page_local.h"

#include "zyumm_cmm.h"

#include "bounded.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

static constexpr char REQUEST_POOL_NAME[] = "PAGE REQUEST";
static constexpr uint32_t PAGES_PER_REQUEST_SHIFT = 3; /* one record for each 8 pages */
static constexpr uint64_t WALK_TIMER_EXPIRY = 500000;  /* microseconds */
static constexpr int TIMER_EXISTS = 17;

zyax_timer s_retry_timer;
zyax_timer s_hung_page_timer;

/* Where the start of a timer ended; each timer has its own words for each step. */
enum timer_step { TIMER_STARTED, TIMER_INIT_FAILED, TIMER_SET_FAILED, TIMER_ADD_FAILED };

static timer_step start_walk_timer(zyax_timer *timer)
{
    const int initialised = zyax_timer_init(timer);
    if (initialised != 0 && initialised != TIMER_EXISTS)
        return TIMER_INIT_FAILED;

    const int set = zyax_timer_set_raw(timer, WALK_TIMER_EXPIRY, 0, umm_hung_page_timeout_detect,
                                       "umm_hung_page_timeout_detect", __FILE__, __LINE__);
    if (set != 0)
        return TIMER_SET_FAILED;

    const int added = zyax_timer_add(timer);
    return added != 0 ? TIMER_ADD_FAILED : TIMER_STARTED;
}

static uint32_t create_request_slab(const char *func)
{
    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    const int copied = memcpy_s(param.name, sizeof param.name - 1, REQUEST_POOL_NAME,
                                sizeof REQUEST_POOL_NAME - 1);
    if (copied != 0) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "memcpy_s error %d.", copied);
        return CMM_FAILURE;
    }

    param.min_num = 0;
    param.max_num = g_ucmm_config.page_max >> PAGES_PER_REQUEST_SHIFT;
    param.module_id = CMM_MODULE_ID;
    param.obj_size = sizeof(page_retry_req);
    param.attr = ZYMM_SLAB_CACHED;
    const uint64_t slab = zymm_create_slab(&param, CMM_MODULE_ID, func);
    cmm_store_release(&s_page_request_id, slab);
    if (slab == 0) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "create paga request pool failed");
        return CMM_FAILURE;
    }
    return CMM_OK;
}

static void reset_queue(void)
{
    s_retry_req_list.lock = CMM_SPINLOCK_UNLOCKED;
    retry_list_reset();
    s_hung_page_list_travel_node = nullptr;
    cmm_store_relaxed(&s_enter_retry_cnt, 0u);
    cmm_store_relaxed(&s_enter_retry_repeat_cnt, 0u);
    cmm_store_relaxed(&s_retry_times, 0u);
}

static void sLockListDestroy(const char *func)
{
    if (cmm_load_relaxed(&s_retry_req_list.sum) != 0) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "list sum is not 0, when destroy\n");
        return;
    }
    retry_list_reset();
}

uint32_t page_init_retry(void)
{
    if (g_ucmm_config.page_max == 0)
        return CMM_OK;

    if (create_request_slab(__func__) != CMM_OK)
        return CMM_FAILURE;
    reset_queue();

    if (page_init_retry_timeout_timer() != CMM_OK) {
        page_exit_retry();
        CMM_LOG(ZYLOG_ERROR, "page init retry timer fail.");
        return CMM_FAILURE;
    }
    if (page_init_hung_page_timeout_timer() != CMM_OK) {
        page_exit_retry();
        CMM_LOG(ZYLOG_ERROR, "page init hung page timeout timer fail.");
        return CMM_FAILURE;
    }
    return CMM_OK;
}

void page_exit_retry(void)
{
    umm_delete_hung_page_timer();
    umm_delete_retry_timer();
    sLockListDestroy(__func__);
    zymm_destory_slab(cmm_load_acquire(&s_page_request_id), CMM_SELF);
    cmm_store_release(&s_page_request_id, uint64_t(0));
}

uint32_t page_init_retry_timeout_timer(void)
{
    CMM_LOG(ZYLOG_INFO, "Create retry timer begin.");

    switch (start_walk_timer(&s_retry_timer)) {
    case TIMER_STARTED:
        return CMM_OK;
    case TIMER_INIT_FAILED:
        CMM_LOG(ZYLOG_ERROR, "retry timer failed.");
        break;
    case TIMER_SET_FAILED:
        CMM_LOG(ZYLOG_ERROR, "set retry timer failed.");
        break;
    case TIMER_ADD_FAILED:
        CMM_LOG(ZYLOG_ERROR, "Set retry timer failed.");
        break;
    }
    return CMM_FAILURE;
}

uint32_t page_init_hung_page_timeout_timer(void)
{
    const uint64_t begin = zyax_time_getnanosec();
    const int initialised = zyax_Init();
    if (initialised != 0) {
        CMM_LOG(ZYLOG_ERROR, "Zyumm zyax init failed.");
        return CMM_FAILURE;
    }

    switch (start_walk_timer(&s_hung_page_timer)) {
    case TIMER_STARTED:
        CMM_LOG(ZYLOG_INFO, "Create hung page timeout timer OK, cost time(%lu ns).",
                zyax_time_getnanosec() - begin);
        return CMM_OK;
    case TIMER_INIT_FAILED:
        CMM_LOG(ZYLOG_ERROR, "hung page timeout timer failed.");
        break;
    case TIMER_SET_FAILED:
        CMM_LOG(ZYLOG_ERROR, "set hung page timeout timer failed.");
        break;
    case TIMER_ADD_FAILED:
        CMM_LOG(ZYLOG_ERROR, "Set hung page timeout timer failed.");
        break;
    }
    return CMM_FAILURE;
}

uint32_t umm_delete_retry_timer(void)
{
    const int deleted = zyax_timer_delete(&s_retry_timer);
    if (deleted != 0)
        CMM_LOG(ZYLOG_ERROR, "Umm delete retry timer failed, ret:%d.", deleted);
    return uint32_t(deleted);
}

uint32_t umm_delete_hung_page_timer(void)
{
    const int deleted = zyax_timer_delete(&s_hung_page_timer);
    if (deleted != 0)
        CMM_LOG(ZYLOG_ERROR, "Umm delete hung page timer failed, ret:%d.", deleted);
    return uint32_t(deleted);
}
