/*
 * One thread a replica, which writes what workers hand to it.
 *
 *     worker                         writer of replica 1         writer of replica 2
 *     fills a chain
 *     clone -----------------------> writes
 *     clone ---------------------------------------------------> writes
 *     gives its own chain back
 *     waits on the write_group       gives its clone back
 *     <----------------------------- done                        gives its clone back
 *     <--------------------------------------------------------- done
 *
 * Each clone has references of its own, so nobody cares who is through first: the pages return to
 * the pool when the last of the three lets go.
 */
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "page_run.h"

class replica_image;

/* The writes of one request. Lives until all of them are done, even when submitting failed. */
class write_group
{
public:
    write_group() = default;
    write_group(const write_group &) = delete;
    ~write_group() { wait(); }

    /* One write more is on its way; it is done, with what went wrong or an empty text. */
    void begin();
    void done(const std::string &failure);

    /* Until all are done; what went wrong. */
    const std::vector<std::string> &wait();

private:
    std::mutex               lock_;
    std::condition_variable  all_done_;
    uint32_t                 under_way_ = 0;
    std::vector<std::string> failures_;
};

struct write_job {
    page_run             pages; /* the writer's own */
    const replica_image *image;
    uint64_t             offset; /* in the file */
    uint32_t             length; /* bytes of the file */
    write_group         *group;
};

class replica_writer
{
public:
    ~replica_writer() { stop(); }

    void start();

    /* Ends the thread when all jobs are done. */
    void stop();

    /* Any thread; never waits. */
    void submit(write_job job);

private:
    void loop();

    std::mutex              lock_; /* guards the jobs */
    std::condition_variable wake_;
    std::deque<write_job>   jobs_; /* at most one a worker, which waits for it */
    bool                    stopping_ = false;
    std::thread             thread_;
};
