/*
 * Hands out chunks in order: all of one file, then the next file's.
 *
 * What cannot be opened is a failure of that file only; workers then go on with the next, or stop
 * because the first failure has stopped the list.
 */
#include "work_list.h"

#include <algorithm>

#include "failure_list.h"
#include "node_error.h"

work_list::work_list(phase what, const std::vector<source_file> &sources,
                     const replica_store &store, uint32_t chunk_bytes, failure_list &failures)
    : what_(what), sources_(sources), store_(store), chunk_bytes_(chunk_bytes), failures_(failures)
{
}

void work_list::add_image(open_source &file, uint32_t number)
{
    const std::string path = store_.image_path(number, file.source);

    if (what_ == phase::PROTECT) {
        file.images.push_back(replica_image::create(path, sources_));
        return;
    }
    try {
        file.images.push_back(replica_image::open(path, file.source.size));
    } catch (const node_error &error) {
        failures_.add(error.what()); /* the other replicas may be sound */
    }
}

std::shared_ptr<open_source> work_list::open_source_of(const source_file &source)
{
    const uint64_t chunks = (source.size + chunk_bytes_ - 1) / chunk_bytes_;
    auto file = std::make_shared<open_source>(source, chunks);

    for (uint32_t number = 0; number < store_.replicas(); ++number)
        add_image(*file, number);
    return file;
}

/* Moves on to the next source that has chunks; false behind the last one. */
bool work_list::open_next_source()
{
    current_.reset();
    offset_ = 0;
    while (!stopped_ && next_source_ < sources_.size()) {
        try {
            current_ = open_source_of(sources_[next_source_++]);
        } catch (const node_error &error) {
            failures_.add(error.what());
            stopped_ = stopped_ || what_ == phase::PROTECT;
            continue;
        }
        if (current_->chunks_left > 0)
            return true;
        close_images(*current_);
        current_.reset();
    }
    return false;
}

bool work_list::next(chunk *out)
{
    std::lock_guard hold(lock_);

    if (current_ == nullptr && !open_next_source())
        return false;
    if (stopped_) /* perhaps while the file was being opened */
        return false;

    const uint64_t left = current_->source.size - offset_;
    *out = {current_, offset_, uint32_t(std::min<uint64_t>(left, chunk_bytes_))};
    offset_ += out->length;
    if (offset_ == current_->source.size)
        current_.reset();
    offset_ = current_ == nullptr ? 0 : offset_;
    return true;
}

void work_list::close_images(open_source &file)
{
    for (replica_image &image : file.images) {
        try {
            image.close();
        } catch (const node_error &error) {
            failures_.add(error.what());
        }
    }
}

void work_list::done(const chunk &part, bool well)
{
    bytes_done_ += well ? part.length : 0;
    chunks_done_ += well ? 1 : 0;
    if (part.file->chunks_left.fetch_sub(1) == 1)
        close_images(*part.file);
}
