/*
 * The log macros and the limiter: what reaches the log, and when.
 *
 * Every test has call sites of its own: a limiter's state is a static of the place that logs. The
 * clock is the fake's and starts at 1,000 jiffies.
 */
#include "common/cmm_log.h"

#include <algorithm>
#include <csignal>
#include <thread>

#include "expect_log.h"

namespace
{

void complain()
{
    CMM_LOG_LIMITED(ZYLOG_ERROR, "trouble %d", 7);
}

void complain_times(int times)
{
    for (int i = 0; i < times; ++i)
        complain();
}

void complain_at(uint64_t jiffies)
{
    fake_set_jiffies(jiffies);
    complain();
}

uint32_t warn_and_tell_line()
{
    CMM_LOG_LIMITED(ZYLOG_WARNING, "a warning"); return __LINE__;
}

uint64_t reports()
{
    const std::vector<fake_line> lines = fake_log();
    return uint64_t(std::count_if(lines.begin(), lines.end(),
                                  [](const fake_line &line) { return line.flag != 0; }));
}

} // namespace

TEST(Log, a_line_carries_module_level_place_and_prefix)
{
    CMM_LOG(ZYLOG_INFO, "all %s", "well"); const uint32_t line = __LINE__;

    const fake_line written = fake_last_line();
    EXPECT_EQ(written.module_id, 386u);
    EXPECT_EQ(written.level, 6u);
    EXPECT_EQ(written.flag, 0u);
    EXPECT_EQ(written.line, line);
    EXPECT_EQ(written.func, "TestBody");
    EXPECT_EQ(written.text, "[UMM_CMM] all well");
}

TEST(Log, file_names_are_relative_to_the_project)
{
    CMM_LOG(ZYLOG_INFO, "here");

    EXPECT_EQ(fake_last_line().file, "tests/unit/common/cmm_log_test.cpp");
}

TEST(Log, the_level_is_asked_for_the_librarys_module)
{
    CMM_LOG(ZYLOG_WARNING, "mild");

    ASSERT_EQ(fake_count(OP_zylog_level_check), 1u);
    const fake_call asked = fake_last_call(OP_zylog_level_check);
    EXPECT_EQ(asked.args.at(0).number, 386u);
    EXPECT_EQ(asked.args.at(1).number, 4u);
}

TEST(Log, a_disabled_level_writes_nothing)
{
    fake_set_log_level(ZYLOG_ERROR);

    CMM_LOG(ZYLOG_WARNING, "unheard");
    CMM_LOG_RAW(ZYLOG_WARNING, "unheard");
    CMM_LOG_LIMITED(ZYLOG_WARNING, "unheard");

    EXPECT_NO_LINE();
    EXPECT_EQ(fake_count(OP_zylog), 0u);
}

TEST(Log, a_disabled_level_costs_no_clock_reading)
{
    fake_set_log_level(ZYLOG_FATAL);

    complain();

    EXPECT_EQ(fake_count(OP_zylog_level_check), 1u);
    EXPECT_EQ(fake_count(OP_zyax_get_jiffies), 0u);
}

TEST(Log, arguments_of_a_disabled_line_are_not_evaluated)
{
    fake_set_log_level(ZYLOG_FATAL);
    int evaluated = 0;

    CMM_LOG(ZYLOG_ERROR, "%d", ++evaluated);

    EXPECT_EQ(evaluated, 0);
}

TEST(Log, a_line_without_limiter_reads_no_clock)
{
    CMM_LOG(ZYLOG_ERROR, "plain");

    EXPECT_EQ(fake_count(OP_zyax_get_jiffies), 0u);
}

TEST(Log, a_line_without_limiter_is_written_every_time)
{
    EXPECT_NOT_LIMITED(CMM_LOG(ZYLOG_ERROR, "again"), "[UMM_CMM] again");
}

TEST(Log, a_raw_line_has_no_prefix)
{
    CMM_LOG_RAW(ZYLOG_FATAL, "BUG %d", 3);

    EXPECT_ONLY_LINE(ZYLOG_FATAL, "TestBody", "BUG 3");
}

TEST(Log, a_helper_logs_under_its_callers_name)
{
    CMM_LOG_AS("the_operation", ZYLOG_ERROR, "text %u", 1u);
    EXPECT_LAST_LINE(ZYLOG_ERROR, "the_operation", "[UMM_CMM] text 1");

    CMM_LOG_RAW_AS("the_raw_one", ZYLOG_FATAL, "raw");
    EXPECT_LAST_LINE(ZYLOG_FATAL, "the_raw_one", "raw");

    CMM_LOG_LIMITED_AS("the_limited_one", ZYLOG_WARNING, "limited");
    EXPECT_LAST_LINE(ZYLOG_WARNING, "the_limited_one", "[UMM_CMM] limited");
}

