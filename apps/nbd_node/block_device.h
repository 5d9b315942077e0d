/*
 * The device: what a client's request does with cache, pages and files.
 *
 *     read    cached, or a hole: copies from pages that it holds references of
 *             else: takes pages, holds the range, reads the files, puts the pages into the cache
 *     write   cached and looked at by nobody: holds the range, fills the pages where they are
 *             else: takes pages, holds the range, fills them, puts them into the cache
 *             in write-through mode, or with FUA, they are written back before the answer
 *     zero    whole pages become holes of the files at once, the rest is written
 *     flush   everything that was dirty when it came is written back, then the files are synced
 *
 * Answers are errnos, 0 for success; what finds no pages or records in time throws node_error.
 *
 * Threads: any number of requests at once. One thread of the device's own writes back.
 */
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "block_cache.h"
#include "device_files.h"
#include "io_request.h"
#include "page_content.h"
#include "page_supply.h"
#include "request_part.h"

struct write_back_statistics {
    std::atomic<uint64_t> runs{0};
    std::atomic<uint64_t> pages{0};
    std::atomic<uint64_t> completed{0}; /* pages that were filled up for it */
    std::atomic<uint64_t> failures{0};
    std::atomic<uint64_t> by_writers{0}; /* runs, of writers who would make too many pages dirty */
};

class block_device
{
public:
    block_device(device_files &files, bool write_through)
        : files_(files), write_through_(write_through), supply(cache)
    {
    }

    /* After the library's start. Throws. */
    void start(uint32_t timeout);

    /* Writes back, stops the threads and empties the cache: the errno of the last flush. No
     * requests are under way any more. */
    int stop();

    int read(void *buffer, uint32_t count, uint64_t offset);
    int write(const void *data, uint32_t count, uint64_t offset, bool fua);
    int zero(uint32_t count, uint64_t offset, bool may_trim, bool fua);
    int flush();

    /* The first errno that keeps dirty pages from being written; 0 when the last try succeeded. */
    int write_failure() const { return write_failure_; }

    bool records_left() const { return records_left_; }

    const device_files &files() const { return files_; }

    write_back_statistics written;

private:
    using references = std::array<page_reference, STRIPE_PAGES>;

    /* read_path.cpp */
    int      read_part(const request_part &part);
    uint32_t collect(const request_part &part, references *pages, bool *missing);
    int      load(const request_part &part);
    int      fill_from_files(page_range range, SGL *chain, const references &old,
                             page_finding *findings);
    void     keep_loaded(page_range range, SGL *chain, references *old,
                         page_finding *findings);
    void     collect_cached(page_range range, references *old);

    /* write_path.cpp */
    int  write_part(io_request &request, const request_part &part, bool allocate);
    int  write_pages(io_request &request, const request_part &part);
    bool change_pages(const request_part &part);
    int  prepare(const request_part &one, page_ctrl *page, page_ctrl *old);
    void fill_page(const request_part &one, page_ctrl *page);
    int  zero_part(io_request &request, const request_part &part, bool may_trim);
    int  make_holes(io_request &request, page_range range);
    int  settle(io_request &request, uint64_t offset, uint64_t count, bool fua);

    /* write_back.cpp */
    bool pick(cache_shard &shard, uint64_t until, page_range *run);
    int  write_back(io_request &request, page_range range);
    int  write_run(io_request &request, page_range run, SGL *chain);
    int  complete(page_range run, SGL *chain);
    int  write_back_until(io_request &request, uint64_t until);
    int  admit(io_request &request, uint32_t pages);
    bool write_back_any(io_request &request, int *failed);
    void write_back_loop();
    void write_back_round(io_request &request, uint64_t aged);
    void pause();
    void wake_write_back();

    device_files &files_;
    const bool    write_through_;
    uint32_t      longest_part_ = STRIPE_PAGES; /* pages */
    uint64_t      low_ = 0, most_ = 0;          /* dirty pages: write-back begins; at most */

public:
    block_cache cache;
    page_supply supply;

private:
    friend class admission;

    std::mutex              admission_lock_; /* guards pending_ */
    std::condition_variable admitted_less_;
    uint64_t                pending_ = 0; /* pages of writes that are admitted and not dirty yet */
    std::atomic<int>        write_failure_{0};
    bool                    records_left_ = false;
    std::mutex              lock_; /* guards all below */
    std::condition_variable wake_;
    bool                    stopping_ = false;
    bool                    short_    = false;
    std::thread             write_back_thread_;
};
