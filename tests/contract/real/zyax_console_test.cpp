/*
 * Console text: standard output without a command, the command's call-back within one.
 */
#include "dbg_console.h"
#include "zyax_console.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using pieces = std::vector<std::string>;

static void keep(void *ctx, const char *text, size_t length)
{
    static_cast<pieces *>(ctx)->emplace_back(text, length);
}

TEST(ZyaxConsole, without_a_command_text_goes_to_standard_output_at_once)
{
    testing::internal::CaptureStdout();
    DBG_Print("one %d\n", 1);
    DBG_PrintBuf("two %s\n", "2");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "one 1\ntwo 2\n");
}

TEST(ZyaxConsole, a_commands_gathered_text_comes_in_one_piece_at_its_end)
{
    pieces got;
    zyax_console_begin(keep, &got);
    DBG_PrintBuf("gathered %d ", 1);
    DBG_Print("at once");
    DBG_PrintBuf("gathered %d", 2);
    EXPECT_EQ(got, (pieces{"at once"}));
    zyax_console_end();

    EXPECT_EQ(got, (pieces{"at once", "gathered 1 gathered 2"}));
}

TEST(ZyaxConsole, a_command_that_prints_nothing_delivers_nothing)
{
    pieces got;
    zyax_console_begin(keep, &got);
    DBG_Print("%s", "");
    DBG_PrintBuf("%s", "");
    zyax_console_end();

    EXPECT_EQ(got, pieces{});
}

TEST(ZyaxConsole, after_a_command_text_goes_to_standard_output_again)
{
    pieces got;
    zyax_console_begin(keep, &got);
    zyax_console_end();
    testing::internal::CaptureStdout();
    DBG_Print("text");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "text");
    EXPECT_EQ(got, pieces{});
}

TEST(ZyaxConsole, an_inner_commands_text_is_its_own)
{
    pieces outer;
    pieces inner;
    zyax_console_begin(keep, &outer);
    DBG_PrintBuf("a");
    zyax_console_begin(keep, &inner);
    DBG_PrintBuf("b");
    DBG_Print("c");
    zyax_console_end();
    DBG_PrintBuf("d");
    zyax_console_end();

    EXPECT_EQ(inner, (pieces{"c", "b"}));
    EXPECT_EQ(outer, (pieces{"ad"}));
}

TEST(ZyaxConsole, a_command_sees_its_own_threads_text_only)
{
    pieces mine;
    pieces others;
    zyax_console_begin(keep, &mine);
    std::thread([&] {
        zyax_console_begin(keep, &others);
        DBG_PrintBuf("theirs");
        zyax_console_end();
    }).join();
    DBG_Print("mine");
    zyax_console_end();

    EXPECT_EQ(mine, (pieces{"mine"}));
    EXPECT_EQ(others, (pieces{"theirs"}));
}

TEST(ZyaxConsole, eight_threads_commands_do_not_mix)
{
    std::vector<pieces> got(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < 8; ++i) {
        threads.emplace_back([&got, i] {
            zyax_console_begin(keep, &got[i]);
            for (int line = 0; line < 1000; ++line)
                DBG_PrintBuf("%zu", i);
            zyax_console_end();
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(got[0], (pieces{std::string(1000, '0')}));
    EXPECT_EQ(got[3], (pieces{std::string(1000, '3')}));
    EXPECT_EQ(got[7], (pieces{std::string(1000, '7')}));
}

TEST(ZyaxConsole, a_text_of_any_length_arrives_whole)
{
    const std::string text(100000, 'x');
    pieces got;
    zyax_console_begin(keep, &got);
    DBG_Print("%s", text.c_str());
    DBG_PrintBuf("%s%s", text.c_str(), "end");
    zyax_console_end();

    EXPECT_EQ(got, (pieces{text, text + "end"}));
}

static void print_again(void *ctx, const char *text, size_t length)
{
    keep(ctx, text, length);
    DBG_PrintBuf("again ");
}

TEST(ZyaxConsole, a_call_back_may_print)
{
    pieces got;
    testing::internal::CaptureStdout();
    zyax_console_begin(print_again, &got);
    DBG_Print("first");
    zyax_console_end();

    EXPECT_EQ(got, (pieces{"first", "again "}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "again ");
}

TEST(ZyaxConsole, misuse_is_survived)
{
    void (*const print)(const char *, ...) = DBG_Print; /* the compiler would warn */
    void (*const print_buf)(const char *, ...) = DBG_PrintBuf;
    testing::internal::CaptureStdout();
    zyax_console_end();
    zyax_console_begin(nullptr, nullptr);
    DBG_Print("text");
    print(nullptr);
    print_buf(nullptr);
    zyax_console_end();

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "text");
}