TEST(Log, a_null_text_is_written_in_brackets)
{
    EXPECT_STREQ(cmm_text(nullptr), "(null)");
    EXPECT_STREQ(cmm_text("text"), "text");
    EXPECT_STREQ(cmm_text(""), "");
}

TEST(Log, dying_is_an_abort)
{
    EXPECT_EXIT(cmm_die(), testing::KilledBySignal(SIGABRT), "");
}

TEST(LogLimiter, a_line_reads_the_clock_once)
{
    complain();
    EXPECT_EQ(fake_count(OP_zyax_get_jiffies), 1u);

    complain_times(4);
    EXPECT_EQ(fake_count(OP_zyax_get_jiffies), 5u);
}

TEST(LogLimiter, three_lines_pass_and_the_fourth_is_held_back)
{
    complain_times(3);
    EXPECT_EQ(fake_log_count("[UMM_CMM] trouble 7"), 3u);

    complain();
    EXPECT_EQ(fake_log().size(), 3u);
}

TEST(LogLimiter, a_limited_line_looks_like_any_other)
{
    complain();

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "complain", "[UMM_CMM] trouble 7");
}

TEST(LogLimiter, each_call_site_has_its_own)
{
    complain_times(5);
    fake_forget_log();

    warn_and_tell_line();

    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{"[UMM_CMM] a warning"}));
}

TEST(LogLimiter, lines_of_a_disabled_level_are_not_counted)
{
    fake_set_log_level(ZYLOG_FATAL);
    complain_times(5);
    fake_set_log_level(ZYLOG_INFO);

    complain_times(3);
    EXPECT_EQ(fake_log().size(), 3u);

    complain_at(9001000);
    EXPECT_EQ(reports(), 0u);
}

TEST(LogLimiter, a_jiffy_before_the_window_ends_a_line_is_held_back)
{
    complain_times(3);
    fake_forget_log();

    complain_at(1000 + 899999);

    EXPECT_NO_LINE();
}

TEST(LogLimiter, when_the_window_has_ended_a_line_passes)
{
    complain_times(3);
    fake_forget_log();

    complain_at(1000 + 900000);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "complain", "[UMM_CMM] trouble 7");
}

TEST(LogLimiter, the_window_is_counted_from_the_last_written_line)
{
    complain_at(1000);
    complain_at(2000);
    complain_at(3000);
    fake_forget_log();

    complain_at(902999);
    EXPECT_NO_LINE();
    complain_at(903000);
    EXPECT_EQ(fake_log().size(), 1u);
}

TEST(LogLimiter, a_line_held_back_does_not_prolong_the_window)
{
    complain_times(3);
    complain_at(900000);
    fake_forget_log();

    complain_at(901000);

    EXPECT_EQ(fake_log().size(), 1u);
}

TEST(LogLimiter, a_slow_stream_of_lines_stays_in_one_window)
{
    complain_at(1000);
    complain_at(900999);
    complain_at(1800998);
    EXPECT_EQ(fake_log().size(), 3u);

    complain_at(2700997);
    EXPECT_EQ(fake_log().size(), 3u);
}

TEST(LogLimiter, a_new_window_has_a_burst_of_three_again)
{
    complain_times(5);
    fake_forget_log();

    fake_set_jiffies(901000);
    complain_times(5);

    EXPECT_EQ(fake_log_count("[UMM_CMM] trouble 7"), 3u);
    EXPECT_EQ(fake_log().size(), 3u);
}

TEST(LogLimiter, a_single_line_in_each_window_is_always_written)
{
    complain_at(1000);
    complain_at(901000);
    complain_at(1801000);
    complain_at(2701000);
    complain_at(3601000);

    EXPECT_EQ(fake_log().size(), 5u);
}

/* A thread that read the clock just before the last line was noted sees a negative age. */
TEST(LogLimiter, the_age_of_the_last_line_is_signed)
{
    fake_set_jiffies(5000);
    complain_times(3);
    fake_forget_log();

    complain_at(4999);

    EXPECT_NO_LINE();
}

