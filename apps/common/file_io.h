/*
 * Descriptors, and reads and writes that either move everything or throw with the byte offset at
 * which they could not.
 *
 * A system call may move less than it was asked to: each operation goes on where the call stopped,
 * so that the offset in its failure is exact. All offsets are 64-bit.
 */
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/* Owner of a descriptor. */
class unique_fd
{
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept;
    ~unique_fd();

    int get() const { return fd_; }

    /* Closes it now; errno, or 0. A file system may report a failed write only here. */
    int close();

private:
    int fd_ = -1;
};

/* A descriptor of `path`; throws with the path and the reason. */
unique_fd open_file(const std::string &path, int flags);

/* Each moves all bytes; `path` is for the message. The vectors are used up. */
void read_all(int fd, const std::string &path, void *data, size_t size, uint64_t offset);
void read_all(int fd, const std::string &path, std::vector<iovec> vectors, uint64_t offset);
void write_all(int fd, const std::string &path, std::vector<iovec> vectors, uint64_t offset);
