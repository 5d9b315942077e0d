/*
 * The program as scripts use it: output, exit codes, and processes that misbehave.
 */
#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <unistd.h>

#include <memory>

#include "fake_console.h"
#include "samples.h"
#include "stack/node/node_program.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

class Cmmctl : public NodeProgram
{
protected:
    node_result cmmctl(std::vector<std::string> arguments) const
    {
        return run_program(CMMCTL_PROGRAM, arguments, scratch_);
    }

    /* With the socket's path in front. */
    node_result ask(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"-s", path("console")});
        return cmmctl(arguments);
    }

    /* A shell's command line; "$CMMCTL" and "$SOCKET" are what they say. */
    node_result shell(const std::string &line) const
    {
        return run_program("/bin/sh",
                           {"-c", "CMMCTL=" CMMCTL_PROGRAM "; SOCKET='" + path("console") +
                                      "'; unset CMM_CONSOLE; " + line},
                           scratch_);
    }

    std::unique_ptr<fake_console> console(fake_console::script script) const
    {
        return std::make_unique<fake_console>(path("console"), std::move(script));
    }

    std::unique_ptr<fake_console> busy_console() const
    {
        return console([](const std::string &line) { return told(busy_node(), line); });
    }
};

scripted_answer echo(const std::string &line)
{
    return says("[" + line + "]\n");
}

} // namespace

