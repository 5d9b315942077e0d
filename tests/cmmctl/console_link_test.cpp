/*
 * The connection against a console with scripted answers, and against none.
 */
#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include "console_link.h"
#include "fake_console.h"
#include "scratch.h"

namespace {

/* Long enough for a slow machine; no test waits for it. */
constexpr double PATIENCE = 60;

/* What link_error says, without the path of the socket; empty when nothing was thrown. */
template <typename Action>
std::string error_of(const console_link &link, Action action)
{
    try {
        action();
    } catch (const link_error &error) {
        const std::string text = error.what(), start = link.path() + ": ";
        EXPECT_EQ(text.substr(0, start.size()), start);
        return text.substr(start.size());
    }
    return "";
}

class ConsoleLink : public ::testing::Test
{
protected:
    std::string path() const { return scratch_.file("console"); }

    scratch_folder scratch_;
};

} // namespace

TEST_F(ConsoleLink, asks_and_is_answered)
{
    fake_console console(path(), [](const std::string &line) { return says("<" + line + ">"); });
    console_link link(path());

    const console_answer answer = link.ask("umm show pools", PATIENCE);

    EXPECT_TRUE(answer.ok);
    EXPECT_EQ(answer.text, "<umm show pools>");
}

TEST_F(ConsoleLink, an_error_leaves_the_connection_open)
{
    fake_console console(path(), [](const std::string &) { return says_error("unknown\n"); });
    console_link link(path());

    const console_answer answer = link.ask("nonsense", PATIENCE);

    EXPECT_FALSE(answer.ok);
    EXPECT_EQ(answer.text, "unknown\n");
    EXPECT_TRUE(link.is_open());
}

TEST_F(ConsoleLink, many_commands_go_over_one_connection)
{
    fake_console console(path(), [](const std::string &line) { return says(line); });
    console_link link(path());

    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(link.ask(std::to_string(i), PATIENCE).text, std::to_string(i));
    EXPECT_EQ(console.answered(), 1000u);
}

TEST_F(ConsoleLink, knows_the_process_at_the_other_end)
{
    fake_console console(path(), [](const std::string &line) { return says(line); });
    console_link link(path());

    EXPECT_EQ(link.peer(), 0);
    link.open();
    EXPECT_EQ(link.peer(), getpid());
    link.close();
    EXPECT_EQ(link.peer(), 0);
}

TEST_F(ConsoleLink, a_huge_answer_arrives_whole)
{
    std::string huge(16777216, '.');
    for (size_t i = 0; i < huge.size(); i += 4096)
        huge[i] = char('a' + i / 4096 % 26);
    fake_console console(path(), [&](const std::string &) { return says(huge); });
    console_link link(path());

    EXPECT_TRUE(link.ask("all", PATIENCE).text == huge);
}

TEST_F(ConsoleLink, nobody_at_the_path_is_told)
{
    console_link link(path());

    EXPECT_EQ(error_of(link, [&] { link.open(); }), "No such file or directory");
    EXPECT_FALSE(link.is_open());
}

TEST_F(ConsoleLink, a_socket_that_nobody_serves_is_told)
{
    {
        fake_console console(path(), [](const std::string &line) { return says(line); });
        ASSERT_EQ(::rename(path().c_str(), scratch_.file("left").c_str()), 0);
    }
    console_link link(scratch_.file("left"));

    EXPECT_EQ(error_of(link, [&] { link.open(); }), "Connection refused");
}

TEST_F(ConsoleLink, a_path_that_fits_no_socket_is_told)
{
    console_link none(""), longest(std::string(107, 'x')), longer(std::string(108, 'x'));

    EXPECT_EQ(error_of(none, [&] { none.open(); }), "no path of a socket");
    EXPECT_EQ(error_of(longest, [&] { longest.open(); }), "No such file or directory");
    EXPECT_EQ(error_of(longer, [&] { longer.open(); }), "no path of a socket");
}

TEST_F(ConsoleLink, a_process_that_hangs_up_instead_of_answering_is_told)
{
    fake_console console(path(), [](const std::string &) { return scripted_answer{"", true}; });
    console_link link(path());

    EXPECT_EQ(error_of(link, [&] { link.ask("x", PATIENCE); }),
              "the process closed the connection");
    EXPECT_FALSE(link.is_open());
}

