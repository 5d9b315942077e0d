/*
 * The log with real threads, files and processes: nothing lost but what is counted, nothing mixed,
 * nobody held up.
 */
#include "zyax.h"
#include "zyax_log_helpers.h"

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

TEST(Zylog, a_line_says_when_how_bad_who_where_and_what)
{
    const temp_folder folder;
    log_to_file(folder);
    ASSERT_EQ(zyax_module_name_set(77, "my_module"), 0);

    LOG(ZYLOG_ERROR, "text %d of %s", 5, "mine");
    zyax_log_flush();

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(has_form(lines[0], "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"
                                   "\\.[0-9]{6}[-+][0-9]{2}:[0-9]{2} error " +
                                       std::to_string(gettid()) +
                                       " my_module some_function some/file\\.cpp:12 text 5 of mine"))
        << lines[0];
}

TEST(Zylog, each_level_has_its_name)
{
    const temp_folder folder;
    log_to_file(folder);
    zyax_log_set_level(7);

    LOG(ZYLOG_FATAL, "a");
    LOG(ZYLOG_ERROR, "b");
    LOG(ZYLOG_WARNING, "c");
    LOG(ZYLOG_INFO, "d");
    LOG(7, "e");
    zyax_log_flush();

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_NE(lines[0].find(" fatal "), std::string::npos);
    EXPECT_NE(lines[1].find(" error "), std::string::npos);
    EXPECT_NE(lines[2].find(" warning "), std::string::npos);
    EXPECT_NE(lines[3].find(" info "), std::string::npos);
    EXPECT_NE(lines[4].find(" debug "), std::string::npos);
}

TEST(Zylog, warnings_and_worse_go_to_standard_error_by_default)
{
    testing::internal::CaptureStderr();
    LOG(ZYLOG_WARNING, "on standard error");
    zyax_log_flush();

    EXPECT_NE(testing::internal::GetCapturedStderr().find("on standard error"), std::string::npos);
    EXPECT_EQ(zylog_level_check(77, ZYLOG_FATAL), 0);
    EXPECT_EQ(zylog_level_check(77, ZYLOG_ERROR), 0);
    EXPECT_EQ(zylog_level_check(77, ZYLOG_WARNING), 0);
    EXPECT_NE(zylog_level_check(77, ZYLOG_INFO), 0);
}

TEST(Zylog, the_default_level_holds_for_modules_without_one_of_their_own)
{
    zyax_log_set_module_level(77, ZYLOG_ERROR);
    zyax_log_set_level(ZYLOG_INFO);

    EXPECT_NE(zylog_level_check(77, ZYLOG_WARNING), 0);
    EXPECT_EQ(zylog_level_check(77, ZYLOG_ERROR), 0);
    EXPECT_EQ(zylog_level_check(78, ZYLOG_INFO), 0);
    EXPECT_EQ(zylog_level_check(0, ZYLOG_INFO), 0);
    EXPECT_EQ(zylog_level_check(65535, ZYLOG_INFO), 0);
}

TEST(Zylog, a_line_of_a_disabled_level_is_dropped)
{
    const temp_folder folder;
    log_to_file(folder);

    LOG(ZYLOG_INFO, "disabled");
    LOG(ZYLOG_WARNING, "enabled");
    zyax_log_flush();

    EXPECT_EQ(folder.read_lines("run.log").size(), 1u);
    EXPECT_EQ(zyax_log_dropped(), 0u);
}

TEST(Zylog, fatal_lines_cannot_be_switched_off)
{
    zyax_log_set_level(0);
    zyax_log_set_module_level(77, 0);

    EXPECT_EQ(zylog_level_check(77, ZYLOG_FATAL), 0);
    EXPECT_EQ(zylog_level_check(78, ZYLOG_FATAL), 0);
    EXPECT_NE(zylog_level_check(77, ZYLOG_ERROR), 0);
    EXPECT_NE(zylog_level_check(78, ZYLOG_ERROR), 0);
}

TEST(Zylog, modules_with_the_same_low_16_bits_share_a_level)
{
    zyax_log_set_module_level(65536 + 77, 1000);

    EXPECT_EQ(zylog_level_check(77, 7), 0);
    EXPECT_EQ(zylog_level_check(0xFFFF0000u + 77, 7), 0);
    EXPECT_NE(zylog_level_check(76, 7), 0);
}

