/*
 * Answers in one piece, in many, and such as no console sends.
 */
#include <gtest/gtest.h>

#include "answer_reader.h"

TEST(AnswerReader, an_answer_in_one_piece_is_done_at_once)
{
    answer_reader reader;

    ASSERT_EQ(reader.take("ok 5\nhello"), reading::DONE);
    const console_answer answer = reader.release();
    EXPECT_TRUE(answer.ok);
    EXPECT_EQ(answer.text, "hello");
}

TEST(AnswerReader, an_error_is_no_success)
{
    answer_reader reader;

    ASSERT_EQ(reader.take("error 3\nno\n"), reading::DONE);
    const console_answer answer = reader.release();
    EXPECT_FALSE(answer.ok);
    EXPECT_EQ(answer.text, "no\n");
}

TEST(AnswerReader, an_answer_byte_by_byte_is_the_same)
{
    const std::string bytes = "ok 11\nhello\nworld";
    answer_reader reader;

    for (size_t i = 0; i + 1 < bytes.size(); ++i)
        ASSERT_EQ(reader.take(bytes.substr(i, 1)), reading::MORE) << i;
    ASSERT_EQ(reader.take("d"), reading::DONE);
    EXPECT_EQ(reader.release().text, "hello\nworld");
}

TEST(AnswerReader, an_empty_answer_is_done_with_its_head)
{
    answer_reader reader;

    ASSERT_EQ(reader.take("ok 0"), reading::MORE);
    ASSERT_EQ(reader.take("\n"), reading::DONE);
    EXPECT_EQ(reader.release().text, "");
}

TEST(AnswerReader, zero_bytes_and_ends_of_line_belong_to_the_text)
{
    answer_reader reader;

    ASSERT_EQ(reader.take(std::string_view("ok 4\n\0\n\0x", 9)), reading::DONE);
    EXPECT_EQ(reader.release().text, std::string("\0\n\0x", 4));
}

TEST(AnswerReader, the_next_answer_begins_anew)
{
    answer_reader reader;

    reader.take("error 1\nx");
    reader.release();
    EXPECT_FALSE(reader.is_within());
    ASSERT_EQ(reader.take("ok 2\nyz"), reading::DONE);
    const console_answer answer = reader.release();
    EXPECT_TRUE(answer.ok);
    EXPECT_EQ(answer.text, "yz");
}

TEST(AnswerReader, it_knows_whether_it_is_within_an_answer)
{
    answer_reader reader;

    EXPECT_FALSE(reader.is_within());
    reader.take("o");
    EXPECT_TRUE(reader.is_within());
    reader.take("k 3\n");
    EXPECT_TRUE(reader.is_within());
}

TEST(AnswerReader, more_than_announced_is_a_fault)
{
    answer_reader reader;

    EXPECT_EQ(reader.take("ok 2\nabc"), reading::BROKEN);
    EXPECT_EQ(reader.fault(), "more came than the answer announced");
}

TEST(AnswerReader, nothing_more_is_read_after_a_fault)
{
    answer_reader reader;

    reader.take("ok 2\nabc");
    EXPECT_EQ(reader.take("ok 1\nx"), reading::BROKEN);
}

struct broken_head {
    const char *bytes;
    const char *fault;
};

class BrokenHead : public ::testing::TestWithParam<broken_head>
{
};

TEST_P(BrokenHead, is_a_fault_that_shows_it)
{
    answer_reader reader;

    EXPECT_EQ(reader.take(GetParam().bytes), reading::BROKEN);
    EXPECT_EQ(reader.fault(), GetParam().fault);
}

INSTANTIATE_TEST_SUITE_P(
    AnswerReader, BrokenHead,
    ::testing::Values(
        broken_head{"\n", "the answer begins with \"\""},
        broken_head{"ok\n", "the answer begins with \"ok\""},
        broken_head{"ok \n", "the answer begins with \"ok \""},
        broken_head{"ok five\n", "the answer begins with \"ok five\""},
        broken_head{"ok 5 \nhello", "the answer begins with \"ok 5 \""},
        broken_head{"ok  5\nhello", "the answer begins with \"ok  5\""},
        broken_head{"ok -1\n", "the answer begins with \"ok -1\""},
        broken_head{"ok +1\nx", "the answer begins with \"ok +1\""},
        broken_head{"okay 5\nhello", "the answer begins with \"okay 5\""},
        broken_head{" ok 5\nhello", "the answer begins with \" ok 5\""},
        broken_head{"OK 5\nhello", "the answer begins with \"OK 5\""},
        broken_head{"ok 99999999999999999999999\n",
                    "the answer begins with \"ok 99999999999999999999999\""},
        broken_head{"HTTP/1.1 400 Bad Request\r\n",
                    "the answer begins with \"HTTP/1.1 400 Bad Request?\""},
        broken_head{"\x1b[2J\n", "the answer begins with \"?[2J\""},
        broken_head{"0123456789012345678901234567890123456789",
                    "the answer begins with \"01234567890123456789012345678901\""}));

TEST(AnswerReader, a_head_without_an_end_is_a_fault_before_it_fills_memory)
{
    const std::string endless(20, 'x');
    answer_reader reader;

    EXPECT_EQ(reader.take(endless), reading::MORE);
    EXPECT_EQ(reader.take(endless), reading::BROKEN);
}

TEST(AnswerReader, the_largest_answer_is_believed_and_one_byte_more_is_not)
{
    answer_reader largest, larger;

    EXPECT_EQ(largest.take("ok 33554432\n"), reading::MORE);
    EXPECT_EQ(larger.take("ok 33554433\n"), reading::BROKEN);
    EXPECT_EQ(larger.fault(), "an answer of 33554433 bytes is announced");
}
