/*
 * A bounded queue through which the threads of a test pass things on: putting waits while it is
 * full, getting while it is empty. Its bound is part of a test's arithmetic: what is in it is out.
 */
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

template <typename thing>
class mailbox
{
public:
    explicit mailbox(size_t bound) : bound_(bound)
    {
    }

    void put(thing posted)
    {
        std::unique_lock<std::mutex> held(mutex_);
        changed_.wait(held, [this] { return things_.size() < bound_; });
        things_.push_back(std::move(posted));
        changed_.notify_all();
    }

    /* False when the box is closed and empty. */
    bool get(thing *received)
    {
        std::unique_lock<std::mutex> held(mutex_);
        changed_.wait(held, [this] { return !things_.empty() || closed_; });
        if (things_.empty())
            return false;
        *received = std::move(things_.front());
        things_.pop_front();
        changed_.notify_all();
        return true;
    }

    /* Nothing is put from now on. */
    void close()
    {
        const std::lock_guard<std::mutex> held(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

private:
    std::mutex              mutex_;
    std::condition_variable changed_;
    std::deque<thing>       things_;
    size_t                  bound_;
    bool                    closed_ = false;
};
