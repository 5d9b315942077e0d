/*
 * `top` and the prompt on a terminal.
 */
#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <atomic>
#include <memory>

#include "samples.h"
#include "scratch.h"
#include "terminal.h"

using ::testing::HasSubstr;

namespace {

class OnTerminal : public ::testing::Test
{
protected:
    std::string command(const std::string &arguments) const
    {
        return "HOME=" + scratch_.file("") + " " CMMCTL_PROGRAM " -s " + scratch_.file("console") +
               " " + arguments;
    }

    std::unique_ptr<fake_console> console(fake_console::script script) const
    {
        return std::make_unique<fake_console>(scratch_.file("console"), std::move(script));
    }

    std::unique_ptr<fake_console> busy_console() const
    {
        return console([](const std::string &line) { return told(busy_node(), line); });
    }

    std::string folder() const { return scratch_.file(""); }

    scratch_folder scratch_;
};

std::string last_line(const terminal &shown)
{
    const std::vector<std::string> lines = shown.screen();

    return lines.empty() ? "" : lines.back();
}

} // namespace

TEST_F(OnTerminal, top_shows_pools_requests_and_holders_in_80_columns)
{
    const auto process = busy_console();
    const terminal shown(folder(), 80, 24, command("top"));

    ASSERT_TRUE(shown.comes_to([&] {
        return shown.text().find("read_ahead:120") != std::string::npos &&
               last_line(shown).find("q quit") == 0;
    })) << shown.text();
    const std::vector<std::string> lines = shown.screen();
    ASSERT_EQ(lines.size(), 24u);
    for (const std::string &line : lines)
        EXPECT_LE(line.size(), 80u) << line;
    EXPECT_THAT(lines[0], HasSubstr("cmmctl top  cmm_node  pid "));
    EXPECT_THAT(lines[1], HasSubstr("waiting 2, oldest 12.3s"));
    EXPECT_THAT(lines[3], HasSubstr("PAGE PARTITION"));
    EXPECT_THAT(lines[3], HasSubstr("99%"));
    EXPECT_THAT(shown.text(), HasSubstr("page_cache:42"));
    EXPECT_THAT(lines[23], HasSubstr("q quit"));
}

TEST_F(OnTerminal, top_ends_with_q)
{
    const auto process = busy_console();
    const terminal shown(folder(), 80, 24, command("top"));

    ASSERT_TRUE(shown.shows("SGL_PARTITION"));
    shown.press({"q"});
    EXPECT_EQ(shown.exit_code(), 0);
}

TEST_F(OnTerminal, top_ends_with_an_interrupt)
{
    const auto process = busy_console();
    const terminal shown(folder(), 80, 24, command("top"));

    ASSERT_TRUE(shown.shows("SGL_PARTITION"));
    shown.press({"C-c"});
    EXPECT_EQ(shown.exit_code(), 0);
}

TEST_F(OnTerminal, top_sorts_and_filters_by_key)
{
    const auto process = busy_console();
    const terminal shown(folder(), 80, 24, command("top --interval 3600"));

    ASSERT_TRUE(shown.shows("sort: use"));
    ASSERT_TRUE(shown.shows("SGL_PARTITION"));
    shown.press({"s", "r"});
    EXPECT_TRUE(shown.shows("sort: -name"));
    EXPECT_TRUE(shown.comes_to([&] {
        const std::vector<std::string> lines = shown.screen();
        return lines.size() == 24 && lines[3].find("SGL_PARTITION") == 0;
    })) << shown.text();
    shown.press({"/", "p", "a", "g", "e"});
    EXPECT_TRUE(shown.shows("filter: page_"));
    EXPECT_TRUE(shown.shows_no("SGL_PARTITION"));
    shown.press({"Enter"});
    EXPECT_TRUE(shown.shows("filter: page "));
    shown.press({"Escape"});
    EXPECT_TRUE(shown.shows("SGL_PARTITION"));
}

