/*
 * The log's front door: a line is formatted by the thread that logs it, straight into a slot of the
 * queue, and the thread goes on. If there is no slot the line is counted and gone.
 *
 * A fatal line is the exception: its caller is about to end the process, so it waits until the line
 * and everything before it is written. If that takes too long, because a sink is stuck, the line
 * goes to standard error past everything else.
 *
 * `errno` survives: callers log first and look at it afterwards.
 */
#include "log_local.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace zyax
{

static constexpr uint32_t FATAL_LIMIT = 2000; /* ms that a fatal line waits for the sinks */
static constexpr char CUT_MARK[]      = " [cut]";

static const char *text_or_null(const char *text)
{
    return text != nullptr ? text : "(null)";
}

/* One line of text is one line of the log. */
static void blank_line_breaks(char *text)
{
    for (char *at = strpbrk(text, "\r\n"); at != nullptr; at = strpbrk(at, "\r\n"))
        *at = ' ';
}

void log_line_fill(log_line *line, const log_source &source, const char *format, va_list args)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    line->time = uint64_t(now.tv_sec) * 1000000000 + uint64_t(now.tv_nsec);
    line->module_id = source.module_id;
    line->level = source.level;
    line->thread = gettid();

    /* Each %s is bounded, so that a long name never leaves less than half the room for the text. */
    const int head = snprintf(line->text, LOG_TEXT_SIZE, "%.200s %.200s:%u ",
                              text_or_null(source.func), text_or_null(source.file), source.line);
    const size_t room = LOG_TEXT_SIZE - size_t(head);
    const int body = vsnprintf(line->text + head, room, format, args);
    if (body >= 0 && size_t(body) >= room)
        memcpy(line->text + LOG_TEXT_SIZE - sizeof(CUT_MARK), CUT_MARK, sizeof(CUT_MARK));
    blank_line_breaks(line->text);
    line->length = uint32_t(strnlen(line->text, LOG_TEXT_SIZE - 1));
}

__attribute__((format(printf, 2, 0)))
static bool queue_line(const log_source &source, const char *format, va_list args)
{
    uint64_t position;
    log_line *line = log_queue_claim(&position);
    if (line == nullptr)
        return false;

    log_line_fill(line, source, format, args);
    log_queue_publish(position);
    log_writer_wake();
    return true;
}

static bool queue_copy_and_wait(const log_line &line)
{
    uint64_t position;
    log_line *place = log_queue_claim(&position);
    if (place == nullptr) {
        log_writer_wait(log_queue_claimed() - 1, FATAL_LIMIT);
        place = log_queue_claim(&position);
    }
    if (place == nullptr)
        return false;

    *place = line;
    log_queue_publish(position);
    log_writer_wake();
    return log_writer_wait(position, FATAL_LIMIT);
}

static void write_fatal(const log_line &line)
{
    if (!log_writer_is_running())
        log_write_directly(line);
    else if (!queue_copy_and_wait(line))
        log_write_raw(line);
}

__attribute__((format(printf, 2, 0)))
static void write_any(const log_source &source, const char *format, va_list args)
{
    if (source.level > ZYLOG_FATAL && log_writer_is_running()) {
        if (!queue_line(source, format, args))
            log_count_dropped();
        return;
    }

    log_line line;
    log_line_fill(&line, source, format, args);
    if (source.level <= ZYLOG_FATAL)
        write_fatal(line);
    else
        log_write_directly(line);
}

} // namespace zyax

void zylog(uint32_t module_id, uint32_t level, const char *file, uint32_t line, const char *func,
           uint32_t, const char *format, ...)
{
    if (format == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "A log line of module %u without a format.", module_id);
        return;
    }

    if (zylog_level_check(module_id, level) != 0)
        return;

    const int kept_errno = errno;
    va_list args;
    va_start(args, format);
    zyax::write_any({module_id, level, file, line, func}, format, args);
    va_end(args);
    errno = kept_errno;
}
