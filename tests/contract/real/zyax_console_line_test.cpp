/*
 * Lines of the console without a socket: which command runs, what "help" says, what is refused.
 */
#include "zyax_console_helpers.h"

#include <gtest/gtest.h>

/* ------------------------------------------------------------------ which command */

TEST(ZyaxConsoleLine, a_handler_sees_all_words_and_a_null_behind_them)
{
    ASSERT_EQ(add_command("umm show page <addr>"), 0);

    EXPECT_EQ(run_line("umm show page 0x10"), "ok:4 umm show page 0x10.");
}

TEST(ZyaxConsoleLine, blanks_and_tabs_part_words)
{
    ASSERT_EQ(add_command("log sinks"), 0);

    EXPECT_EQ(run_line(" \tlog \t sinks  "), "ok:2 log sinks.");
}

TEST(ZyaxConsoleLine, an_empty_line_is_good_and_says_nothing)
{
    EXPECT_EQ(run_line(""), "ok:");
    EXPECT_EQ(run_line(" \t "), "ok:");
}

TEST(ZyaxConsoleLine, a_longer_variant_is_a_command_of_its_own)
{
    ASSERT_EQ(add_command("umm show requests"), 0);
    ASSERT_EQ(
        add_command("umm show requests all", [](int32_t, char **) { DBG_Print("all of them"); }),
        0);

    EXPECT_EQ(run_line("umm show requests"), "ok:3 umm show requests.");
    EXPECT_EQ(run_line("umm show requests all"), "ok:all of them");
}

TEST(ZyaxConsoleLine, a_fixed_word_is_preferred_to_an_argument)
{
    ASSERT_EQ(add_command("show <what>"), 0);
    ASSERT_EQ(add_command("show pools", [](int32_t, char **) { DBG_Print("pools"); }), 0);

    EXPECT_EQ(run_line("show pools"), "ok:pools");
    EXPECT_EQ(run_line("show pages"), "ok:2 show pages.");
}

TEST(ZyaxConsoleLine, of_as_many_fixed_words_the_first_in_the_line_decides)
{
    ASSERT_EQ(add_command("set <a> b", [](int32_t, char **) { DBG_Print("later"); }), 0);
    ASSERT_EQ(add_command("set a <b>", [](int32_t, char **) { DBG_Print("earlier"); }), 0);

    EXPECT_EQ(run_line("set a b"), "ok:earlier");
}

TEST(ZyaxConsoleLine, a_command_may_look_at_the_number_of_words_itself)
{
    ASSERT_EQ(add_command("page <addr>", print_words, "help", nullptr, ZYAX_CONSOLE_ANY_COUNT), 0);

    EXPECT_EQ(run_line("page"), "ok:1 page.");
    EXPECT_EQ(run_line("page 1"), "ok:2 page 1.");
    EXPECT_EQ(run_line("page 1 2"), "ok:3 page 1 2.");
}

TEST(ZyaxConsoleLine, the_right_number_of_words_goes_before_any_number)
{
    ASSERT_EQ(add_command("page", print_words, "help", nullptr, ZYAX_CONSOLE_ANY_COUNT), 0);
    ASSERT_EQ(add_command("page <addr>", [](int32_t, char **) { DBG_Print("exact"); }), 0);

    EXPECT_EQ(run_line("page 1"), "ok:exact");
    EXPECT_EQ(run_line("page 1 2"), "ok:3 page 1 2.");
}

TEST(ZyaxConsoleLine, words_in_angle_brackets_need_something_in_them_to_be_arguments)
{
    ASSERT_EQ(add_command("compare <>"), 0);

    EXPECT_EQ(run_line("compare <>"), "ok:2 compare <>.");
    EXPECT_EQ(run_line("compare x").substr(0, 6), "error:");
}

TEST(ZyaxConsoleLine, a_handler_that_fails_makes_the_answer_an_error)
{
    ASSERT_EQ(add_command("fail",
                          [](int32_t, char **) {
                              DBG_Print("no such pool\n");
                              zyax_console_fail();
                          }),
              0);

    EXPECT_EQ(run_line("fail"), "error:no such pool\n");
}

TEST(ZyaxConsoleLine, failing_outside_a_command_does_nothing)
{
    ASSERT_EQ(add_command("log sinks"), 0);
    zyax_console_fail();

    EXPECT_EQ(run_line("log sinks"), "ok:2 log sinks.");
}

TEST(ZyaxConsoleLine, a_handler_may_run_another_line_whose_failure_is_not_its_own)
{
    ASSERT_EQ(add_command("outer",
                          [](int32_t, char **) { DBG_Print("[%s]", run_line("nothing").c_str()); }),
              0);

    EXPECT_EQ(run_line("outer"),
              "ok:[error:Unknown command \"nothing\". \"help\" lists all commands.\n]");
}