TEST_F(OnTerminal, top_follows_a_resize_both_ways)
{
    const auto process = busy_console();
    const terminal shown(folder(), 80, 24, command("top --interval 3600"));

    ASSERT_TRUE(shown.shows("read_ahead:120"));
    shown.resize(120, 40);
    EXPECT_TRUE(shown.comes_to([&] {
        return shown.screen().size() == 40 && last_line(shown).find("q quit") == 0;
    })) << shown.text();
    shown.resize(40, 10);
    EXPECT_TRUE(shown.comes_to([&] {
        return shown.screen().size() == 10 && last_line(shown).find("q quit") == 0;
    })) << shown.text();
    EXPECT_TRUE(shown.shows("99%"));
    shown.resize(80, 24);
    EXPECT_TRUE(shown.comes_to([&] {
        return shown.screen().size() == 24 && last_line(shown).find("q quit") == 0;
    })) << shown.text();
    EXPECT_TRUE(shown.shows("read_ahead:120"));
}

TEST_F(OnTerminal, top_bears_a_terminal_of_almost_no_size)
{
    const auto process = busy_console();
    const terminal shown(folder(), 10, 2, command("top --interval 3600"));

    EXPECT_TRUE(shown.shows("q quit"));
    shown.resize(80, 24);
    EXPECT_TRUE(shown.shows("SGL_PARTITION"));
}

TEST_F(OnTerminal, top_says_that_the_process_went_away_and_is_there_when_it_comes_back)
{
    std::unique_ptr<fake_console> process = busy_console();
    const terminal shown(folder(), 80, 24, command("top --interval 0.1"));
    ASSERT_TRUE(shown.shows("SGL_PARTITION"));

    process.reset();
    EXPECT_TRUE(shown.shows("No such file or directory"));
    EXPECT_THAT(shown.text(), HasSubstr("SGL_PARTITION"));

    process = console([](const std::string &line) {
        node_sample sample = busy_node();
        sample.pools.pools[1].name = "NEW PARTITION";
        return told(sample, line);
    });
    EXPECT_TRUE(shown.shows("NEW PARTITION"));
    EXPECT_TRUE(shown.shows_no("No such file or directory"));
    shown.press({"q"});
    EXPECT_EQ(shown.exit_code(), 0);
}

TEST_F(OnTerminal, top_says_that_a_process_is_silent_and_still_hears_keys)
{
    std::atomic<bool> is_silent = false;
    const auto process = console([&](const std::string &line) {
        return is_silent ? scripted_answer{} : told(busy_node(), line);
    });
    const terminal shown(folder(), 80, 24, command("top --interval 0.1"));
    ASSERT_TRUE(shown.shows("SGL_PARTITION"));

    is_silent = true;
    EXPECT_TRUE(shown.shows(": no answer"));
    shown.press({"s"});
    EXPECT_TRUE(shown.shows("sort: name"));
    shown.press({"q"});
    EXPECT_EQ(shown.exit_code(), 0);
}

TEST_F(OnTerminal, top_says_that_an_answer_is_none)
{
    std::atomic<bool> is_broken = false;
    const auto process = console([&](const std::string &line) {
        return is_broken ? says("nonsense") : told(busy_node(), line);
    });
    const terminal shown(folder(), 80, 24, command("top --interval 0.1"));
    ASSERT_TRUE(shown.shows("SGL_PARTITION"));

    is_broken = true;
    EXPECT_TRUE(shown.shows("no JSON came: nonsense"));
    is_broken = false;
    EXPECT_TRUE(shown.shows_no("no JSON came"));
}

TEST_F(OnTerminal, the_prompt_completes_answers_and_remembers)
{
    const auto process = console([](const std::string &line) {
        if (line == "--json help")
            return says(R"({"commands":[{"words":"umm show pools","help":"","json":true}]})");
        return says("answer to " + line + "\n");
    });
    const terminal shown(folder(), 80, 24, command(""));

    ASSERT_TRUE(shown.shows("cmm>"));
    shown.type("u");
    shown.press({"Tab"});
    EXPECT_TRUE(shown.shows("cmm> umm"));
    shown.type("show po");
    shown.press({"Tab", "Enter"});
    EXPECT_TRUE(shown.shows("answer to umm show pools"));
    shown.press({"Up"});
    EXPECT_TRUE(shown.comes_to([&] {
        const std::string text = shown.text();
        return text.find("cmm> umm show pools", text.find("answer to")) != std::string::npos;
    }));
    shown.type(" x");
    shown.press({"Enter"});
    EXPECT_TRUE(shown.shows("answer to umm show pools x"));
    shown.press({"C-d"});
    EXPECT_EQ(shown.exit_code(), 0);
}

