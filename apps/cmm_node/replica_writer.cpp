/*
 * The writer's loop. Pages go back before the worker is told: when a request's writes are done, its
 * writers hold nothing of it.
 */
#include "replica_writer.h"

#include <exception>

#include "replica_image.h"

namespace {

std::string write_pages(const write_job &job)
{
    try {
        job.image->write(job.pages.chain(), job.offset, job.length);
    } catch (const std::exception &error) {
        return error.what();
    }
    return "";
}

} // namespace

void write_group::begin()
{
    std::lock_guard hold(lock_);
    ++under_way_;
}

void write_group::done(const std::string &failure)
{
    /* Told under the lock: the waiter may end the group as soon as it can take it. */
    std::lock_guard hold(lock_);
    if (!failure.empty())
        failures_.push_back(failure);
    --under_way_;
    all_done_.notify_one();
}

const std::vector<std::string> &write_group::wait()
{
    std::unique_lock hold(lock_);
    all_done_.wait(hold, [this] { return under_way_ == 0; });
    return failures_;
}

void replica_writer::start()
{
    thread_ = std::thread([this] { loop(); });
}

void replica_writer::stop()
{
    {
        std::lock_guard hold(lock_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void replica_writer::submit(write_job job)
{
    write_group *group = job.group;
    {
        std::lock_guard hold(lock_);
        jobs_.push_back(std::move(job));
        group->begin(); /* before the writer, which needs the lock, can be done with it */
    }
    wake_.notify_one();
}

void replica_writer::loop()
{
    for (;;) {
        std::unique_lock hold(lock_);
        wake_.wait(hold, [this] { return stopping_ || !jobs_.empty(); });
        if (jobs_.empty())
            return;
        write_job job = std::move(jobs_.front());
        jobs_.pop_front();
        hold.unlock();

        const std::string failure = write_pages(job);
        job.pages.release();
        job.group->done(failure);
    }
}
