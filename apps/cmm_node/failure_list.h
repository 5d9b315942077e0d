/*
 * What went wrong, kept until the report: lines of concurrent workers would tear the progress bar.
 *
 * Threads: any.
 */
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

class failure_list
{
public:
    void add(const std::string &text)
    {
        std::lock_guard hold(lock_);
        if (lines_.size() < LONGEST)
            lines_.push_back(text);
        ++count_;
    }

    bool empty() const { return count() == 0; }

    uint64_t count() const
    {
        std::lock_guard hold(lock_);
        return count_;
    }

    /* The first ones; a disk that is full fails every worker at once. */
    std::vector<std::string> lines() const
    {
        std::lock_guard hold(lock_);
        return lines_;
    }

private:
    static constexpr size_t LONGEST = 50;

    mutable std::mutex       lock_;
    std::vector<std::string> lines_;
    uint64_t                 count_ = 0;
};
