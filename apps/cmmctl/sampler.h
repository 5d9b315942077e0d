/*
 * Samples of a process over its console, without ever waiting: for programs with a screen.
 *
 *     sampler.begin()    ... whenever the link's descriptor is ready: sampler.progress() ...
 *
 * Both throw link_error, after which the connection is closed and `begin` opens it again, and
 * bad_answer, after which it is still good; either way the round is over.
 *
 * Threads: one at a time.
 */
#pragma once

#include <optional>

#include "console_link.h"
#include "sample_round.h"

class sampler
{
public:
    sampler(console_link &link, round_extent extent) : link_(link), extent_(extent) {}

    void begin();
    bool is_running() const { return round_.has_value(); }

    /* The sample, once the last answer has come. Between rounds it notices a closed connection. */
    std::optional<node_sample> progress();

private:
    std::optional<node_sample> ask_next();
    std::optional<node_sample> take_what_came();

    console_link               &link_;
    round_extent                extent_;
    std::optional<sample_round> round_;
};

/* A whole sample at once; waits `seconds` at most for each answer. */
node_sample take_sample(console_link &link, round_extent extent, double seconds);
