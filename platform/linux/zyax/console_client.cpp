/*
 * One client of the console: its bytes in, its answers out.
 *
 *     in:   | line \n | line \n | begin of a li|     several lines, or one of 4,096 bytes
 *     out:  |   "ok 1234\n" | 1234 bytes |           one answer
 *                ^ sent
 *
 * A line is taken when the answer before it has gone out, so that what a client costs is bounded
 * and the order is kept. The answer's first line is known last: room for it is left in front, and
 * `sent` begins where it does.
 *
 * Threads: the server's only. Nothing here waits, whatever the client does.
 */
#include "console_local.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

namespace zyax
{

static constexpr size_t HEAD_ROOM = 16;    /* "error 16777216\n" has 15 */
static constexpr size_t KEPT_ROOM = 65536; /* of `out` between answers */

/* ------------------------------------------------------------------ one answer */

struct output {
    std::string *out;
    const char *loss; /* why some of it is lost, or null */
};

static void keep(void *ctx, const char *text, size_t length)
{
    auto *output = static_cast<zyax::output *>(ctx);
    if (output->loss != nullptr)
        return;
    if (length > ZYAX_CONSOLE_OUTPUT_MAX + HEAD_ROOM - output->out->size()) {
        output->loss = "The output is longer than 16777216 bytes.\n";
        return;
    }
    try {
        output->out->append(text, length);
    } catch (...) {
        output->loss = "No memory for the output.\n";
    }
}

static void write_head(console_client *client, bool is_good)
{
    char head[HEAD_ROOM + 1];
    const int length = snprintf(head, sizeof(head), "%s %zu\n", is_good ? "ok" : "error",
                                client->out.size() - HEAD_ROOM);
    client->sent = HEAD_ROOM - size_t(length);
    memcpy(client->out.data() + client->sent, head, size_t(length));
}

static void release(std::string *text)
{
    if (text->capacity() > KEPT_ROOM)
        std::string().swap(*text);
    text->clear();
}

/* Runs the line and puts its answer out. Without memory for one the client is of no more use. */
static void answer(console_client *client, const char *line, size_t length)
try {
    output output = {&client->out, nullptr};
    client->out.assign(HEAD_ROOM, ' ');
    bool is_good = zyax_console_run(line, length, keep, &output) == 0;
    if (output.loss != nullptr) {
        is_good = false;
        release(&client->out);
        client->out.assign(HEAD_ROOM, ' ').append(output.loss);
    }
    write_head(client, is_good);
} catch (...) {
    client->is_gone = true;
}

/* ------------------------------------------------------------------ lines */

static const char *find_end(const console_client *client)
{
    return static_cast<const char *>(memchr(client->in, '\n', client->received));
}

static void forget(console_client *client, size_t bytes)
{
    client->received -= bytes;
    memmove(client->in, client->in + bytes, client->received);
}

/* Passes over the rest of a line that has been refused. */
static void skip(console_client *client)
{
    const char *end = find_end(client);
    client->is_skipping = end == nullptr;
    forget(client, end == nullptr ? client->received : size_t(end - client->in) + 1);
}

void console_client_serve(console_client *client)
{
    if (!client->out.empty() || client->is_gone)
        return;
    if (client->is_skipping)
        skip(client);

    const char *end = find_end(client);
    if (end != nullptr) {
        size_t length = size_t(end - client->in);
        const size_t whole = length + 1;
        length -= length != 0 && client->in[length - 1] == '\r';
        answer(client, client->in, length);
        forget(client, whole);
    } else if (client->received == sizeof(client->in)) {
        answer(client, client->in, client->received);
        client->is_skipping = true;
        client->received = 0;
    }
}

bool console_client_is_ready(const console_client *client)
{
    return client->out.empty() && !client->is_gone &&
           (find_end(client) != nullptr || client->received == sizeof(client->in));
}

bool console_client_is_done(const console_client *client)
{
    return client->is_gone ||
           (client->is_at_end && client->out.empty() && !console_client_is_ready(client));
}

/* ------------------------------------------------------------------ bytes */

static bool is_passing(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

void console_client_receive(console_client *client)
{
    const size_t room = sizeof(client->in) - client->received;
    if (room == 0 || client->is_at_end)
        return;

    const ssize_t got = recv(client->fd, client->in + client->received, room, MSG_DONTWAIT);
    if (got > 0)
        client->received += size_t(got);
    else if (got == 0)
        client->is_at_end = true;
    else if (!is_passing(errno))
        client->is_gone = true;
}

void console_client_send(console_client *client)
{
    while (!client->is_gone && client->sent < client->out.size()) {
        const ssize_t taken = send(client->fd, client->out.data() + client->sent,
                                   client->out.size() - client->sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken >= 0) {
            client->sent += size_t(taken);
        } else {
            client->is_gone = !is_passing(errno);
            return;
        }
    }
    release(&client->out);
}

} // namespace zyax
