/*
 * How a line looks: the zone of its time, its colours, and what syslog gets of it.
 */
#include "zyax_log_helpers.h"

#include <optional>
#include <pty.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

/* The text behind the time and before the thread id, and the zone before it. */
static std::string zone_of(const std::string &line)
{
    return line.substr(26, 6);
}

static std::string line_in_zone(const temp_folder &folder, const char *zone)
{
    setenv("TZ", zone, 1);
    tzset();
    log_to_file(folder);
    LOG(ZYLOG_ERROR, "text");
    zyax_log_flush();
    return folder.read("run.log");
}

TEST(ZylogForm, the_time_says_how_far_it_is_ahead_of_utc)
{
    const temp_folder folder;
    EXPECT_EQ(zone_of(line_in_zone(folder, "XXX-05:45")), "+05:45");
}

TEST(ZylogForm, the_time_says_how_far_it_is_behind_utc)
{
    const temp_folder folder;
    EXPECT_EQ(zone_of(line_in_zone(folder, "YYY+03:30")), "-03:30");
}

TEST(ZylogForm, a_zone_less_than_an_hour_behind_utc_has_its_sign)
{
    const temp_folder folder;
    EXPECT_EQ(zone_of(line_in_zone(folder, "ZZZ+00:30")), "-00:30");
}

TEST(ZylogForm, utc_is_ahead_by_nothing)
{
    const temp_folder folder;
    EXPECT_EQ(zone_of(line_in_zone(folder, "UTC0")), "+00:00");
}

namespace
{
/* Standard error is something else while this lives. */
class other_stderr
{
public:
    explicit other_stderr(int fd) : m_kept(dup(STDERR_FILENO))
    {
        dup2(fd, STDERR_FILENO);
    }

    ~other_stderr()
    {
        dup2(m_kept, STDERR_FILENO);
        close(m_kept);
    }

    other_stderr(const other_stderr &) = delete;
    other_stderr &operator=(const other_stderr &) = delete;

private:
    int m_kept;
};

/* A terminal as standard error. */
class terminal
{
public:
    terminal()
    {
        EXPECT_EQ(openpty(&m_screen, &m_line, nullptr, nullptr, nullptr), 0);
        m_stderr.emplace(m_line);
    }

    ~terminal()
    {
        m_stderr.reset();
        close(m_screen);
        close(m_line);
    }

    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    /* One line off the screen, from its level on. */
    std::string line_from_level()
    {
        std::string text;
        char each = '\0';
        while (each != '\n' && read(m_screen, &each, 1) == 1)
            text += each;
        return text.size() > 33 ? text.substr(33) : text;
    }

private:
    int m_screen = -1;
    int m_line = -1;
    std::optional<other_stderr> m_stderr;
};
} // namespace

static void set_environment(const char *term, const char *no_color)
{
    unsetenv("COLORTERM");
    setenv("TERM", term, 1);
    if (no_color != nullptr)
        setenv("NO_COLOR", no_color, 1);
    else
        unsetenv("NO_COLOR");
}

static bool stderr_is_coloured(void)
{
    zyax_log_sink sink = {};
    EXPECT_GE(zyax_log_list_sinks(&sink, 1), 1u);
    return sink.is_coloured != 0;
}

static std::string line_on(terminal &screen, uint32_t level)
{
    LOG(level, "text");
    zyax_log_flush();
    return screen.line_from_level();
}

static bool begins_with(const std::string &text, const std::string &begin)
{
    return text.compare(0, begin.size(), begin) == 0;
}

TEST(ZylogColour, on_a_terminal_the_level_has_its_colour)
{
    set_environment("xterm-256color", nullptr);
    terminal screen;
    zyax_log_set_level(7);

    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_FATAL), "\033[1;37;41mfatal\033[0m "));
    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "\033[1;31merror\033[0m "));
    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_WARNING), "\033[33mwarning\033[0m "));
    EXPECT_TRUE(begins_with(line_on(screen, ZYAX_LOG_NOTICE), "\033[33mnotice\033[0m "));
    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_INFO), "\033[32minfo\033[0m "));
    EXPECT_TRUE(begins_with(line_on(screen, 7), "\033[36mdebug\033[0m "));
    EXPECT_TRUE(stderr_is_coloured());
}

TEST(ZylogColour, nothing_but_the_level_is_coloured)
{
    set_environment("xterm", nullptr);
    terminal screen;

    EXPECT_EQ(line_on(screen, ZYLOG_ERROR), "\033[1;31merror\033[0m " + std::to_string(gettid()) +
                                                " unknown some_function some/file.cpp:12 text\r\n");
}

TEST(ZylogColour, no_color_in_the_environment_takes_colour_away)
{
    set_environment("xterm", "1");
    terminal screen;

    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "error "));
    EXPECT_FALSE(stderr_is_coloured());
}

