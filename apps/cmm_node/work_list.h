/*
 * The files in the chunks that workers take, one chunk for one request.
 *
 * A file and its images are opened when its first chunk is handed out and closed when its last one
 * is done, so that any number of files needs only a few descriptors at a time.
 *
 * Threads: every operation may be called by any worker.
 */
#pragma once

#include <fcntl.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "replica_image.h"
#include "replica_store.h"
#include "source_file.h"

enum class phase { PROTECT, VERIFY };

/* A source that is being worked on. */
struct open_source {
    open_source(const source_file &what, uint64_t chunks)
        : source(what), fd(open_file(what.path, O_RDONLY)), chunks_left(chunks)
    {
    }

    const source_file         &source;
    unique_fd                  fd;
    std::vector<replica_image> images; /* verifying leaves out those that could not be opened */
    std::atomic<uint64_t>      chunks_left;
};

struct chunk {
    std::shared_ptr<open_source> file;
    uint64_t                     offset; /* in the source; a multiple of the chunk size */
    uint32_t                     length; /* bytes of the source, at least 1 */
};

class failure_list;

class work_list
{
public:
    work_list(phase what, const std::vector<source_file> &sources, const replica_store &store,
              uint32_t chunk_bytes, failure_list &failures);

    /* False when nothing is left, or the list was stopped. */
    bool next(chunk *out);

    /* The chunk is through; `well` when it counts as work done. */
    void done(const chunk &part, bool well);

    /* No further chunk is handed out. */
    void stop() { stopped_ = true; }

    uint64_t bytes_done() const { return bytes_done_; }
    uint64_t chunks_done() const { return chunks_done_; }

private:
    bool open_next_source();
    std::shared_ptr<open_source> open_source_of(const source_file &source);
    void add_image(open_source &file, uint32_t number);
    void close_images(open_source &file);

    const phase                     what_;
    const std::vector<source_file> &sources_;
    const replica_store            &store_;
    const uint32_t                  chunk_bytes_;
    failure_list                   &failures_;

    std::mutex                   lock_; /* guards the position */
    size_t                       next_source_ = 0;
    std::shared_ptr<open_source> current_;
    uint64_t                     offset_ = 0;

    std::atomic<bool>     stopped_{false};
    std::atomic<uint64_t> bytes_done_{0};
    std::atomic<uint64_t> chunks_done_{0};
};
