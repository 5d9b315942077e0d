/*
 * Signals, fetched when it suits and never handled in between:
 *
 *     SIGINT, SIGTERM    stop: finish the requests under way, give everything back
 *     ... the second     end at once, and leave what is there
 *     SIGUSR1            show the state of the pools
 *
 * They are blocked in every thread and wait until the main thread looks, so that no code of this
 * program ever runs inside a signal handler.
 *
 * A stop signal that whoever started the program wants ignored stays ignored.
 *
 * They stay blocked when the inbox is gone: a request to show that comes too late must not end the
 * program, as this signal usually does.
 *
 * Owner:   the main thread. Made before any other thread, since threads inherit what is blocked.
 */
#pragma once

#include <csignal>
#include <functional>

class signal_inbox
{
public:
    signal_inbox();
    signal_inbox(const signal_inbox &) = delete;

    /* Takes in what has arrived. `stop` is called for the first stop signal, and only then does the
     * program say that it stops: who reads that may rely on it. */
    void fetch(const std::function<void()> &stop = [] {});

    /* The stop signal that has arrived; 0 = none. */
    int stop_signal() const { return stop_; }

    /* True once for every request to show. */
    bool take_show();

private:
    void note(int number, const std::function<void()> &stop);

    sigset_t watched_;
    sigset_t before_; /* what the thread had blocked */
    int      stop_ = 0;
    bool     show_ = false;
};