TEST(Zylog, a_module_without_a_name_is_unknown_and_the_last_name_holds)
{
    EXPECT_STREQ(zyax_pid_get_name(4000000000), "unknown");
    EXPECT_STREQ(zyax_pid_get_name(ZYAX_MODULE_ID), "zyax");

    EXPECT_EQ(zyax_module_name_set(4000000000, "first"), 0);
    const char *first = zyax_pid_get_name(4000000000);
    EXPECT_EQ(zyax_module_name_set(4000000000, "second"), 0);

    EXPECT_STREQ(first, "first");
    EXPECT_STREQ(zyax_pid_get_name(4000000000), "second");
}

TEST(Zylog, a_module_name_has_1_to_31_characters)
{
    EXPECT_EQ(zyax_module_name_set(5, "1234567890123456789012345678901"), 0);
    EXPECT_EQ(zyax_module_name_set(6, "12345678901234567890123456789012"), -1);
    EXPECT_EQ(zyax_module_name_set(6, ""), -1);
    EXPECT_EQ(zyax_module_name_set(6, nullptr), -1);

    EXPECT_STREQ(zyax_pid_get_name(5), "1234567890123456789012345678901");
    EXPECT_STREQ(zyax_pid_get_name(6), "unknown");
}

TEST(Zylog, names_run_out_and_the_same_name_again_costs_none)
{
    int given = 0;
    while (zyax_module_name_set(100 + uint32_t(given), "some_name") == 0)
        ++given;

    EXPECT_EQ(given, 511); /* the 512th is the platform's own */
    EXPECT_EQ(zyax_module_name_set(100, "some_name"), 0);
    EXPECT_EQ(zyax_module_name_set(100, "another"), -1);
    EXPECT_STREQ(zyax_pid_get_name(610), "some_name");
}

TEST(Zylog, names_are_read_while_others_are_given)
{
    std::thread giver([] {
        for (uint32_t i = 0; i < 400; ++i)
            zyax_module_name_set(i + 1000, "given");
    });
    uint32_t odd_names = 0;
    while (strcmp(zyax_pid_get_name(1399), "given") != 0) {
        const std::string name = zyax_pid_get_name(1200);
        odd_names += name != "given" && name != "unknown";
    }
    giver.join();

    EXPECT_EQ(odd_names, 0u);
}

TEST(Zylog, lines_of_eight_threads_come_out_whole_and_in_each_threads_order)
{
    const temp_folder folder;
    log_to_file(folder);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < 200; ++i)
                LOG(ZYLOG_ERROR, "thread %d line %d %s", thread, i, std::string(200, 'x').c_str());
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    zyax_log_flush();

    std::vector<int> next(8);
    int misplaced = 0;
    for (const std::string &line : folder.read_lines("run.log")) {
        int thread = 0;
        int number = 0;
        const bool is_whole =
            has_form(line, "[-+T:.0-9]+ error [0-9]+ unknown some_function some/file\\.cpp:12 "
                           "thread [0-7] line [0-9]+ x{200}") &&
            sscanf(strstr(line.c_str(), " thread "), " thread %d line %d", &thread, &number) == 2;
        misplaced += !is_whole || number != next[size_t(thread)]++;
    }
    EXPECT_EQ(zyax_log_dropped(), 0u);
    EXPECT_EQ(misplaced, 0);
    EXPECT_EQ(next, std::vector<int>(8, 200));
}

TEST(Zylog, a_text_that_is_too_long_is_cut_and_says_so)
{
    const temp_folder folder;
    log_to_file(folder);

    LOG(ZYLOG_ERROR, "%s", std::string(100000, 'y').c_str());
    LOG(ZYLOG_ERROR, "short");
    zyax_log_flush();

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(ends_with(lines[0], "yyyyyyyyyy [cut]"));
    EXPECT_GT(lines[0].size(), 900u);
    EXPECT_TRUE(ends_with(lines[1], " short"));
}

TEST(Zylog, long_names_leave_room_for_the_text)
{
    const temp_folder folder;
    log_to_file(folder);
    const std::string name(5000, 'n');

    zylog(77, ZYLOG_ERROR, name.c_str(), 1, name.c_str(), 0, "the text");
    zyax_log_flush();

    EXPECT_TRUE(ends_with(folder.read("run.log"), ":1 the text\n"));
}

TEST(Zylog, line_breaks_in_a_text_become_blanks)
{
    const temp_folder folder;
    log_to_file(folder);

    LOG(ZYLOG_ERROR, "one\ntwo\r\nthree");
    zyax_log_flush();

    EXPECT_TRUE(ends_with(folder.read("run.log"), " one two  three\n"));
}

