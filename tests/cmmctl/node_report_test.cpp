/*
 * JSON answers as records; and such as no process sends.
 */
#include <gtest/gtest.h>

#include "node_report.h"

namespace {

const std::string POOLS = R"({"command":"umm show pools","now_ms":123456,"leak_age_s":600,
 "mapped_bytes":4194304,"control_bytes":4096,"pools":[
 {"name":"PAGE PARTITION","handle":"0x1010000","module_id":386,"module":"cmm","is_class":false,
  "object_bytes":8376,"whole_bytes":8448,"used":5,"total":512,"max":512,"min":64,"made":70,
  "high_water":66,"allocs":1000,"frees":995,"leaked":1,"out_bytes":41880,"leaked_bytes":8376,
  "memory_bytes":2097152},
 {"name":"","handle":"0x1020000","module_id":1,"module":"m\u00e9\n","is_class":true,
  "object_bytes":64,"whole_bytes":64,"used":0,"total":0,"max":null,"min":0,"made":0,
  "high_water":0,"allocs":18446744073709551615,"frees":0,"leaked":0,"out_bytes":0,
  "leaked_bytes":0,"memory_bytes":0}]})";

std::string with(const std::string &from, const std::string &to)
{
    std::string changed = POOLS;
    const size_t at = changed.find(from);

    EXPECT_NE(at, std::string::npos);
    return changed.replace(at, from.size(), to);
}

