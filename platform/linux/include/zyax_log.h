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
 *     2026-03-01T12:00:00.123456+01:00 error 4711 my_module some_function src/file.cpp:12 text
 *
 * that is local time with its distance from UTC, level, kernel thread id, module name, function,
 * source line and text. Texts are cut at about 900 characters, which the line then says, and line
 * breaks in them become blanks. On a terminal the level has a colour. Syslog has a clock of its own
 * and gets the line without the time.
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

/* The levels besides those of zylog.h. Lines of level 5 are notices; everything is written at 7. */
enum { ZYAX_LOG_NOTICE = 5, ZYAX_LOG_EVERYTHING = 7 };

/* Bytes of a module's name and of a sink's target, each with its terminator. */
enum { ZYAX_MODULE_NAME_SIZE = 32, ZYAX_LOG_TARGET_SIZE = 256 };

/*
 * Sets the level up to which lines of all modules without a level of their own are written.
 *
 * level: ZYLOG_FATAL to ZYLOG_INFO, or 7 for everything. Fatal lines cannot be switched off: a
 *        smaller level counts as ZYLOG_FATAL; a larger one counts as 7.
 */
void zyax_log_set_level(uint32_t level);

/* The level that zyax_log_set_level set last, ZYLOG_WARNING at first. */
uint32_t zyax_log_get_level(void);

/*
 * Sets a module's own level, which zyax_log_set_level does not change from then on.
 *
 * module_id: modules with the same low 16 bits share one level.
 * level:     as above.
 */
void zyax_log_set_module_level(uint32_t module_id, uint32_t level);

/* Takes a module's own level away: it follows zyax_log_set_level again. */
void zyax_log_clear_module_level(uint32_t module_id);

/*
 * The name of a level as lines carry it: "fatal", "error", "warning", "notice", "info", and "debug"
 * for everything beyond. Never null; valid for ever.
 */
const char *zyax_log_level_name(uint32_t level);

/*
 * Reads a level: one of these names in small or capital letters, or a number from 0 to 7, of which
 * 0 and 1 mean ZYLOG_FATAL.
 *
 * level: receives ZYLOG_FATAL to 7; untouched when the call fails.
 *
 * Returns 0; -1 when the text is no level, or either pointer is null. Logs nothing.
 */
int zyax_log_level_parse(const char *text, uint32_t *level);

/* What the log knows of a module. */
typedef struct zyax_log_module {
    uint32_t module_id;
    uint32_t level;                   /* lines up to this one are written */
    uint32_t has_own_level;           /* 0: follows the level of all */
    char name[ZYAX_MODULE_NAME_SIZE]; /* "unknown" when it has none */
} zyax_log_module;

/*
 * Lists the modules that have a name or a level of their own, by ascending id. Modules with names
 * and the same low 16 bits are listed each, with the level that they share; a level without a named
 * module is listed under those 16 bits.
 *
 * modules: receives the first `room` of them; may be null when `room` is 0.
 *
 * Returns how many there are, which may be more than `room`.
 */
uint32_t zyax_log_list_modules(zyax_log_module *modules, uint32_t room);

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

/* When the level of a line has a colour on standard error. */
enum {
    ZYAX_LOG_COLOUR_AUTO   = 0, /* on a terminal that knows colours, unless NO_COLOR is set */
    ZYAX_LOG_COLOUR_NEVER  = 1,
    ZYAX_LOG_COLOUR_ALWAYS = 2
};

/*
 * Sets when there is colour; at first it is ZYAX_LOG_COLOUR_AUTO, decided with the first line. A
 * call with ZYAX_LOG_COLOUR_AUTO looks at standard error and the environment anew.
 *
 * mode: one of the three; anything else counts as ZYAX_LOG_COLOUR_AUTO.
 */
void zyax_log_set_colour(uint32_t mode);

enum { ZYAX_LOG_STDERR = 0, ZYAX_LOG_FILE = 1, ZYAX_LOG_SYSLOG = 2 };

/* One sink. */
typedef struct zyax_log_sink {
    uint32_t kind;                     /* ZYAX_LOG_STDERR, ZYAX_LOG_FILE or ZYAX_LOG_SYSLOG */
    uint32_t is_coloured;              /* 0 or 1; 1 on standard error only */
    uint64_t max_bytes;                /* of a file: size at which it is full; otherwise 0 */
    uint32_t files;                    /* of a file: full ones that are kept; otherwise 0 */
    uint64_t written;                  /* lines that the sink has taken */
    uint64_t refused;                  /* lines that it has not */
    char target[ZYAX_LOG_TARGET_SIZE]; /* "stderr", the path, or syslog's name; cut if longer */
} zyax_log_sink;

/*
 * Lists the sinks in the order in which they get a line.
 *
 * sinks: receives the first `room` of them; may be null when `room` is 0.
 *
 * Returns how many there are, which may be more than `room`; 0 also when memory is out.
 */
uint32_t zyax_log_list_sinks(zyax_log_sink *sinks, uint32_t room);

/* The name of a kind of sink: "stderr", "file" or "syslog"; "unknown" for anything else. */
const char *zyax_log_sink_kind_name(uint32_t kind);

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

/*
 * The way back: the id of the module that has this name now, the one named last if there are
 * several.
 *
 * module_id: receives the id; untouched when the call fails.
 *
 * Returns 0; -1 when no module has the name, or either pointer is null. Logs nothing.
 */
int zyax_module_id_get(const char *name, uint32_t *module_id);

#ifdef __cplusplus
}
#endif

#endif
