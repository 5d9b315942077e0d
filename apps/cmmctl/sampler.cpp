/*
 * One question is under way at a time. Answers that are already there are taken in one go.
 */
#include "sampler.h"

void sampler::begin()
{
    round_.reset();
    if (!link_.is_open())
        link_.open();
    round_.emplace(extent_);
    try {
        ask_next();
    } catch (...) {
        round_.reset();
        throw;
    }
}

std::optional<node_sample> sampler::ask_next()
{
    if (const std::optional<std::string> command = round_->next()) {
        link_.send(*command);
        return std::nullopt;
    }
    node_sample sample = round_->release();
    round_.reset();
    return sample;
}

std::optional<node_sample> sampler::take_what_came()
{
    while (const std::optional<console_answer> answer = link_.progress()) {
        round_->take(*answer);
        if (std::optional<node_sample> sample = ask_next())
            return sample;
    }
    return std::nullopt;
}

std::optional<node_sample> sampler::progress()
{
    if (!round_) {
        /* Between rounds there is nothing to hear but that the process has gone. */
        if (link_.is_open())
            link_.progress();
        return std::nullopt;
    }
    try {
        return take_what_came();
    } catch (...) {
        round_.reset();
        throw;
    }
}

node_sample take_sample(console_link &link, round_extent extent, double seconds)
{
    sample_round round(extent);

    while (const std::optional<std::string> command = round.next())
        round.take(link.ask(*command, seconds));
    return round.release();
}
