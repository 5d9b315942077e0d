/*
 * Host interface of the platform's log: which lines are written, where to, and under which name a
 * module appears. The lines themselves come in through zylog.h.
 *
 *     thread --zylog--> | bounded queue | --> writer thread --> standard error
 *     thread --zylog--> |               |                  \--> rotating file
 *                                                           \-> syslog
 *
 * A line reads
 *
 *     2026-03-01 12:00:00.123456 error 4711 my_module some_function src/file.cpp:12 text
 *
 * that is local time, level, kernel thread id, module name, function, source line and text. Texts
 * are cut at about 900 characters, which the line then says, and line breaks in them become blanks.
 *
 * Without any call here warnings and worse go to standard error.
 *
 * A process that forks: a child whose parent had already logged writes its lines itself, without
 * the queue, until it adds a sink of its own.
 *
 * Threads: every function may be called by any thread at any time.
 */
#ifndef ZYAX_LOG_H
#define ZYAX_LOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The platform's own module id, named "zyax". */
enum { ZYAX_MODULE_ID = 1 };

/*
 * Sets the level up to which lines of all modules without a level of their own are written.
 *
 * level: ZYLOG_FATAL to ZYLOG_INFO, or 7 for everything. Fatal lines cannot be switched off: a
 *        smaller level counts as ZYLOG_FATAL; a larger one counts as 7.
 */
void zyax_log_set_level(uint32_t level);

/*
 * Sets a module's own level, which zyax_log_set_level does not change from then on.
 *
 * module_id: modules with the same low 16 bits share one level.
 * level:     as above.
 */
void zyax_log_set_module_level(uint32_t module_id, uint32_t level);

/*
 * Adds a file as a sink. A full file is renamed (run.log becomes run.1.log, run.1.log becomes
 * run.2.log ...) and a new one begun. An existing file is continued.
 *
 * path:      missing folders are created; null or an empty text fails.
 * max_bytes: size at which a file is full; 0 fails.
 * files:     full files that are kept besides the current one; 0 keeps none.
 *
 * Returns 0; -1 when the file cannot be opened or an argument is bad.
 * Logs: error, when it fails.
 */
int zyax_log_add_file(const char *path, uint64_t max_bytes, uint32_t files);

/*
 * Adds the system's log as a sink. There is one: a second call answers -1.
 *
 * ident: the name that syslog puts before each line; it is copied. Null or an empty text fails.
 *
 * Returns 0, or -1.
 * Logs: error, when it fails.
 */
int zyax_log_add_syslog(const char *ident);

/* Takes standard error out of the sinks; nothing happens when it is out already. */
void zyax_log_remove_stderr(void);

/*
 * Returns when every line logged before the call is written; after 5 seconds in any case, for a
 * sink may be stuck for ever.
 */
void zyax_log_flush(void);

/*
 * Number of lines that have not been written, because the queue was full or because a sink refused
 * them. The log itself says so too, in a warning line, as soon as it can.
 */
uint64_t zyax_log_dropped(void);

/*
 * Names a module, for its log lines and for zyax_pid_get_name; a later name replaces a former.
 *
 * name: 1 to 31 characters, copied.
 *
 * Returns 0; -1 when the name is null, empty or too long, or after 512 names.
 * Logs: error, when it fails.
 */
int zyax_module_name_set(uint32_t module_id, const char *name);

#ifdef __cplusplus
}
#endif

#endif
