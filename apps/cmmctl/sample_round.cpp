/*
 * Which pools' holders are asked for is known once the pools have come; pools are then named by
 * their handles, as names are neither unique nor always there.
 */
#include "sample_round.h"

#include <algorithm>

#include "printable.h"

namespace {

/* The list of requests is only tried by the process; so often is it asked again. */
constexpr unsigned BUSY_ANSWERS = 10;

std::vector<pool_report> with_most_out(const std::vector<pool_report> &pools, size_t count)
{
    std::vector<pool_report> found;

    std::copy_if(pools.begin(), pools.end(), std::back_inserter(found),
                 [](const pool_report &pool) { return pool.used != 0; });
    std::stable_sort(found.begin(), found.end(), [](const pool_report &a, const pool_report &b) {
        return a.out_bytes > b.out_bytes;
    });
    found.resize(std::min(found.size(), count));
    return found;
}

} // namespace

sample_round::sample_round(round_extent extent) : extent_(extent)
{
    questions_ = {{part::CONFIG, "--json umm show config"},
                  {part::POOLS, "--json umm show pools"},
                  {part::REQUESTS, "--json umm show requests all"}};
    if (!extent.is_full)
        return;
    questions_.push_back({part::NUMA, "--json umm show numa"});
    questions_.push_back({part::PARTITIONS, "--json umm show partitions"});
    questions_.push_back({part::SINKS, "--json log sinks"});
}

std::optional<std::string> sample_round::next() const
{
    if (questions_.empty())
        return std::nullopt;
    return questions_.front().command;
}

void sample_round::take(const console_answer &answer)
{
    const question asked = questions_.front();

    questions_.pop_front();
    if (answer.ok)
        read(asked, answer.text);
    else if (asked.about != part::HOLDERS)
        throw bad_answer(asked.command + ": " + printable(answer.text.substr(0, 200)));
}

void sample_round::ask_for_holders()
{
    for (const pool_report &pool : with_most_out(sample_.pools.pools, extent_.holder_pools))
        questions_.push_back({part::HOLDERS, "--json umm show holders " + pool.handle});
}

void sample_round::read_waiting(const question &asked, const std::string &text)
{
    sample_.requests = read_requests(text);
    if (sample_.requests.busy && ++busy_answers_ < BUSY_ANSWERS)
        questions_.push_front(asked);
}

void sample_round::read(const question &asked, const std::string &text)
{
    switch (asked.about) {
    case part::CONFIG:
        sample_.process = read_process_name(text);
        break;
    case part::POOLS:
        sample_.pools = read_pools(text);
        ask_for_holders();
        break;
    case part::REQUESTS:
        read_waiting(asked, text);
        break;
    case part::HOLDERS: {
        const std::vector<holder_report> found = read_holders(text);
        sample_.holders.insert(sample_.holders.end(), found.begin(), found.end());
        break;
    }
    case part::NUMA:
        sample_.numa = read_numa(text);
        break;
    case part::PARTITIONS:
        sample_.partitions = read_partitions(text);
        break;
    case part::SINKS:
        sample_.dropped_lines = read_dropped_lines(text);
        break;
    }
}