TEST(ZyaxConsoleLine, a_handler_that_mistakes_begin_and_end_harms_nobody)
{
    static std::string lost;
    ASSERT_EQ(add_command("ends too often",
                          [](int32_t, char **) {
                              zyax_console_end();
                              DBG_Print("still here");
                          }),
              0);
    ASSERT_EQ(add_command("never ends",
                          [](int32_t, char **) {
                              zyax_console_begin(keep_text, &lost);
                              DBG_Print("lost");
                              zyax_console_fail();
                          }),
              0);

    EXPECT_EQ(run_line("ends too often"), "ok:still here");
    EXPECT_EQ(run_line("never ends"), "error:");
    EXPECT_EQ(lost, "lost");
    EXPECT_EQ(run_line("ends too often"), "ok:still here");
}

/* ------------------------------------------------------------------ JSON */

TEST(ZyaxConsoleLine, json_before_the_command_runs_its_second_handler)
{
    ASSERT_EQ(add_command("umm show pools", print_words, "pools", print_json), 0);

    EXPECT_EQ(run_line("--json umm show pools"), "ok:{\"words\":3}");
    EXPECT_EQ(run_line("umm show pools"), "ok:3 umm show pools.");
}

TEST(ZyaxConsoleLine, a_command_without_json_says_so)
{
    ASSERT_EQ(add_command("log level <module> <level>"), 0);

    EXPECT_EQ(run_line("--json log level zyax 6"),
              "error:\"log level <module> <level>\" has no JSON.\n");
}

TEST(ZyaxConsoleLine, json_alone_and_json_elsewhere_are_no_json)
{
    ASSERT_EQ(add_command("show <what>", print_words, "help", print_json), 0);

    EXPECT_EQ(run_line("--json"), "error:No command after \"--json\".\n");
    EXPECT_EQ(run_line("show --json"), "ok:2 show --json.");
}

/* ------------------------------------------------------------------ help */

static void add_three_commands()
{
    ASSERT_EQ(add_command("umm show pools", print_words, "all pools", print_json), 0);
    ASSERT_EQ(add_command("log sinks", print_words, "where lines go"), 0);
    ASSERT_EQ(add_command("umm show page <addr>", print_words, "one page"), 0);
}

TEST(ZyaxConsoleLine, help_lists_itself_and_all_commands_by_name)
{
    add_three_commands();

    EXPECT_EQ(run_line("help"),
              "ok:  help [words]                      lists the commands, or those that begin with "
              "the words\n"
              "  log sinks                         where lines go\n"
              "  umm show page <addr>              one page\n"
              "  umm show pools                    all pools\n");
}

TEST(ZyaxConsoleLine, help_with_words_lists_what_begins_with_them)
{
    add_three_commands();

    EXPECT_EQ(run_line("help umm show"),
              "ok:" + row("umm show page <addr>", "one page") + row("umm show pools", "all pools"));
    EXPECT_EQ(run_line("help umm show page 0x10"), "ok:" + row("umm show page <addr>", "one page"));
}

TEST(ZyaxConsoleLine, help_makes_room_for_a_long_name)
{
    ASSERT_EQ(add_command("a", print_words, "short"), 0);
    ASSERT_EQ(add_command("a command with more than thirty-two letters", print_words, "long"), 0);

    EXPECT_EQ(run_line("help a"), "ok:  a                                            short\n"
                                  "  a command with more than thirty-two letters  long\n");
}

TEST(ZyaxConsoleLine, help_for_what_is_not_there_names_the_nearest)
{
    add_three_commands();

    EXPECT_EQ(run_line("help log sniks"), "error:Unknown command \"log sniks\". The nearest:\n" +
                                              row("log sinks", "where lines go"));
}

TEST(ZyaxConsoleLine, help_as_json_names_each_command_and_whether_it_has_json)
{
    add_three_commands();
    ASSERT_EQ(add_command("say \"x\\y\"", print_words, "a\ttab"), 0);

    EXPECT_EQ(run_line("--json help umm"),
              "ok:{\"commands\":[{\"words\":\"umm show page <addr>\",\"help\":\"one page\","
              "\"json\":false},{\"words\":\"umm show pools\",\"help\":\"all pools\","
              "\"json\":true}]}\n");
    EXPECT_EQ(run_line("--json help say"), "ok:{\"commands\":[{\"words\":\"say \\\"x\\\\y\\\"\","
                                           "\"help\":\"a tab\",\"json\":false}]}\n");
}

TEST(ZyaxConsoleLine, help_without_commands_lists_itself_and_nothing_as_json)
{
    EXPECT_EQ(run_line("help"),
              "ok:  help [words]                      lists the commands, or those that begin with "
              "the words\n");
    EXPECT_EQ(run_line("--json help"), "ok:{\"commands\":[]}\n");
}

/* ------------------------------------------------------------------ nearest names */

