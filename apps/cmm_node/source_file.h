/*
 * A file to protect, as it was when the program started.
 */
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

struct source_file {
    std::string path;
    uint64_t    size; /* bytes */
    dev_t       device;
    ino_t       inode;
    uint32_t    index; /* place on the command line, from 0; part of the images' names */
};

/* Looks at every path; throws for one that is not there, not readable or no regular file. */
std::vector<source_file> find_sources(const std::vector<std::string> &paths);

uint64_t total_size(const std::vector<source_file> &sources);