TEST(Zylog, null_names_and_a_null_format_are_survived)
{
    const temp_folder folder;
    log_to_file(folder);
    void (*const log)(uint32_t, uint32_t, const char *, uint32_t, const char *, uint32_t,
                      const char *, ...) = zylog; /* the compiler would warn */

    zylog(77, ZYLOG_ERROR, nullptr, 3, nullptr, 0, "the text");
    log(77, ZYLOG_ERROR, "file", 3, "func", 0, nullptr);
    zyax_log_flush();

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(ends_with(lines[0], " unknown (null) (null):3 the text"));
    EXPECT_TRUE(ends_with(lines[1], " A log line of module 77 without a format."));
}

TEST(Zylog, the_strings_of_a_line_may_be_gone_when_it_is_written)
{
    const temp_folder folder;
    log_to_file(folder);
    std::string name = "short_lived";

    zylog(77, ZYLOG_ERROR, name.c_str(), 1, name.c_str(), 0, "%s", name.c_str());
    name.assign("overwritten");
    zyax_log_flush();

    EXPECT_TRUE(ends_with(folder.read("run.log"), " short_lived short_lived:1 short_lived\n"));
}

TEST(Zylog, errno_survives_a_line)
{
    const temp_folder folder;
    log_to_file(folder);

    errno = ENOTTY;
    LOG(ZYLOG_ERROR, "%m");
    EXPECT_EQ(errno, ENOTTY);
    LOG(ZYLOG_FATAL, "fatal");
    EXPECT_EQ(errno, ENOTTY);

    zyax_log_flush();
    EXPECT_NE(folder.read("run.log").find(strerror(ENOTTY)), std::string::npos);
}

TEST(Zylog, a_fatal_line_and_all_before_it_are_written_when_the_call_returns)
{
    const temp_folder folder;
    log_to_file(folder);

    for (int i = 0; i < 100; ++i)
        LOG(ZYLOG_ERROR, "before %d", i);
    LOG(ZYLOG_FATAL, "the end");

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 101u);
    EXPECT_TRUE(ends_with(lines[99], " before 99"));
    EXPECT_TRUE(ends_with(lines[100], " the end"));
}

TEST(Zylog, a_full_file_is_renamed_and_the_oldest_is_removed)
{
    const temp_folder folder;
    ASSERT_EQ(zyax_log_add_file(folder.path("logs/run.log").c_str(), 4096, 2), 0);
    zyax_log_remove_stderr();

    for (int i = 0; i < 500; ++i)
        LOG(ZYLOG_ERROR, "line %d", i);
    zyax_log_flush();

    EXPECT_TRUE(ends_with(folder.read("logs/run.log"), " line 499\n"));
    EXPECT_LE(folder.read("logs/run.log").size(), 4096u);
    EXPECT_GT(folder.read("logs/run.1.log").size(), 3900u);
    EXPECT_LE(folder.read("logs/run.1.log").size(), 4096u);
    EXPECT_GT(folder.read("logs/run.2.log").size(), 3900u);
    EXPECT_FALSE(std::filesystem::exists(folder.path("logs/run.3.log")));
}

TEST(Zylog, an_existing_file_is_continued)
{
    const temp_folder folder;
    folder.write("run.log", "former line\n");
    log_to_file(folder);

    LOG(ZYLOG_ERROR, "new line");
    zyax_log_flush();

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "former line");
}

TEST(Zylog, every_sink_gets_every_line)
{
    const temp_folder folder;
    testing::internal::CaptureStderr();
    ASSERT_EQ(zyax_log_add_file(folder.path("one.log").c_str(), MIB, 1), 0);
    ASSERT_EQ(zyax_log_add_file(folder.path("two.log").c_str(), MIB, 1), 0);

    LOG(ZYLOG_ERROR, "for all");
    zyax_log_flush();

    const std::string on_stderr = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(ends_with(on_stderr, " for all\n"));
    EXPECT_EQ(folder.read("one.log"), on_stderr);
    EXPECT_EQ(folder.read("two.log"), on_stderr);
}

TEST(Zylog, bad_sinks_are_refused)
{
    const temp_folder folder;
    folder.write("a_file", "");

    EXPECT_EQ(zyax_log_add_file(nullptr, MIB, 1), -1);
    EXPECT_EQ(zyax_log_add_file("", MIB, 1), -1);
    EXPECT_EQ(zyax_log_add_file(folder.path("run.log").c_str(), 0, 1), -1);
    EXPECT_EQ(zyax_log_add_file(folder.path("a_file/run.log").c_str(), MIB, 1), -1);
    EXPECT_EQ(zyax_log_add_syslog(nullptr), -1);
    EXPECT_EQ(zyax_log_add_syslog(""), -1);
}

