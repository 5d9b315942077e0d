/*
 * The bar is drawn over itself; a log file gets a line at each quarter instead.
 */
#include "progress.h"

#include <unistd.h>

#include <array>
#include <cstdio>

std::string human_size(uint64_t bytes)
{
    static constexpr std::array<const char *, 5> UNITS = {"B", "KiB", "MiB", "GiB", "TiB"};
    double value = double(bytes);
    size_t unit = 0;
    char text[32];

    for (; value >= 1024 && unit + 1 < UNITS.size(); ++unit)
        value /= 1024;
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, UNITS[unit]);
    return text;
}

progress::progress(std::string phase, uint64_t total, bool quiet)
    : phase_(std::move(phase)), total_(total), quiet_(quiet), terminal_(isatty(STDOUT_FILENO) == 1)
{
}

void progress::show_bar(uint64_t done) const
{
    constexpr unsigned WIDTH = 40;
    const double part = total_ == 0 ? 1.0 : double(done) / double(total_);
    const std::string full(size_t(part * WIDTH), '#');

    printf("\r%-8s [%-40s] %3.0f %%  %s of %s ", phase_.c_str(), full.c_str(), part * 100,
           human_size(done).c_str(), human_size(total_).c_str());
    fflush(stdout);
}

void progress::show_line(uint64_t done)
{
    const uint64_t quarter = total_ == 0 ? 4 : done * 4 / total_;
    if (quarter < next_quarter_)
        return;
    next_quarter_ = quarter + 1;
    printf("%s: %lu %%, %s of %s\n", phase_.c_str(), quarter * 25, human_size(done).c_str(),
           human_size(total_).c_str());
    fflush(stdout);
}

void progress::show(uint64_t done)
{
    if (quiet_)
        return;
    if (terminal_)
        show_bar(done);
    else
        show_line(done);
}

void progress::finish(uint64_t done)
{
    show(done);
    if (!quiet_ && terminal_)
        printf("\n");
}