TEST_F(Cmmctl, prints_the_answer_to_one_command)
{
    const auto process = console(echo);
    const node_result result = ask({"umm", "show", "pools"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "[umm show pools]\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(Cmmctl, an_error_goes_to_standard_error_with_the_code_1)
{
    const auto process =
        console([](const std::string &) { return says_error("Unknown command.\n"); });
    const node_result result = ask({"nonsense"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Unknown command.\n");
}

TEST_F(Cmmctl, json_is_the_first_word_wherever_it_was_typed)
{
    const auto process = console(echo);

    EXPECT_EQ(ask({"--json", "umm", "show", "pools"}).out, "[--json umm show pools]\n");
    EXPECT_EQ(ask({"umm", "show", "pools", "--json"}).out, "[--json umm show pools]\n");
    EXPECT_EQ(ask({"umm", "--json", "show", "pools"}).out, "[--json umm show pools]\n");
}

TEST_F(Cmmctl, an_answer_without_an_end_of_line_gets_one)
{
    const auto process = console([](const std::string &) { return says("{}"); });

    EXPECT_EQ(ask({"x"}).out, "{}\n");
}

TEST_F(Cmmctl, an_empty_answer_prints_nothing)
{
    const auto process = console([](const std::string &) { return says(""); });
    const node_result result = ask({"log", "level", "386", "info"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "");
}

TEST_F(Cmmctl, the_names_of_its_own_commands_are_words_further_back)
{
    const auto process = console(echo);

    EXPECT_EQ(ask({"umm", "show", "pool", "top"}).out, "[umm show pool top]\n");
    EXPECT_EQ(ask({"umm", "metrics", "-x", "--once"}).out, "[umm metrics -x --once]\n");
}

TEST_F(Cmmctl, the_environment_names_the_socket_and_s_goes_before_it)
{
    const auto process = console(echo);

    EXPECT_EQ(shell("CMM_CONSOLE=$SOCKET $CMMCTL help").out, "[help]\n");
    EXPECT_EQ(shell("CMM_CONSOLE=/nowhere $CMMCTL -s $SOCKET help").out, "[help]\n");
}

TEST_F(Cmmctl, wrong_usage_is_the_code_2)
{
    const node_result nothing = shell("$CMMCTL umm show pools");
    EXPECT_EQ(nothing.code, 2);
    EXPECT_THAT(nothing.err, HasSubstr("-s SOCKET, or CMM_CONSOLE in the environment"));

    EXPECT_EQ(ask({"--nonsense", "umm"}).code, 2);
    EXPECT_EQ(ask({"--timeout", "soon", "umm"}).code, 2);
    EXPECT_EQ(ask({"top", "--interval", "0"}).code, 2);
    EXPECT_EQ(ask({"top", "--sort", "colour", "--once"}).code, 2);
    EXPECT_EQ(ask({"top", "pages"}).code, 2);
    EXPECT_EQ(ask({"metrics", "pages"}).code, 2);
    EXPECT_EQ(cmmctl({"explain"}).code, 2);
    EXPECT_EQ(ask({"umm\nshow"}).code, 2);
}

TEST_F(Cmmctl, help_tells_the_exit_codes)
{
    const node_result result = cmmctl({"--help"});

    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, HasSubstr("Exit status: 0 the process answered"));
    EXPECT_THAT(result.out, HasSubstr("CMM_CONSOLE"));
    EXPECT_THAT(cmmctl({"top", "--help"}).out, HasSubstr("--interval"));
}

TEST_F(Cmmctl, no_process_is_the_code_3_for_every_command)
{
    EXPECT_EQ(ask({"help"}).code, 3);
    EXPECT_EQ(ask({"top"}).code, 3);
    EXPECT_EQ(ask({"top", "--once"}).code, 3);
    EXPECT_EQ(ask({"metrics"}).code, 3);
    EXPECT_EQ(shell("$CMMCTL -s $SOCKET </dev/null").code, 3);
    EXPECT_EQ(ask({"help"}).err, "cmmctl: " + path("console") + ": No such file or directory\n");
}

TEST_F(Cmmctl, a_process_that_dies_in_its_answer_is_the_code_3_and_prints_nothing)
{
    const auto process =
        console([](const std::string &) { return scripted_answer{"ok 100\nhalf", true}; });
    const node_result result = ask({"x"});

    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "cmmctl: " + path("console") + ": the process went away within an answer\n");
}

TEST_F(Cmmctl, a_process_that_is_silent_is_the_code_3)
{
    const auto process = console([](const std::string &) { return scripted_answer{}; });
    const node_result result = ask({"--timeout", "0.05", "x"});

    EXPECT_EQ(result.code, 3);
    EXPECT_THAT(result.err, HasSubstr("no answer within the time set by --timeout"));
}

TEST_F(Cmmctl, a_huge_answer_is_printed_whole)
{
    const std::string huge = noise(3000000) + "\n";
    const auto process = console([&](const std::string &) { return says(huge); });

    EXPECT_TRUE(ask({"x"}).out == huge);
}

TEST_F(Cmmctl, lines_of_standard_input_are_commands)
{
    const auto process = console(echo);
    const node_result result =
        shell("printf 'umm show pools\\n\\n  help  \\nlast' | $CMMCTL -s $SOCKET");

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "[umm show pools]\n[help]\n[last]\n");
}

TEST_F(Cmmctl, an_error_among_lines_is_remembered)
{
    const auto process = console([](const std::string &line) {
        return line == "bad" ? says_error("no\n") : echo(line);
    });
    const node_result result = shell("printf 'bad\\ngood\\n' | $CMMCTL -s $SOCKET");

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "[good]\n");
    EXPECT_EQ(result.err, "no\n");
}

TEST_F(Cmmctl, metrics_are_valid_to_the_checker)
{
    const auto process = busy_console();
    const node_result result =
        run_program(PYTHON, {OPENMETRICS_CHECKER, "--run", CMMCTL_PROGRAM, "-s", path("console"),
                             "metrics"}, scratch_);

    EXPECT_EQ(result.code, 0) << result.out;
    EXPECT_EQ(result.out, "openmetrics: nothing to report\n");
}

TEST_F(Cmmctl, metrics_with_names_of_any_content_are_valid_to_the_checker)
{
    const auto process = console([](const std::string &line) {
        node_sample sample = busy_node();
        sample.process = "a\\b\"c\nd";
        sample.pools.pools[0].name = "# TYPE {},=\"\\\n\t\xe2\x82\xac";
        sample.holders[0].function = "f<int, \"x\">\\";
        sample.requests.requests[1] = sample.requests.requests[0];
        sample.requests.requests[0].function = "\n# EOF\n";
        return told(sample, line);
    });
    const node_result result =
        run_program(PYTHON, {OPENMETRICS_CHECKER, "--run", CMMCTL_PROGRAM, "-s", path("console"),
                             "metrics"}, scratch_);

    EXPECT_EQ(result.out, "openmetrics: nothing to report\n");
}

TEST_F(Cmmctl, metrics_replace_a_file_in_one_go)
{
    const auto process = busy_console();
    make_file("cmm.prom", "old");
    const node_result result = ask({"metrics", "--output", path("cmm.prom")});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(read_whole(path("cmm.prom")), StartsWith("# TYPE cmm_process info\n"));
    EXPECT_EQ(std::filesystem::status(path("cmm.prom")).permissions(),
              std::filesystem::perms(0644));
}

TEST_F(Cmmctl, metrics_of_nobody_leave_the_file_alone)
{
    make_file("cmm.prom", "old");

    EXPECT_EQ(ask({"metrics", "--output", path("cmm.prom")}).code, 3);
    EXPECT_EQ(read_whole(path("cmm.prom")), "old");
}

TEST_F(Cmmctl, metrics_that_cannot_be_written_are_the_code_1)
{
    const auto process = busy_console();
    const node_result result = ask({"metrics", "--output", path("nowhere/cmm.prom")});

    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("No such file or directory"));
}

TEST_F(Cmmctl, metrics_of_an_answer_that_is_none_are_the_code_1)
{
    const auto process = console([](const std::string &) { return says("{}"); });
    const node_result result = ask({"metrics"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "cmmctl: umm show config: \"process\" is missing\n");
}

TEST_F(Cmmctl, top_without_a_terminal_points_to_once)
{
    const auto process = busy_console();
    const node_result result = shell("$CMMCTL -s $SOCKET top </dev/null");

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "cmmctl: no terminal to draw on; --once prints one frame as text\n");
}
