/*
 * All copies of the device: the first one, and its replicas.
 *
 * Reading goes to the first copy; a sector that does not hold is taken from a replica and mended.
 * Writing goes to all copies: the calling thread writes the first one, each replica is written by a
 * thread of its own from a clone of the chain. A replica that fails is left behind: the epoch of
 * the others goes up, and at the next start it is made anew. A first copy that fails fails the
 * request.
 *
 * Owner:   opened before any thread is there; start() and stop() are for the replicas' threads.
 * Threads: any, but no two for the same page at once, unless both only read.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "copy_writer.h"
#include "file_copy.h"
#include "page_map.h"

class io_request;

inline constexpr size_t MOST_REPLICAS = 4;

struct file_statistics {
    std::atomic<uint64_t> pages_read{0};
    std::atomic<uint64_t> pages_written{0};
    std::atomic<uint64_t> runs_written{0};
    std::atomic<uint64_t> pages_trimmed{0};
    std::atomic<uint64_t> clones{0};
    std::atomic<uint64_t> sectors_damaged{0}; /* and not to be had from any copy */
    std::atomic<uint64_t> sectors_mended{0};  /* from a replica */
    uint64_t              journal_repairs = 0;
    uint64_t              replicas_made   = 0; /* anew, at the start */
};

/* What was found in the place of a page. */
struct page_finding {
    uint16_t bad  = 0;     /* sectors that no copy has; their bytes are those of the first copy */
    bool     hole = false; /* never written: zeros, with protection information made now */
};

class device_files
{
public:
    /* Opens, or makes, and repairs all copies; throws. */
    device_files(const std::string &path, const std::vector<std::string> &replicas, uint64_t size,
                 bool barrier);

    uint64_t size() const { return first_.file.header().size; }
    uint64_t pages() const { return first_.file.pages(); }
    size_t   replicas() const { return replicas_.size(); }
    size_t   replicas_left() const;

    void start();
    void stop();

    /* Marks the files as closed: what they hold is complete. */
    void close();

    /* Reads pages into memory of 8320 bytes each, and checks them. An errno when a page could not
     * be read at all; damage is no failure here. */
    int read(page_range range, uint8_t *const *pages, page_finding *findings);

    /* Writes the pages of a chain of one SGL, or makes holes of the range. An errno. */
    int write(io_request &request, page_range range, SGL *chain);
    int trim(io_request &request, page_range range);

    int sync();

    /* Pages that hold data in the files, or in the cache. All others are zeros. */
    page_map present;

    const file_statistics &statistics() const { return statistics_; }

private:
    struct replica {
        replica(const std::string &path, uint64_t size, bool barrier)
            : copy(path, size, barrier), writer(copy)
        {
        }
        file_copy         copy;
        copy_writer       writer;
        std::atomic<bool> left_behind{false};
    };

    std::vector<page_range> bring_up(replica &one, bool was_open);

    void remake(replica &one);
    void begin_epoch();
    void make_equal(const std::vector<page_range> &touched);
    void find_present();
    int  carry_out(io_request &request, cmm_genio first);
    bool hand_out(size_t index, const cmm_genio &first, copy_job *job);
    void leave_behind(replica &one, int failed);
    int  read_one_by_one(page_range range, uint8_t *const *pages);
    void mend(uint64_t number, uint8_t *page, page_finding *finding);

    file_copy           first_;
    std::deque<replica> replicas_;
    std::mutex          epoch_lock_; /* guards headers after the start */
    file_statistics     statistics_;
};
