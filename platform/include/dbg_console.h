/*
 * Text for the process's debug console; standard output when no console is attached.
 *
 * Threads: any. The text belongs to the command that runs on the calling thread.
 */
#ifndef DBG_CONSOLE_H
#define DBG_CONSOLE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Writes one piece of console text at once. */
void DBG_Print(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The same, but gathered and written when the command ends. */
void DBG_PrintBuf(const char *format, ...) __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

#endif
