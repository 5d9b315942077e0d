/*
 * Which figures a sample becomes.
 */
#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <sstream>

#include "metrics.h"
#include "samples.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string text_of(const node_sample &sample, pid_t pid = 4711)
{
    return openmetrics_text(families_of(sample, pid));
}

/* The sample lines of one family. */
std::vector<std::string> lines_of(const std::string &text, const std::string &sample_name)
{
    std::vector<std::string> lines;
    std::istringstream all(text);

    for (std::string line; std::getline(all, line);)
        if (line.substr(0, line.find_first_of("{ ")) == sample_name)
            lines.push_back(line);
    return lines;
}

std::vector<std::string> lines_of(const std::string &sample_name)
{
    return lines_of(text_of(busy_node()), sample_name);
}

} // namespace

TEST(Metrics, a_pool_s_figures_carry_its_name_handle_and_module)
{
    EXPECT_THAT(
        lines_of("cmm_pool_used_objects"),
        ElementsAre(
            "cmm_pool_used_objects"
            R"({pool="PAGE PARTITION",handle="0xPAGE PARTITION",module="cmm"} 510)",
            "cmm_pool_used_objects"
            R"({pool="SGL_PARTITION",handle="0xSGL_PARTITION",module="cmm"} 24)"));
}

TEST(Metrics, every_figure_of_a_pool_shows_its_own_field)
{
    node_sample sample;
    pool_report pool = a_pool("p", 1, 2);
    pool.object_bytes = 3;
    pool.total = 4;
    pool.min = 5;
    pool.made = 6;
    pool.high_water = 7;
    pool.allocs = 8;
    pool.frees = 9;
    pool.leaked = 10;
    pool.out_bytes = 11;
    pool.leaked_bytes = 12;
    pool.memory_bytes = 13;
    sample.pools.pools = {pool};
    const std::string text = text_of(sample);
    const std::string labels = R"({pool="p",handle="0xp",module="cmm"} )";

    const auto one = [&](const std::string &name, const std::string &value) {
        EXPECT_THAT(lines_of(text, name), ElementsAre(name + labels + value));
    };
    one("cmm_pool_used_objects", "1");
    one("cmm_pool_max_objects", "2");
    one("cmm_pool_object_bytes", "3");
    one("cmm_pool_capacity_objects", "4");
    one("cmm_pool_reserved_objects", "5");
    one("cmm_pool_made_objects", "6");
    one("cmm_pool_high_water_objects", "7");
    one("cmm_pool_allocations_total", "8");
    one("cmm_pool_frees_total", "9");
    one("cmm_pool_leaked_objects", "10");
    one("cmm_pool_out_bytes", "11");
    one("cmm_pool_leaked_bytes", "12");
    one("cmm_pool_memory_bytes", "13");
}

TEST(Metrics, a_pool_without_a_limit_has_no_maximum)
{
    node_sample sample;
    sample.pools.pools = {a_pool("p", 1, 2)};
    sample.pools.pools[0].max.reset();

    EXPECT_THAT(lines_of(text_of(sample), "cmm_pool_max_objects"), IsEmpty());
}

TEST(Metrics, size_classes_that_never_had_an_object_are_left_out)
{
    node_sample sample = busy_node();
    sample.pools.pools[0].is_class = true;
    sample.pools.pools[0].made = 0;
    const std::string text = text_of(sample);

    EXPECT_EQ(lines_of(text, "cmm_pool_used_objects").size(), 1u);
    EXPECT_EQ(lines_of(text, "cmm_pool_max_objects").size(), 1u);
    EXPECT_THAT(lines_of(text, "cmm_pool_numa_made_objects"), IsEmpty());
}

TEST(Metrics, holders_are_told_by_pool_and_call_site)
{
    EXPECT_THAT(
        lines_of("cmm_holder_bytes"),
        ElementsAre(
            R"(cmm_holder_bytes{pool="PAGE PARTITION",handle="0xPAGE PARTITION",)"
            R"(module_id="77",module="writer",function="page_cache",line="42"} 524288)",
            R"(cmm_holder_bytes{pool="PAGE PARTITION",handle="0xPAGE PARTITION",)"
            R"(module_id="77",module="writer",function="protect",line="42"} 2048)"));
    EXPECT_EQ(lines_of("cmm_holder_objects").size(), 2u);
    EXPECT_EQ(lines_of("cmm_holder_leaked_objects").size(), 2u);
    EXPECT_EQ(lines_of("cmm_holder_oldest_age_seconds").size(), 2u);
}

TEST(Metrics, call_sites_that_look_alike_are_one_series)
{
    node_sample sample;
    sample.holders = {a_holder("p", 1024, "f"), a_holder("p", 3072, "f")};
    sample.holders[1].oldest_age_s = 90;
    sample.holders[1].leaked = 2;
    const std::string text = text_of(sample);
    const std::string labels =
        R"({pool="p",handle="0xp",module_id="77",module="writer",function="f",line="42"} )";

    EXPECT_THAT(lines_of(text, "cmm_holder_bytes"),
                ElementsAre("cmm_holder_bytes" + labels + "4096"));
    EXPECT_THAT(lines_of(text, "cmm_holder_objects"),
                ElementsAre("cmm_holder_objects" + labels + "4"));
    EXPECT_THAT(lines_of(text, "cmm_holder_leaked_objects"),
                ElementsAre("cmm_holder_leaked_objects" + labels + "2"));
    EXPECT_THAT(lines_of(text, "cmm_holder_oldest_age_seconds"),
                ElementsAre("cmm_holder_oldest_age_seconds" + labels + "90"));
}

