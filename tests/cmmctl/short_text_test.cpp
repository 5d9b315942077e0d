/*
 * Numbers in few characters; the edges where a unit ends.
 */
#include <gtest/gtest.h>

#include "short_text.h"

TEST(ShortText, counts_up_to_four_digits_are_whole)
{
    EXPECT_EQ(short_count(0), "0");
    EXPECT_EQ(short_count(7), "7");
    EXPECT_EQ(short_count(9999), "9999");
}

TEST(ShortText, small_rates_keep_a_digit_behind_the_point)
{
    EXPECT_EQ(short_count(0.5), "0.5");
    EXPECT_EQ(short_count(9.94), "9.9");
    EXPECT_EQ(short_count(9.96), "10");
    EXPECT_EQ(short_count(12.4), "12");
}

TEST(ShortText, larger_counts_have_a_unit)
{
    EXPECT_EQ(short_count(9999.6), "10.0k");
    EXPECT_EQ(short_count(10000), "10.0k");
    EXPECT_EQ(short_count(12345), "12.3k");
    EXPECT_EQ(short_count(99949), "99.9k");
    EXPECT_EQ(short_count(99950), "100k");
    EXPECT_EQ(short_count(999499), "999k");
    EXPECT_EQ(short_count(999999), "1.0M");
    EXPECT_EQ(short_count(1234567890), "1.2G");
    EXPECT_EQ(short_count(18446744073709551615.0), "18447P");
}

TEST(ShortText, bytes_go_in_steps_of_1024)
{
    EXPECT_EQ(short_bytes(0), "0");
    EXPECT_EQ(short_bytes(1023), "1023");
    EXPECT_EQ(short_bytes(1024), "1.0K");
    EXPECT_EQ(short_bytes(1536), "1.5K");
    EXPECT_EQ(short_bytes(102400), "100K");
    EXPECT_EQ(short_bytes(1048575), "1.0M");
    EXPECT_EQ(short_bytes(16777216), "16.0M");
    EXPECT_EQ(short_bytes(18446744073709551615u), "16.0E");
}

TEST(ShortText, ages_show_the_two_units_that_matter)
{
    EXPECT_EQ(short_age(0), "0.0s");
    EXPECT_EQ(short_age(999), "0.9s");
    EXPECT_EQ(short_age(59999), "59.9s");
    EXPECT_EQ(short_age(60000), "1m00s");
    EXPECT_EQ(short_age(3599999), "59m59s");
    EXPECT_EQ(short_age(3600000), "1h00m");
    EXPECT_EQ(short_age(86399999), "23h59m");
    EXPECT_EQ(short_age(86400000), "1d00h");
    EXPECT_EQ(short_age(8640000000), "100d00h");
}
