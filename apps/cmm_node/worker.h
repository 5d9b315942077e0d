/*
 * One worker: takes chunks off the list and protects or verifies them, one request at a time.
 *
 * What a chunk holds (a request record, chains of pages) is held by objects of the function that
 * works on it, so a failure in the middle gives everything back.
 */
#pragma once

#include <cstdint>
#include <vector>

#include "io_context.h"
#include "protector.h"
#include "verifier.h"
#include "work_list.h"

class worker
{
public:
    worker(io_context &io, uint32_t chunk_bytes);

    /* Until the list is empty. A failure while protecting stops the list: nothing is gained by
     * filling a full disk; damage found while verifying does not, every replica is looked at. */
    void run(phase what, work_list &list);

private:
    void work_on(phase what, const chunk &part);

    io_context          &io_;
    page_waiter          waiter_;
    protector            protector_;
    verifier             verifier_;
    std::vector<uint8_t> source_; /* a chunk as it is in the file, filled up to a whole sector */
};
