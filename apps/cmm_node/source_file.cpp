/*
 * What the command line names, looked at once: the sizes found here are what is copied. A file that
 * shrinks while the program runs ends in a failed read, one that grows is copied up to its old end.
 */
#include "source_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "node_error.h"

namespace {

source_file find_source(const std::string &path, uint32_t index)
{
    struct stat status{};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        throw system_failure(path, errno);
    if (!S_ISREG(status.st_mode))
        throw node_error(path + ": not a regular file");
    return {path, uint64_t(status.st_size), status.st_dev, status.st_ino, index};
}

} // namespace

std::vector<source_file> find_sources(const std::vector<std::string> &paths)
{
    std::vector<source_file> sources;
    for (const std::string &path : paths)
        sources.push_back(find_source(path, uint32_t(sources.size())));
    return sources;
}

uint64_t total_size(const std::vector<source_file> &sources)
{
    uint64_t sum = 0;
    for (const source_file &source : sources)
        sum += source.size;
    return sum;
}
