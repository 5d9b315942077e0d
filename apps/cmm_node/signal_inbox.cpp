/*
 * Blocks, polls, and lets a second stop signal have its usual effect.
 */
#include "signal_inbox.h"

#include <cstdio>
#include <ctime>
#include <utility>

namespace {

bool is_ignored(int number)
{
    struct sigaction action{};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

signal_inbox::signal_inbox()
{
    sigemptyset(&watched_);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1})
        if (!is_ignored(number))
            sigaddset(&watched_, number);
    pthread_sigmask(SIG_BLOCK, &watched_, &before_);
}

void signal_inbox::fetch(const std::function<void()> &stop)
{
    const timespec at_once{};

    for (int number; (number = sigtimedwait(&watched_, nullptr, &at_once)) > 0;)
        note(number, stop);
}

void signal_inbox::note(int number, const std::function<void()> &stop)
{
    if (number == SIGUSR1) {
        show_ = true;
        return;
    }
    if (stop_ != 0) {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        raise(number);
    }
    stop_ = number;
    stop();
    fprintf(stderr, "cmm_node: stopping when the requests under way are done; "
                    "the same again ends at once\n");
}

bool signal_inbox::take_show()
{
    return std::exchange(show_, false);
}
