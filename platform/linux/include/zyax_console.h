/*
 * Host interface of the debug console: a table of commands, the socket on which they are served,
 * and where the text of one command goes.
 *
 *     program --zyax_console_register--> | table of |
 *     client  --socket--> server thread -> commands | --> handler --DBG_Print--> the client
 *     program --zyax_console_run--------> |         |             \-DBG_Print--> the program
 *
 * A line is split into words at blanks and tabs. The table knows commands by their fixed words;
 * words in angle brackets stand for arguments:
 *
 *     umm show page <addr>         3 fixed words, 1 argument
 *     umm show requests            a longer variant is a command of its own:
 *     umm show requests all
 *
 * Of the commands that a line fits, the one with the most fixed words runs. "help" lists them all,
 * "help umm show" those that begin so. A line that fits none is answered with what comes nearest.
 * "--json" as the first word of a line asks for the command's second handler, which prints JSON.
 *
 * Protocol of the socket, a Unix stream socket:
 *
 *     client:  umm show pools\n            one line, up to 4,096 bytes before its end
 *     server:  ok 1234\n                   or:  error 58\n
 *              <1234 bytes of output>           <58 bytes that say why>
 *
 * Every line is answered by exactly one answer, in the order of the lines, an empty line by
 * "ok 0\n". The number is decimal and counts bytes; exactly so many follow, whatever they hold. An
 * error's bytes are plain text for people, after "--json" too. A carriage return before the line's
 * end is passed over. A line with other control characters, among them NUL, or with more than 32
 * words is answered with an error and changes nothing; of a line that is too long the rest is
 * passed over up to its end. A client may send lines without waiting, and close its sending half
 * after the last one: it gets its answers, then the end of file. A last line without an end is
 * not run. By hand: socat - UNIX-CONNECT:<path>
 *
 * Slow clients: a client's next line is taken when its last answer has gone out, so that a client
 * that does not read costs the memory of one answer, at most 16 MiB, and nobody's time. Commands
 * run one at a time on the server's thread: a handler that takes long holds up other clients, but
 * never a thread of the process.
 *
 * Threads: any function may be called by any thread at any time; handlers run on the server's
 *          thread, or on the one that calls zyax_console_run, also at the same time.
 * Fork:    a forked child has the table and no server; it may start one.
 */
#ifndef ZYAX_CONSOLE_H
#define ZYAX_CONSOLE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of a line without its end; words of a line; bytes of one command's output on a socket. */
enum {
    ZYAX_CONSOLE_LINE_MAX = 4096,
    ZYAX_CONSOLE_WORDS_MAX = 32,
    ZYAX_CONSOLE_OUTPUT_MAX = 16777216
};

/* ------------------------------------------------------------------ the table */

/*
 * Runs a command. What it prints with DBG_Print and DBG_PrintBuf is the command's output.
 *
 * count: number of words typed, "--json" not counted.
 * words: the words, fixed ones too: the argument of "umm show page <addr>" is words[3]. Valid and
 *        the handler's to change during the call; words[count] is null.
 */
typedef void (*zyax_console_handler)(int32_t count, char **words);

/*
 * Flag of a command: the handler looks at the number of words itself. Without it the handler runs
 * only with exactly as many words as the command has, and the console answers other numbers with
 * the command's usage. Such a command begins with fixed words, and these alone must fit.
 */
enum { ZYAX_CONSOLE_ANY_COUNT = 0x1 };

typedef struct zyax_console_command {
    const char *words;         /* as above, one blank between words: "umm show page <addr>" */
    const char *help;          /* one line without its end */
    zyax_console_handler text; /* prints for people */
    zyax_console_handler json; /* prints one JSON value; null = the command has no JSON */
    uint32_t flags;            /* 0 or ZYAX_CONSOLE_ANY_COUNT */
} zyax_console_command;

/*
 * Adds a command, also while the server runs. The record and its texts are copied.
 *
 * Returns 0. -1, and nothing is added, when something is null that must not be, when the words are
 * none, more than 32, begin with an argument, "help" or "--json", or hold control characters,
 * when a flag is unknown, or when a command is there that differs in its arguments' names only.
 * Logs: error, when it fails.
 */
int zyax_console_register(const zyax_console_command *command);

/*
 * Removes a command. On return its handlers do not run and will not, unless called from one of
 * them: then that run goes on to its end.
 *
 * words: as at its registration.
 *
 * Returns 0; -1 when there is no such command.
 * Threads: waits for running handlers. Two handlers that remove each other wait for ever.
 * Logs: error, when it fails.
 */
int zyax_console_unregister(const char *words);

/*
 * Makes the answer of the running command an error: its output says why. For handlers; outside a
 * command nothing happens.
 */
void zyax_console_fail(void);

/*
 * Runs one line on the calling thread, as a client's line would run.
 *
 * line, length: the line without its end, any bytes; a null line fails.
 * write, ctx:   receive the output in pieces, as with zyax_console_begin. Null fails.
 *
 * Returns 0 where a client would be answered "ok", -1 where "error"; the text tells why.
 */
int zyax_console_run(const char *line, size_t length,
                     void (*write)(void *ctx, const char *text, size_t length), void *ctx);

/* ------------------------------------------------------------------ the server */

/*
 * Serves the table on a Unix socket, in a thread of its own.
 *
 * path: of the socket, at most 107 bytes; copied. Its mode is 0600 from the moment that it exists.
 *       The socket of a server that has ended without a stop is replaced; that of a living one is
 *       not, nor is a file that is no socket.
 *
 * Clients must be of the process's own effective user, or root; others are disconnected.
 *
 * Returns 0; -1 when the process has a server already, when the path is null, empty, too long or
 * in use, or the socket or thread cannot be made.
 * Logs: error, when it fails. While it serves: warning, for a refused client, and when descriptors
 *       run out.
 */
int zyax_console_start(const char *path);

/*
 * Ends the server: disconnects the clients, removes the socket and waits for the thread. A process
 * that unloads or destroys what its handlers use stops the server before.
 *
 * Returns 0, also when there is no server; -1 when a command calls it that the server runs.
 * Threads: waits for a running handler.
 * Logs: error, when it fails.
 */
int zyax_console_stop(void);

/* ------------------------------------------------------------------ one command's output */

/*
 * Text that a thread prints with DBG_Print and DBG_PrintBuf (dbg_console.h) goes to standard
 * output, unless the thread is inside a command. Those of the table begin and end by themselves;
 * others do here:
 *
 *     zyax_console_begin(write_to_client, client);
 *     the_command();                                 prints as it likes
 *     zyax_console_end();                            delivers what DBG_PrintBuf has gathered
 *
 * Commands may be nested: the inner one's text goes to the inner one's call-back. A command belongs
 * to the thread that began it and sees that thread's text only.
 */

/*
 * Begins a command on the calling thread.
 *
 * write: receives each piece of text with its length in bytes; the text is not terminated and
 *        valid during the call only. It runs on the calling thread with no lock held. Null fails.
 * ctx:   passed to `write` unread; may be null.
 *
 * Logs: error, when it fails; the text then goes where it went before, and no zyax_console_end
 *       belongs to the call.
 */
void zyax_console_begin(void (*write)(void *ctx, const char *text, size_t length), void *ctx);

/*
 * Ends the command that the calling thread began last: gathered text is delivered in one piece.
 *
 * Logs: error, when the thread is in no command.
 */
void zyax_console_end(void);

#ifdef __cplusplus
}
#endif

#endif
