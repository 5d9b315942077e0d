/*
 * What a process around the library has to bring: a configuration directory and, while requests
 * may wait, one thread that drives the retry queue.
 */
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "config_directory.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"
#include "zyumm_cmm_req.h"

/* Drives the retry queue from one thread until it is destroyed, which must be before the stop. */
class retry_poller
{
public:
    retry_poller();
    ~retry_poller();
    retry_poller(const retry_poller &) = delete;
    retry_poller &operator=(const retry_poller &) = delete;

    void signal(); /* pages may have come back */

private:
    void run();

    std::mutex              mutex_;
    std::condition_variable wake_;
    bool                    signalled_ = false;
    bool                    stopping_  = false;
    std::thread             thread_;
};

/* Pages, SGLs and queued requests that are out. */
uint64_t pages_out();
uint64_t sgls_out();
