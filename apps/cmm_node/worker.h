/*
 * One worker: takes chunks off the list and protects or verifies them, one request at a time.
 *
 * What a chunk holds (a request record, a run of pages) is held by objects of the function that
 * works on it, so a failure in the middle gives everything back.
 */
#pragma once

#include <cstdint>
#include <vector>

#include "failure_list.h"
#include "page_wait.h"
#include "work_list.h"

class worker
{
public:
    worker(uint32_t chunk_bytes, uint32_t timeout, page_statistics &statistics,
           retry_poller &poller, failure_list &failures);

    /* Until the list is empty. A failure while protecting stops the list: nothing is gained by
     * filling a full disk; damage found while verifying does not, every replica is looked at. */
    void run(phase what, work_list &list);

private:
    void work_on(phase what, const chunk &part);
    void protect(const chunk &part);
    void verify(const chunk &part);
    void verify_image(const chunk &part, const replica_image &image, SGL *chain);

    const uint32_t       timeout_; /* s */
    failure_list        &failures_;
    page_waiter          waiter_;
    std::vector<uint8_t> source_; /* a chunk as it is in the file, filled up to a whole sector */
    std::vector<uint8_t> copy_;   /* the same, as a replica gave it back */
};
