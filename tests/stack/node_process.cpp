#include "node_process.h"

#include <chrono>

retry_poller::retry_poller() : thread_([this] { run(); })
{
}

retry_poller::~retry_poller()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void retry_poller::signal()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        signalled_ = true;
    }
    wake_.notify_one();
}

void retry_poller::run()
{
    std::unique_lock<std::mutex> guard(mutex_);
    while (!stopping_) {
        /* Signals alone are not enough: a run may end with servable requests left behind. */
        wake_.wait_for(guard, std::chrono::milliseconds(5),
                       [this] { return signalled_ || stopping_; });
        signalled_ = false;
        guard.unlock();

        if (__atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED) != 0)
            page_start_retry();
        if (__atomic_load_n(&s_enter_retry_cnt, __ATOMIC_RELAXED) != 0)
            page_do_retry();

        guard.lock();
    }
}

uint64_t pages_out()
{
    uint64_t total = 0;
    uint64_t used  = 0;
    zyumm_page_get_usage_info(&total, &used);
    return used;
}

uint64_t sgls_out()
{
    uint64_t total = 0;
    uint64_t used  = 0;
    zyumm_sgl_get_usage_info(&total, &used);
    return used;
}
