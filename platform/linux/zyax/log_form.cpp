/*
 * The form of a line.
 *
 *     2026-03-01T12:00:00.123456+01:00 error 4711 my_module some_function src/file.cpp:12 text
 *     |<----- spdlog's -------->|     |     |<-------------- the description -------------->|
 *                           zone_part level_part
 *
 * The level's name travels to level_part as the message's logger name, a field that this log has no
 * other use for: spdlog has neither our names nor as many levels.
 *
 * Colours are written by level_part too, not by spdlog's coloured sink: that one writes a line in
 * four pieces, between which lines of other processes on the same terminal would get.
 *
 * The zone is of the very moment of the line. spdlog's own flag keeps one for ten seconds, in which
 * the lines after a change to or from summer time would be an hour off.
 */
#include "log_form.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <stdio.h>
#include <stdlib.h>

#include <spdlog/details/os.h>

namespace zyax
{

/* Our own flags in a pattern. */
static constexpr char ZONE_FLAG = '@';  /* the distance from UTC */
static constexpr char LEVEL_FLAG = '*'; /* the level, coloured */

static constexpr const char *TIME = "%Y-%m-%dT%H:%M:%S.%f%@ ";
static constexpr const char *RESET = "\033[0m";

static const char *colour_of(spdlog::level::level_enum level)
{
    switch (level) {
    case spdlog::level::critical:
        return "\033[1;37;41m"; /* white on red */
    case spdlog::level::err:
        return "\033[1;31m"; /* red */
    case spdlog::level::warn:
        return "\033[33m"; /* yellow */
    case spdlog::level::info:
        return "\033[32m"; /* green */
    default:
        return "\033[36m"; /* cyan */
    }
}

static void append(spdlog::string_view_t text, spdlog::memory_buf_t &out)
{
    out.append(text.data(), text.data() + text.size());
}

namespace
{
class zone_part : public spdlog::custom_flag_formatter
{
public:
    void format(const spdlog::details::log_msg &, const std::tm &time,
                spdlog::memory_buf_t &out) override
    {
        const long minutes = time.tm_gmtoff / 60;
        const long distance = std::abs(minutes);
        char text[16];
        snprintf(text, sizeof(text), "%c%02ld:%02ld", minutes < 0 ? '-' : '+', distance / 60 % 100,
                 distance % 60);
        append(text, out);
    }

    std::unique_ptr<custom_flag_formatter> clone() const override
    {
        return std::make_unique<zone_part>();
    }
};

class level_part : public spdlog::custom_flag_formatter
{
public:
    void format(const spdlog::details::log_msg &message, const std::tm &,
                spdlog::memory_buf_t &out) override
    {
        append(colour_of(message.level), out);
        append(message.logger_name, out);
        append(RESET, out);
    }

    std::unique_ptr<custom_flag_formatter> clone() const override
    {
        return std::make_unique<level_part>();
    }
};
} // namespace

std::unique_ptr<spdlog::formatter> make_log_formatter(log_form form)
{
    std::string pattern = form == log_form::WITHOUT_TIME ? "" : TIME;
    pattern += form == log_form::COLOURED ? "%* %v" : "%n %v";

    /* Syslog ends a line itself. */
    const char *line_end = form == log_form::WITHOUT_TIME ? "" : spdlog::details::os::default_eol;
    auto formatter =
        std::make_unique<spdlog::pattern_formatter>(spdlog::pattern_time_type::local, line_end);
    formatter->add_flag<zone_part>(ZONE_FLAG).add_flag<level_part>(LEVEL_FLAG);
    formatter->set_pattern(pattern);
    return formatter;
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

size_t describe(const log_line &line, char *out, size_t size)
{
    const int length = snprintf(out, size, "%d %s %.*s", int(line.thread),
                                zyax_pid_get_name(line.module_id), int(line.length), line.text);
    return length < 0 ? 0 : std::min(size_t(length), size - 1);
}

spdlog::details::log_msg make_log_message(const log_line &line, spdlog::string_view_t description)
{
    const spdlog::log_clock::time_point time{
        std::chrono::duration_cast<spdlog::log_clock::duration>(
            std::chrono::nanoseconds(line.time))};
    return {time, spdlog::source_loc{}, zyax_log_level_name(line.level), spdlog_level(line.level),
            description};
}

bool wants_colour(void)
{
    /* The convention of no-color.org: any text that is not empty says no. */
    const char *no_colour = getenv("NO_COLOR");
    if (no_colour != nullptr && no_colour[0] != '\0')
        return false;
    return spdlog::details::os::in_terminal(stderr) && spdlog::details::os::is_color_terminal();
}

} // namespace zyax