TEST(Zylog, there_is_one_system_log)
{
    EXPECT_EQ(zyax_log_add_syslog("zyax_test"), 0);
    EXPECT_EQ(zyax_log_add_syslog("zyax_test"), -1);
}

namespace
{
/* A sink that nobody reads until the test does. */
class stuck_sink
{
public:
    explicit stuck_sink(const temp_folder &folder)
    {
        const std::string path = folder.path("fifo");
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        m_fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        EXPECT_EQ(zyax_log_add_file(path.c_str(), UINT64_MAX, 1), 0);
    }

    ~stuck_sink()
    {
        close(m_fd);
    }

    stuck_sink(const stuck_sink &) = delete;
    stuck_sink &operator=(const stuck_sink &) = delete;

    /* Reads until `count` lines with `part` in them came out or were reported as dropped. */
    void read_lines(const std::string &part, uint64_t count)
    {
        while (m_lines + m_reported < count) {
            const std::string line = read_line();
            m_lines += line.find(part) != std::string::npos;
            const size_t report = line.find(" log lines were dropped.");
            if (report != std::string::npos)
                m_reported += std::stoull(line.substr(line.rfind(' ', report - 1)));
        }
    }

    uint64_t lines() const
    {
        return m_lines;
    }

    uint64_t reported() const
    {
        return m_reported;
    }

private:
    std::string read_line()
    {
        size_t end;
        while ((end = m_text.find('\n')) == std::string::npos) {
            pollfd ready = {m_fd, POLLIN, 0};
            poll(&ready, 1, -1);
            char piece[65536];
            const ssize_t got = ::read(m_fd, piece, sizeof(piece));
            m_text.append(piece, got > 0 ? size_t(got) : 0);
        }
        const std::string line = m_text.substr(0, end);
        m_text.erase(0, end + 1);
        return line;
    }

    int m_fd;
    uint64_t m_lines = 0;
    uint64_t m_reported = 0;
    std::string m_text; /* read, but no whole line yet */
};
} // namespace

static uint64_t count_of(const std::string &text, const std::string &part)
{
    uint64_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(Zylog, a_stuck_sink_holds_up_nobody_and_what_is_dropped_is_counted_and_reported)
{
    const temp_folder folder;
    stuck_sink sink(folder);
    zyax_log_remove_stderr();

    for (int i = 0; i < 10000; ++i)
        LOG(ZYLOG_ERROR, "numbered %d %s", i, std::string(700, 'z').c_str());
    const uint64_t dropped = zyax_log_dropped();
    sink.read_lines(" numbered ", 10000);

    EXPECT_GT(dropped, 0u);
    EXPECT_EQ(sink.lines() + dropped, 10000u);
    EXPECT_EQ(sink.reported(), dropped);
    EXPECT_EQ(zyax_log_dropped(), dropped);
}

TEST(Zylog, a_fatal_line_gets_past_a_stuck_sink_to_standard_error)
{
    const temp_folder folder;
    stuck_sink sink(folder);
    zyax_log_remove_stderr();
    for (int i = 0; i < 4000; ++i)
        LOG(ZYLOG_ERROR, "filler %s", std::string(700, 'z').c_str());
    /* Not GoogleTest's capture, which flushes every stream of the process, the stuck one too. */
    const int kept = dup(STDERR_FILENO);
    const int file = open(folder.path("stderr").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);

    LOG(ZYLOG_FATAL, "the end is near");

    dup2(kept, STDERR_FILENO);
    EXPECT_TRUE(ends_with(folder.read("stderr"), "some/file.cpp:12 the end is near\n"));
    sink.read_lines(" filler ", 4000);
    close(kept);
    close(file);
}

TEST(Zylog, lines_that_a_sink_refuses_are_counted_and_reported_by_the_others)
{
    testing::internal::CaptureStderr();
    ASSERT_EQ(zyax_log_add_file("/dev/full", UINT64_MAX, 1), 0);

    LOG(ZYLOG_ERROR, "one");
    zyax_log_flush();
    LOG(ZYLOG_ERROR, "two");
    zyax_log_flush();

    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(" one\n"), std::string::npos);
    EXPECT_NE(log.find(" two\n"), std::string::npos);
    EXPECT_EQ(count_of(log, " 1 log lines were dropped.\n"), 2u);
    EXPECT_EQ(zyax_log_dropped(), 2u);
}

static void log_and_exit(const temp_folder &folder)
{
    log_to_file(folder);
    for (int i = 0; i < 1000; ++i)
        LOG(ZYLOG_ERROR, "line %d", i);
    exit(0);
}

