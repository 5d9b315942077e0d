/*
 * `cmmctl metrics`: the state of a process as families of figures, for collectors.
 *
 * Requests that wait are told by call site, not one by one: a series for each request would be a
 * new one every moment, which collectors keep for months.
 */
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "openmetrics.h"
#include "sample_round.h"

/* The families of a full sample; `pid` 0 = unknown. */
std::vector<metric_family> families_of(const node_sample &sample, pid_t pid);

struct metrics_options {
    std::string socket;
    std::string output;      /* empty = standard output; else replaced in one go */
    double      timeout = 5; /* s for one answer */
};

/* An exit code. Throws link_error and bad_answer, and then nothing was written. */
int run_metrics(const metrics_options &options);