TEST(ZylogColour, an_empty_no_color_does_not_count)
{
    set_environment("xterm", "");
    terminal screen;

    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "\033[1;31merror"));
}

TEST(ZylogColour, a_terminal_that_knows_no_colour_gets_none)
{
    set_environment("dumb", nullptr);
    terminal screen;

    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "error "));
}

TEST(ZylogColour, a_file_as_standard_error_gets_none)
{
    set_environment("xterm", nullptr);
    testing::internal::CaptureStderr();
    LOG(ZYLOG_ERROR, "text");
    zyax_log_flush();

    EXPECT_EQ(testing::internal::GetCapturedStderr().find('\033'), std::string::npos);
    EXPECT_FALSE(stderr_is_coloured());
}

TEST(ZylogColour, the_setting_overrules_terminal_and_environment)
{
    set_environment("xterm", nullptr);
    terminal screen;

    zyax_log_set_colour(ZYAX_LOG_COLOUR_NEVER);
    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "error "));
    set_environment("dumb", "1");
    zyax_log_set_colour(ZYAX_LOG_COLOUR_ALWAYS);
    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "\033[1;31merror"));
    zyax_log_set_colour(ZYAX_LOG_COLOUR_AUTO);
    EXPECT_TRUE(begins_with(line_on(screen, ZYLOG_ERROR), "error "));
    zyax_log_set_colour(ZYAX_LOG_COLOUR_ALWAYS);
    zyax_log_set_colour(1000);
    EXPECT_FALSE(stderr_is_coloured());
}

TEST(ZylogColour, a_change_keeps_the_counts_and_the_other_sinks)
{
    const temp_folder folder;
    testing::internal::CaptureStderr();
    ASSERT_EQ(zyax_log_add_file(folder.path("run.log").c_str(), MIB, 1), 0);
    LOG(ZYLOG_ERROR, "before");
    zyax_log_flush();

    zyax_log_set_colour(ZYAX_LOG_COLOUR_ALWAYS);
    LOG(ZYLOG_ERROR, "after");
    zyax_log_flush();

    zyax_log_sink sinks[2] = {};
    ASSERT_EQ(zyax_log_list_sinks(sinks, 2), 2u);
    EXPECT_EQ(sinks[0].written, 2u);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("\033[1;31merror\033[0m "),
              std::string::npos);
    EXPECT_EQ(folder.read("run.log").find('\033'), std::string::npos);
    EXPECT_EQ(folder.read_lines("run.log").size(), 2u);
}

TEST(ZylogColour, a_setting_does_not_bring_standard_error_back)
{
    zyax_log_remove_stderr();
    zyax_log_set_colour(ZYAX_LOG_COLOUR_ALWAYS);

    EXPECT_EQ(zyax_log_list_sinks(nullptr, 0), 0u);
}

/* Lines of several processes on one terminal: each read of such a socket is one write. */
TEST(ZylogColour, a_coloured_line_is_one_write)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    zyax_log_set_colour(ZYAX_LOG_COLOUR_ALWAYS);
    {
        const other_stderr is_the_socket(ends[1]);
        LOG(ZYLOG_ERROR, "text");
        zyax_log_flush();
    }

    char text[2048];
    const ssize_t length = recv(ends[0], text, sizeof(text), 0);
    ASSERT_GT(length, 0);
    EXPECT_TRUE(ends_with(std::string(text, size_t(length)), " some/file.cpp:12 text\n"));
    EXPECT_NE(std::string(text, size_t(length)).find("error\033[0m "), std::string::npos);
    close(ends[0]);
    close(ends[1]);
}

/* ---------------------------------------------------------------- syslog */

static int s_priority;
static char s_system_line[2048];

__attribute__((format(printf, 2, 0)))
static void keep_system_line(int priority, const char *format, va_list args)
{
    s_priority = priority;
    vsnprintf(s_system_line, sizeof(s_system_line), format, args);
}

/* In the place of libc's, for the whole program. */
#pragma GCC visibility push(default)
extern "C" void syslog(int priority, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    keep_system_line(priority, format, args);
    va_end(args);
}

/* The same for a platform that is built with checks of its formats. */
extern "C" __attribute__((format(printf, 3, 4)))
void __syslog_chk(int priority, int, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    keep_system_line(priority, format, args);
    va_end(args);
}
#pragma GCC visibility pop

TEST(ZylogSyslog, a_line_arrives_with_its_priority_and_without_a_time)
{
    zyax_log_remove_stderr();
    ASSERT_EQ(zyax_log_add_syslog("zyax_test"), 0);

    LOG(ZYLOG_ERROR, "text");
    zyax_log_flush();

    EXPECT_EQ(s_priority, LOG_ERR);
    EXPECT_EQ(s_system_line,
              "error " + std::to_string(gettid()) + " unknown some_function some/file.cpp:12 text");
}
