/*
 * A collector that reads a file must never see half of it: the text goes to a file beside it, which
 * then takes its place.
 */
#include "metrics.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "exit_codes.h"
#include "sampler.h"

namespace {

constexpr mode_t READABLE_FOR_COLLECTORS = 0644;

[[noreturn]] void fail(const std::string &path)
{
    throw std::runtime_error(path + ": " + strerror(errno));
}

bool write_all(int fd, const std::string &text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t wrote = write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno != EINTR)
            return false;
        done += wrote < 0 ? 0 : size_t(wrote);
    }
    return true;
}

void replace_file(const std::string &path, const std::string &text)
{
    std::string beside = path + ".XXXXXX";
    const int fd = mkstemp(beside.data());

    if (fd < 0)
        fail(path);
    const bool is_written = write_all(fd, text) && fchmod(fd, READABLE_FOR_COLLECTORS) == 0;
    if (close(fd) != 0 || !is_written || rename(beside.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(beside.c_str());
        errno = error;
        fail(path);
    }
}

} // namespace

int run_metrics(const metrics_options &options)
{
    console_link link(options.socket);
    const node_sample sample = take_sample(link, FULL_ROUND, options.timeout);
    const std::string text = openmetrics_text(families_of(sample, link.peer()));

    if (options.output.empty())
        fputs(text.c_str(), stdout);
    else
        replace_file(options.output, text);
    return CTL_OK;
}
