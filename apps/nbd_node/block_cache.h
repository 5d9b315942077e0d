/*
 * The cached pages of the device.
 *
 *     page number -> stripe = number / 64 -> shard = stripe % 16
 *
 *     shard   hash     finds a cached page by its number
 *             clean    by last use; the oldest are given back when pages run short
 *             dirty    by age; the oldest are written back first
 *             ranges   who works on which pages, in the order of arrival
 *
 * The cache holds one reference of each of its pages; who wants to look at a page takes another one
 * under the shard's lock and looks without it. Valid bytes of a page that somebody looks at never
 * change: a write puts a new page in its place. A page that nobody looks at is written where it is,
 * and whoever wants to look at it meanwhile waits for the writer's range. Parts that are not valid
 * may be filled in the page by whoever holds its range.
 *
 * Ranges: who changes what the cache or the files hold of a page holds a range over it. Ranges that
 * overlap are granted in the order of arrival, so nobody starves, and nobody holds two.
 *
 * Owner:   cached_page records come from a structure partition of the library, one a page.
 * Threads: functions of a shard need its lock where they say so. Pages are freed without it. The
 *          eviction call-back runs in the timer's thread and only tries the locks.
 */
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "layout.h"

struct list_node {
    list_node *next = this;
    list_node *prev = this;
};

struct cached_page {
    list_node    link; /* clean or dirty list */
    cached_page *next; /* of the same bucket */
    uint64_t     number;
    page_ctrl   *page;
    uint64_t     dirty_since; /* place in the order of all writes; 0 = clean */
    bool         changing;    /* written where it is: nobody takes references, and it is dirty */
};

struct cache_statistics {
    std::atomic<uint64_t> hits{0};
    std::atomic<uint64_t> misses{0};
    std::atomic<uint64_t> zeros{0};      /* pages read as the shared zero page */
    std::atomic<uint64_t> evictions{0};  /* call-backs that gave pages back */
    std::atomic<uint64_t> given_back{0}; /* pages, by them */
    std::atomic<uint64_t> made_room{0};  /* pages, by requests that found the pool short */
};

class range_hold;

class cache_shard
{
public:
    std::mutex lock;

    /* All of these: the caller has the lock. */
    cached_page *find(uint64_t number) const;
    cached_page *oldest_clean() const;
    cached_page *oldest_dirty() const;
    void         touch(cached_page *one);                  /* clean ones only */
    void         add(cached_page *one, uint64_t dirty_since);
    void         remove(cached_page *one);
    void         set_dirty(cached_page *one, uint64_t since); /* a clean one */
    void         set_clean(cached_page *one);

    void resize(size_t buckets) { buckets_.resize(buckets); }

private:
    friend class range_hold;
    cached_page *&bucket(uint64_t number)
    {
        return buckets_[number * 0x9E3779B97F4A7C15u >> 32 & (buckets_.size() - 1)];
    }
    cached_page *const &bucket(uint64_t number) const
    {
        return const_cast<cache_shard *>(this)->bucket(number);
    }

    std::vector<cached_page *> buckets_; /* a power of two */
    list_node                  clean_;   /* the oldest is clean_.prev */
    list_node                  dirty_;   /* the oldest is dirty_.prev */
    range_hold                *first_range_ = nullptr;
    range_hold                *last_range_  = nullptr;
    std::condition_variable    range_gone_;
};

class block_cache
{
public:
    static constexpr uint32_t SHARDS = 16;

    /* After the library's start. Throws when there is no room for the records. */
    void open();

    /* Gives all pages back, written or not; the only user. False when records are left. */
    bool close();

    cache_shard &shard_of(uint64_t page) { return shards_[page / STRIPE_PAGES % SHARDS]; }
    cache_shard &shard(uint32_t index) { return shards_[index]; }

    /* With the shard's lock. Puts the page, with the caller's reference, into the cache, clean or
     * dirty; `replaced` receives the page that was there, with its reference, or null. False when
     * there is no record for it; the reference stays the caller's then. */
    bool put(cache_shard &shard, uint64_t number, page_ctrl *page, bool dirty,
             page_ctrl **replaced);

    /* With the shard's lock: takes the page out; the reference is the caller's. */
    page_ctrl *take_out(cache_shard &shard, cached_page *one);

    void now_clean(cache_shard &shard, cached_page *one);

    /* With the shard's lock, for whoever holds the range: when all of its pages are cached, whole
     * and held by the cache alone, they are dirty and changing from now on, and `pages` receives
     * their records. False, and nothing has happened, when they are not. */
    bool begin_change(cache_shard &shard, page_range range, cached_page **pages);

    /* Gives up to `wanted` clean pages back; how many it were. With `wait` false it only tries the
     * shards' locks. */
    size_t give_back(size_t wanted, bool wait);

    uint64_t cached() const { return cached_; }
    uint64_t dirty() const { return dirty_; }
    uint64_t now() const { return writes_; } /* of the order of writes */

    cache_statistics statistics;

private:
    static void  evict(uint64_t self);
    size_t       give_back_of(cache_shard &shard, size_t wanted, bool wait);
    cached_page *new_record();
    void         free_record(cached_page *one);

    std::array<cache_shard, SHARDS> shards_;
    uint32_t                        records_ = 0; /* structure partition */
    std::atomic<uint64_t>           cached_{0};
    std::atomic<uint64_t>           dirty_{0};
    std::atomic<uint64_t>           writes_{0};
    std::atomic<uint32_t>           next_shard_{0};
};

/* Holds a range of one stripe for as long as it lives. */
class range_hold
{
public:
    range_hold(block_cache &cache, page_range range);
    range_hold(const range_hold &) = delete;
    ~range_hold();

private:
    bool is_free() const;

    cache_shard     &shard_;
    const page_range range_;
    range_hold      *next_ = nullptr, *prev_ = nullptr;
};