TEST(Zylog, queued_lines_come_out_at_a_normal_exit)
{
    const temp_folder folder;

    EXPECT_EXIT(log_and_exit(folder), testing::ExitedWithCode(0), "");

    EXPECT_EQ(folder.read_lines("run.log").size(), 1000u);
}

static void exit_with_a_stuck_sink(const temp_folder &folder)
{
    const stuck_sink sink(folder);
    zyax_log_remove_stderr();
    for (int i = 0; i < 1000; ++i)
        LOG(ZYLOG_ERROR, "filler %s", std::string(700, 'z').c_str());
    exit(3);
}

TEST(Zylog, a_process_with_a_stuck_sink_still_ends)
{
    const temp_folder folder;

    EXPECT_EXIT(exit_with_a_stuck_sink(folder), testing::ExitedWithCode(3), "");
}

namespace
{
struct logs_at_the_end {
    ~logs_at_the_end() { LOG(ZYLOG_ERROR, "from a destructor"); }
};
} // namespace

static void exit_with_late_line(const temp_folder &folder)
{
    static logs_at_the_end late;
    log_to_file(folder);
    LOG(ZYLOG_ERROR, "in time");
    exit(0);
}

TEST(Zylog, a_static_objects_destructor_may_log)
{
    const temp_folder folder;

    EXPECT_EXIT(exit_with_late_line(folder), testing::ExitedWithCode(0), "");

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(ends_with(lines[1], " from a destructor"));
}

/* Forks; the child runs `body` and ends without ceremony. Answers its exit status. */
static int in_child(const std::function<void()> &body)
{
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(Zylog, a_forked_childs_line_is_written_when_its_call_returns)
{
    const temp_folder folder;
    log_to_file(folder);
    LOG(ZYLOG_ERROR, "parent before");
    zyax_log_flush();

    EXPECT_EQ(in_child([] { LOG(ZYLOG_ERROR, "child"); }), 0);
    LOG(ZYLOG_ERROR, "parent after");
    zyax_log_flush();

    const std::vector<std::string> lines = folder.read_lines("run.log");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(ends_with(lines[0], " parent before"));
    EXPECT_TRUE(ends_with(lines[1], " child"));
    EXPECT_TRUE(ends_with(lines[2], " parent after"));
}

TEST(Zylog, forks_in_the_midst_of_logging_neither_hang_nor_repeat_lines)
{
    const temp_folder folder;
    log_to_file(folder);
    LOG(ZYLOG_ERROR, "first, so that there is a writer");
    std::atomic<int> logged = 0;
    std::atomic<bool> stop = false;
    std::thread logger([&] {
        while (!stop) {
            LOG(ZYLOG_ERROR, "parent %d", logged++);
            if (logged % 1000 == 0)
                zyax_log_flush();
        }
    });

    int failed = 0;
    for (int i = 0; i < 20; ++i)
        failed += in_child([] { LOG(ZYLOG_ERROR, "child"); }) != 0;
    stop = true;
    logger.join();
    zyax_log_flush();

    const std::string all = folder.read("run.log");
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(count_of(all, " child\n"), 20u);
    EXPECT_EQ(count_of(all, " parent ") + zyax_log_dropped(), uint64_t(logged));
}

#ifndef __SANITIZE_THREAD__ /* which ends a forked process that starts threads */
static void child_with_a_sink_of_its_own(const temp_folder &folder)
{
    zyax_log_add_file(folder.path("child.log").c_str(), MIB, 1);
    for (int i = 0; i < 100; ++i)
        LOG(ZYLOG_ERROR, "child %d", i);
    zyax_log_flush();
}

TEST(Zylog, a_forked_child_that_adds_a_sink_has_a_writer_again)
{
    const temp_folder folder;
    log_to_file(folder);
    LOG(ZYLOG_ERROR, "parent");

    EXPECT_EQ(in_child([&] { child_with_a_sink_of_its_own(folder); }), 0);

    EXPECT_EQ(folder.read_lines("child.log").size(), 100u);
}
#endif

TEST(Zylog, sinks_may_change_while_threads_log)
{
    const temp_folder folder;
    zyax_log_remove_stderr();
    std::atomic<bool> stop = false;
    std::thread logger([&] {
        while (!stop)
            LOG(ZYLOG_ERROR, "line");
    });

    int failed = 0;
    for (int i = 0; i < 30; ++i)
        failed += zyax_log_add_file(folder.path(std::to_string(i)).c_str(), 4096, 0) != 0;
    zyax_log_set_level(ZYLOG_INFO);
    stop = true;
    logger.join();

    EXPECT_EQ(failed, 0);
}
