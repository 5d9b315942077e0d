/*
 * An array on the heap for one command's records; it says when there is no memory instead of
 * throwing.
 */
#pragma once

#include <stdint.h>
#include <stdlib.h>

namespace console
{

template <typename T>
class block
{
public:
    explicit block(uint64_t count)
        : items_(static_cast<T *>(calloc(count != 0 ? count : 1, sizeof(T)))), count_(count)
    {
    }
    ~block()
    {
        free(items_);
    }
    block(const block &) = delete;
    block &operator=(const block &) = delete;

    bool is_made() const
    {
        return items_ != nullptr;
    }
    T *items()
    {
        return items_;
    }
    uint64_t count() const
    {
        return count_;
    }
    T &operator[](uint64_t at)
    {
        return items_[at];
    }

private:
    T *items_;
    uint64_t count_;
};

} // namespace console
