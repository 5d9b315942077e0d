/*
 * The thread of one replica: carries out what request threads hand to it.
 *
 *     request's thread                      thread of replica 1
 *     clone of the chain, job ------------> intent, pages in place
 *     writes the first copy itself          gives the clone back
 *     waits for the job <------------------ done
 *
 * The clone has references of its own, so the replica does not depend on what becomes of the
 * request's chain; the job itself lies on the stack of the thread that waits for it.
 */
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "file_copy.h"

struct copy_job {
    cmm_genio       io{};
    journal::place *place = nullptr; /* of that copy's journal */
    copy_job       *next  = nullptr;
    bool            done  = false;
};

class copy_writer
{
public:
    explicit copy_writer(file_copy &copy) : copy_(copy) {}
    ~copy_writer() { stop(); }

    void start();
    void stop(); /* when all jobs are done */

    /* Takes over the clone that the job's genio names. */
    void submit(copy_job *job);
    void wait(const copy_job *job);

private:
    void loop();

    file_copy              &copy_;
    std::mutex              lock_; /* guards all below, and `next` and `done` of jobs */
    std::condition_variable wake_, finished_;
    copy_job               *first_ = nullptr;
    copy_job               *last_  = nullptr;
    bool                    stopping_ = false;
    std::thread             thread_;
};
