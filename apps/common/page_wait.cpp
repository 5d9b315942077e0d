/*
 * The worker's side of a request for pages and its call-backs.
 */
#include "page_wait.h"

#include "node_error.h"
#include "retry_poller.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

namespace {

constexpr uint32_t PAGES_OF_A_RECORD = 8; /* the queue's size */
constexpr uint32_t ANSWERED_RECORDS  = 3; /* not yet back: of a timer run, a polled run, a walk */

void raise_to(std::atomic<uint64_t> &peak, uint64_t value)
{
    uint64_t seen = peak;
    while (seen < value && !peak.compare_exchange_weak(seen, value)) {
    }
}

} // namespace

uint32_t places_to_wait()
{
    const uint32_t records = g_ucmm_config.page_max / PAGES_OF_A_RECORD;
    return records > ANSWERED_RECORDS ? records - ANSWERED_RECORDS : 1;
}

void page_statistics::sample()
{
    uint64_t total = 0, pages = 0, sgls = 0;

    if (zyumm_page_get_usage_info(&total, &pages) == 0)
        raise_to(peak_pages, pages);
    if (zyumm_sgl_get_usage_info(&total, &sgls) == 0)
        raise_to(peak_sgls, sgls);
}

void page_waiter::expect_failure(uint64_t self)
{
    page_waiter &waiter = *reinterpret_cast<page_waiter *>(self);
    std::lock_guard hold(waiter.lock_);
    waiter.failing_ = true;
}

void page_waiter::deliver(void *chain, uint64_t self, uint32_t result)
{
    page_waiter &waiter = *reinterpret_cast<page_waiter *>(self);
    std::lock_guard hold(waiter.lock_);

    waiter.count(result);
    waiter.chain_ = static_cast<SGL *>(chain);
    waiter.result_ = result;
    waiter.arrived_ = true;
    waiter.arrival_.notify_one();
}

void page_waiter::count(uint32_t result)
{
    if (result == PAGE_RETRY_NOT_QUEUED)
        ++statistics_.refused;
    if (std::this_thread::get_id() == asker_)
        return;

    ++statistics_.queued;
    if (result == CMM_OK)
        ++statistics_.served;
    else if (result == PAGE_RETRY_TIMED_OUT)
        ++statistics_.timed_out;
}

std::string page_waiter::reason(uint32_t pages, uint32_t timeout) const
{
    const std::string what = "a request for " + std::to_string(pages) + " pages ";

    if (!failing_)
        return what + "failed without its failure call-back";
    if (result_ == PAGE_RETRY_TIMED_OUT)
        return what + "timed out after " + std::to_string(timeout) + " s";
    return what + "could not be queued: the queue has no free record";
}

page_run page_waiter::take(uint32_t pages, uint32_t timeout)
{
    if (pages == 0)
        return page_run(nullptr, poller_);
    {
        std::lock_guard hold(lock_);
        asker_ = std::this_thread::get_id();
        arrived_ = false;
        failing_ = false;
    }
    bool look = statistics_.requests++ % statistics_.sample_each == 0;
    /* No lock is held here: the answer may come before the call returns. */
    allocMultiPagesForPagePoolTimeOut(pages, nullptr, timeout, deliver,
                                      reinterpret_cast<uint64_t>(this), expect_failure,
                                      reinterpret_cast<uint64_t>(this), NODE_MODULE_ID, __func__,
                                      __LINE__);

    std::unique_lock hold(lock_);
    if (!arrived_) {
        poller_.signal(); /* pages may have come back between the attempt and the queueing */
        look = true;
    }
    arrival_.wait(hold, [this] { return arrived_; });
    if (chain_ == nullptr)
        throw node_error(reason(pages, timeout));
    hold.unlock();
    if (look)
        statistics_.sample();
    return page_run(chain_, poller_);
}
