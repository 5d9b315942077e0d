/*
 * The intent journal of one backing file.
 *
 *     place 0 | record | up to 64 pages |   free, or of a write that is on its way
 *     place 1 | record | up to 64 pages |
 *     ...
 *
 * A write to pages in place begins when its record is complete and ends before the record is struck
 * out. So whatever the process was doing when it ended, a torn page has its whole new content in a
 * complete record, and no record of an earlier write of the page is left: nobody writes a page that
 * another one writes. A complete record may also be of a write that was through; its pages are
 * whole then, and whole pages are left alone.
 *
 * Threads: any; who finds all places taken waits for one.
 */
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include <sys/uio.h>

#include "layout.h"

class backing_file;

class journal
{
public:
    journal(backing_file &file, bool barrier) : file_(file), barrier_(barrier) {}

    /* A place, from the writing of its record until all copies have what it announces. */
    class place
    {
    public:
        explicit place(journal &owner);
        place(const place &) = delete;
        ~place();

        /* Announces pages, whose content the vectors are, or a trim, with none. An errno. */
        int announce(uint32_t kind, page_range range, const iovec *pages);

        /* The write in place failed on the way: its pages may be torn, so the record stays until
         * somebody else needs the place. */
        void keep_record() { announced_ = false; }

    private:
        journal &owner_;
        uint32_t index_;
        bool     announced_ = false;
    };

    struct repair {
        std::vector<page_range> touched; /* pages of all complete records */
        uint64_t                pages = 0; /* that were damaged, and are whole again */
    };

    /* After a start that finds the file open: repairs what was on its way. Throws when the file
     * cannot be read or written. */
    repair replay();

private:
    uint32_t take();
    void     give_back(uint32_t index);

    backing_file           &file_;
    const bool              barrier_;
    std::mutex              lock_; /* guards all below */
    std::condition_variable freed_;
    uint32_t                taken_ = 0; /* bit i: place i is taken */
};
