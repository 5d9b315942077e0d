/*
 * One round of questions to a process, whose answers together are a sample of its state.
 *
 *     round.next() --> "--json umm show pools"      the next command, or none: the sample is whole
 *     round.take(answer)                            ... which belongs to it
 *
 * It knows no socket: whoever asks, with or without waiting, drives it. The parts of a sample are
 * of slightly different moments. A pool that is deleted between two questions is simply without
 * holders.
 *
 * Threads: one at a time.
 */
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "answer_reader.h"
#include "node_report.h"

struct node_sample {
    std::string                   process; /* the name that it is configured under */
    pools_report                  pools;
    requests_report               requests;
    std::vector<holder_report>    holders;
    numa_report                   numa;         /* of a full round only, as all below */
    std::vector<partition_report> partitions;
    uint64_t                      dropped_lines = 0;
};

struct round_extent {
    size_t holder_pools; /* pools whose holders are asked for, those with most bytes out first */
    bool   is_full;
};

/* What a screen shows, for the price of a few questions; and everything. */
inline constexpr round_extent SCREEN_ROUND = {4, false};
inline constexpr round_extent FULL_ROUND = {SIZE_MAX, true};

class sample_round
{
public:
    explicit sample_round(round_extent extent);

    /* The command to send next; none once the sample is whole. The same until its answer came. */
    std::optional<std::string> next() const;

    /* Takes the answer to it; throws bad_answer. */
    void take(const console_answer &answer);

    node_sample release() { return std::move(sample_); }

private:
    enum class part { CONFIG, POOLS, REQUESTS, HOLDERS, NUMA, PARTITIONS, SINKS };
    struct question {
        part        about;
        std::string command;
    };

    void read(const question &asked, const std::string &text);
    void ask_for_holders();
    void read_waiting(const question &asked, const std::string &text);

    round_extent         extent_;
    unsigned             busy_answers_ = 0;
    std::deque<question> questions_;
    node_sample          sample_;
};