template <typename Read>
std::string error_of(Read read, const std::string &text)
{
    try {
        read(text);
    } catch (const bad_answer &error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(NodeReport, pools_have_all_their_fields)
{
    const pools_report report = read_pools(POOLS);

    EXPECT_EQ(report.now_ms, 123456u);
    EXPECT_EQ(report.leak_age_s, 600u);
    EXPECT_EQ(report.mapped_bytes, 4194304u);
    EXPECT_EQ(report.control_bytes, 4096u);
    ASSERT_EQ(report.pools.size(), 2u);
    const pool_report &pool = report.pools[0];
    EXPECT_EQ(pool.name, "PAGE PARTITION");
    EXPECT_EQ(pool.handle, "0x1010000");
    EXPECT_EQ(pool.module, "cmm");
    EXPECT_EQ(pool.module_id, 386u);
    EXPECT_FALSE(pool.is_class);
    EXPECT_EQ(pool.object_bytes, 8376u);
    EXPECT_EQ(pool.whole_bytes, 8448u);
    EXPECT_EQ(pool.used, 5u);
    EXPECT_EQ(pool.total, 512u);
    EXPECT_EQ(pool.max, 512u);
    EXPECT_EQ(pool.min, 64u);
    EXPECT_EQ(pool.made, 70u);
    EXPECT_EQ(pool.high_water, 66u);
    EXPECT_EQ(pool.allocs, 1000u);
    EXPECT_EQ(pool.frees, 995u);
    EXPECT_EQ(pool.leaked, 1u);
    EXPECT_EQ(pool.out_bytes, 41880u);
    EXPECT_EQ(pool.leaked_bytes, 8376u);
    EXPECT_EQ(pool.memory_bytes, 2097152u);
}

TEST(NodeReport, null_is_none_and_the_largest_number_fits)
{
    const pool_report pool = read_pools(POOLS).pools[1];

    EXPECT_FALSE(pool.max.has_value());
    EXPECT_EQ(pool.allocs, 18446744073709551615u);
    EXPECT_EQ(pool.module, "m\xc3\xa9\n");
    EXPECT_TRUE(pool.is_class);
}

TEST(NodeReport, a_missing_field_is_named)
{
    EXPECT_EQ(error_of(read_pools, with("\"used\":5,", "")),
              "umm show pools: \"used\" is missing");
}

TEST(NodeReport, a_field_of_another_type_is_named)
{
    EXPECT_EQ(error_of(read_pools, with("\"used\":5", "\"used\":\"5\"")),
              "umm show pools: \"used\" is no number");
    EXPECT_EQ(error_of(read_pools, with("\"used\":5", "\"used\":-5")),
              "umm show pools: \"used\" is no number");
    EXPECT_EQ(error_of(read_pools, with("\"used\":5", "\"used\":5.5")),
              "umm show pools: \"used\" is no number");
    EXPECT_EQ(error_of(read_pools, with("\"used\":5", "\"used\":null")),
              "umm show pools: \"used\" is no number");
    EXPECT_EQ(error_of(read_pools, with("\"max\":512", "\"max\":\"none\"")),
              "umm show pools: \"max\" is no number");
    EXPECT_EQ(error_of(read_pools, with("\"handle\":\"0x1010000\"", "\"handle\":16842752")),
              "umm show pools: \"handle\" is no text");
    EXPECT_EQ(error_of(read_pools, with("\"is_class\":false", "\"is_class\":0")),
              "umm show pools: \"is_class\" is neither true nor false");
    EXPECT_EQ(error_of(read_pools, R"({"now_ms":1,"leak_age_s":1,"mapped_bytes":1,
        "control_bytes":1,"pools":{}})"),
              "umm show pools: \"pools\" is no list");
}

TEST(NodeReport, what_is_no_json_is_shown_harmlessly)
{
    EXPECT_EQ(error_of(read_pools, "Unknown \x1b[2J command"),
              "umm show pools: no JSON came: Unknown ?[2J command");
    EXPECT_EQ(error_of(read_pools, POOLS.substr(0, 40)),
              "umm show pools: no JSON came: " + POOLS.substr(0, 40));
    EXPECT_EQ(error_of(read_pools, ""), "umm show pools: no JSON came: ");
}

TEST(NodeReport, a_list_where_an_object_belongs_is_refused)
{
    EXPECT_EQ(error_of(read_pools, "[]"), "umm show pools: no JSON object came");
    EXPECT_EQ(error_of(read_requests, R"({"busy":false,"count":1,"requests":[7]})"),
              "umm show requests: no JSON object came");
}

TEST(NodeReport, further_fields_do_no_harm)
{
    EXPECT_EQ(read_pools(with("\"used\":5", "\"used\":5,\"colour\":[\"red\"]")).pools[0].used, 5u);
}

TEST(NodeReport, requests_have_all_their_fields)
{
    const requests_report report = read_requests(R"({"command":"umm show requests","now_ms":1,
        "busy":false,"count":2,"requests":[
        {"place":1,"age_ms":2500,"timeout_ms":30000,"pages_wanted":16,"is_served":true,"kind":"sgl",
         "module_id":77,"module":"writer","function":"protect","line":120},
        {"place":2,"age_ms":3,"timeout_ms":null,"pages_wanted":1,"is_served":false,"kind":"page",
         "module_id":78,"module":"reader","function":"look","line":9}]})");

    EXPECT_FALSE(report.busy);
    EXPECT_EQ(report.count, 2u);
    ASSERT_EQ(report.requests.size(), 2u);
    const request_report &first = report.requests[0], &second = report.requests[1];
    EXPECT_EQ(first.place, 1u);
    EXPECT_EQ(first.age_ms, 2500u);
    EXPECT_EQ(first.timeout_ms, 30000u);
    EXPECT_EQ(first.pages_wanted, 16u);
    EXPECT_TRUE(first.is_served);
    EXPECT_EQ(first.kind, "sgl");
    EXPECT_EQ(first.module_id, 77u);
    EXPECT_EQ(first.module, "writer");
    EXPECT_EQ(first.function, "protect");
    EXPECT_EQ(first.line, 120u);
    EXPECT_FALSE(second.timeout_ms.has_value());
    EXPECT_EQ(second.kind, "page");
}

TEST(NodeReport, a_busy_list_has_its_count_alone)
{
    const requests_report report =
        read_requests(R"({"busy":true,"count":9,"requests":[]})");

    EXPECT_TRUE(report.busy);
    EXPECT_EQ(report.count, 9u);
    EXPECT_TRUE(report.requests.empty());
}

