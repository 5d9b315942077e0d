/*
 * What a process around the library has to bring: a configuration directory and, while requests
 * may wait, one thread that drives the retry queue.
 */
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"
#include "zyumm_cmm_req.h"

/* Object counts of the pools that a test process wants. */
struct pool_sizes {
    uint32_t pages;
    uint32_t sgls;
    uint32_t reqs;
};

/*
 * Writes node_config.xml into a fresh directory and points the library at it; its one section
 * serves a machine of any size. The directory goes with the object.
 */
class config_directory
{
public:
    explicit config_directory(const pool_sizes &sizes);
    ~config_directory();
    config_directory(const config_directory &) = delete;
    config_directory &operator=(const config_directory &) = delete;

    const std::string &path() const
    {
        return path_;
    }

private:
    std::string path_;
};

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
