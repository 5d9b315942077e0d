/*
 * Numbers from text, to the last digit.
 */
#include "zyax.h"

#include <gtest/gtest.h>

TEST(ZyaxNumber, an_unsigned_decimal_number_may_have_white_space_around_it_and_nothing_else)
{
    EXPECT_EQ(zyax_str_isuint("0"), 0);
    EXPECT_EQ(zyax_str_isuint("00012"), 0);
    EXPECT_EQ(zyax_str_isuint(" \t\n\v\f\r12 \t\n\v\f\r"), 0);
    EXPECT_NE(zyax_str_isuint("1 2"), 0);
    EXPECT_NE(zyax_str_isuint("12x"), 0);
    EXPECT_NE(zyax_str_isuint("x12"), 0);
    EXPECT_NE(zyax_str_isuint("+1"), 0);
    EXPECT_NE(zyax_str_isuint("-1"), 0);
    EXPECT_NE(zyax_str_isuint("0x1"), 0);
    EXPECT_NE(zyax_str_isuint("1.0"), 0);
    EXPECT_NE(zyax_str_isuint(""), 0);
    EXPECT_NE(zyax_str_isuint("  "), 0);
    EXPECT_NE(zyax_str_isuint(nullptr), 0);
}

TEST(ZyaxNumber, an_unsigned_number_fits_64_bits)
{
    EXPECT_EQ(zyax_str_isuint("18446744073709551615"), 0);
    EXPECT_NE(zyax_str_isuint("18446744073709551616"), 0);
    EXPECT_NE(zyax_str_isuint("99999999999999999999999999"), 0);
    EXPECT_EQ(zyax_str_isuint("000000000000000000000000000018446744073709551615"), 0);
}

TEST(ZyaxNumber, tou64_reads_decimal_and_after_0x_hexadecimal)
{
    EXPECT_EQ(zyax_str_tou64("0"), 0u);
    EXPECT_EQ(zyax_str_tou64(" 8320\n"), 8320u);
    EXPECT_EQ(zyax_str_tou64("010"), 10u);
    EXPECT_EQ(zyax_str_tou64("0x10"), 16u);
    EXPECT_EQ(zyax_str_tou64(" 0x7fFF "), 32767u);
    EXPECT_EQ(zyax_str_tou64("0X1F"), 31u);
    EXPECT_EQ(zyax_str_tou64("1f"), 1u);
    EXPECT_EQ(zyax_str_tou64("18446744073709551615"), 18446744073709551615u);
    EXPECT_EQ(zyax_str_tou64("0xffffffffffffffff"), 18446744073709551615u);
}

TEST(ZyaxNumber, tou64_answers_0_for_what_is_no_number)
{
    EXPECT_EQ(zyax_str_tou64(nullptr), 0u);
    EXPECT_EQ(zyax_str_tou64(""), 0u);
    EXPECT_EQ(zyax_str_tou64("  "), 0u);
    EXPECT_EQ(zyax_str_tou64("0x"), 0u);
    EXPECT_EQ(zyax_str_tou64("0xg"), 0u);
    EXPECT_EQ(zyax_str_tou64("abc"), 0u);
    EXPECT_EQ(zyax_str_tou64("-1"), 0u);
    EXPECT_EQ(zyax_str_tou64("+1"), 0u);
    EXPECT_EQ(zyax_str_tou64("18446744073709551616"), 0u);
    EXPECT_EQ(zyax_str_tou64("0x10000000000000000"), 0u);
}

TEST(ZyaxNumber, tos64_reads_decimal_with_a_sign)
{
    EXPECT_EQ(zyax_str_tos64("0"), 0);
    EXPECT_EQ(zyax_str_tos64(" 17\n"), 17);
    EXPECT_EQ(zyax_str_tos64("+17"), 17);
    EXPECT_EQ(zyax_str_tos64(" -17 "), -17);
    EXPECT_EQ(zyax_str_tos64("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(zyax_str_tos64("-9223372036854775808"), INT64_MIN);
}

TEST(ZyaxNumber, tos64_answers_0_for_what_is_no_number)
{
    EXPECT_EQ(zyax_str_tos64(nullptr), 0);
    EXPECT_EQ(zyax_str_tos64(""), 0);
    EXPECT_EQ(zyax_str_tos64("-"), 0);
    EXPECT_EQ(zyax_str_tos64("--1"), 0);
    EXPECT_EQ(zyax_str_tos64("- 1"), 0);
    EXPECT_EQ(zyax_str_tos64("x"), 0);
    EXPECT_EQ(zyax_str_tos64("9223372036854775808"), 0);
    EXPECT_EQ(zyax_str_tos64("-9223372036854775809"), 0);
    EXPECT_EQ(zyax_str_tos64("18446744073709551617"), 0);
}
