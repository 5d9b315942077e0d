/*
 * A look that finds nobody is tried again after an interval, five seconds at most: a process that
 * comes back is seen soon, however rarely one looks. A process that does not answer keeps its
 * connection, as it may only be stopped in a debugger.
 */
#include "top_session.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;

constexpr top_session::clock::duration SOON = 5s;
constexpr top_session::clock::duration PATIENCE = 2s; /* before silence is trouble */

} // namespace

top_session::top_session(const std::string &socket, top_view view)
    : link_(socket), sampler_(link_, SCREEN_ROUND)
{
    state_.view = std::move(view);
}

top_session::clock::duration top_session::interval() const
{
    return std::chrono::duration_cast<clock::duration>(
        std::chrono::duration<double>(state_.view.interval));
}

void top_session::note_trouble(const std::string &what, clock::time_point now)
{
    if (state_.trouble.empty())
        trouble_since_ = now;
    state_.trouble = what;
}

/* On a screen there is no room for the path, which the user knows. */
template <typename Step>
void top_session::attempt(Step step, clock::time_point now)
{
    try {
        step();
    } catch (const link_error &error) {
        note_trouble(error.reason, now);
    } catch (const bad_answer &error) {
        note_trouble(error.what(), now);
    }
}

void top_session::look(clock::time_point now)
{
    if (sampler_.is_running() || now < next_look(now))
        return;
    looked_ = now;
    has_looked_ = true;
    attempt(
        [this] {
            sampler_.begin();
            state_.pid = link_.peer();
        },
        now);
}

void top_session::hear(clock::time_point now)
{
    attempt(
        [this] {
            if (std::optional<node_sample> sample = sampler_.progress()) {
                take(*std::move(sample));
                state_.trouble.clear();
            }
        },
        now);
}

void top_session::take(node_sample sample)
{
    state_.rates = state_.sample ? rates_between(state_.sample->pools, sample.pools) : pool_rates();
    state_.sample = std::move(sample);
}

void top_session::press(int key)
{
    const std::array<size_t, TOP_PANELS> none = {};

    press_key(state_.view, key,
              state_.sample ? rows_of(*state_.sample, state_.rates, state_.view).counts() : none);
}

bool top_session::is_overdue(clock::time_point now) const
{
    return sampler_.is_running() && now - looked_ >= PATIENCE;
}

top_session::clock::time_point top_session::next_look(clock::time_point now) const
{
    if (!has_looked_)
        return now;
    if (sampler_.is_running())
        return is_overdue(now) ? now + 1s : looked_ + PATIENCE;
    if (!state_.trouble.empty())
        return looked_ + std::min(interval(), SOON);
    return state_.view.is_paused ? clock::time_point::max() : looked_ + interval();
}

top_state top_session::state(clock::time_point now) const
{
    top_state shown = state_;
    clock::time_point since = trouble_since_;

    if (shown.trouble.empty() && is_overdue(now)) {
        shown.trouble = "no answer";
        since = looked_;
    }
    if (!shown.trouble.empty())
        shown.trouble_ms = uint64_t(
            std::chrono::duration_cast<std::chrono::milliseconds>(now - since).count());
    return shown;
}
