/*
 * What `top` knows from one look to the next: it looks when it is time, takes in answers, and keeps
 * the last sample when the process goes away, until it is back.
 *
 * The clock is handed in, so that nothing here waits.
 *
 * Threads: one at a time.
 */
#pragma once

#include <chrono>

#include "sampler.h"
#include "top_frame.h"

class top_session
{
public:
    using clock = std::chrono::steady_clock;

    top_session(const std::string &socket, top_view view);

    /* Begins a look when it is time for one. */
    void look(clock::time_point now);

    /* Takes in what has come. */
    void hear(clock::time_point now);

    void press(int key);

    /* When `look` has something to do again, or the screen changes by itself. */
    clock::time_point next_look(clock::time_point now) const;

    top_state state(clock::time_point now) const;

    const console_link &link() const { return link_; }
    bool quits() const { return state_.view.quits; }

private:
    void take(node_sample sample);
    void note_trouble(const std::string &what, clock::time_point now);

    /* Does a step of a look; what it throws is trouble. */
    template <typename Step>
    void attempt(Step step, clock::time_point now);

    bool is_overdue(clock::time_point now) const;
    clock::duration interval() const;

    console_link      link_;
    sampler           sampler_;
    top_state         state_;
    clock::time_point looked_ = {};        /* when the last look began */
    clock::time_point trouble_since_ = {};
    bool              has_looked_ = false;
};
