/*
 * Bounded memory and text functions.
 */
#include <gtest/gtest.h>

#include <cstring>

#include "bounded.h"

namespace
{

struct text {
    char bytes[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};

    std::string all() const
    {
        return std::string(bytes, sizeof bytes);
    }
};

} // namespace

TEST(BoundedCopy, copies_exactly_the_count)
{
    text to;
    EXPECT_EQ(memcpy_s(to.bytes, 8, "abcd", 3), 0);
    EXPECT_EQ(to.all(), "abc#####");
}

TEST(BoundedCopy, fills_the_whole_destination_when_the_count_is_its_size)
{
    text to;
    EXPECT_EQ(memcpy_s(to.bytes, 8, "abcdefgh", 8), 0);
    EXPECT_EQ(to.all(), "abcdefgh");
}

TEST(BoundedCopy, refuses_more_than_the_destination_and_copies_nothing)
{
    text to;
    EXPECT_NE(memcpy_s(to.bytes, 2, "abc", 3), 0);
    EXPECT_EQ(to.all(), "########");
}

TEST(BoundedCopy, refuses_null_pointers)
{
    text to;
    EXPECT_NE(memcpy_s(nullptr, 8, "abc", 3), 0);
    EXPECT_NE(memcpy_s(to.bytes, 8, nullptr, 3), 0);
    EXPECT_EQ(to.all(), "########");
}

TEST(BoundedCopy, of_nothing_between_valid_pointers_succeeds)
{
    text to;
    EXPECT_EQ(memcpy_s(to.bytes, 8, "abc", 0), 0);
    EXPECT_EQ(memcpy_s(to.bytes, 0, "abc", 0), 0);
    EXPECT_EQ(to.all(), "########");
}

TEST(BoundedCopy, refuses_ranges_that_overlap_by_one_byte_in_either_direction)
{
    char bytes[] = "abcdefgh";
    EXPECT_NE(memcpy_s(bytes + 3, 5, bytes, 4), 0);
    EXPECT_NE(memcpy_s(bytes, 8, bytes + 3, 4), 0);
    EXPECT_STREQ(bytes, "abcdefgh");
}

TEST(BoundedCopy, accepts_ranges_that_touch)
{
    char bytes[] = "abcdefgh";
    EXPECT_EQ(memcpy_s(bytes + 4, 4, bytes, 4), 0);
    EXPECT_STREQ(bytes, "abcdabcd");
}

TEST(BoundedFill, fills_exactly_the_count)
{
    text to;
    EXPECT_EQ(memset_s(to.bytes, 8, 'x', 5), 0);
    EXPECT_EQ(to.all(), "xxxxx###");
}

TEST(BoundedFill, of_nothing_succeeds)
{
    text to;
    EXPECT_EQ(memset_s(to.bytes, 8, 'x', 0), 0);
    EXPECT_EQ(to.all(), "########");
}

TEST(BoundedFill, refuses_more_than_the_destination_and_writes_nothing)
{
    text to;
    EXPECT_NE(memset_s(to.bytes, 4, 'x', 5), 0);
    EXPECT_EQ(to.all(), "########");
}

TEST(BoundedFill, refuses_a_null_destination)
{
    EXPECT_NE(memset_s(nullptr, 8, 0, 8), 0);
}

TEST(BoundedText, copies_a_text_with_its_terminator_and_nothing_behind_it)
{
    text to;
    EXPECT_EQ(strncpy_s(to.bytes, 8, "abc", 7), 0);
    EXPECT_EQ(to.all(), std::string("abc\0####", 8));
}

TEST(BoundedText, is_cut_silently_at_the_count)
{
    text to;
    EXPECT_EQ(strncpy_s(to.bytes, 8, "abcdefghijkl", 7), 0);
    EXPECT_STREQ(to.bytes, "abcdefg");
}

TEST(BoundedText, reads_no_more_than_the_count_of_a_source_without_terminator)
{
    const char source[3] = {'a', 'b', 'c'};
    text       to;
    EXPECT_EQ(strncpy_s(to.bytes, 8, source, 3), 0);
    EXPECT_STREQ(to.bytes, "abc");
}

TEST(BoundedText, that_does_not_fit_fails_and_empties_the_destination)
{
    text to;
    EXPECT_NE(strncpy_s(to.bytes, 4, "abcd", 4), 0);
    EXPECT_STREQ(to.bytes, "");
}

TEST(BoundedText, shorter_than_the_destination_fits_whatever_the_count)
{
    text to;
    EXPECT_EQ(strncpy_s(to.bytes, 4, "abc", 100), 0);
    EXPECT_STREQ(to.bytes, "abc");
}

TEST(BoundedText, of_a_null_source_fails_and_empties_the_destination)
{
    text to;
    EXPECT_NE(strncpy_s(to.bytes, 8, nullptr, 7), 0);
    EXPECT_STREQ(to.bytes, "");
}

TEST(BoundedText, refuses_a_destination_that_is_null_or_has_no_room)
{
    text to;
    EXPECT_NE(strncpy_s(nullptr, 8, "abc", 7), 0);
    EXPECT_NE(strncpy_s(to.bytes, 0, "abc", 7), 0);
    EXPECT_EQ(to.all(), "########");
}

TEST(BoundedText, with_a_count_of_nothing_is_empty)
{
    text to;
    EXPECT_EQ(strncpy_s(to.bytes, 8, "abc", 0), 0);
    EXPECT_STREQ(to.bytes, "");
}

TEST(BoundedFormat, answers_the_length)
{
    text to;
    EXPECT_EQ(snprintf_s(to.bytes, 8, 7, "%d-%s", 12, "ab"), 5);
    EXPECT_STREQ(to.bytes, "12-ab");
}

TEST(BoundedFormat, of_exactly_the_count_fits)
{
    text to;
    EXPECT_EQ(snprintf_s(to.bytes, 8, 4, "%s", "abcd"), 4);
    EXPECT_STREQ(to.bytes, "abcd");
}

TEST(BoundedFormat, longer_than_the_count_is_left_cut_and_terminated)
{
    text to;
    EXPECT_EQ(snprintf_s(to.bytes, 8, 4, "%s", "abcdef"), -1);
    EXPECT_STREQ(to.bytes, "abcd");
}

TEST(BoundedFormat, longer_than_the_destination_is_left_cut_and_terminated)
{
    text to;
    EXPECT_EQ(snprintf_s(to.bytes, 8, 7, "%s", "abcdefghij"), -1);
    EXPECT_STREQ(to.bytes, "abcdefg");
}

TEST(BoundedFormat, of_nothing_has_no_length)
{
    text to;
    EXPECT_EQ(snprintf_s(to.bytes, 8, 7, "%s", ""), 0);
    EXPECT_STREQ(to.bytes, "");
}

TEST(BoundedFormat, refuses_a_destination_that_is_null_or_has_no_room)
{
    text to;
    EXPECT_EQ(snprintf_s(nullptr, 8, 7, "%s", "a"), -1);
    EXPECT_EQ(snprintf_s(to.bytes, 0, 0, "%s", "a"), -1);
    EXPECT_EQ(to.all(), "########");
}
