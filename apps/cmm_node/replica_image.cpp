/*
 * Opens, writes and reads one image. The vectors of a transfer are the chain's entries, the last
 * one cut to whole sectors.
 */
#include "replica_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "node_error.h"
#include "zyumm_cmm_sgl.h"

namespace {

struct stat status_of(int fd, const std::string &path)
{
    struct stat status{};
    if (fstat(fd, &status) != 0)
        throw system_failure(path, errno);
    return status;
}

std::vector<iovec> vectors_of(SGL *chain, uint64_t bytes)
{
    std::vector<iovec> vectors;
    uint32_t index = 0;

    vectors.reserve(chain->entrySumInChain);
    for (SGL *sgl = chain; sgl != nullptr && bytes > 0;) {
        const SGL_ENTRY &entry = sgl->entries[index];
        const uint64_t length = std::min<uint64_t>(entry.len, bytes);
        vectors.push_back({entry.buf, length});
        bytes -= length;
        move2NextEntryAndModifyPSgl(&sgl, &index);
    }
    return vectors;
}

} // namespace

replica_image replica_image::create(const std::string &path,
                                    const std::vector<source_file> &sources)
{
    /* Not truncated yet: the path may lead to a file that is to be protected. */
    unique_fd fd = open_file(path, O_WRONLY | O_CREAT);
    const struct stat status = status_of(fd.get(), path);

    for (const source_file &source : sources)
        if (source.device == status.st_dev && source.inode == status.st_ino)
            throw node_error(path + ": is the file to be protected, " + source.path);
    if (S_ISREG(status.st_mode) && ftruncate(fd.get(), 0) != 0)
        throw system_failure(path, errno);
    return {path, std::move(fd)};
}

replica_image replica_image::open(const std::string &path, uint64_t data)
{
    unique_fd fd = open_file(path, O_RDONLY);
    const uint64_t size = uint64_t(status_of(fd.get(), path).st_size);
    const uint64_t expected = image_bytes_of(data);

    if (size != expected)
        throw node_error(path + ": damaged at byte offset " +
                         std::to_string(std::min(size, expected)) + ": the image has " +
                         std::to_string(size) + " bytes, " + std::to_string(expected) +
                         " were expected");
    return {path, std::move(fd)};
}

void replica_image::write(SGL *chain, uint64_t offset, uint32_t data) const
{
    write_all(fd_.get(), path_, vectors_of(chain, image_bytes_of(data)), image_bytes_of(offset));
}

void replica_image::read(SGL *chain, uint64_t offset, uint32_t data) const
{
    read_all(fd_.get(), path_, vectors_of(chain, image_bytes_of(data)), image_bytes_of(offset));
}

void replica_image::close()
{
    const int error = fd_.close();
    if (error != 0)
        throw system_failure(path_ + ": close failed", error);
}
