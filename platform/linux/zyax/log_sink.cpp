/*
 * The sinks behind the log: standard error, rotating files, syslog. They are spdlog's; what they
 * throw is caught here.
 *
 * The list of sinks is never changed, only replaced, under a lock that is held for the exchange
 * alone. Whoever writes takes a reference to the present list first, so that a sink which is stuck
 * in a write holds up neither the threads that change the list nor a fork.
 *
 * The sinks themselves are spdlog's variants without locks: one thread writes at a time.
 *
 * The list is on the heap and never released: lines come in until the very end of the process,
 * later than any destructor of this library runs.
 */
#include "log_local.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vector>

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

namespace zyax
{

/* Time, then the text as log_line_fill and describe have made it. */
static constexpr const char *PATTERN = "%Y-%m-%d %H:%M:%S.%f %v";

struct sink_list {
    std::vector<spdlog::sink_ptr> all;
    spdlog::sink_ptr standard_error; /* also in `all`, or null */
    bool has_syslog = false;
};

using sink_list_ptr = std::shared_ptr<const sink_list>;

static pthread_mutex_t s_list_lock = PTHREAD_MUTEX_INITIALIZER;
static sink_list_ptr *s_list; /* null until the first use; under s_list_lock */

static spdlog::sink_ptr with_pattern(spdlog::sink_ptr sink)
{
    sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(PATTERN));
    return sink;
}

static sink_list_ptr make_initial_list(void)
{
    sink_list list;
    list.standard_error = with_pattern(std::make_shared<spdlog::sinks::stderr_sink_st>());
    list.all.push_back(list.standard_error);
    return std::make_shared<const sink_list>(std::move(list));
}

/* The list lock, held for a scope. */
struct list_guard {
    list_guard() { pthread_mutex_lock(&s_list_lock); }
    ~list_guard() { pthread_mutex_unlock(&s_list_lock); }
    list_guard(const list_guard &) = delete;
    list_guard &operator=(const list_guard &) = delete;
};

static sink_list_ptr &locked_list(void)
{
    if (s_list == nullptr)
        s_list = new sink_list_ptr(make_initial_list());
    return *s_list;
}

static sink_list_ptr present_list(void)
{
    const list_guard guard;
    return locked_list();
}

/* Replaces the list by one that `change` has edited; false when `change` says so. */
template <typename Change>
static bool replace_list(Change change)
{
    const list_guard guard;
    sink_list_ptr &place = locked_list();
    sink_list edited = *place;
    if (!change(edited))
        return false;
    place = std::make_shared<const sink_list>(std::move(edited));
    return true;
}

static spdlog::level::level_enum spdlog_level(uint32_t level)
{
    if (level <= ZYLOG_FATAL)
        return spdlog::level::critical;
    if (level == ZYLOG_ERROR)
        return spdlog::level::err;
    if (level < ZYLOG_INFO)
        return spdlog::level::warn;
    return level == ZYLOG_INFO ? spdlog::level::info : spdlog::level::debug;
}

static const char *level_name(uint32_t level)
{
    static const char *const NAMES[] = {"fatal",   "fatal",  "fatal", "error",
                                        "warning", "notice", "info"};
    return level <= ZYLOG_INFO ? NAMES[level] : "debug";
}

/* "error 4711 module function file:line text"; the length. */
static size_t describe(const log_line &line, char *out, size_t size)
{
    const int length = snprintf(out, size, "%s %d %s %.*s", level_name(line.level),
                                int(line.thread), zyax_pid_get_name(line.module_id),
                                int(line.length), line.text);
    return length < 0 ? 0 : std::min(size_t(length), size - 1);
}

static constexpr size_t DESCRIPTION_SIZE = LOG_TEXT_SIZE + 64;

static bool write_to(const spdlog::sink_ptr &sink, const spdlog::details::log_msg &message)
{
    try {
        sink->log(message);
        return true;
    } catch (...) {
        return false;
    }
}

