/*
 * `top` wants a terminal, and one that is read: a full one would stop it. A process between does
 * that, this program once more, so that no thread of the measured process has to:
 *
 *     measured process --pair of sockets-- watcher --terminal-- cmmctl top --console's socket--.
 *            ^---------------------------------------------------------------------------------'
 *
 * The watcher sends one byte when the pools are on the screen, and ends when the other end of its
 * socket closes: also when the measured process dies.
 */
#include "console_client.h"

#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "bench_error.h"

namespace bench
{

/* ------------------------------------------------------------------ in the measured process */

[[noreturn]] static void become_watcher(int end, const std::string &argument)
{
    dup2(end, STDIN_FILENO);
    dup2(end, STDOUT_FILENO);
    execl("/proc/self/exe", "cmm_bench", argument.c_str(), static_cast<char *>(nullptr));
    _exit(127);
}

console_client::console_client(const std::string &socket_path)
{
    const std::string argument = "--watch-console=" + socket_path;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        fail("no sockets for the console's client");

    watcher_ = fork();
    if (watcher_ < 0)
        fail("no process for the console's client");
    if (watcher_ == 0)
        become_watcher(ends[1], argument);
    close(ends[1]);
    own_end_ = ends[0];

    char ready = 0;
    if (read(own_end_, &ready, 1) != 1)
        fail("cmmctl top shows no pools");
}

console_client::~console_client()
{
    int status = 0;
    close(own_end_);
    if (waitpid(watcher_, &status, 0) != watcher_ || status != 0)
        fail("cmmctl top has ended while its cost was measured");
}

/* ------------------------------------------------------------------ in the watcher */

/* One reading of the screen; false when `top` has ended. */
static bool read_screen(int terminal, std::string *screen)
{
    char piece[4096];
    const ssize_t got = read(terminal, piece, sizeof piece);
    if (got <= 0)
        return false;
    if (screen->find("PARTITION") != std::string::npos)
        return true;
    screen->append(piece, size_t(got));
    return screen->find("PARTITION") == std::string::npos || write(STDOUT_FILENO, "", 1) == 1;
}

int watch_console(const char *socket_path)
{
    const winsize size = {.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    int terminal = -1;
    const pid_t top = forkpty(&terminal, nullptr, nullptr, &size);
    if (top < 0)
        return 1;
    if (top == 0) {
        setenv("TERM", "xterm", 1);
        execl(BENCH_CMMCTL, "cmmctl", "-s", socket_path, "top", static_cast<char *>(nullptr));
        _exit(127);
    }

    std::string screen;
    pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {terminal, POLLIN, 0}};
    bool is_there = true;
    while (is_there && poll(waits, 2, -1) > 0 && waits[0].revents == 0)
        is_there = read_screen(terminal, &screen);
    close(terminal); /* hangs up, which ends `top` */
    waitpid(top, nullptr, 0);
    return is_there ? 0 : 1;
}

} // namespace bench