TEST(ZyaxConsoleLine, the_beginning_of_commands_is_answered_with_all_of_them)
{
    add_three_commands();

    EXPECT_EQ(run_line("umm show"), "error:\"umm show\" is not complete. What begins so:\n" +
                                        row("umm show page <addr>", "one page") +
                                        row("umm show pools", "all pools"));
    EXPECT_EQ(run_line("umm show page"),
              "error:\"umm show page\" is not complete. What begins so:\n" +
                  row("umm show page <addr>", "one page"));
}

TEST(ZyaxConsoleLine, a_mistyped_word_is_answered_with_the_nearest_first)
{
    add_three_commands();

    EXPECT_EQ(run_line("umm shwo pool"), "error:Unknown command \"umm shwo pool\". The nearest:\n" +
                                             row("umm show pools", "all pools") +
                                             row("umm show page <addr>", "one page"));
}

TEST(ZyaxConsoleLine, forgotten_words_are_found)
{
    add_three_commands();

    EXPECT_EQ(run_line("pools"), "error:Unknown command \"pools\". The nearest:\n" +
                                     row("umm show pools", "all pools"));
}

TEST(ZyaxConsoleLine, a_word_too_many_is_answered_with_what_it_is_too_many_for)
{
    ASSERT_EQ(add_command("log sinks", print_words, "where lines go"), 0);

    EXPECT_EQ(run_line("log sinks x"), "error:Unknown command \"log sinks x\". The nearest:\n" +
                                           row("log sinks", "where lines go"));
}

TEST(ZyaxConsoleLine, three_names_are_enough_and_equals_come_in_the_order_of_the_table)
{
    for (const char *words : {"ab", "aa", "ad", "ac", "ae"})
        ASSERT_EQ(add_command(words, print_words, "x"), 0);

    EXPECT_EQ(run_line("az"), "error:Unknown command \"az\". The nearest:\n" + row("aa", "x") +
                                  row("ab", "x") + row("ac", "x"));
}

TEST(ZyaxConsoleLine, what_is_like_nothing_is_answered_with_a_word_on_help)
{
    add_three_commands();

    EXPECT_EQ(run_line("xyzzy"), "error:Unknown command \"xyzzy\". \"help\" lists all commands.\n");
}

TEST(ZyaxConsoleLine, of_a_long_unknown_line_the_beginning_is_repeated)
{
    EXPECT_EQ(run_line(std::string(61, 'x')), "error:Unknown command \"" + std::string(60, 'x') +
                                                  "...\". \"help\" lists all commands.\n");
    EXPECT_EQ(run_line(std::string(59, 'x') + "\xc3\xa4"),
              "error:Unknown command \"" + std::string(59, 'x') +
                  "...\". \"help\" lists all commands.\n");
}

TEST(ZyaxConsoleLine, words_of_any_length_are_compared)
{
    ASSERT_EQ(add_command("show pools", print_words, "pools"), 0);
    const std::string word(4000, 'y');

    EXPECT_EQ(run_line("show " + word).substr(0, 29), "error:Unknown command \"show y");
}

/* ------------------------------------------------------------------ refusals */

TEST(ZyaxConsoleLine, control_characters_are_refused)
{
    ASSERT_EQ(add_command("show <what>"), 0);

    EXPECT_EQ(run_line(std::string_view("show\0x", 6)),
              "error:The line holds control characters.\n");
    EXPECT_EQ(run_line("show \x1b[1m"), "error:The line holds control characters.\n");
    EXPECT_EQ(run_line("show \x7f"), "error:The line holds control characters.\n");
    EXPECT_EQ(run_line("show a\nb"), "error:The line holds control characters.\n");
    EXPECT_EQ(run_line("show \xc3\xa4"), "ok:2 show \xc3\xa4.");
}

TEST(ZyaxConsoleLine, a_line_has_at_most_4096_bytes)
{
    ASSERT_EQ(add_command("show <what>"), 0);
    const std::string word(4091, 'x');

    EXPECT_EQ(run_line("show " + word), "ok:2 show " + word + ".");
    EXPECT_EQ(run_line("show " + word + "x"), "error:The line is longer than 4096 bytes.\n");
}

TEST(ZyaxConsoleLine, a_line_has_at_most_32_words)
{
    ASSERT_EQ(add_command("a", print_words, "x", nullptr, ZYAX_CONSOLE_ANY_COUNT), 0);
    std::string line = "a";
    for (int i = 0; i < 31; ++i)
        line += " b";

    EXPECT_EQ(run_line(line), "ok:32 " + line + ".");
    EXPECT_EQ(run_line(line + " b"), "error:The line has more than 32 words.\n");
}

TEST(ZyaxConsoleLine, null_arguments_are_refused_with_a_line)
{
    kept_log log;
    std::string text;

    EXPECT_EQ(zyax_console_run(nullptr, 0, keep_text, &text), -1);
    EXPECT_EQ(zyax_console_run("help", 4, nullptr, nullptr), -1);
    EXPECT_EQ(text, "");
    EXPECT_TRUE(log.has("zyax_console_run platform/linux/zyax/console_line.cpp"));
    EXPECT_TRUE(log.has("A console line or its call-back is null."));
}
