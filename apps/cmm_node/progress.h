/*
 * How far a phase is: a bar on a terminal, plain lines elsewhere, nothing when quiet.
 *
 * Threads: the main thread only.
 */
#pragma once

#include <cstdint>
#include <string>

class progress
{
public:
    progress(std::string phase, uint64_t total, bool quiet);

    void show(uint64_t done);
    void finish(uint64_t done);

private:
    void show_bar(uint64_t done) const;
    void show_line(uint64_t done);

    const std::string phase_;
    const uint64_t    total_; /* bytes */
    const bool        quiet_;
    const bool        terminal_;
    uint64_t          next_quarter_ = 1;
};

/* "256.0 MiB". */
std::string human_size(uint64_t bytes);
