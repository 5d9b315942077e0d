/*
 * The inner side of the log: a line, the queue, the sinks and the writer.
 *
 *     zylog.cpp --claim, fill, publish--> log_queue.cpp --front, pop--> log_writer.cpp
 *         |                                                                  |
 *         +------------- lines that cannot wait or be queued ----------------+--> log_sink.cpp
 */
#pragma once

#include "zyax_local.h"

#include <stdarg.h>
#include <sys/types.h>

namespace zyax
{

/* Bytes of "function file:line text" that a line holds, with its terminator. */
inline constexpr size_t LOG_TEXT_SIZE = 992;

/* A line on its way to the sinks. Everything is copied: a plugin that logs may be gone when the
 * line is written. */
struct log_line {
    uint64_t time; /* nanoseconds since 1970 */
    uint32_t module_id;
    uint32_t level;
    pid_t thread;
    uint32_t length; /* of text, in bytes */
    char text[LOG_TEXT_SIZE];
};

/* Where a line comes from. */
struct log_source {
    uint32_t module_id;
    uint32_t level;
    const char *file;
    uint32_t line;
    const char *func;
};

/* Makes the line ready for the sinks; a text that is too long is cut, and says so. */
void log_line_fill(log_line *line, const log_source &source, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));

/*
 * The queue. Any thread claims a slot, fills it and publishes it; the one writer takes slots out in
 * the order of the claims. A position counts the slots ever claimed.
 */
log_line *log_queue_claim(uint64_t *position); /* null when the queue is full */
void log_queue_publish(uint64_t position);
uint64_t log_queue_claimed(void);
log_line *log_queue_front(void); /* null when the oldest slot is not published */
void log_queue_pop(void);
uint64_t log_queue_popped(void);
void log_queue_reset(void); /* with no other thread around */

/*
 * The sinks. One thread at a time writes (under the writer's lock); the list may be changed at any
 * time. False when a sink refused the line.
 */
bool log_sinks_write(const log_line &line);
void log_sinks_lock_list(void);
void log_sinks_unlock_list(void);
void log_sinks_start_over(void); /* forgets all sinks but standard error */
/* Past all sinks, straight to standard error if it takes a line at this moment. */
void log_write_raw(const log_line &line);

/*
 * The writer. log_writer_is_running starts it when it can; if it answers false, the caller writes
 * its line itself with log_write_directly.
 */
bool log_writer_is_running(void);
void log_writer_wake(void);
/* True when the line at `position` and all before it are written; false when time ran out. */
bool log_writer_wait(uint64_t position, uint32_t milliseconds);
void log_write_directly(const log_line &line);
void log_count_dropped(void);
/* A forked child has sinks of its own now: it may have a writer of its own, too. */
void log_writer_allow(void);

} // namespace zyax
