/*
 * One replica of one file:
 *
 *     <replica dir>/replica-<k>/<index>-<name>.img        k from 1, index as on the command line
 *
 *     | 512 bytes of the file | 8 integrity bytes |  x  number of sectors, nothing else
 *
 * The sector of file byte b begins at image byte b / 512 * 520. The last sector's data is filled up
 * with zeros; a file of 0 bytes has an image of 0 bytes. So images hold whole sectors, not whole
 * pages: a page more or less of padding would say nothing about the file.
 *
 * Sectors go to disk and come back straight from and into the pages of a chain, whose entries are
 * laid out just like the image.
 *
 * Threads: any number may read and write different ranges at once.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "file_io.h"
#include "source_file.h"
#include "zyumm_cmm_types.h"

/* Sectors that hold `data` bytes, and what they take up in an image. */
inline uint64_t sectors_of(uint64_t data)
{
    return data / PAGE_SECTOR_DATA_SIZE + (data % PAGE_SECTOR_DATA_SIZE != 0);
}

inline uint64_t image_bytes_of(uint64_t data)
{
    return sectors_of(data) * PAGE_SECTOR_SIZE;
}

class replica_image
{
public:
    replica_image(std::string path, unique_fd fd) : path_(std::move(path)), fd_(std::move(fd)) {}

    /* An empty image; throws when it would overwrite one of the sources. */
    static replica_image create(const std::string &path, const std::vector<source_file> &sources);

    /* An image that is there; throws when its size is not that of an image of `data` bytes. */
    static replica_image open(const std::string &path, uint64_t data);

    /* Move the sectors of `data` bytes between the chain and the place of file byte `offset`, a
     * multiple of 512. Throw with the byte offset in the image at which they could not. */
    void write(SGL *chain, uint64_t offset, uint32_t data) const;
    void read(SGL *chain, uint64_t offset, uint32_t data) const;

    /* Throws when the file system has lost what was written. */
    void close();

    const std::string &path() const { return path_; }

private:
    std::string path_;
    unique_fd   fd_;
};
