/*
 * Verifies a chunk: every replica must give back what the file holds.
 */
#pragma once

#include <cstdint>
#include <vector>

#include "io_context.h"
#include "work_list.h"

class verifier
{
public:
    verifier(io_context &io, page_waiter &waiter, uint32_t chunk_bytes)
        : io_(io), waiter_(waiter), copy_(chunk_bytes)
    {
    }

    /* `data` is the chunk, filled up with zeros to whole sectors. Damage goes to the failure list,
     * so that all replicas are looked at; throws when the chunk could not be looked at. */
    void verify(const chunk &part, const uint8_t *data);

private:
    void verify_image(const chunk &part, const replica_image &image, const uint8_t *data, SGL *own,
                      SGL *borrowed);
    void verify_cached(const chunk &part, const uint8_t *data);

    io_context          &io_;
    page_waiter         &waiter_;
    std::vector<uint8_t> copy_; /* the chunk as a replica gave it back */
};
