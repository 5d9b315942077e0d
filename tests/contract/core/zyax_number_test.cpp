/*
 * Numbers from text.
 */
#include <gtest/gtest.h>

#include "zyax.h"

TEST(NumberTest, plain_decimal_numbers_are_unsigned_numbers)
{
    EXPECT_EQ(zyax_str_isuint("0"), 0);
    EXPECT_EQ(zyax_str_isuint("8320"), 0);
    EXPECT_EQ(zyax_str_isuint("007"), 0);
    EXPECT_EQ(zyax_str_isuint("18446744073709551615"), 0);
}

TEST(NumberTest, white_space_around_a_number_is_allowed)
{
    EXPECT_EQ(zyax_str_isuint(" 12"), 0);
    EXPECT_EQ(zyax_str_isuint("12 "), 0);
    EXPECT_EQ(zyax_str_isuint("\t\n 12 \r\n"), 0);
}

TEST(NumberTest, nothing_but_digits_may_stand_between)
{
    EXPECT_NE(zyax_str_isuint("1 2"), 0);
    EXPECT_NE(zyax_str_isuint("12a"), 0);
    EXPECT_NE(zyax_str_isuint("a12"), 0);
    EXPECT_NE(zyax_str_isuint("1.5"), 0);
    EXPECT_NE(zyax_str_isuint("1,000"), 0);
}

TEST(NumberTest, signs_and_hexadecimal_are_no_unsigned_numbers)
{
    EXPECT_NE(zyax_str_isuint("+1"), 0);
    EXPECT_NE(zyax_str_isuint("-1"), 0);
    EXPECT_NE(zyax_str_isuint("0x10"), 0);
}

TEST(NumberTest, a_text_without_digits_is_no_number)
{
    EXPECT_NE(zyax_str_isuint(""), 0);
    EXPECT_NE(zyax_str_isuint("   "), 0);
    EXPECT_NE(zyax_str_isuint(nullptr), 0);
}

TEST(NumberTest, a_number_of_more_than_64_bits_is_none)
{
    EXPECT_NE(zyax_str_isuint("18446744073709551616"), 0);
    EXPECT_NE(zyax_str_isuint("99999999999999999999999"), 0);
}

TEST(UnsignedNumber, is_read_from_decimal_text)
{
    EXPECT_EQ(zyax_str_tou64("0"), 0u);
    EXPECT_EQ(zyax_str_tou64("4096"), 4096u);
    EXPECT_EQ(zyax_str_tou64("010"), 10u);
    EXPECT_EQ(zyax_str_tou64("18446744073709551615"), 18446744073709551615u);
}

TEST(UnsignedNumber, is_read_from_hexadecimal_text)
{
    EXPECT_EQ(zyax_str_tou64("0x10"), 16u);
    EXPECT_EQ(zyax_str_tou64("0xfF"), 255u);
    EXPECT_EQ(zyax_str_tou64("0xffffffffffffffff"), 18446744073709551615u);
}

TEST(UnsignedNumber, may_have_white_space_around_it)
{
    EXPECT_EQ(zyax_str_tou64("  77\n"), 77u);
    EXPECT_EQ(zyax_str_tou64("\t0x1F "), 31u);
}

TEST(UnsignedNumber, of_null_or_without_digits_is_0)
{
    EXPECT_EQ(zyax_str_tou64(nullptr), 0u);
    EXPECT_EQ(zyax_str_tou64(""), 0u);
    EXPECT_EQ(zyax_str_tou64(" "), 0u);
    EXPECT_EQ(zyax_str_tou64("0x"), 0u);
    EXPECT_EQ(zyax_str_tou64("many"), 0u);
}

TEST(UnsignedNumber, that_overflows_is_0)
{
    EXPECT_EQ(zyax_str_tou64("18446744073709551616"), 0u);
    EXPECT_EQ(zyax_str_tou64("0x10000000000000000"), 0u);
}

TEST(SignedNumber, is_read_with_either_sign)
{
    EXPECT_EQ(zyax_str_tos64("12"), 12);
    EXPECT_EQ(zyax_str_tos64("-12"), -12);
    EXPECT_EQ(zyax_str_tos64("+12"), 12);
    EXPECT_EQ(zyax_str_tos64(" -12 "), -12);
}

TEST(SignedNumber, reaches_both_ends_of_its_range)
{
    EXPECT_EQ(zyax_str_tos64("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(zyax_str_tos64("-9223372036854775808"), INT64_MIN);
}

TEST(SignedNumber, that_overflows_or_has_no_digits_is_0)
{
    EXPECT_EQ(zyax_str_tos64("9223372036854775808"), 0);
    EXPECT_EQ(zyax_str_tos64("-9223372036854775809"), 0);
    EXPECT_EQ(zyax_str_tos64(nullptr), 0);
    EXPECT_EQ(zyax_str_tos64(""), 0);
    EXPECT_EQ(zyax_str_tos64("-"), 0);
}
