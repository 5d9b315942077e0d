/*
 * The poller's loop. The queue's counters are the library's plain globals, written by many threads:
 * they are read atomically, as hints that the library checks again itself.
 */
#include "retry_poller.h"

#include <chrono>

#include "page_wait.h"
#include "zyumm_cmm_page.h"

namespace {

constexpr std::chrono::milliseconds LONGEST_PAUSE{10};
constexpr std::chrono::microseconds SHORTEST_PAUSE{100};

template <typename T>
T peek(const T *global)
{
    return __atomic_load_n(global, __ATOMIC_RELAXED);
}

} // namespace

void retry_poller::start()
{
    thread_ = std::thread([this] { loop(); });
}

void retry_poller::stop()
{
    {
        std::lock_guard hold(lock_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void retry_poller::signal()
{
    if (peek(&s_retry_req_list.sum) == 0)
        return;
    {
        std::lock_guard hold(lock_);
        signalled_ = true;
    }
    wake_.notify_one();
}

/* One look at the queue; true when requests were served. */
bool retry_poller::run_queue()
{
    const uint64_t served = statistics_.served;

    if (peek(&s_retry_req_list.sum) != 0)
        page_start_retry();
    if (peek(&s_enter_retry_cnt) == 0)
        return false;
    page_do_retry();
    ++runs_;
    return statistics_.served != served;
}

void retry_poller::pause(bool served)
{
    if (served)
        return;
    std::this_thread::sleep_for(SHORTEST_PAUSE);

    std::unique_lock hold(lock_);
    wake_.wait_for(hold, LONGEST_PAUSE, [this] { return stopping_ || signalled_; });
    signalled_ = false;
}

void retry_poller::loop()
{
    for (;;) {
        pause(run_queue());
        std::lock_guard hold(lock_);
        if (stopping_)
            return;
    }
}
