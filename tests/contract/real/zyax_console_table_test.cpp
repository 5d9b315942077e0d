/*
 * Registering and removing commands, also while they run.
 */
#include "zyax_console_helpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <semaphore.h>
#include <sys/wait.h>
#include <thread>

static bool is_refused(const zyax_console_command &command, const std::string &reason)
{
    kept_log log;
    return zyax_console_register(&command) == -1 && log.has(reason);
}

static bool is_refused_for(const char *words, const std::string &reason)
{
    return is_refused({words, "help", print_words, nullptr, 0}, reason);
}

/* ------------------------------------------------------------------ what is refused */

TEST(ZyaxConsoleTable, a_record_without_its_parts_is_refused)
{
    kept_log log;

    EXPECT_EQ(zyax_console_register(nullptr), -1);
    EXPECT_TRUE(log.has("A console command cannot be registered: something is null."));
    EXPECT_TRUE(is_refused({nullptr, "help", print_words, nullptr, 0}, "something is null."));
    EXPECT_TRUE(is_refused({"a", nullptr, print_words, nullptr, 0}, "something is null."));
    EXPECT_TRUE(is_refused({"a", "help", nullptr, print_json, 0}, "something is null."));
    EXPECT_EQ(run_line("--json help"), "ok:{\"commands\":[]}\n");
}

TEST(ZyaxConsoleTable, words_that_cannot_be_typed_are_refused)
{
    EXPECT_TRUE(is_refused_for("", "\"\" cannot be registered: no words."));
    EXPECT_TRUE(is_refused_for(" ", "cannot be registered: no words."));
    EXPECT_TRUE(
        is_refused_for("a  b", "\"a  b\" cannot be registered: not one blank between words."));
    EXPECT_TRUE(is_refused_for("a ", "not one blank between words."));
    EXPECT_TRUE(is_refused_for("a\tb", "not one blank between words."));
    EXPECT_TRUE(is_refused_for("a\nb", "a control character."));
    EXPECT_TRUE(is_refused_for("<a> b", "it begins with an argument."));
    EXPECT_TRUE(is_refused_for("help me", "a word of the console itself."));
    EXPECT_TRUE(is_refused_for("--json x", "a word of the console itself."));
}

TEST(ZyaxConsoleTable, a_help_text_is_one_line)
{
    EXPECT_TRUE(is_refused({"a", "two\nlines", print_words, nullptr, 0}, "a control character."));
}

TEST(ZyaxConsoleTable, more_than_32_words_are_refused)
{
    std::string words = "a";
    for (int i = 0; i < 31; ++i)
        words += " b";

    EXPECT_EQ(add_command(words.c_str()), 0);
    EXPECT_TRUE(is_refused_for((words + " b").c_str(), "too many words."));
}

TEST(ZyaxConsoleTable, an_unknown_flag_is_refused)
{
    EXPECT_TRUE(is_refused({"a", "help", print_words, nullptr, 2}, "an unknown flag."));
}

TEST(ZyaxConsoleTable, a_command_is_there_once)
{
    ASSERT_EQ(add_command("show page <addr>"), 0);

    EXPECT_TRUE(is_refused_for("show page <addr>", "it is there already."));
    EXPECT_TRUE(is_refused_for("show page <number>", "it is there already."));
    EXPECT_EQ(add_command("show page all"), 0);
    EXPECT_EQ(add_command("show <a> <b>"), 0);
    EXPECT_EQ(add_command("show page"), 0);
}

TEST(ZyaxConsoleTable, the_record_and_its_texts_are_copied)
{
    char words[] = "show pools";
    char help[] = "all pools";
    ASSERT_EQ(add_command(words, print_words, help), 0);
    memset(words, 'x', sizeof(words) - 1);
    memset(help, 'x', sizeof(help) - 1);

    EXPECT_EQ(run_line("show pools"), "ok:2 show pools.");
    EXPECT_EQ(run_line("help show"), "ok:" + row("show pools", "all pools"));
}

/* ------------------------------------------------------------------ removal */

TEST(ZyaxConsoleTable, a_removed_command_is_unknown_and_may_come_again)
{
    ASSERT_EQ(add_command("show pools"), 0);
    ASSERT_EQ(add_command("show page <addr>"), 0);

    EXPECT_EQ(zyax_console_unregister("show pools"), 0);
    EXPECT_EQ(run_line("show pools").substr(0, 21), "error:Unknown command");
    EXPECT_EQ(run_line("show page 1"), "ok:3 show page 1.");
    EXPECT_EQ(add_command("show pools"), 0);
    EXPECT_EQ(run_line("show pools"), "ok:2 show pools.");
}

