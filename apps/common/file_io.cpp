/*
 * The loop behind every read and write: move, see how far it got, go on or say where it ended.
 */
#include "file_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "node_error.h"

unique_fd &unique_fd::operator=(unique_fd &&other) noexcept
{
    if (this != &other) {
        close();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

unique_fd::~unique_fd()
{
    close();
}

int unique_fd::close()
{
    const int fd = std::exchange(fd_, -1);
    return fd >= 0 && ::close(fd) != 0 ? errno : 0;
}

unique_fd open_file(const std::string &path, int flags)
{
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
    if (fd < 0)
        throw system_failure(path, errno);
    return unique_fd(fd);
}

namespace {

using move_call = ssize_t (*)(int fd, const iovec *vectors, int count, off_t offset);

/* Takes `moved` bytes off the front of the vectors from `first` on; the first one that is left. */
size_t advance(std::vector<iovec> &vectors, size_t first, size_t moved)
{
    while (first < vectors.size() && moved >= vectors[first].iov_len)
        moved -= vectors[first++].iov_len;
    if (first < vectors.size()) {
        vectors[first].iov_base = static_cast<char *>(vectors[first].iov_base) + moved;
        vectors[first].iov_len -= moved;
    }
    return first;
}

node_error stopped(const std::string &where, int error)
{
    return error != 0 ? system_failure(where, error) : node_error(where + ": the file ends here");
}

void move_all(move_call call, const char *verb, int fd, const std::string &path,
              std::vector<iovec> &vectors, uint64_t offset)
{
    size_t first = advance(vectors, 0, 0);
    while (first < vectors.size()) {
        const ssize_t moved = call(fd, &vectors[first], int(vectors.size() - first), off_t(offset));
        const int error = moved < 0 ? errno : 0;
        if (error == EINTR)
            continue;
        if (moved <= 0)
            throw stopped(path + ": " + verb + " at byte offset " + std::to_string(offset), error);
        offset += uint64_t(moved);
        first = advance(vectors, first, size_t(moved));
    }
}

} // namespace

void read_all(int fd, const std::string &path, std::vector<iovec> vectors, uint64_t offset)
{
    move_all(preadv, "read failed", fd, path, vectors, offset);
}

void read_all(int fd, const std::string &path, void *data, size_t size, uint64_t offset)
{
    read_all(fd, path, {iovec{data, size}}, offset);
}

void write_all(int fd, const std::string &path, std::vector<iovec> vectors, uint64_t offset)
{
    move_all(pwritev, "write failed", fd, path, vectors, offset);
}
