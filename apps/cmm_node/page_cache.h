/*
 * The pages that were protected last, kept for who wants to read them soon.
 *
 *     keep()            find(), newest()
 *       |                   ^
 *       v                   |  a reference more
 *     | oldest |   ...   | newest |     a ring; one reference of each page
 *       |
 *       +--> given back when the ring is full, when the library's timer finds the pool nearly used
 *            up, and by clear()
 *
 * A cache must not starve those whose pages it keeps: it is bounded so that the largest request
 * still finds its pages beside it, and it gives way when the library calls.
 *
 * Only whole pages are worth keeping: the last page of a file, filled in part, and the shared zero
 * page are passed over.
 *
 * Owner:   must outlive the library's stop: the call-back cannot be taken back, but no tick comes
 *          after the stop has deleted the timer. Empty again before the stop.
 * Threads: any. Pages are freed after the lock was let go; the call-back only tries it.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "zyumm_cmm_types.h"

/* One reference of a page, or none. */
class page_hold
{
public:
    explicit page_hold(page_ctrl *page = nullptr) : page_(page) {}
    page_hold(page_hold &&other) noexcept : page_(std::exchange(other.page_, nullptr)) {}
    page_hold &operator=(page_hold &&other) noexcept
    {
        std::swap(page_, other.page_);
        return *this;
    }
    ~page_hold();

    page_ctrl *page() const { return page_; }

    /* The caller takes over the reference. */
    page_ctrl *detach() { return std::exchange(page_, nullptr); }

private:
    page_ctrl *page_;
};

/* Place of a page's data. */
struct page_place {
    uint32_t source; /* index of the file */
    uint64_t page;   /* of the file, from 0 */

    bool operator==(const page_place &) const = default;
};

struct cache_statistics {
    std::atomic<uint64_t> kept{0};
    std::atomic<uint64_t> found{0};
    std::atomic<uint64_t> evictions{0};  /* call-backs that gave pages back */
    std::atomic<uint64_t> given_back{0}; /* pages, by them */
};

class page_cache
{
public:
    /* Makes room and asks the library to be called when pages run short; once, after the start.
     * With a capacity of 0 nothing is ever kept. Throws when the library refuses. */
    void open(uint32_t capacity);

    /* Keeps the chain's pages, the first of which is `first`; the caller's references stay his. */
    void keep(page_place first, SGL *chain);

    /* The page of that place, or none. */
    page_hold find(page_place place);

    /* The page that was kept last, or none. */
    page_hold newest();

    /* Gives everything back. */
    void clear();

    const cache_statistics &statistics() const { return statistics_; }

private:
    struct slot {
        page_place place;
        page_ctrl *page;
    };

    static void evict(uint64_t self);
    void        keep_page(page_place place, page_ctrl *page);
    page_hold   take_oldest();
    page_hold   hold_of(const slot &one);
    slot       &at(size_t age) { return ring_[(first_ + age) % ring_.size()]; }

    std::mutex        lock_; /* guards the ring */
    std::vector<slot> ring_;
    size_t            first_ = 0;
    size_t            count_ = 0;
    cache_statistics  statistics_;
};
