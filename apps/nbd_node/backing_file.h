/*
 * One backing file: its header, its lock, and whole pages moved between it and memory.
 *
 * Opening throws with a text for the user; everything on a request's way answers an errno, 0 for
 * success, and moves all or fails.
 *
 * Owner:   holds the descriptor and an exclusive lock of the file until it is closed.
 * Threads: pages may be moved by any number of threads; the header is for the one that opens and
 *          closes, and for who marks a failed copy, one at a time.
 */
#pragma once

#include <cstdint>
#include <string>

#include <sys/uio.h>

#include "file_io.h"
#include "layout.h"
#include "page_map.h"

class backing_file
{
public:
    /* Opens `path`, or makes it when it is not there and `size` is not 0; throws. */
    backing_file(const std::string &path, uint64_t size);

    const std::string &path() const { return path_; }
    const file_header &header() const { return header_; }
    uint64_t           pages() const { return pages_of_device(header_.size); }
    bool               is_new() const { return is_new_; }

    /* Writes a header with these values, in the place of the older one. */
    int mark(uint32_t state, uint64_t epoch);

    /* Takes identity and epoch of the device whose copy this file becomes. */
    int adopt(const file_header &device);

    /* `count` vectors, at any byte of the file. They are used up. */
    int read(iovec *vectors, uint32_t count, uint64_t offset) const;
    int write(iovec *vectors, uint32_t count, uint64_t offset) const;
    int read(void *data, size_t size, uint64_t offset) const;
    int write(const void *data, size_t size, uint64_t offset) const;

    /* Makes sure that the file system has room for the pages, so that no write of theirs can end in
     * the middle for want of it. */
    int reserve(page_range range);

    /* Makes holes of the pages. */
    int punch(page_range range);

    int sync() const;

    /* The first byte at or behind `offset` that may hold data; the first one behind that which is
     * in a hole. The file's end when there is none. */
    uint64_t next_data(uint64_t offset) const;
    uint64_t next_hole(uint64_t offset) const;

private:
    void open_existing(uint64_t size);
    void make(uint64_t size);
    int  read_header(uint32_t which, file_header *header) const;
    int  store_header();

    std::string path_;
    unique_fd   fd_;
    file_header header_{};
    bool        is_new_ = false;
    page_map    reserved_; /* pages with room on the disk; all others are asked for */
};
