/*
 * Zeros that need no page: where a page's worth of the data is all zero, the chain of a request
 * names the library's shared zero page instead of a page of the pool.
 *
 *     data      | a | b | 0 | 0 | 0 | c |            6 pages
 *     stretches |  2    |    3 zero | 1 |
 *     taken     [a][b][c]                            3 pages
 *     chain     [a][b][Z][Z][Z][c]                   Z: the zero page, one reference an entry
 *
 * The zero page has the integrity bytes of any page, so that writers see no difference. It is
 * read-only and shared by the whole process: nothing may be copied into a chain that names it but
 * the stretches that are not zero.
 */
#pragma once

#include <cstdint>
#include <vector>

#include "page_run.h"
#include "share_statistics.h"

class page_waiter;

struct stretch {
    uint32_t first; /* page of the data */
    uint32_t pages;
    bool     zero;
};

/* Pages that hold `data` bytes. */
uint32_t pages_of(uint32_t data);

/* The stretches of `length` bytes; a last page that is not filled counts as filled with zeros. */
std::vector<stretch> find_stretches(const uint8_t *data, uint32_t length);

/* A chain for the data, filled with it; waits for the pages that it really needs. `length` is a
 * multiple of the sector's data. Throws when pages or SGLs are not to be had. */
page_run take_filled(const uint8_t *data, uint32_t length, page_waiter &waiter, uint32_t timeout,
                     retry_poller &poller, share_statistics &statistics);
