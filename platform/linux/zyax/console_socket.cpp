/*
 * The console's socket in the file system.
 *
 * Nobody but the owner may reach it for a moment. The socket itself is given mode 0600 before it is
 * bound, and Linux hands that on to the file; the mode is set and read again before the socket
 * listens, and until then no connection is possible. The process's umask is not touched: it belongs
 * to all threads.
 *
 * A server that ended without a stop has left its file. Whether somebody listens is found out by
 * connecting. From that question to the moment when the new socket listens, and while an old one is
 * removed, the folder is locked with flock, so that of two processes that find the same dead file
 * one replaces it and the other finds a living server.
 */
#include "console_local.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace zyax
{

static constexpr mode_t PRIVATE = S_IRUSR | S_IWUSR;
static constexpr uint32_t LOCK_LIMIT = 2000; /* milliseconds for somebody else's lock */

struct reason {
    char *text;
    size_t size;
};

static bool fail(const reason &why, const char *text)
{
    snprintf(why.text, why.size, "%s", text);
    return false;
}

static bool fail_at(const reason &why, const char *step, int error)
{
    char buffer[128];
    snprintf(why.text, why.size, "%s: %s", step, strerror_r(error, buffer, sizeof(buffer)));
    return false;
}

/* ------------------------------------------------------------------ the folder */

static bool open_folder(console_socket *socket, const char *path, const reason &why)
{
    char folder[sizeof(socket->name)];
    const char *slash = strrchr(path, '/');
    const char *name = slash == nullptr ? path : slash + 1;
    const int length = slash == nullptr ? 0 : int(slash - path) + 1;

    if (name[0] == '\0')
        return fail(why, "the path names a folder");
    snprintf(folder, sizeof(folder), "%.*s.", length, path);
    snprintf(socket->name, sizeof(socket->name), "%s", name);
    socket->folder = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return socket->folder >= 0 || fail_at(why, "its folder", errno);
}

static bool lock_folder(const console_socket *socket)
{
    constexpr timespec ONE_MILLISECOND = {0, 1000000};

    for (uint32_t waited = 0; flock(socket->folder, LOCK_EX | LOCK_NB) != 0; ++waited) {
        if (waited == LOCK_LIMIT || (errno != EWOULDBLOCK && errno != EINTR))
            return false;
        nanosleep(&ONE_MILLISECOND, nullptr);
    }
    return true;
}

static void unlock_folder(const console_socket *socket)
{
    flock(socket->folder, LOCK_UN);
}

/* ------------------------------------------------------------------ the file */

static int make_stream(void)
{
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

/* Nobody listens: 0. Somebody does, or it cannot be told: an error number, EISCONN for sure. */
static int probe(const sockaddr_un &address)
{
    const int fd = make_stream();
    if (fd < 0)
        return errno;
    const bool is_connected =
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    const int error = is_connected ? EISCONN : errno;
    close(fd);
    if (error == ECONNREFUSED || error == ENOENT)
        return 0;
    return error == EAGAIN ? EISCONN : error; /* a server with a full queue */
}

/* Removes what a dead server has left; false when something else is there. */
static bool make_room(const console_socket *socket, const sockaddr_un &address, const reason &why)
{
    struct stat found;
    if (fstatat(socket->folder, socket->name, &found, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT || fail_at(why, "the file", errno);
    if (!S_ISSOCK(found.st_mode))
        return fail(why, "there is a file that is no socket");

    const int error = probe(address);
    if (error == EISCONN)
        return fail(why, "a server listens there");
    if (error != 0)
        return fail_at(why, "a socket is there", error);
    return unlinkat(socket->folder, socket->name, 0) == 0 || errno == ENOENT ||
           fail_at(why, "removing the old socket", errno);
}

static bool has_private_file(console_socket *socket, const reason &why)
{
    struct stat made;
    if (fchmodat(socket->folder, socket->name, PRIVATE, 0) != 0 ||
        fstatat(socket->folder, socket->name, &made, AT_SYMLINK_NOFOLLOW) != 0)
        return fail_at(why, "the socket's mode", errno);

    socket->device = made.st_dev;
    socket->inode = made.st_ino;
    return (made.st_mode & 07777) == PRIVATE || fail(why, "the socket cannot be made private");
}

static bool bind_and_listen(console_socket *socket, const sockaddr_un &address, const reason &why)
{
    socket->listener = make_stream();
    if (socket->listener < 0)
        return fail_at(why, "a socket", errno);
    if (fchmod(socket->listener, PRIVATE) != 0)
        return fail_at(why, "the socket's mode", errno);
    if (bind(socket->listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return fail_at(why, "binding it", errno);

    if (has_private_file(socket, why) &&
        (listen(socket->listener, SOMAXCONN) == 0 || fail_at(why, "listening", errno)))
        return true;
    unlinkat(socket->folder, socket->name, 0);
    return false;
}

bool console_socket_open(console_socket *socket, const char *path, char *why, size_t why_size)
{
    const reason reason = {why, why_size};
    sockaddr_un address = {};
    if (path[0] == '\0' || strlen(path) >= sizeof(address.sun_path))
        return fail(reason, "a path has 1 to 107 bytes");
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path);

    bool is_open = open_folder(socket, path, reason);
    if (is_open) {
        is_open = lock_folder(socket) || fail(reason, "its folder is locked");
        is_open = is_open && make_room(socket, address, reason) &&
                  bind_and_listen(socket, address, reason);
        unlock_folder(socket);
    }
    if (!is_open)
        console_socket_close(socket);
    return is_open;
}

void console_socket_remove(console_socket *socket)
{
    struct stat found;
    const bool is_locked = lock_folder(socket);
    if (fstatat(socket->folder, socket->name, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
        found.st_dev == socket->device && found.st_ino == socket->inode)
        unlinkat(socket->folder, socket->name, 0);
    if (is_locked)
        unlock_folder(socket);
    console_socket_close(socket);
}

void console_socket_close(console_socket *socket)
{
    if (socket->listener >= 0)
        close(socket->listener);
    if (socket->folder >= 0)
        close(socket->folder);
    socket->listener = -1;
    socket->folder = -1;
}

} // namespace zyax