TEST(ZyaxConsoleTable, removing_what_is_not_there_fails_with_a_line)
{
    kept_log log;

    EXPECT_EQ(zyax_console_unregister("show pools"), -1);
    EXPECT_EQ(zyax_console_unregister(nullptr), -1);
    EXPECT_TRUE(log.has("No console command \"show pools\" is registered."));
    EXPECT_TRUE(log.has("No console command is named null."));
}

TEST(ZyaxConsoleTable, a_handler_may_remove_its_own_command)
{
    ASSERT_EQ(add_command("go",
                          [](int32_t, char **words) {
                              DBG_Print("%d", zyax_console_unregister("go"));
                              DBG_Print(" and on with %s", words[0]);
                          }),
              0);

    EXPECT_EQ(run_line("go"), "ok:0 and on with go");
    EXPECT_EQ(run_line("go"), "error:Unknown command \"go\". \"help\" lists all commands.\n");
}

TEST(ZyaxConsoleTable, a_command_that_runs_within_itself_may_remove_itself)
{
    ASSERT_EQ(add_command("go",
                          [](int32_t, char **) {
                              static int depth = 0;
                              if (++depth < 3)
                                  DBG_Print("(%s)", run_line("go").c_str());
                              else
                                  DBG_Print("%d", zyax_console_unregister("go"));
                          }),
              0);

    EXPECT_EQ(run_line("go"), "ok:(ok:(ok:0))");
}

static sem_t s_entered;
static sem_t s_may_leave;
static std::atomic<bool> s_has_left;

static void enter_and_wait(int32_t, char **)
{
    sem_post(&s_entered);
    sem_wait(&s_may_leave);
    s_has_left = true;
}

TEST(ZyaxConsoleTable, a_removal_waits_for_a_running_handler)
{
    sem_init(&s_entered, 0, 0);
    sem_init(&s_may_leave, 0, 0);
    ASSERT_EQ(add_command("wait", enter_and_wait), 0);
    std::thread runner([] { run_line("wait"); });
    sem_wait(&s_entered);
    bool had_left = false;
    std::thread remover([&] {
        EXPECT_EQ(zyax_console_unregister("wait"), 0);
        had_left = s_has_left;
    });
    while (run_line("help wait").substr(0, 3) == "ok:") /* until the removal has begun */
        std::this_thread::yield();
    sem_post(&s_may_leave);
    runner.join();
    remover.join();

    EXPECT_TRUE(had_left);
}

TEST(ZyaxConsoleTable, commands_come_and_go_while_others_run)
{
    ASSERT_EQ(add_command("stays"), 0);
    std::atomic<bool> is_over = false;
    std::thread changer([&] {
        for (int i = 0; i < 2000; ++i) {
            EXPECT_EQ(add_command("comes and goes"), 0);
            EXPECT_EQ(zyax_console_unregister("comes and goes"), 0);
        }
        is_over = true;
    });
    int wrong = 0;
    while (!is_over) {
        const std::string answer = run_line("comes and goes");
        wrong += answer != "ok:3 comes and goes." && answer.find("Unknown") == std::string::npos;
        wrong += run_line("stays") != "ok:1 stays.";
        wrong += run_line("help").find("stays") == std::string::npos;
    }
    changer.join();

    EXPECT_EQ(wrong, 0);
}

/* ------------------------------------------------------------------ fork */

TEST(ZyaxConsoleTable, a_forked_child_does_not_wait_for_a_handler_that_its_parent_runs)
{
    sem_init(&s_entered, 0, 0);
    sem_init(&s_may_leave, 0, 0);
    ASSERT_EQ(add_command("wait", enter_and_wait), 0);
    ASSERT_EQ(add_command("other"), 0);
    std::thread runner([] { run_line("wait"); });
    sem_wait(&s_entered);
    const pid_t child = fork();
    if (child == 0) {
        const bool is_good = run_line("other") == "ok:1 other." &&
                             zyax_console_unregister("wait") == 0 &&
                             zyax_console_unregister("other") == 0;
        _exit(is_good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    sem_post(&s_may_leave);
    runner.join();

    EXPECT_EQ(status, 0);
}

TEST(ZyaxConsoleTable, a_child_forked_by_a_handler_ends_its_run_like_its_parent)
{
    static bool is_child = false;
    ASSERT_EQ(add_command("fork",
                          [](int32_t, char **) {
                              const pid_t child = fork();
                              is_child = child == 0;
                              int status = 0;
                              if (child > 0)
                                  waitpid(child, &status, 0);
                              DBG_Print("%d", status);
                          }),
              0);
    const std::string answer = run_line("fork");
    const int removed = zyax_console_unregister("fork");
    if (is_child)
        _exit(answer == "ok:0" && removed == 0 ? 0 : 1);

    EXPECT_EQ(answer, "ok:0");
    EXPECT_EQ(removed, 0);
}