TEST(NodeReport, holders_know_their_pool)
{
    const std::vector<holder_report> holders = read_holders(R"({"pools":[
        {"name":"a","handle":"0x1","sites":[
         {"module_id":5,"module":"m","function":"f","line":3,"objects":2,"bytes":128,
          "oldest_age_s":61,"leaked":1}]},
        {"name":"b","handle":"0x2","sites":[]}]})");

    ASSERT_EQ(holders.size(), 1u);
    EXPECT_EQ(holders[0].pool, "a");
    EXPECT_EQ(holders[0].handle, "0x1");
    EXPECT_EQ(holders[0].module_id, 5u);
    EXPECT_EQ(holders[0].module, "m");
    EXPECT_EQ(holders[0].function, "f");
    EXPECT_EQ(holders[0].line, 3u);
    EXPECT_EQ(holders[0].objects, 2u);
    EXPECT_EQ(holders[0].bytes, 128u);
    EXPECT_EQ(holders[0].oldest_age_s, 61u);
    EXPECT_EQ(holders[0].leaked, 1u);
}

TEST(NodeReport, nodes_and_pools_on_nodes_are_told_apart)
{
    const numa_report report = read_numa(R"({"nodes":[
        {"node":0,"used_bytes":1,"free_bytes":2,"cached_bytes":3,"memory_bytes":4},
        {"node":1,"used_bytes":5,"free_bytes":6,"cached_bytes":7,"memory_bytes":8}],
        "pools":[{"name":"a","handle":"0x1","object_bytes":9,"nodes":[
        {"node":1,"made":10,"used":11,"free":12,"cached":13,"pieces":14,"memory_bytes":15}]}]})");

    ASSERT_EQ(report.nodes.size(), 2u);
    EXPECT_EQ(report.nodes[1].node, 1u);
    EXPECT_EQ(report.nodes[1].used_bytes, 5u);
    EXPECT_EQ(report.nodes[1].free_bytes, 6u);
    EXPECT_EQ(report.nodes[1].cached_bytes, 7u);
    EXPECT_EQ(report.nodes[1].memory_bytes, 8u);
    ASSERT_EQ(report.pools.size(), 1u);
    EXPECT_EQ(report.pools[0].pool, "a");
    EXPECT_EQ(report.pools[0].handle, "0x1");
    EXPECT_EQ(report.pools[0].node, 1u);
    EXPECT_EQ(report.pools[0].made, 10u);
    EXPECT_EQ(report.pools[0].used, 11u);
    EXPECT_EQ(report.pools[0].free, 12u);
    EXPECT_EQ(report.pools[0].cached, 13u);
    EXPECT_EQ(report.pools[0].memory_bytes, 15u);
}

TEST(NodeReport, a_partition_without_a_pool_has_its_id_alone)
{
    const std::vector<partition_report> partitions = read_partitions(R"({"count":2,"partitions":[
        {"id":1,"name":"structs","handle":"0x9","module_id":4,"module":"m","object_bytes":64,
         "used":3,"total":10},
        {"id":2,"name":null,"handle":null,"module_id":null,"module":null,"object_bytes":null,
         "used":null,"total":null}]})");

    ASSERT_EQ(partitions.size(), 2u);
    EXPECT_EQ(partitions[0].name, "structs");
    EXPECT_EQ(partitions[0].handle, "0x9");
    EXPECT_EQ(partitions[0].module, "m");
    EXPECT_EQ(partitions[0].object_bytes, 64u);
    EXPECT_EQ(partitions[0].used, 3u);
    EXPECT_EQ(partitions[0].total, 10u);
    EXPECT_EQ(partitions[1].id, 2u);
    EXPECT_FALSE(partitions[1].name.has_value());
    EXPECT_FALSE(partitions[1].used.has_value());
}

TEST(NodeReport, the_process_and_the_dropped_lines_are_single_fields)
{
    EXPECT_EQ(read_process_name(R"({"process":"cmm_node"})"), "cmm_node");
    EXPECT_EQ(read_dropped_lines(R"({"dropped":12})"), 12u);
    EXPECT_EQ(error_of(read_process_name, "{}"), "umm show config: \"process\" is missing");
    EXPECT_EQ(error_of(read_dropped_lines, "{}"), "log sinks: \"dropped\" is missing");
}
