/*
 * What could be typed next.
 */
#include <gtest/gtest.h>

#include "completion.h"
#include "node_report.h"

namespace {

using words = std::vector<std::string>;

const std::vector<command_words> COMMANDS = {
    {"umm", "show", "pools"},           {"umm", "show", "pool", "<name>"},
    {"umm", "show", "requests"},        {"umm", "show", "requests", "all"},
    {"umm", "show", "holders", "<pool>"}, {"log", "level", "<module>", "<level>"},
    {"log", "sinks"},
};

words next(const std::string &line)
{
    return completions(COMMANDS, line, [](const command_words &, const std::string &argument) {
        if (argument == "<level>")
            return words{"error", "info"};
        if (argument == "<name>")
            return words{"page", "sgl", "0x12"};
        return words{};
    });
}

} // namespace

TEST(Completion, an_empty_line_may_become_any_command)
{
    EXPECT_EQ(next(""), (words{"--json", "help", "log", "umm"}));
    EXPECT_EQ(next("  "), (words{"--json", "help", "log", "umm"}));
}

TEST(Completion, a_word_that_is_begun_narrows_it)
{
    EXPECT_EQ(next("u"), (words{"umm"}));
    EXPECT_EQ(next("umm show p"), (words{"pool", "pools"}));
    EXPECT_EQ(next("umm show pools"), (words{"pools"}));
    EXPECT_EQ(next("umm show x"), (words{}));
}

TEST(Completion, a_blank_asks_for_the_next_word)
{
    EXPECT_EQ(next("umm show "), (words{"holders", "pool", "pools", "requests"}));
    EXPECT_EQ(next("umm show requests "), (words{"all"}));
    EXPECT_EQ(next("umm show requests all "), (words{}));
}

TEST(Completion, blanks_and_tabs_part_words_alike)
{
    EXPECT_EQ(next(" umm \t show  requests\ta"), (words{"all"}));
}

TEST(Completion, an_argument_is_completed_from_what_may_stand_there)
{
    EXPECT_EQ(next("umm show pool "), (words{"0x12", "page", "sgl"}));
    EXPECT_EQ(next("umm show pool p"), (words{"page"}));
    EXPECT_EQ(next("umm show holders "), (words{}));
}

TEST(Completion, any_word_stands_for_an_argument)
{
    EXPECT_EQ(next("log level whatever "), (words{"error", "info"}));
    EXPECT_EQ(next("log level whatever i"), (words{"info"}));
}

TEST(Completion, json_and_help_stand_before_any_command)
{
    EXPECT_EQ(next("--json umm show r"), (words{"requests"}));
    EXPECT_EQ(next("help u"), (words{"umm"}));
    EXPECT_EQ(next("--j"), (words{"--json"}));
    EXPECT_EQ(next("umm --j"), (words{}));
}

TEST(Completion, words_that_fit_no_command_complete_nothing)
{
    EXPECT_EQ(next("umm hide "), (words{}));
}

TEST(Completion, what_all_words_share_can_be_typed)
{
    EXPECT_EQ(shared_beginning({"pool", "pools"}), "pool");
    EXPECT_EQ(shared_beginning({"log", "umm"}), "");
    EXPECT_EQ(shared_beginning({"pools"}), "pools");
    EXPECT_EQ(shared_beginning({}), "");
}

TEST(Completion, the_commands_are_read_from_the_process)
{
    const std::vector<command_words> commands = read_commands(
        R"({"commands":[{"words":"log sinks","help":"x","json":true},
                        {"words":"umm show pool <name>","help":"y","json":true}]})");

    EXPECT_EQ(commands, (std::vector<command_words>{{"log", "sinks"},
                                                    {"umm", "show", "pool", "<name>"}}));
}

TEST(Completion, what_is_no_list_of_commands_is_refused)
{
    EXPECT_THROW(read_commands("Unknown command."), bad_answer);
    EXPECT_THROW(read_commands("{}"), bad_answer);
    EXPECT_THROW(read_commands(R"({"commands":[{"words":7}]})"), bad_answer);
    EXPECT_THROW(read_commands(R"({"commands":[7]})"), bad_answer);
}