TEST(LogLimiter, the_age_is_right_across_the_wrap_of_the_clock)
{
    fake_set_jiffies(0xFFFFFFFFFFFFFFF0);
    complain_times(3);
    fake_forget_log();

    complain_at(899983);
    EXPECT_NO_LINE();
    complain_at(899984);
    EXPECT_EQ(fake_log_count("[UMM_CMM] trouble 7"), 1u);
}

TEST(LogLimiter, a_report_comes_before_the_line_that_ends_the_window)
{
    complain_times(5);
    fake_forget_log();

    complain_at(9000000);

    const std::vector<fake_line> lines = fake_log();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].flag, 256u);
    EXPECT_EQ(lines[1].flag, 0u);
    EXPECT_EQ(lines[1].text, "[UMM_CMM] trouble 7");
}

TEST(LogLimiter, a_report_names_count_function_and_line_at_the_lines_own_level)
{
    uint32_t line = 0;
    for (int i = 0; i < 7; ++i)
        line = warn_and_tell_line();
    fake_forget_log();

    fake_set_jiffies(9000000);
    warn_and_tell_line();

    const fake_line report = fake_log().front();
    EXPECT_EQ(report.module_id, 386u);
    EXPECT_EQ(report.level, 4u);
    EXPECT_EQ(report.flag, 256u);
    EXPECT_EQ(report.file, "tests/unit/common/cmm_log_test.cpp");
    EXPECT_EQ(report.line, line);
    EXPECT_EQ(report.func, "warn_and_tell_line");
    EXPECT_EQ(report.text, "print: 4 messages suppressed.warn_and_tell_line,line=" +
                               std::to_string(line) + ".");
}

TEST(LogLimiter, a_report_of_a_helper_names_the_operation)
{
    const auto log_as = [] { CMM_LOG_LIMITED_AS("the_operation", ZYLOG_ERROR, "helped"); };
    for (int i = 0; i < 4; ++i)
        log_as();
    fake_forget_log();

    fake_set_jiffies(9000000);
    log_as();

    const fake_line report = fake_log().front();
    EXPECT_EQ(report.func, "the_operation");
    EXPECT_EQ(report.text.find("print: 1 messages suppressed.the_operation,line="), 0u);
}

TEST(LogLimiter, a_jiffy_before_the_interval_ends_nothing_is_reported)
{
    complain_times(5);
    fake_forget_log();

    complain_at(8999999);

    EXPECT_EQ(reports(), 0u);
    EXPECT_EQ(fake_log().size(), 1u);
}

TEST(LogLimiter, nothing_is_reported_within_a_window)
{
    complain_at(8500000);
    complain_at(8500000);
    complain_at(8500000);
    complain_at(8500000);

    complain_at(9300000);

    EXPECT_EQ(reports(), 0u);
}

TEST(LogLimiter, nothing_is_reported_when_nothing_was_held_back)
{
    complain_times(3);

    complain_at(9001000);

    EXPECT_EQ(reports(), 0u);
    EXPECT_EQ(fake_log().size(), 4u);
}

TEST(LogLimiter, lines_held_back_add_up_until_they_are_reported)
{
    complain_times(5);
    fake_set_jiffies(901000);
    complain_times(4);
    fake_forget_log();

    complain_at(9000000);

    EXPECT_EQ(fake_log().front().text.find("print: 3 messages suppressed.complain,line="), 0u);
}

TEST(LogLimiter, the_next_report_waits_for_the_interval_again)
{
    complain_times(5);
    fake_set_jiffies(9000000);
    complain_times(5);
    EXPECT_EQ(reports(), 1u);

    complain_at(17999999);
    EXPECT_EQ(reports(), 1u);
    complain_at(17999999 + 900000);
    EXPECT_EQ(reports(), 2u);
}

TEST(LogLimiter, a_report_starts_the_count_at_nothing)
{
    complain_times(5);
    fake_set_jiffies(9000000);
    complain_times(4);
    fake_forget_log();

    complain_at(18000000);

    EXPECT_EQ(fake_log().front().text.find("print: 1 messages suppressed.complain,line="), 0u);
    EXPECT_EQ(fake_log().size(), 2u);
}

TEST(LogLimiter, no_line_of_racing_threads_is_lost)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] { complain_times(500); });
    for (std::thread &thread : threads)
        thread.join();
    const uint64_t written = fake_log_count("[UMM_CMM] trouble 7");
    fake_forget_log();

    complain_at(9000000);

    const std::string expected = "print: " + std::to_string(4000 - written) + " messages";
    EXPECT_GE(written, 3u);
    EXPECT_EQ(fake_log().front().text.find(expected), 0u);
}
