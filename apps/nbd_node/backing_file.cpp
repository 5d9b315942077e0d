/*
 * System calls on a backing file, each repeated until all is moved.
 */
#include "backing_file.h"

#include <fcntl.h>
#include <isa-l/crc.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "node_error.h"

namespace {

using move_call = ssize_t (*)(int fd, const iovec *vectors, int count, off_t offset);

/* What a call may move less than it was asked to is asked for again. A file that ends early, or a
 * disk that takes nothing, is an I/O error. */
int move_all(move_call call, int fd, iovec *vectors, uint32_t count, uint64_t offset)
{
    while (count > 0) {
        const ssize_t moved = call(fd, vectors, int(count), off_t(offset));
        if (moved < 0 && errno == EINTR)
            continue;
        if (moved <= 0)
            return moved < 0 ? errno : EIO;
        offset += uint64_t(moved);
        size_t left = size_t(moved);
        while (count > 0 && left >= vectors->iov_len) {
            left -= vectors->iov_len;
            ++vectors;
            --count;
        }
        if (count > 0) {
            vectors->iov_base = static_cast<char *>(vectors->iov_base) + left;
            vectors->iov_len -= left;
        }
    }
    return 0;
}

uint32_t crc_of(const file_header &header)
{
    file_header copy = header;
    return crc32_iscsi(reinterpret_cast<unsigned char *>(&copy), offsetof(file_header, crc),
                       0xFFFFFFFF);
}

bool is_valid(const file_header &header)
{
    return header.magic == HEADER_MAGIC && header.version == LAYOUT_VERSION &&
           header.crc == crc_of(header);
}

} // namespace

backing_file::backing_file(const std::string &path, uint64_t size) : path_(path)
{
    const bool exists = access(path.c_str(), F_OK) == 0;
    struct stat state;

    if (!exists && size == 0)
        throw node_error(path + ": no such file; size= makes a new one");
    fd_ = open_file(path, O_RDWR | O_CREAT);
    if (flock(fd_.get(), LOCK_EX | LOCK_NB) != 0)
        throw node_error(path + ": another process serves this file");
    if (fstat(fd_.get(), &state) != 0)
        throw system_failure(path, errno);
    if (!S_ISREG(state.st_mode))
        throw node_error(path + ": not a regular file");
    is_new_ = state.st_size == 0;
    if (is_new_)
        make(size);
    else
        open_existing(size);
    reserved_.resize(pages());
}

void backing_file::make(uint64_t size)
{
    if (size == 0)
        throw node_error(path_ + ": the file is empty; size= makes a device of it");
    if (ftruncate(fd_.get(), off_t(bytes_of_file(size))) != 0)
        throw system_failure(path_, errno);
    /* The journal's room comes first; a file system that cannot promise it gives it when it can. */
    if (fallocate(fd_.get(), 0, 0, off_t(JOURNAL_END)) != 0 && errno != EOPNOTSUPP)
        throw system_failure(path_, errno);
    header_ = {HEADER_MAGIC, LAYOUT_VERSION, STATE_CLOSED, 0, size, 1, {}, 0, 0};
    if (getrandom(header_.uuid, sizeof header_.uuid, 0) != ssize_t(sizeof header_.uuid))
        throw system_failure(path_ + ": no random number for its identity", errno);
    const int failed = store_header();
    if (failed != 0)
        throw system_failure(path_, failed);
}

void backing_file::open_existing(uint64_t size)
{
    std::array<file_header, 2> found;
    struct stat state;

    for (uint32_t which = 0; which < 2; ++which)
        if (read_header(which, &found[which]) == 0 && is_valid(found[which]) &&
            found[which].sequence >= header_.sequence)
            header_ = found[which];
    if (header_.magic != HEADER_MAGIC)
        throw node_error(path_ + ": not a device of this kind, or both of its headers are damaged");
    if (size != 0 && size != header_.size)
        throw node_error(path_ + ": the device has " + std::to_string(header_.size) +
                         " bytes, not " + std::to_string(size));
    if (fstat(fd_.get(), &state) != 0)
        throw system_failure(path_, errno);
    if (uint64_t(state.st_size) < bytes_of_file(header_.size))
        throw node_error(path_ + ": the file is shorter than its header says");
}

int backing_file::read_header(uint32_t which, file_header *header) const
{
    return read(header, sizeof *header, which * HEADER_BYTES);
}

int backing_file::store_header()
{
    ++header_.sequence;
    header_.crc = crc_of(header_);
    const int failed = write(&header_, sizeof header_, header_.sequence % 2 * HEADER_BYTES);
    return failed != 0 ? failed : sync();
}

int backing_file::mark(uint32_t state, uint64_t epoch)
{
    header_.state = state;
    header_.epoch = epoch;
    return store_header();
}

int backing_file::adopt(const file_header &device)
{
    memcpy(header_.uuid, device.uuid, sizeof header_.uuid);
    header_.size = device.size;
    return mark(STATE_OPEN, device.epoch);
}

int backing_file::read(iovec *vectors, uint32_t count, uint64_t offset) const
{
    return move_all(preadv, fd_.get(), vectors, count, offset);
}

int backing_file::write(iovec *vectors, uint32_t count, uint64_t offset) const
{
    return move_all(pwritev, fd_.get(), vectors, count, offset);
}

int backing_file::read(void *data, size_t size, uint64_t offset) const
{
    iovec one = {data, size};
    return read(&one, 1, offset);
}

int backing_file::write(const void *data, size_t size, uint64_t offset) const
{
    iovec one = {const_cast<void *>(data), size};
    return write(&one, 1, offset);
}

int backing_file::reserve(page_range range)
{
    if (reserved_.has_all(range))
        return 0;
    if (fallocate(fd_.get(), FALLOC_FL_KEEP_SIZE, off_t(offset_of_page(range.first)),
                  off_t(range.count * uint64_t(PAGE_SIZE_WITH_DIF))) != 0 &&
        errno != EOPNOTSUPP && errno != ENOSYS)
        return errno;
    reserved_.add(range);
    return 0;
}

int backing_file::punch(page_range range)
{
    static const std::array<uint8_t, PAGE_SIZE_WITH_DIF> zeros{};
    const uint64_t offset = offset_of_page(range.first);

    reserved_.remove(range);
    if (fallocate(fd_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, off_t(offset),
                  off_t(range.count * uint64_t(PAGE_SIZE_WITH_DIF))) == 0)
        return 0;
    if (errno != EOPNOTSUPP && errno != ENOSYS)
        return errno;
    for (uint32_t i = 0; i < range.count; ++i)
        if (const int failed = write(zeros.data(), zeros.size(), offset + i * zeros.size()))
            return failed;
    return 0;
}

int backing_file::sync() const
{
    return fdatasync(fd_.get()) == 0 ? 0 : errno;
}

uint64_t backing_file::next_data(uint64_t offset) const
{
    const uint64_t end = bytes_of_file(header_.size);
    if (offset >= end)
        return end;
    const off_t found = lseek(fd_.get(), off_t(offset), SEEK_DATA);
    if (found < 0) /* nothing but a hole behind it; or no such question here: all may be data */
        return errno == ENXIO ? end : offset;
    return std::min(uint64_t(found), end);
}

uint64_t backing_file::next_hole(uint64_t offset) const
{
    const uint64_t end = bytes_of_file(header_.size);
    const off_t found = offset < end ? lseek(fd_.get(), off_t(offset), SEEK_HOLE) : -1;
    return found < 0 ? end : std::min(uint64_t(found), end);
}
