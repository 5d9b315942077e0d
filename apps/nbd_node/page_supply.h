/*
 * Pages for requests: room is made in the cache first, then the time-out allocation is asked, and
 * whoever has to wait waits in the library's queue.
 *
 * The queue has one place for every 8 pages of the pool. So many may ask at once; who comes
 * later waits for one of them to be through, since being refused for want of a place would be no
 * time-out. Nobody asks while he holds pages or a range.
 *
 * Owner:   waiters must outlive the library's start, see page_wait.h.
 * Threads: any.
 */
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "block_cache.h"
#include "page_wait.h"
#include "retry_poller.h"

class page_supply
{
public:
    explicit page_supply(block_cache &cache) : cache_(cache) {}

    /* `short_of_pages` is called when there are not enough clean pages to give back. */
    void open(uint32_t timeout, std::function<void()> short_of_pages);

    /* A chain of one SGL with so many pages; throws when they did not come in time. */
    page_run take(uint32_t pages);

    page_statistics statistics;
    retry_poller    poller{statistics};

private:
    page_waiter &take_waiter();
    void         give_back(page_waiter &waiter);
    void         make_room(uint32_t pages);

    block_cache              &cache_;
    uint32_t                  timeout_ = 0;
    std::function<void()>     short_of_pages_;
    std::mutex                lock_; /* guards all below */
    std::condition_variable   freed_;
    std::deque<page_waiter>   waiters_;
    std::vector<page_waiter *> free_;
};
