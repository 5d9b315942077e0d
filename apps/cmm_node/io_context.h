/*
 * What all workers share, in one place: the run owns it, workers refer to it.
 */
#pragma once

#include <cstdint>
#include <deque>

#include "failure_list.h"
#include "page_cache.h"
#include "page_wait.h"
#include "replica_writer.h"
#include "retry_poller.h"
#include "share_statistics.h"

struct io_context {
    explicit io_context(uint32_t replicas, uint32_t wait) : timeout(wait), writers(replicas) {}

    const uint32_t             timeout; /* s, of one request for pages */
    page_statistics            pages;
    share_statistics           shares;
    failure_list               failures;
    retry_poller               poller{pages};
    page_cache                 cache;
    std::deque<replica_writer> writers; /* one a replica */
};