TEST_F(OnTerminal, the_prompt_shows_what_could_be_meant)
{
    const auto process = console([](const std::string &) {
        return says(R"({"commands":[{"words":"umm show pools"},)"
                    R"({"words":"umm show pool <name>"}]})");
    });
    const terminal shown(folder(), 80, 24, command(""));

    ASSERT_TRUE(shown.shows("cmm>"));
    shown.type("umm show p");
    shown.press({"Tab", "Tab"});
    EXPECT_TRUE(shown.shows("pool  pools"));
    EXPECT_TRUE(shown.comes_to([&] {
        return shown.text().find("cmm> umm show pool", shown.text().find("pool  pools")) !=
               std::string::npos;
    }));
}

TEST_F(OnTerminal, the_prompt_knows_every_level)
{
    const auto process = console([](const std::string &) {
        return says(R"({"commands":[{"words":"log level <module> <level>"}]})");
    });
    const terminal shown(folder(), 80, 24, command(""));

    ASSERT_TRUE(shown.shows("cmm>"));
    shown.type("log level 386 ");
    shown.press({"Tab", "Tab"});
    EXPECT_TRUE(shown.shows("debug  default  error  fatal  info  notice  warning"));
    shown.type("n");
    shown.press({"Tab"});
    EXPECT_TRUE(shown.shows("cmm> log level 386 notice"));
}

TEST_F(OnTerminal, the_prompt_s_history_outlives_it)
{
    const auto process = console([](const std::string &line) {
        return line == "--json help" ? says(R"({"commands":[]})") : says("answer to " + line);
    });
    {
        const terminal first(folder(), 80, 24, command(""));
        ASSERT_TRUE(first.shows("cmm>"));
        first.type("umm show numa");
        first.press({"Enter"});
        ASSERT_TRUE(first.shows("answer to umm show numa"));
        first.type("quit");
        first.press({"Enter"});
        EXPECT_EQ(first.exit_code(), 0);
    }
    const terminal second(folder(), 80, 24, command(""));
    ASSERT_TRUE(second.shows("cmm>"));
    second.press({"Up", "Up", "Enter"});
    EXPECT_TRUE(second.shows("answer to umm show numa"));
}

TEST_F(OnTerminal, an_interrupt_drops_the_line_and_not_the_prompt)
{
    const auto process = console([](const std::string &line) {
        return line == "--json help" ? says(R"({"commands":[]})") : says("answer to " + line);
    });
    const terminal shown(folder(), 80, 24, command(""));

    ASSERT_TRUE(shown.shows("cmm>"));
    shown.type("half a li");
    ASSERT_TRUE(shown.shows("half a li"));
    shown.press({"C-c"});
    /* The terminal drops what is typed in the moment of an interrupt. */
    ASSERT_TRUE(shown.comes_to([&] {
        const std::string text = shown.text();
        return text.find("cmm>") != text.rfind("cmm>");
    }));
    shown.type("whole");
    shown.press({"Enter"});
    EXPECT_TRUE(shown.shows("answer to whole"));
}

TEST_F(OnTerminal, the_prompt_tells_of_a_process_that_went_away_and_finds_it_again)
{
    const auto answers = [](const std::string &line) {
        return line == "--json help" ? says(R"({"commands":[]})") : says("answer to " + line);
    };
    std::unique_ptr<fake_console> process = console(answers);
    const terminal shown(folder(), 80, 24, command(""));
    ASSERT_TRUE(shown.shows("cmm>"));

    process.reset();
    shown.type("one");
    shown.press({"Enter"});
    EXPECT_TRUE(shown.shows("closed the connection"));
    process = console(answers);
    shown.type("two");
    shown.press({"Enter"});
    EXPECT_TRUE(shown.shows("answer to two"));
}
