/*
 * Rates from two samples, and when there are none.
 */
#include <gtest/gtest.h>

#include "rates.h"

namespace {

pools_report counted(uint64_t now_ms, uint64_t allocs, uint64_t frees)
{
    pools_report report;
    pool_report pool;

    report.now_ms = now_ms;
    pool.name = "pages";
    pool.handle = "0x1";
    pool.allocs = allocs;
    pool.frees = frees;
    report.pools = {pool};
    return report;
}

} // namespace

TEST(Rates, are_differences_over_the_process_s_own_time)
{
    const pool_rates rates = rates_between(counted(1000, 100, 50), counted(3000, 700, 51));

    ASSERT_EQ(rates.count("0x1"), 1u);
    EXPECT_DOUBLE_EQ(rates.at("0x1").allocs, 300);
    EXPECT_DOUBLE_EQ(rates.at("0x1").frees, 0.5);
}

TEST(Rates, an_idle_pool_has_the_rate_0)
{
    const pool_rates rates = rates_between(counted(1000, 7, 7), counted(2000, 7, 7));

    ASSERT_EQ(rates.count("0x1"), 1u);
    EXPECT_DOUBLE_EQ(rates.at("0x1").allocs, 0);
}

TEST(Rates, a_counter_that_fell_has_no_rate)
{
    EXPECT_TRUE(rates_between(counted(1000, 100, 50), counted(2000, 99, 50)).empty());
    EXPECT_TRUE(rates_between(counted(1000, 100, 50), counted(2000, 100, 49)).empty());
}

TEST(Rates, a_clock_that_went_back_or_stood_still_gives_none)
{
    EXPECT_TRUE(rates_between(counted(2000, 1, 1), counted(2000, 9, 9)).empty());
    EXPECT_TRUE(rates_between(counted(2000, 1, 1), counted(1000, 9, 9)).empty());
}

TEST(Rates, a_new_pool_has_none_and_a_deleted_one_is_forgotten)
{
    pools_report now = counted(2000, 200, 0);
    now.pools[0].handle = "0x2";

    EXPECT_TRUE(rates_between(counted(1000, 100, 0), now).empty());
}

TEST(Rates, another_pool_under_the_same_handle_has_none)
{
    pools_report now = counted(2000, 200, 100);
    now.pools[0].name = "sgls";

    EXPECT_TRUE(rates_between(counted(1000, 100, 50), now).empty());
}

TEST(Rates, counters_beyond_32_bits_are_exact)
{
    const pool_rates rates = rates_between(counted(1000, 18446744073709551000u, 0),
                                           counted(2000, 18446744073709551010u, 0));

    EXPECT_DOUBLE_EQ(rates.at("0x1").allocs, 10);
}
