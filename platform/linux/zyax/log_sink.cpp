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
 * later than any destructor of this library runs. What a line looks like is log_form.cpp's.
 */
#include "log_form.h"

#include <algorithm>
#include <memory>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

namespace zyax
{

/* Outlives a sink that is replaced by one of another form. */
struct line_counts {
    uint64_t written = 0;
    uint64_t refused = 0;
};

/* A sink and what the list of sinks says of it, its counts aside. */
struct sink_entry {
    spdlog::sink_ptr sink;
    std::shared_ptr<line_counts> counts;
    zyax_log_sink record;
};

using sink_list     = std::vector<sink_entry>;
using sink_list_ptr = std::shared_ptr<const sink_list>;

static pthread_mutex_t s_list_lock = PTHREAD_MUTEX_INITIALIZER;
static sink_list_ptr *s_list; /* null until the first use; under s_list_lock */

static sink_entry make_entry(spdlog::sink_ptr sink, log_form form, zyax_log_sink record,
                             const char *target)
{
    sink->set_formatter(make_log_formatter(form));
    strncpy_s(record.target, sizeof(record.target), target, sizeof(record.target) - 1);
    return {std::move(sink), std::make_shared<line_counts>(), record};
}

static sink_entry make_standard_error(bool is_coloured)
{
    zyax_log_sink record = {};
    record.kind = ZYAX_LOG_STDERR;
    record.is_coloured = is_coloured;
    return make_entry(std::make_shared<spdlog::sinks::stderr_sink_st>(),
                      is_coloured ? log_form::COLOURED : log_form::PLAIN, record, "stderr");
}

static sink_list_ptr make_initial_list(void)
{
    return std::make_shared<const sink_list>(1, make_standard_error(wants_colour()));
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

static bool has_kind(const sink_list &list, uint32_t kind)
{
    return std::any_of(list.begin(), list.end(),
                       [=](const sink_entry &entry) { return entry.record.kind == kind; });
}

static bool write_to(const sink_entry &entry, const spdlog::details::log_msg &message)
{
    try {
        entry.sink->log(message);
        __atomic_add_fetch(&entry.counts->written, 1, __ATOMIC_RELAXED);
        return true;
    } catch (...) {
        __atomic_add_fetch(&entry.counts->refused, 1, __ATOMIC_RELAXED);
        return false;
    }
}

bool log_sinks_write(const log_line &line)
{
    char text[LOG_DESCRIPTION_SIZE];
    const size_t length = describe(line, text, sizeof(text));
    bool everywhere = true;
    try {
        const spdlog::details::log_msg message =
            make_log_message(line, spdlog::string_view_t(text, length));
        const sink_list_ptr list = present_list();
        for (const sink_entry &entry : *list)
            everywhere = write_to(entry, message) && everywhere;
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
    char text[LOG_DESCRIPTION_SIZE + 16];
    size_t length = size_t(snprintf(text, sizeof(text), "%s ", zyax_log_level_name(line.level)));
    length += describe(line, text + length, sizeof(text) - length - 1);
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
        zyax_log_sink record = {};
        record.kind = ZYAX_LOG_FILE;
        record.max_bytes = max_bytes;
        record.files = files;
        sink_entry entry = make_entry(std::make_shared<spdlog::sinks::rotating_file_sink_st>(
                                          path, max_bytes, files, CONTINUE, handlers),
                                      log_form::PLAIN, record, path);
        return replace_list([&](sink_list &list) {
            list.push_back(std::move(entry));
            return true;
        });
    } catch (...) {
        return false;
    }
}

static bool add_syslog(const char *ident)
{
    constexpr bool WITH_FORMATTER = true;

    try {
        return replace_list([=](sink_list &list) {
            if (has_kind(list, ZYAX_LOG_SYSLOG))
                return false;
            zyax_log_sink record = {};
            record.kind = ZYAX_LOG_SYSLOG;
            list.push_back(make_entry(std::make_shared<spdlog::sinks::syslog_sink_st>(
                                          ident, LOG_PID, LOG_USER, WITH_FORMATTER),
                                      log_form::WITHOUT_TIME, record, ident));
            return true;
        });
    } catch (...) {
        return false;
    }
}

static bool is_standard_error(const sink_entry &entry)
{
    return entry.record.kind == ZYAX_LOG_STDERR;
}

/* Another sink in the place of standard error's, for the writer may be in the midst of that. */
static bool recolour(sink_list &list, bool is_coloured)
{
    const auto place = std::find_if(list.begin(), list.end(), is_standard_error);
    if (place == list.end())
        return false;

    sink_entry changed = make_standard_error(is_coloured);
    changed.counts = place->counts;
    *place = std::move(changed);
    return true;
}

static zyax_log_sink describe_sink(const sink_entry &entry)
{
    zyax_log_sink record = entry.record;
    record.written = __atomic_load_n(&entry.counts->written, __ATOMIC_RELAXED);
    record.refused = __atomic_load_n(&entry.counts->refused, __ATOMIC_RELAXED);
    return record;
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
            std::erase_if(list, is_standard_error);
            return true;
        });
    } catch (...) {
        ZYAX_LOG(ZYLOG_ERROR, "Standard error stays a sink of the log: no memory.");
    }
}

void zyax_log_set_colour(uint32_t mode)
{
    const bool is_coloured = mode == ZYAX_LOG_COLOUR_ALWAYS ||
                             (mode != ZYAX_LOG_COLOUR_NEVER && wants_colour());
    try {
        replace_list([=](sink_list &list) { return recolour(list, is_coloured); });
    } catch (...) {
        ZYAX_LOG(ZYLOG_ERROR, "The colours of the log stay as they are: no memory.");
    }
}

uint32_t zyax_log_list_sinks(zyax_log_sink *sinks, uint32_t room)
{
    try {
        const sink_list_ptr list = present_list();
        const size_t listed = sinks != nullptr ? std::min(size_t(room), list->size()) : 0;
        for (size_t i = 0; i < listed; ++i)
            sinks[i] = describe_sink((*list)[i]);
        return uint32_t(list->size());
    } catch (...) {
        return 0;
    }
}

const char *zyax_log_sink_kind_name(uint32_t kind)
{
    static const char *const NAMES[] = {"stderr", "file", "syslog"};
    return kind < std::size(NAMES) ? NAMES[kind] : "unknown";
}
