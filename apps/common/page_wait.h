/*
 * Waiting for pages: turns the library's call-backs into a call that returns with pages.
 *
 *     worker                          library                      poller thread
 *     take() -- time-out request -->  pool has pages: delivers at once, in the worker
 *       waits on its condition        pool is dry: queues
 *                                     page_do_retry <------------- run
 *       wakes up  <------------------ delivers
 *     page_run ends -- gives back --> ... and the poller is told
 *
 * A request that times out is answered by the platform's timer thread while the queue's list lock
 * is held: the call-backs only store the result and signal, they call nothing of the library.
 *
 * Owner: a waiter belongs to one worker, but must outlive the library's start: the thread that
 * delivers may still be on its way out of the signal when the worker is running again.
 */
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "page_run.h"

/* How requests for pages ended, and the most that was in use; written by many threads. */
struct page_statistics {
    std::atomic<uint64_t> requests{0};
    std::atomic<uint64_t> queued{0};    /* answered later, by another thread */
    std::atomic<uint64_t> served{0};    /* ... with pages */
    std::atomic<uint64_t> timed_out{0}; /* ... without */
    std::atomic<uint64_t> refused{0};   /* no record left to queue them */
    std::atomic<uint64_t> peak_pages{0};
    std::atomic<uint64_t> peak_sgls{0};

    /* The peaks are looked for at each so many requests, and whenever one had to wait: counting
     * what is in use visits every thread's cache. Set before the first request. */
    uint64_t sample_each = 1;

    /* Looks at what is in use now. */
    void sample();
};

/* Requests that may wait at once in the started library, at least one: as many as its queue has
 * records, less those that have been answered and are not back yet. */
uint32_t places_to_wait();

class page_waiter
{
public:
    page_waiter(page_statistics &statistics, retry_poller &poller)
        : statistics_(statistics), poller_(poller)
    {
    }

    /* Waits until the pages are there; throws when they did not come within `timeout` seconds.
     * No pages are a run without a chain, had at once. */
    page_run take(uint32_t pages, uint32_t timeout);

private:
    static void deliver(void *chain, uint64_t self, uint32_t result);
    static void expect_failure(uint64_t self);
    void        count(uint32_t result);
    std::string reason(uint32_t pages, uint32_t timeout) const;

    page_statistics &statistics_;
    retry_poller    &poller_;

    std::mutex              lock_; /* guards the answer */
    std::condition_variable arrival_;
    std::thread::id         asker_;
    SGL                    *chain_   = nullptr;
    uint32_t                result_  = 0;
    bool                    arrived_ = false;
    bool                    failing_ = false; /* the failure call-back has run */
};
