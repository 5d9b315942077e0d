/*
 * The loop waits for the first of three: a key, an answer, the time for the next look. Signals are
 * let through during the wait alone, so that none is missed just before it.
 */
#include "top.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <thread>

#include "exit_codes.h"
#include "top_screen.h"
#include "top_session.h"

namespace {

using clock_type = top_session::clock;

volatile sig_atomic_t g_ended = 0;

void end_by_signal(int)
{
    g_ended = 1;
}

/* Holds back the signals that end or resize `top`, but for the waits. */
class held_signals
{
public:
    held_signals()
    {
        struct sigaction action = {};
        sigset_t held;

        action.sa_handler = end_by_signal;
        sigemptyset(&held);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            sigaction(number, &action, nullptr);
            sigaddset(&held, number);
        }
        sigaddset(&held, SIGWINCH);
        sigprocmask(SIG_BLOCK, &held, &outside_);
    }
    ~held_signals() { sigprocmask(SIG_SETMASK, &outside_, nullptr); }
    held_signals(const held_signals &) = delete;
    held_signals &operator=(const held_signals &) = delete;

    const sigset_t *outside() const { return &outside_; }

private:
    sigset_t outside_;
};

top_view first_view(const top_options &options)
{
    const std::vector<std::string> &keys = sort_keys(top_panel::POOLS);
    top_view view;

    view.interval = options.interval;
    view.filter = options.filter;
    if (!options.sort.empty())
        view.panels[0].sort_by = size_t(std::find(keys.begin(), keys.end(), options.sort) -
                                        keys.begin());
    return view;
}

timespec time_until(clock_type::time_point then)
{
    using namespace std::chrono;
    const nanoseconds longest = hours(1);
    const clock_type::time_point now = clock_type::now();
    const nanoseconds left =
        then <= now ? nanoseconds(0) : std::min<nanoseconds>(then - now, longest);

    return {time_t(left.count() / 1000000000), long(left.count() % 1000000000)};
}

/* False when the terminal is gone. */
bool wait_for_something(const top_session &session, const sigset_t *signals)
{
    const timespec longest = time_until(session.next_look(clock_type::now()));
    pollfd watched[] = {{STDIN_FILENO, POLLIN, 0},
                        {session.link().fd(), session.link().events(), 0}};

    if (ppoll(watched, std::size(watched), &longest, signals) <= 0)
        return true;
    return (watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

/* A wrong path is said at once and not drawn on a screen. */
void expect_process(const std::string &socket)
{
    console_link(socket).open();
}

} // namespace

int run_top(const top_options &options)
{
    expect_process(options.socket);
    const held_signals signals;
    top_session session(options.socket, first_view(options));
    top_screen screen;

    for (bool has_terminal = true; has_terminal && !session.quits() && g_ended == 0;) {
        session.look(clock_type::now());
        session.hear(clock_type::now());
        screen.draw(top_frame(session.state(clock_type::now()), screen.columns(), screen.lines()));
        has_terminal = wait_for_something(session, signals.outside());
        screen.read_keys([&](int key) { session.press(key); });
    }
    return CTL_OK;
}

int print_top(const top_options &options)
{
    console_link link(options.socket);
    top_state state;

    const node_sample before = take_sample(link, SCREEN_ROUND, options.timeout);
    std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    state.sample = take_sample(link, SCREEN_ROUND, options.timeout);
    state.rates = rates_between(before.pools, state.sample->pools);
    state.view = first_view(options);
    state.pid = link.peer();
    fputs(plain(top_frame(state, options.columns == 0 ? 80 : options.columns, options.lines))
              .c_str(),
          stdout);
    return CTL_OK;
}