TEST(Metrics, waiting_requests_are_summed_by_call_site)
{
    node_sample sample;
    sample.requests.count = 3;
    sample.requests.requests = {a_request(1, 12345, "f"), a_request(2, 100, "f"),
                                a_request(3, 7, "g")};
    const std::string text = text_of(sample);
    const std::string f = R"({module_id="77",module="writer",function="f",line="120"} )";
    const std::string g = R"({module_id="77",module="writer",function="g",line="120"} )";

    EXPECT_THAT(lines_of(text, "cmm_queue_requests"), ElementsAre("cmm_queue_requests 3"));
    EXPECT_THAT(lines_of(text, "cmm_queue_busy"), ElementsAre("cmm_queue_busy 0"));
    EXPECT_THAT(lines_of(text, "cmm_waiting_requests"),
                ElementsAre("cmm_waiting_requests" + f + "2", "cmm_waiting_requests" + g + "1"));
    EXPECT_THAT(lines_of(text, "cmm_waiting_pages"),
                ElementsAre("cmm_waiting_pages" + f + "32", "cmm_waiting_pages" + g + "16"));
    EXPECT_THAT(lines_of(text, "cmm_waiting_oldest_age_seconds"),
                ElementsAre("cmm_waiting_oldest_age_seconds" + f + "12.345",
                            "cmm_waiting_oldest_age_seconds" + g + "0.007"));
}

TEST(Metrics, a_busy_list_is_told)
{
    node_sample sample;
    sample.requests.busy = true;
    sample.requests.count = 9;
    const std::string text = text_of(sample);

    EXPECT_THAT(lines_of(text, "cmm_queue_requests"), ElementsAre("cmm_queue_requests 9"));
    EXPECT_THAT(lines_of(text, "cmm_queue_busy"), ElementsAre("cmm_queue_busy 1"));
}

TEST(Metrics, nodes_have_their_sums_and_pools_on_nodes_theirs)
{
    EXPECT_THAT(lines_of("cmm_numa_used_bytes"),
                ElementsAre(R"(cmm_numa_used_bytes{node="0"} 1000)"));
    EXPECT_THAT(lines_of("cmm_numa_free_bytes"),
                ElementsAre(R"(cmm_numa_free_bytes{node="0"} 2000)"));
    EXPECT_THAT(lines_of("cmm_numa_cached_bytes"),
                ElementsAre(R"(cmm_numa_cached_bytes{node="0"} 300)"));
    EXPECT_THAT(lines_of("cmm_numa_memory_bytes"),
                ElementsAre(R"(cmm_numa_memory_bytes{node="0"} 4096)"));
    const std::string labels = R"({pool="PAGE PARTITION",handle="0xPAGE PARTITION",node="0"} )";
    EXPECT_THAT(lines_of("cmm_pool_numa_made_objects"),
                ElementsAre("cmm_pool_numa_made_objects" + labels + "512"));
    EXPECT_THAT(lines_of("cmm_pool_numa_used_objects"),
                ElementsAre("cmm_pool_numa_used_objects" + labels + "510"));
    EXPECT_THAT(lines_of("cmm_pool_numa_free_objects"),
                ElementsAre("cmm_pool_numa_free_objects" + labels + "2"));
    EXPECT_THAT(lines_of("cmm_pool_numa_cached_objects"),
                ElementsAre("cmm_pool_numa_cached_objects" + labels + "1"));
    EXPECT_THAT(lines_of("cmm_pool_numa_memory_bytes"),
                ElementsAre("cmm_pool_numa_memory_bytes" + labels + "4096"));
}

TEST(Metrics, a_partition_without_a_pool_is_only_counted)
{
    EXPECT_THAT(lines_of("cmm_partitions"), ElementsAre("cmm_partitions 2"));
    EXPECT_THAT(
        lines_of("cmm_partition_used_objects"),
        ElementsAre(
            "cmm_partition_used_objects"
            R"({partition="1",pool="structs",handle="0x9",module="cmm"} 3)"));
    EXPECT_EQ(lines_of("cmm_partition_capacity_objects").size(), 1u);
    EXPECT_EQ(lines_of("cmm_partition_object_bytes").size(), 1u);
}

TEST(Metrics, the_process_and_its_sums_are_told)
{
    EXPECT_THAT(lines_of("cmm_process_info"),
                ElementsAre(R"(cmm_process_info{process="cmm_node",pid="4711"} 1)"));
    EXPECT_THAT(lines_of(text_of(busy_node(), 0), "cmm_process_info"),
                ElementsAre(R"(cmm_process_info{process="cmm_node"} 1)"));
    EXPECT_THAT(lines_of("cmm_mapped_bytes"), ElementsAre("cmm_mapped_bytes 8388608"));
    EXPECT_THAT(lines_of("cmm_control_bytes"), ElementsAre("cmm_control_bytes 65536"));
    EXPECT_THAT(lines_of("cmm_leak_age_seconds"), ElementsAre("cmm_leak_age_seconds 600"));
    EXPECT_THAT(lines_of("cmm_log_dropped_lines_total"),
                ElementsAre("cmm_log_dropped_lines_total 4"));
}
