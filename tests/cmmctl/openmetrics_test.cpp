/*
 * The text of figures, down to its bytes.
 */
#include <gtest/gtest.h>

#include "openmetrics.h"

TEST(OpenMetrics, nothing_is_just_the_end)
{
    EXPECT_EQ(openmetrics_text({}), "# EOF\n");
}

TEST(OpenMetrics, a_gauge_with_a_unit)
{
    EXPECT_EQ(openmetrics_text({{"cmm_memory_bytes", metric_type::GAUGE, "bytes", "Memory.",
                                 {{{}, "12"}}}}),
              "# TYPE cmm_memory_bytes gauge\n"
              "# UNIT cmm_memory_bytes bytes\n"
              "# HELP cmm_memory_bytes Memory.\n"
              "cmm_memory_bytes 12\n"
              "# EOF\n");
}

TEST(OpenMetrics, a_counter_ends_in_total_and_an_info_in_info)
{
    EXPECT_EQ(openmetrics_text({{"a", metric_type::COUNTER, "", "A.", {{{{"x", "1"}}, "7"}}},
                                {"b", metric_type::INFO, "", "B.", {{{{"y", "2"}}, "1"}}}}),
              "# TYPE a counter\n"
              "# HELP a A.\n"
              "a_total{x=\"1\"} 7\n"
              "# TYPE b info\n"
              "# HELP b B.\n"
              "b_info{y=\"2\"} 1\n"
              "# EOF\n");
}

TEST(OpenMetrics, a_family_s_samples_stand_together)
{
    EXPECT_EQ(openmetrics_text({{"a", metric_type::GAUGE, "", "A.",
                                 {{{{"x", "1"}, {"y", "2"}}, "7"}, {{{"x", "2"}}, "0.500"}}}}),
              "# TYPE a gauge\n"
              "# HELP a A.\n"
              "a{x=\"1\",y=\"2\"} 7\n"
              "a{x=\"2\"} 0.500\n"
              "# EOF\n");
}

TEST(OpenMetrics, a_family_without_samples_keeps_its_metadata)
{
    EXPECT_EQ(openmetrics_text({{"a", metric_type::GAUGE, "", "A.", {}}}),
              "# TYPE a gauge\n"
              "# HELP a A.\n"
              "# EOF\n");
}

TEST(OpenMetrics, quotes_backslashes_and_ends_of_line_are_escaped)
{
    EXPECT_EQ(openmetrics_text({{"a", metric_type::GAUGE, "", "say \"a\\b\"\nagain",
                                 {{{{"x", "\"\\\n{},=\xc3\xa9"}}, "1"}}}}),
              "# TYPE a gauge\n"
              "# HELP a say \\\"a\\\\b\\\"\\nagain\n"
              "a{x=\"\\\"\\\\\\n{},=\xc3\xa9\"} 1\n"
              "# EOF\n");
}

TEST(OpenMetrics, thousandths_have_a_point)
{
    EXPECT_EQ(thousandths(0), "0.000");
    EXPECT_EQ(thousandths(7), "0.007");
    EXPECT_EQ(thousandths(12345), "12.345");
    EXPECT_EQ(thousandths(18446744073709551615u), "18446744073709551.615");
}
