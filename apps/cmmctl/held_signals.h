/*
 * Signals that are let through while the program waits for its user and at no other time, so that
 * none is missed just before the wait: ppoll gets the mask that held outside.
 *
 * Owner: one thread, as long as it waits for a user; the mask is restored with the object's end,
 *        the handlers stay.
 */
#pragma once

#include <csignal>
#include <initializer_list>

class held_signals
{
public:
    /* `handler` runs for those in `handled`; those in `others` go to whom they went before. */
    held_signals(void (*handler)(int), std::initializer_list<int> handled,
                 std::initializer_list<int> others = {})
    {
        struct sigaction action = {};
        sigset_t held;

        action.sa_handler = handler;
        sigemptyset(&held);
        for (const int number : handled) {
            sigaction(number, &action, nullptr);
            sigaddset(&held, number);
        }
        for (const int number : others)
            sigaddset(&held, number);
        sigprocmask(SIG_BLOCK, &held, &outside_);
    }
    ~held_signals() { sigprocmask(SIG_SETMASK, &outside_, nullptr); }
    held_signals(const held_signals &) = delete;
    held_signals &operator=(const held_signals &) = delete;

    const sigset_t *outside() const { return &outside_; }

private:
    sigset_t outside_;
};
