/*
 * What is still out when a process is about to stop the library.
 */
#pragma once

#include <cstdint>

struct leak_audit {
    uint64_t pages    = 0;
    uint64_t sgls     = 0;
    uint64_t requests = 0;
    uint64_t queued   = 0; /* records of requests that wait for pages */

    bool clean() const { return pages + sgls + requests + queued == 0; }
};

/* Counts what callers hold. */
leak_audit audit_objects();

/* The same once all users are gone. The library frees the record of a request that timed out only
 * after its call-back, so a record that is out is given a second to go. */
leak_audit audit_at_the_end();

/* Prints who holds what is out to the debug console: module, function, line. */
void print_holders(const leak_audit &audit);
