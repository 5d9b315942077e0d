/*
 * The console's server: one thread that waits in epoll for new clients, for lines, for room to send
 * answers, and for the word to stop. Idle, it sleeps without a limit.
 *
 *     start ----> s_server ----> stop: is_stopping, wake, join, remove
 *                    |
 *                    +--> clients: one record each, linked
 *
 * In each turn it takes what epoll reports, and then serves every client at most one line, so that
 * one who sends many does not keep the others waiting. Clients are removed at the end of a turn
 * only, when no event can name them any more.
 *
 * Locks: s_lock guards s_server, the list of clients and the descriptors in it as far as a fork has
 * to find them whole; the records' content is the thread's alone. It is not held while a handler
 * runs, while a line is logged, or while the thread is joined: a handler may fork, and a logging
 * thread may be in the midst of a fork as well.
 *
 * Fork: the child closes its copies of all descriptors, or clients would not see their connections
 * end, and has no server. The records stay, since they may be in any state. If a handler forks, the
 * child's only thread is a copy of this one: it finds that it serves nothing any more, and ends.
 */
#include "console_local.h"

#include <errno.h>
#include <new>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zyax
{

static constexpr int EVENTS_MAX = 64;
static constexpr int STARVED_PAUSE = 100; /* milliseconds until new clients are tried again */

struct console_server {
    console_socket socket;
    int epoll = -1;
    int wake = -1;
    pthread_t thread = {};
    uint32_t is_stopping = 0;
    bool is_starved = false; /* no descriptor for a new client; the thread's */
    console_client *clients = nullptr;
};

static constinit pthread_mutex_t s_lock = PTHREAD_MUTEX_INITIALIZER;
static constinit pthread_cond_t s_stopped = PTHREAD_COND_INITIALIZER;
static constinit console_server *s_server = nullptr;
static constinit console_server *s_forgotten = nullptr; /* of the process that forked this one */

static bool serves(const console_server *server)
{
    return __atomic_load_n(&s_server, __ATOMIC_ACQUIRE) == server &&
           __atomic_load_n(&server->is_stopping, __ATOMIC_ACQUIRE) == 0;
}

static bool watch(const console_server *server, int operation, int fd, uint32_t events, void *whom)
{
    epoll_event event = {};
    event.events = events;
    event.data.ptr = whom;
    return epoll_ctl(server->epoll, operation, fd, &event) == 0;
}

/* ------------------------------------------------------------------ clients */

/* Removed from epoll first: a copy of the descriptor in a forked child would keep it there. */
static void disconnect(const console_server *server, console_client *client)
{
    watch(server, EPOLL_CTL_DEL, client->fd, 0, nullptr);
    close(client->fd);
    delete client;
}

static void remove_done_clients(console_server *server)
{
    console_client **place = &server->clients;
    while (*place != nullptr) {
        console_client *client = *place;
        if (!console_client_is_done(client)) {
            place = &client->next;
            continue;
        }
        pthread_mutex_lock(&s_lock);
        *place = client->next;
        disconnect(server, client);
        pthread_mutex_unlock(&s_lock);
    }
}

static bool is_trusted(int fd)
{
    ucred peer = {};
    socklen_t size = sizeof(peer);

    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    if (peer.uid == geteuid() || peer.uid == 0)
        return true;
    ZYAX_LOG(ZYLOG_WARNING, "A console client of user %u is refused.", peer.uid);
    return false;
}

/* Makes the record and links it; null when the connection ends here. */
static console_client *welcome(console_server *server, int fd)
{
    auto *client = new (std::nothrow) console_client{.fd = fd, .out = {}, .in = {}};
    if (client == nullptr)
        return nullptr;
    client->events = EPOLLIN;
    if (!watch(server, EPOLL_CTL_ADD, fd, client->events, client)) {
        delete client;
        return nullptr;
    }
    client->next = server->clients;
    server->clients = client;
    return client;
}

/* Answers accept's error, 0 when a client was accepted. A fork finds the descriptor in the list or
 * not at all. */
static int accept_client(console_server *server)
{
    pthread_mutex_lock(&s_lock);
    const int fd = accept4(server->socket.listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    const int error = fd < 0 ? errno : 0;
    console_client *client = fd < 0 ? nullptr : welcome(server, fd);
    if (fd >= 0 && client == nullptr)
        close(fd);
    pthread_mutex_unlock(&s_lock);

    if (client != nullptr)
        client->is_gone = !is_trusted(client->fd);
    return error;
}

/* Without descriptors the listener would be ready for ever: it is left alone for a while. */
static void starve(console_server *server, int error)
{
    char buffer[128];
    if (!server->is_starved)
        ZYAX_LOG(ZYLOG_WARNING, "The console cannot take another client now: %s.",
                 strerror_r(error, buffer, sizeof(buffer)));
    server->is_starved = true;
    watch(server, EPOLL_CTL_MOD, server->socket.listener, 0, &server->socket);
}

static void accept_clients(console_server *server)
{
    for (int i = 0; i < EVENTS_MAX; ++i) {
        const int error = accept_client(server);
        if (error == ECONNABORTED || error == EINTR)
            continue;
        if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM)
            starve(server, error);
        else
            server->is_starved = false;
        if (error != 0)
            return;
    }
}

/* Waits for what the client can do next: take the rest of an answer, or send. */
static void update_watch(const console_server *server, console_client *client)
{
    const uint32_t events = client->out.empty() ? EPOLLIN : EPOLLOUT;
    if (client->events == events)
        return;
    client->events = events;
    client->is_gone |= !watch(server, EPOLL_CTL_MOD, client->fd, events, client);
}

/* ------------------------------------------------------------------ the thread */

static void take_event(console_server *server, const epoll_event &event)
{
    if (event.data.ptr == &server->wake)
        return; /* somebody stops it */
    if (event.data.ptr == &server->socket) {
        accept_clients(server);
        return;
    }
    auto *client = static_cast<console_client *>(event.data.ptr);
    if (client->out.empty())
        console_client_receive(client);
    else
        console_client_send(client);
}

/* One line of each client; true when there is more to do at once. */
static bool serve_clients(console_server *server)
{
    bool is_busy = false;
    for (console_client *client = server->clients; client != nullptr; client = client->next) {
        console_client_serve(client);
        if (!serves(server))
            return false;
        console_client_send(client);
        update_watch(server, client);
        is_busy |= console_client_is_ready(client);
    }
    remove_done_clients(server);
    return is_busy;
}

static void *server_main(void *)
{
    console_server *server = __atomic_load_n(&s_server, __ATOMIC_ACQUIRE);
    epoll_event events[EVENTS_MAX];
    bool is_busy = false;

    while (serves(server)) {
        const int pause = is_busy ? 0 : server->is_starved ? STARVED_PAUSE : -1;
        const int count = epoll_wait(server->epoll, events, EVENTS_MAX, pause);
        for (int i = 0; i < count; ++i)
            take_event(server, events[i]);
        if (count == 0 && server->is_starved) {
            watch(server, EPOLL_CTL_MOD, server->socket.listener, EPOLLIN, &server->socket);
            accept_clients(server);
        }
        is_busy = serve_clients(server);
    }
    return nullptr;
}

/* ------------------------------------------------------------------ start and stop */

static void close_one(int *fd)
{
    if (*fd >= 0)
        close(*fd);
    *fd = -1;
}

/* Closes what is open; of a server that never got its thread or has none any more. */
static void dismantle(console_server *server)
{
    while (server->clients != nullptr) {
        console_client *client = server->clients;
        server->clients = client->next;
        disconnect(server, client);
    }
    if (server->socket.folder >= 0)
        console_socket_remove(&server->socket);
    close_one(&server->epoll);
    close_one(&server->wake);
    delete server;
}

static bool build(console_server *server, const char *path, char *why, size_t why_size)
{
    if (!console_socket_open(&server->socket, path, why, why_size))
        return false;

    server->epoll = epoll_create1(EPOLL_CLOEXEC);
    server->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (server->epoll < 0 || server->wake < 0 ||
        !watch(server, EPOLL_CTL_ADD, server->wake, EPOLLIN, &server->wake) ||
        !watch(server, EPOLL_CTL_ADD, server->socket.listener, EPOLLIN, &server->socket)) {
        char buffer[128];
        snprintf(why, why_size, "waiting: %s", strerror_r(errno, buffer, sizeof(buffer)));
        return false;
    }
    return true;
}

/* Under s_lock; false with the reason in `why`. */
static bool start(const char *path, char *why, size_t why_size)
{
    if (s_server != nullptr) {
        snprintf(why, why_size, "the process has a console already");
        return false;
    }
    auto *server = new (std::nothrow) console_server;
    if (server == nullptr) {
        snprintf(why, why_size, "no memory");
        return false;
    }

    bool is_started = build(server, path, why, why_size);
    if (is_started) {
        __atomic_store_n(&s_server, server, __ATOMIC_RELEASE);
        is_started = start_service_thread(server_main, "zyax_console", &server->thread);
        if (!is_started)
            snprintf(why, why_size, "no thread for it");
    }
    if (!is_started) {
        __atomic_store_n(&s_server, static_cast<console_server *>(nullptr), __ATOMIC_RELEASE);
        dismantle(server);
    }
    return is_started;
}

enum class stop_part { NOTHING, ITSELF, OTHERS, MINE };

/* What the caller has to do about the server; under s_lock. */
static stop_part claim_stop(console_server *server)
{
    if (server == nullptr)
        return stop_part::NOTHING;
    if (pthread_equal(server->thread, pthread_self()) != 0)
        return stop_part::ITSELF;
    if (server->is_stopping != 0)
        return stop_part::OTHERS;

    __atomic_store_n(&server->is_stopping, 1u, __ATOMIC_RELEASE);
    eventfd_write(server->wake, 1);
    return stop_part::MINE;
}

/* ------------------------------------------------------------------ fork */

static void before_fork(void)
{
    pthread_mutex_lock(&s_lock);
}

static void after_fork_in_parent(void)
{
    pthread_mutex_unlock(&s_lock);
}

static void after_fork_in_child(void)
{
    console_server *server = s_server;
    if (server != nullptr) {
        for (console_client *client = server->clients; client != nullptr; client = client->next)
            close_one(&client->fd);
        console_socket_close(&server->socket);
        close_one(&server->epoll);
        close_one(&server->wake);
        s_forgotten = server;
        __atomic_store_n(&s_server, static_cast<console_server *>(nullptr), __ATOMIC_RELEASE);
    }
    pthread_cond_init(&s_stopped, nullptr);
    pthread_mutex_unlock(&s_lock);
}

__attribute__((constructor)) static void begin(void)
{
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

} // namespace zyax

using namespace zyax;

int zyax_console_start(const char *path)
{
    if (path == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "A console without a path.");
        return -1;
    }

    char why[256] = "";
    pthread_mutex_lock(&s_lock);
    const bool is_started = start(path, why, sizeof(why));
    pthread_mutex_unlock(&s_lock);

    if (!is_started)
        ZYAX_LOG(ZYLOG_ERROR, "The console cannot be served at \"%.108s\": %s.", path, why);
    return is_started ? 0 : -1;
}

int zyax_console_stop(void)
{
    pthread_mutex_lock(&s_lock);
    console_server *server = s_server;
    const stop_part part = claim_stop(server);
    while (part == stop_part::OTHERS && s_server == server)
        pthread_cond_wait(&s_stopped, &s_lock);
    pthread_mutex_unlock(&s_lock);

    if (part == stop_part::ITSELF) {
        ZYAX_LOG(ZYLOG_ERROR, "A command cannot stop the console that runs it.");
        return -1;
    }
    if (part == stop_part::MINE) {
        pthread_join(server->thread, nullptr);
        pthread_mutex_lock(&s_lock);
        dismantle(server);
        __atomic_store_n(&s_server, static_cast<console_server *>(nullptr), __ATOMIC_RELEASE);
        pthread_cond_broadcast(&s_stopped);
        pthread_mutex_unlock(&s_lock);
    }
    return 0;
}
