/*
 * What the sources of the debug console share.
 *
 *     console_text      where printed text goes
 *     console_table     commands, and who runs them
 *     console_line      one line: words, command, answer
 *     console_nearest   names like the one typed
 *     console_server    the thread, start and stop
 *     console_socket    the path and its mode
 *     console_client    one client's bytes
 */
#pragma once

#include "zyax_local.h"

#include <string>
#include <sys/types.h>

namespace zyax
{

using console_write = void (*)(void *ctx, const char *text, size_t length);

/* ------------------------------------------------------------------ text */

struct console_entry;

struct console_command {
    console_write write;
    void *ctx;
    std::string gathered;       /* what DBG_PrintBuf has left for the end */
    console_command *outer;
    bool is_line;               /* ended by the console, not by zyax_console_end */
    bool has_failed = false;    /* of a line: zyax_console_fail was called */
    const console_entry *entry = nullptr; /* of a line: whose handler runs */
};

/* Begins a command on this thread; null without memory. */
console_command *console_begin(console_write write, void *ctx, bool is_line);

/* Ends it, and those in it that a handler has left open. */
void console_end(console_command *command);

/* How many runs of the entry's handlers this thread is in. */
uint32_t console_runs_here(const console_entry *entry);

/* ------------------------------------------------------------------ words */

/* The words of a text that was cut up in place; word[count] is null. */
struct console_words {
    uint32_t count;
    char *word[ZYAX_CONSOLE_WORDS_MAX + 1];
};

/* Puts terminators behind the words of a terminated text; false when there are too many. */
bool console_split(char *text, console_words *words);

/* True when there is a byte that no line may have: all controls but the tab. */
bool console_has_control(const char *text, size_t length);

/* An argument's place in a command's words: "<addr>". */
bool console_is_argument(const char *word);

/* ------------------------------------------------------------------ table */

struct console_entry {
    std::string name;     /* as registered */
    std::string cut;      /* the same, cut up */
    console_words words;  /* in `cut` */
    uint32_t fixed;       /* words that are no arguments */
    uint32_t leading;     /* of those, before the first argument */
    std::string help;
    zyax_console_handler text;
    zyax_console_handler json;
    uint32_t flags;
    uint32_t running;     /* handlers that run; under the table's lock */
    bool is_orphan;       /* removed by one of its own handlers: the last run deletes it */
    console_entry *next;  /* in the order of the names */
};

/* The entry that fits the line best, counted as running; null when none does. */
console_entry *console_table_take(const console_words &line);
void console_table_give_back(console_entry *entry);

/* What a walk over the table passes on: an entry, in the order of the names. */
using console_visitor = void (*)(void *ctx, const console_entry &entry);

/* Visits each entry with the table locked: the visitor calls nothing of the console. */
void console_table_walk(console_visitor visit, void *ctx);

/* Like a line: true when `line` is the beginning of the entry's words, or all of them. */
bool console_begins_with(const console_entry &entry, const console_words &line);

/* Letters that make the difference; the smaller, the more alike. */
uint32_t console_distance(const console_entry &entry, const console_words &line);

/* ------------------------------------------------------------------ server */

/* A socket that listens at a path, and what it takes to remove it again. */
struct console_socket {
    int listener = -1;
    int folder   = -1; /* locked while the path is looked at and changed */
    dev_t device = 0;
    ino_t inode  = 0;
    char name[108] = {}; /* in the folder */
};

/* False, with the reason in `why`, when the path cannot be served. */
bool console_socket_open(console_socket *socket, const char *path, char *why, size_t why_size);

/* Removes the path, if it still is this socket's, and closes everything. */
void console_socket_remove(console_socket *socket);

/* Closes everything and leaves the path alone. */
void console_socket_close(console_socket *socket);

struct console_client {
    int fd;
    uint32_t events = 0;      /* what the server waits for */
    bool is_skipping = false; /* the rest of a line that was too long */
    bool is_at_end = false;   /* it sends nothing more */
    bool is_gone = false;
    size_t received = 0;      /* bytes in `in` */
    size_t sent = 0;          /* bytes of `out` that need not be sent */
    std::string out;          /* the answer under way, empty between answers */
    console_client *next = nullptr;
    char in[ZYAX_CONSOLE_LINE_MAX + 2]; /* one line with carriage return and end, or several */
};

/* Reads what fits. */
void console_client_receive(console_client *client);

/* Sends what the client takes of its answer. */
void console_client_send(console_client *client);

/* Answers one line, if there is one and no answer is under way. */
void console_client_serve(console_client *client);

/* True when the client could be served without waiting for it. */
bool console_client_is_ready(const console_client *client);

/* True when the connection is of no more use. */
bool console_client_is_done(const console_client *client);

} // namespace zyax
