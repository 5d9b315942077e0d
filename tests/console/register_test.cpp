/*
 * The commands' way into the console's table and out of it; and what their texts have in common.
 */
#include "console_process.h"

#include <sstream>
#include <thread>

#include "zyax_console.h"

namespace
{

class ConsoleCommands : public console_process
{
};

const std::vector<std::string> SHOW_COMMANDS = {"umm show requests",     "umm show requests all",
                                                "umm show pools",        "umm show pool page",
                                                "umm show holders page", "umm show leaks",
                                                "umm show numa",         "umm show config",
                                                "umm show partitions",   "log sinks"};

void ignore_words(int32_t, char **)
{
}

size_t longest_line(const std::string &text)
{
    std::istringstream lines(text);
    size_t longest = 0;
    for (std::string line; std::getline(lines, line);)
        longest = std::max(longest, line.size());
    return longest;
}

} // namespace

TEST_F(ConsoleCommands, every_command_has_its_line_of_help)
{
    const std::string help = run_line("help umm").text + run_line("help log").text;
    for (const char *words :
         {"umm show page <addr> ", "umm show requests ", "umm show requests all ",
          "umm show pools ", "umm show pool <name> ", "umm show holders <pool> ", "umm show leaks ",
          "umm show numa ", "umm show config ", "umm show partitions ",
          "log level <module> <level> ", "log sinks "})
        EXPECT_NE(help.find(words), std::string::npos) << words;
    EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), 12) << help;
}

TEST_F(ConsoleCommands, a_second_registration_fails_and_changes_nothing)
{
    EXPECT_EQ(zyumm_console_register(), -1);
    EXPECT_EQ(run_line("umm show pools").status, 0);
    EXPECT_EQ(run_line("umm show page 1").status, -1);
    EXPECT_EQ(run_line("log sinks").status, 0);
}

TEST_F(ConsoleCommands, without_their_registration_there_are_no_commands)
{
    EXPECT_EQ(zyumm_console_unregister(), 0);
    for (const std::string &line : SHOW_COMMANDS)
        EXPECT_EQ(run_line(line).status, -1) << line;
    EXPECT_EQ(zyumm_console_unregister(), -1);
    EXPECT_EQ(zyumm_console_register(), 0);
    EXPECT_EQ(run_line("umm show pools").status, 0);
}

TEST_F(ConsoleCommands, a_registration_that_fails_half_way_leaves_nothing)
{
    EXPECT_EQ(zyumm_console_unregister(), 0);
    const zyax_console_command taken = {"umm show numa", "somebody else's", ignore_words, nullptr,
                                        0};
    ASSERT_EQ(zyax_console_register(&taken), 0);
    EXPECT_EQ(zyumm_console_register(), -1);
    EXPECT_EQ(run_line("umm show pools").status, -1);
    EXPECT_EQ(run_line("umm show numa").status, 0);
    ASSERT_EQ(zyax_console_unregister("umm show numa"), 0);
    EXPECT_EQ(zyumm_console_register(), 0);
}

/* The memory manager's own list of requests is wider and stays so. */
TEST_F(ConsoleCommands, new_texts_fit_80_columns)
{
    std::vector<page_ctrl *> pages;
    for (uint32_t line = 1; line <= 5; ++line)
        pages.push_back(allocOnePageSync(TEST_MODULE, "a_function_with_a_name", line));
    advance_clock_ms(100'000'000'000);
    for (const std::string &line : SHOW_COMMANDS) {
        if (line == "umm show config" || line.find("requests") != std::string::npos)
            continue;
        const std::string text = run_line(line).text;
        EXPECT_LE(longest_line(text), 80u) << text;
    }
    for (page_ctrl *page : pages)
        freeOnePage(page, TEST_MODULE, "giver", 1);
}

/* Each answer is whole and well-formed whatever eight threads do to the pools meanwhile. */
TEST_F(ConsoleCommands, every_command_answers_while_threads_allocate)
{
    std::atomic<bool> is_over{false};
    std::vector<std::thread> threads;
    const retry_poller poller;
    for (uint32_t number = 0; number < 8; ++number)
        threads.emplace_back([&is_over, number] {
            while (!is_over.load()) {
                SGL *run = nullptr;
                page_ctrl *const page = allocOnePageSync(TEST_MODULE, "one", number);
                allocMultiPagesSync(20, &run, TEST_MODULE, "run", number);
                if (page != nullptr)
                    freeOnePage(page, TEST_MODULE, "one", number);
                if (run != nullptr)
                    freeMultiPages(run, TEST_MODULE, "run", number);
            }
        });
    for (int turn = 0; turn < 50; ++turn) {
        for (const std::string &line : SHOW_COMMANDS) {
            EXPECT_EQ(run_line(line).status, 0) << line;
            const answer said = run_line("--json " + line);
            EXPECT_EQ(said.status, 0) << line;
            EXPECT_FALSE(json::parse(said.text, nullptr, false).is_discarded()) << said.text;
        }
    }
    is_over = true;
    for (std::thread &thread : threads)
        thread.join();
}
