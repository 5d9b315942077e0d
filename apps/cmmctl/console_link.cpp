/*
 * A Unix stream socket that never blocks. A process that is gone shows in three ways, which are
 * told apart in the message: nobody listens, the connection ends between answers, or within one.
 */
#include "console_link.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <utility>

using steady = std::chrono::steady_clock;

console_link::console_link(std::string path) : path_(std::move(path))
{
}

console_link::~console_link()
{
    close();
}

void console_link::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    peer_ = 0;
    asked_ = false;
    unsent_.clear();
    reader_ = answer_reader();
}

void console_link::fail(const std::string &what)
{
    close();
    throw link_error(path_, what);
}

void console_link::open()
{
    sockaddr_un address = {};
    ucred       process = {};
    socklen_t   length = sizeof process;

    close();
    if (path_.empty() || path_.size() >= sizeof address.sun_path)
        fail("no path of a socket");
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0)
        fail(strerror(errno));
    if (connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail(strerror(errno));
    if (getsockopt(fd_, SOL_SOCKET, SO_PEERCRED, &process, &length) == 0)
        peer_ = process.pid;
}

short console_link::events() const
{
    return short(POLLIN | (unsent_.empty() ? 0 : POLLOUT));
}

void console_link::write_some()
{
    while (!unsent_.empty()) {
        const ssize_t sent = ::send(fd_, unsent_.data(), unsent_.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno == EAGAIN)
            return;
        /* What a process said before it hung up, why it refuses a client, say, is still read. */
        if (sent < 0 && (errno == EPIPE || errno == ECONNRESET))
            unsent_.clear();
        else if (sent < 0)
            fail(strerror(errno));
        else
            unsent_.erase(0, size_t(sent));
    }
}

void console_link::send(std::string_view line)
{
    if (!is_open())
        fail("not connected");
    if (line.find('\n') != std::string_view::npos)
        fail("a command is one line");
    unsent_.append(line).push_back('\n');
    asked_ = true;
    write_some();
}

std::optional<console_answer> console_link::progress()
{
    char piece[65536];

    if (!is_open())
        fail("not connected");
    write_some();
    for (;;) {
        const ssize_t got = recv(fd_, piece, sizeof piece, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno == EAGAIN)
            return std::nullopt;
        if (got < 0)
            fail(strerror(errno));
        if (got == 0)
            fail(reader_.is_within() ? "the process went away within an answer"
                                     : "the process closed the connection");
        const reading state = reader_.take({piece, size_t(got)});
        if (state == reading::BROKEN)
            fail("no console of ours: " + reader_.fault());
        if (state == reading::DONE && !std::exchange(asked_, false))
            fail("no console of ours: an answer to nothing");
        if (state == reading::DONE)
            return reader_.release();
    }
}

console_answer console_link::ask(std::string_view line, double seconds)
{
    const steady::time_point end =
        steady::now() + std::chrono::duration_cast<steady::duration>(
                            std::chrono::duration<double>(seconds));

    if (!is_open())
        open();
    send(line);
    for (;;) {
        if (std::optional<console_answer> answer = progress())
            return *std::move(answer);
        const std::chrono::duration<double, std::milli> left = end - steady::now();
        if (left.count() <= 0)
            fail("no answer within the time set by --timeout");
        pollfd one = {fd_, events(), 0};
        poll(&one, 1, int(std::ceil(left.count())));
    }
}
