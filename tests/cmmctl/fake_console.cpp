/*
 * One thread polls the listener, the clients and the word to stop. It sends without a limit of size
 * but gives up on a client as soon as it is to stop.
 */
#include "fake_console.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct client {
    int         fd;
    std::string in;
};

int listen_at(const std::string &path)
{
    sockaddr_un address = {};
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);

    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    unlink(path.c_str());
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, 16) != 0)
        abort();
    return fd;
}

/* False when the client is gone or the server is to stop. */
bool send_all(int fd, int stop, const std::string &bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        pollfd both[] = {{fd, POLLOUT, 0}, {stop, POLLIN, 0}};
        poll(both, 2, -1);
        if (both[1].revents != 0)
            return false;
        const ssize_t sent =
            send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN)
            return false;
        done += sent < 0 ? 0 : size_t(sent);
    }
    return true;
}

} // namespace

scripted_answer says(const std::string &text)
{
    return {"ok " + std::to_string(text.size()) + "\n" + text};
}

scripted_answer says_error(const std::string &text)
{
    return {"error " + std::to_string(text.size()) + "\n" + text};
}

fake_console::fake_console(std::string path, script answers)
    : path_(std::move(path)), answers_(std::move(answers)), listener_(listen_at(path_)),
      stop_(eventfd(0, EFD_CLOEXEC))
{
    thread_ = std::thread([this] { serve(); });
}

fake_console::~fake_console()
{
    const uint64_t one = 1;

    if (write(stop_, &one, sizeof one) != sizeof one)
        abort();
    thread_.join();
    close(listener_);
    close(stop_);
    unlink(path_.c_str());
}

void fake_console::serve()
{
    std::vector<client> clients;

    const auto hear = [&](client &one) {
        char piece[4096];
        const ssize_t got = recv(one.fd, piece, sizeof piece, 0);
        if (got <= 0)
            return false;
        one.in.append(piece, size_t(got));
        for (size_t end = one.in.find('\n'); end != std::string::npos; end = one.in.find('\n')) {
            const scripted_answer answer = answers_(one.in.substr(0, end));
            one.in.erase(0, end + 1);
            ++answered_; /* before the client can know of it */
            if (!send_all(one.fd, stop_, answer.bytes) || answer.hangs_up)
                return false;
        }
        return true;
    };

    for (;;) {
        std::vector<pollfd> watched = {{stop_, POLLIN, 0}, {listener_, POLLIN, 0}};
        for (const client &one : clients)
            watched.push_back({one.fd, POLLIN, 0});
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents != 0)
            break;
        for (size_t i = clients.size(); i-- > 0;) {
            if (watched[i + 2].revents == 0 || hear(clients[i]))
                continue;
            close(clients[i].fd);
            clients.erase(clients.begin() + long(i));
        }
        if (watched[1].revents != 0)
            clients.push_back({accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), ""});
    }
    for (const client &one : clients)
        close(one.fd);
}
