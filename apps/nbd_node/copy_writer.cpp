/*
 * The queue is a list of jobs; nothing is allocated. A job may be gone as soon as it is marked as
 * done.
 */
#include "copy_writer.h"

#include "io_request.h"
#include "node_identity.h"
#include "zyumm_cmm_page.h"

void copy_writer::start()
{
    stopping_ = false;
    thread_ = std::thread([this] { loop(); });
}

void copy_writer::stop()
{
    {
        std::lock_guard hold(lock_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void copy_writer::submit(copy_job *job)
{
    {
        std::lock_guard hold(lock_);
        (last_ != nullptr ? last_->next : first_) = job;
        last_ = job;
    }
    wake_.notify_one();
}

void copy_writer::wait(const copy_job *job)
{
    std::unique_lock hold(lock_);
    finished_.wait(hold, [job] { return job->done; });
}

void copy_writer::loop()
{
    std::unique_lock hold(lock_);
    for (;;) {
        wake_.wait(hold, [this] { return stopping_ || first_ != nullptr; });
        if (first_ == nullptr)
            return;
        copy_job *job = first_;
        first_ = job->next;
        last_ = first_ == nullptr ? nullptr : last_;
        hold.unlock();

        copy_.carry_out(&job->io, *job->place);
        if (SGL *clone = chain_of(job->io))
            freeMultiPages(clone, NODE_MODULE_ID, __func__, __LINE__);
        hold.lock();
        job->done = true;
        finished_.notify_all();
    }
}