bool log_sinks_write(const log_line &line)
{
    char text[DESCRIPTION_SIZE];
    const size_t length = describe(line, text, sizeof(text));
    const spdlog::log_clock::time_point time{
        std::chrono::duration_cast<spdlog::log_clock::duration>(
            std::chrono::nanoseconds(line.time))};
    bool everywhere = true;
    try {
        const spdlog::details::log_msg message(time, spdlog::source_loc{}, "",
                                               spdlog_level(line.level),
                                               spdlog::string_view_t(text, length));
        const sink_list_ptr list = present_list();
        for (const spdlog::sink_ptr &sink : list->all)
            everywhere = write_to(sink, message) && everywhere;
    } catch (...) {
        everywhere = false;
    }
    return everywhere;
}

void log_sinks_lock_list(void)
{
    pthread_mutex_lock(&s_list_lock);
}

void log_sinks_unlock_list(void)
{
    pthread_mutex_unlock(&s_list_lock);
}

void log_sinks_start_over(void)
{
    try {
        const list_guard guard;
        s_list = new sink_list_ptr(make_initial_list());
    } catch (...) {
        /* Without memory the former list is as good as any. */
    }
}

void log_write_raw(const log_line &line)
{
    char text[DESCRIPTION_SIZE + 1];
    size_t length = describe(line, text, sizeof(text) - 1);
    text[length++] = '\n';

    pollfd ready = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0 ||
        write(STDERR_FILENO, text, length) < 0)
        log_count_dropped();
}

/* Each line is one write: a line is out when its call returns, a line that a full disk refuses is
 * seen at once, lines of a forked child do not get in between, and the end of the process finds
 * nothing that it would have to flush into a stuck file. */
static void write_through(const spdlog::filename_t &, std::FILE *file)
{
    setvbuf(file, nullptr, _IONBF, 0);
}

static bool add_file(const char *path, uint64_t max_bytes, uint32_t files)
{
    constexpr bool CONTINUE = false; /* "rotate on open" */

    try {
        spdlog::file_event_handlers handlers;
        handlers.after_open = write_through;
        spdlog::sink_ptr sink =
            with_pattern(std::make_shared<spdlog::sinks::rotating_file_sink_st>(
                path, max_bytes, files, CONTINUE, handlers));
        return replace_list([&](sink_list &list) {
            list.all.push_back(std::move(sink));
            return true;
        });
    } catch (...) {
        return false;
    }
}

static bool add_syslog(const char *ident)
{
    constexpr bool PLAIN_TEXT = false; /* syslog has a clock of its own */

    try {
        return replace_list([&](sink_list &list) {
            if (list.has_syslog)
                return false;
            list.all.push_back(std::make_shared<spdlog::sinks::syslog_sink_st>(
                ident, LOG_PID, LOG_USER, PLAIN_TEXT));
            list.has_syslog = true;
            return true;
        });
    } catch (...) {
        return false;
    }
}

} // namespace zyax

using namespace zyax;

int zyax_log_add_file(const char *path, uint64_t max_bytes, uint32_t files)
{
    if (path == nullptr || path[0] == '\0' || max_bytes == 0 ||
        !add_file(path, max_bytes, files)) {
        ZYAX_LOG(ZYLOG_ERROR, "Log file %s cannot be opened with %lu bytes and %u full files.",
                 path != nullptr ? path : "(null)", max_bytes, files);
        return -1;
    }
    log_writer_allow();
    return 0;
}

int zyax_log_add_syslog(const char *ident)
{
    if (ident == nullptr || ident[0] == '\0' || !add_syslog(ident)) {
        ZYAX_LOG(ZYLOG_ERROR, "The system's log cannot be added as %s.",
                 ident != nullptr ? ident : "(null)");
        return -1;
    }
    log_writer_allow();
    return 0;
}

void zyax_log_remove_stderr(void)
{
    try {
        replace_list([](sink_list &list) {
            std::erase(list.all, list.standard_error);
            list.standard_error.reset();
            return true;
        });
    } catch (...) {
        ZYAX_LOG(ZYLOG_ERROR, "Standard error stays a sink of the log: no memory.");
    }
}
