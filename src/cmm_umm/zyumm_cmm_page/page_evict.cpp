/*
 * Eviction: when 95 % of the pages are in use, their holders are asked to give some back.
 *
 *     zyumm_page_evict_handler_reg --(under the lock)--> entries[count], then count + 1
 *                                                              |
 *     timer, every 10 units --> used x 100 >= maximum x 95 --> each entry's handler(arg), in order
 *          ^                                                   |
 *          +---------------------- re-armed -------------------+
 *
 * Two things happen once a process, and each has its once-control: the table is cleared by the
 * first registration or the first pool, whichever comes first, and the timer is made by the first
 * pool. Neither is undone: handlers cannot be taken back, and the timer outlives a stop of the
 * library, which is why the shared library is never unloaded.
 *
 * The timer reads the table without a lock, so that handlers may take as many locks as they like:
 * an entry is complete before `count` is raised (release), and nobody changes it afterwards. It may
 * also ask for counts while the pool is being destroyed: the slab layer answers a handle that is
 * going with the last counts or as a stale one.
 */
#include "page_local.h"

#include "zyumm_cmm.h"

#include "bounded.h"

#include "common/cmm_log.h"
#include "common/cmm_probe.h"

static constexpr uint64_t EVICT_PERCENT = 95;
static constexpr uint32_t EVICT_TIMER_PERIOD = 10; /* microseconds; the timer rounds up */

page_evict_table g_page_async_evict_handler;
pthread_once_t g_page_evict_timer_init = PTHREAD_ONCE_INIT;

static pthread_once_t s_table_init = PTHREAD_ONCE_INIT;

void zyumm_page_evict_handler_init(void)
{
    page_evict_table *table = &g_page_async_evict_handler;

    memset_s(table, sizeof *table, 0, sizeof *table);
    cmm_store_relaxed(&table->count, 0u);
    table->spare = 0;
    table->lock = CMM_SPINLOCK_UNLOCKED;
}

/* Takes the next free entry; false when there is none. */
static bool add_entry(const page_evict_entry *entry, const char *func)
{
    page_evict_table *table = &g_page_async_evict_handler;

    do_zyax_spinlock_lock(&table->lock, func, __LINE__);
    const uint32_t count = table->count;
    const bool has_room = count < PAGE_EVICT_HANDLERS;
    if (has_room) {
        table->entries[count] = *entry;
        /* Release: the timer that sees the count sees the entry. */
        cmm_store_release(&table->count, count + 1);
    }
    CMM_SPINLOCK_UNLOCK(&table->lock);
    return has_room;
}

uint32_t zyumm_page_evict_handler_reg(uint64_t, page_evict_handler handler, uint64_t arg,
                                      uint32_t module_id, const char *func)
{
    if (handler == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Zyumm page evict handler set failed, handler is NULL, func(%s).",
                cmm_text(func));
        return CMM_FAILURE;
    }

    pthread_once(&s_table_init, zyumm_page_evict_handler_init);
    const page_evict_entry entry = {handler, arg, module_id};
    if (!add_entry(&entry, __func__)) {
        CMM_LOG(ZYLOG_ERROR, "Zyumm handler set failed, over max(%u),func(%s).",
                PAGE_EVICT_HANDLERS, cmm_text(func));
        return CMM_FAILURE;
    }
    CMM_LOG(ZYLOG_INFO, "Zyumm page evict handler set success, module(%u), func(%s).", module_id,
            cmm_text(func));
    return CMM_OK;
}

static bool start_timer(zyax_timer *timer)
{
    /* sic: unlike for the walk's timers a timer that is initialised already is a failure here; it
     * would be one that somebody else started in the exported table. */
    const int initialised = zyax_timer_init(timer);
    if (initialised != 0)
        return false;

    const int set = zyax_timer_set_raw(timer, EVICT_TIMER_PERIOD, 0,
                                       zyumm_page_evict_timer_hendler,
                                       "zyumm_page_evict_timer_hendler", __FILE__, __LINE__);
    if (set != 0)
        return false;

    const int added = zyax_timer_add(timer);
    return added == 0;
}

void zyumm_page_evict_timer_create(void)
{
    pthread_once(&s_table_init, zyumm_page_evict_handler_init);

    CMM_LOG(ZYLOG_INFO, "Zyumm page evict timer create begin, time(%u).", EVICT_TIMER_PERIOD);
    if (!start_timer(&g_page_async_evict_handler.timer)) {
        CMM_LOG(ZYLOG_ERROR, "Zyumm page evict timer create failed, time(%u).", EVICT_TIMER_PERIOD);
        return;
    }
    CMM_LOG(ZYLOG_INFO, "Zyumm page evict timer create success, time(%u).", EVICT_TIMER_PERIOD);
}

/* Acquire, and anew for each entry: a handler may register another one, which then runs too. */
static void call_handlers(void)
{
    const page_evict_table *table = &g_page_async_evict_handler;

    for (uint32_t i = 0; i < cmm_load_acquire(&table->count); ++i) {
        const page_evict_entry *entry = &table->entries[i];
        if (entry->handler == nullptr)
            continue;
        CMM_PROBE_EVICT_CALL(entry->handler, entry->arg, entry->module_id);
        entry->handler(entry->arg);
        CMM_PROBE_EVICT_RETURN(entry->handler, entry->arg, entry->module_id);
    }
}

static bool pages_run_short(void)
{
    /* Relaxed: a tick may fall into a new start that is reading the configuration again. */
    const uint64_t max = cmm_load_relaxed(&g_ucmm_config.page_max);
    uint64_t total = 0, used = 0, free = 0;
    get_page_count(&total, &used, &free);

    /* sic: a maximum of 0 passes the test too; caches without a page pool of ours rely on being
     * called at every tick. */
    return used * 100 >= max * EVICT_PERCENT;
}

void zyumm_page_evict_timer_hendler(void)
{
    if (pages_run_short())
        call_handlers();

    const int armed = zyax_timer_modify(&g_page_async_evict_handler.timer, EVICT_TIMER_PERIOD);
    if (armed != 0)
        CMM_LOG(ZYLOG_ERROR, "Zyumm page evict timer modify failed, time(%u).", EVICT_TIMER_PERIOD);
}
