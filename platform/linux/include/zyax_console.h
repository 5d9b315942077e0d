/*
 * Host interface of the debug console: where the text of one command goes.
 *
 * Text that a thread prints with DBG_Print and DBG_PrintBuf (dbg_console.h) goes to standard
 * output, unless the thread is inside a command, which begins and ends here:
 *
 *     zyax_console_begin(write_to_client, client);
 *     the_command();                                 prints as it likes
 *     zyax_console_end();                            delivers what DBG_PrintBuf has gathered
 *
 * Commands may be nested: the inner one's text goes to the inner one's call-back.
 *
 * Threads: any; a command belongs to the thread that began it and sees that thread's text only.
 */
#ifndef ZYAX_CONSOLE_H
#define ZYAX_CONSOLE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

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
