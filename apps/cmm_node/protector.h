/*
 * Protects a chunk: one chain of pages, a clone for the writer of each replica.
 */
#pragma once

#include <cstdint>

#include "io_context.h"
#include "work_list.h"

class protector
{
public:
    protector(io_context &io, page_waiter &waiter) : io_(io), waiter_(waiter) {}

    /* `data` is the chunk, filled up with zeros to whole sectors. Returns when all replicas are
     * written, and throws when one could not be. */
    void protect(const chunk &part, const uint8_t *data);

private:
    void hand_out(const chunk &part, const uint8_t *data, write_group &writes);
    void finish(write_group &writes);

    io_context  &io_;
    page_waiter &waiter_;
};