TEST_F(ConsoleLink, an_answer_cut_in_its_text_is_told)
{
    fake_console console(path(),
                         [](const std::string &) { return scripted_answer{"ok 10\nhalf", true}; });
    console_link link(path());

    EXPECT_EQ(error_of(link, [&] { link.ask("x", PATIENCE); }),
              "the process went away within an answer");
}

TEST_F(ConsoleLink, an_answer_cut_in_its_head_is_told)
{
    fake_console console(path(),
                         [](const std::string &) { return scripted_answer{"ok 1", true}; });
    console_link link(path());

    EXPECT_EQ(error_of(link, [&] { link.ask("x", PATIENCE); }),
              "the process went away within an answer");
}

TEST_F(ConsoleLink, a_stranger_at_the_socket_is_told)
{
    fake_console console(path(), [](const std::string &) {
        return scripted_answer{"220 mail ready\r\n", false};
    });
    console_link link(path());

    EXPECT_EQ(error_of(link, [&] { link.ask("x", PATIENCE); }),
              "no console of ours: the answer begins with \"220 mail ready?\"");
    EXPECT_FALSE(link.is_open());
}

TEST_F(ConsoleLink, silence_ends_after_the_time_given)
{
    fake_console console(path(), [](const std::string &) { return scripted_answer{}; });
    console_link link(path());

    EXPECT_EQ(error_of(link, [&] { link.ask("x", 0.01); }),
              "no answer within the time set by --timeout");
    EXPECT_FALSE(link.is_open());
}

TEST_F(ConsoleLink, a_process_that_comes_back_is_asked_again)
{
    console_link link(path());
    {
        fake_console first(path(), [](const std::string &) { return says("first"); });
        EXPECT_EQ(link.ask("x", PATIENCE).text, "first");
    }
    EXPECT_NE(error_of(link, [&] { link.ask("x", PATIENCE); }), "");
    fake_console second(path(), [](const std::string &) { return says("second"); });

    EXPECT_EQ(link.ask("x", PATIENCE).text, "second");
}

TEST_F(ConsoleLink, a_late_answer_to_a_forgotten_question_is_not_taken_for_the_next_one)
{
    bool is_first = true;
    fake_console console(path(), [&](const std::string &line) {
        return std::exchange(is_first, false) ? scripted_answer{} : says(line);
    });
    console_link link(path());

    EXPECT_NE(error_of(link, [&] { link.ask("one", 0.01); }), "");
    EXPECT_EQ(link.ask("two", PATIENCE).text, "two");
}

TEST_F(ConsoleLink, progress_does_not_wait)
{
    fake_console console(path(), [](const std::string &) { return scripted_answer{}; });
    console_link link(path());

    link.open();
    link.send("x");

    EXPECT_FALSE(link.progress().has_value());
    EXPECT_TRUE(link.is_open());
}

TEST_F(ConsoleLink, a_process_that_goes_away_between_questions_is_noticed)
{
    console_link link(path());
    {
        fake_console console(path(), [](const std::string &line) { return says(line); });
        link.ask("x", PATIENCE);
    }
    pollfd one = {link.fd(), link.events(), 0};
    ASSERT_EQ(poll(&one, 1, 60000), 1);

    EXPECT_EQ(error_of(link, [&] { link.progress(); }), "the process closed the connection");
}

TEST_F(ConsoleLink, an_answer_that_nobody_asked_for_is_a_fault)
{
    fake_console console(path(), [](const std::string &) {
        return scripted_answer{"ok 1\nxok 1\ny", false};
    });
    console_link link(path());

    EXPECT_NE(error_of(link, [&] {
                  link.ask("x", PATIENCE);
                  link.ask("y", PATIENCE);
              }),
              "");
}

TEST_F(ConsoleLink, a_command_of_two_lines_is_refused)
{
    fake_console console(path(), [](const std::string &line) { return says(line); });
    console_link link(path());
    link.open();

    EXPECT_EQ(error_of(link, [&] { link.send("one\ntwo"); }), "a command is one line");
    EXPECT_EQ(console.answered(), 0u);
}
