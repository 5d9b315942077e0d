/*
 * What a run has to say at its end.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "io_context.h"
#include "leak_audit.h"
#include "options.h"
#include "replica_store.h"
#include "source_file.h"

struct phase_result {
    uint64_t bytes    = 0; /* of the sources */
    uint64_t requests = 0;
    double   seconds  = 0;
};

class report
{
public:
    report(const node_options &options, const std::vector<source_file> &sources,
           const replica_store &store, const io_context &io)
        : options_(options), sources_(sources), store_(store), io_(io)
    {
    }

    /* Notes the pools' sizes; before the stop. */
    void read_pools();

    /* 0, NODE_FAILURE, or 128 and the signal that ended a run without a failure. */
    int exit_code() const;

    /* Failures to standard error, always; the rest to standard output unless quiet. */
    void print() const;

    phase_result             protect, verify;
    bool                     verified = false; /* the images were looked at ... */
    bool                     damage   = false; /* ... and are not what they should be */
    int                      stop_signal = 0; /* that ended the phases early; 0 = none */
    size_t                   threads  = 0;
    leak_audit               audit;
    bool                     stopped_clean = false;
    bool                     images_kept   = false;
    std::vector<std::string> failures;
    uint64_t                 failure_count = 0;

private:
    bool ok() const { return failure_count == 0 && audit.clean() && stopped_clean; }
    const char *finding() const;
    const char *fate_of_images() const;
    void print_failures() const;
    void print_phases() const;
    void print_pools() const;
    void print_sharing() const;
    void print_end() const;

    const node_options             &options_;
    const std::vector<source_file> &sources_;
    const replica_store            &store_;
    const io_context               &io_;
    uint64_t                        pages_total_ = 0;
    uint64_t                        sgls_total_  = 0;
};
