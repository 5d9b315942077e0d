/*
 * "umm show numa", "umm show config", "umm show partitions".
 */
#include "console_process.h"

#include <unistd.h>

#include <filesystem>

namespace
{

class ShowState : public console_process
{
};

json node_of(const std::string &pool)
{
    const zymm_slab_record record = pool_named(pool);
    zymm_node_record node = {};
    EXPECT_EQ(zymm_slab_node_get(record.handle, 0, &node), 0);
    return {{"node", 0},
            {"made", node.made},
            {"used", node.used},
            {"free", node.free},
            {"cached", node.cached},
            {"pieces", node.pieces},
            {"memory_bytes", node.bytes}};
}

/* Pages in the thread's cache: it takes more at once than are asked for. */
uint64_t free_pages()
{
    return node_of("PAGE PARTITION")["free"];
}

std::string kib(uint64_t bytes)
{
    const uint64_t tenths = bytes * 10 / 1024;
    return tenths >= 1000
               ? std::to_string(tenths / 10) + " KiB"
               : std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " KiB";
}

std::string right(const std::string &text, size_t width)
{
    return std::string(width - text.size(), ' ') + text;
}

} // namespace

TEST_F(ShowState, nodes_are_summed_up_and_shown_by_pool)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    const uint64_t free = free_pages();
    EXPECT_EQ(
        run_line("umm show numa").text,
        fill_in("all pools                                      used     free   cached   memory\n"
                "node 0                                     48.1 KiB {bytes} {bytes}  1.3 MiB\n"
                "\n"
                "pool, objects                                  used     free   cached   memory\n"
                "REQ PARTITION                   node 0            0        0        0 64.0 KiB\n"
                "SGL PARTITION                   node 0            0        0        0  128 KiB\n"
                "ZERO_PAGE_POOL                  node 0            1        0        0 64.0 KiB\n"
                "PAGE PARTITION                  node 0            1 {free} {free}  1.0 MiB\n",
                {{"bytes", right(kib(free * 8376), 8)}, {"free", right(std::to_string(free), 8)}}));
    freeOnePage(page, TEST_MODULE, "giver", 13);
}

TEST_F(ShowState, nodes_have_every_field_in_json)
{
    page_ctrl *const page = allocOnePageSync(TEST_MODULE, "taker", 12);
    const json said = run_json("umm show numa");
    const json sum = {{"node", 0},
                      {"used_bytes", 8376 + 40960},
                      {"free_bytes", free_pages() * 8376},
                      {"cached_bytes", free_pages() * 8376},
                      {"memory_bytes", pool_named("REQ PARTITION").bytes +
                                           pool_named("SGL PARTITION").bytes +
                                           pool_named("ZERO_PAGE_POOL").bytes +
                                           pool_named("PAGE PARTITION").bytes}};
    EXPECT_EQ(said["nodes"], json::array({sum}));
    ASSERT_EQ(said["pools"].size(), 5u);
    const json page_pool = {{"name", "PAGE PARTITION"},
                            {"handle", hex(pool_named("PAGE PARTITION").handle)},
                            {"object_bytes", 8376},
                            {"nodes", json::array({node_of("PAGE PARTITION")})}};
    EXPECT_EQ(said["pools"][3], page_pool);
    EXPECT_EQ(said.size(), 2u);
    freeOnePage(page, TEST_MODULE, "giver", 13);
}

TEST_F(ShowState, the_configuration_is_shown_with_names)
{
    EXPECT_EQ(run_line("umm show config").text,
              fill_in("memory manager        started\n"
                      "file                  {file}\n"
                      "process               console\n"
                      "cfg_path              (none)\n"
                      "transport             tcp\n"
                      "requests              32 to 32\n"
                      "SGLs                  64 to 64\n"
                      "pages                 128 to 128\n"
                      "pages in memory       1.0 MiB to 1.0 MiB\n"
                      "normal_pool           0 B at creation, 0 B at most, grows by 0 B\n"
                      "                      max_limit 0, leak_rate 0 %, dontfork 0\n"
                      "io_pool               0 B at creation, 0 B at most, grows by 0 B\n"
                      "                      max_limit 0, leak_rate 0 %, dontfork 0\n"
                      "thread cache          0 B\n"
                      "cached pages          the platform's default\n"
                      "cached up to 64 KiB   the platform's default\n"
                      "cached above          the platform's default\n"
                      "threads with pages    all\n"
                      "core dump level       0\n"
                      "outside creators      0x0\n"
                      "leak age              600 s\n",
                      {{"file", config_.path() + "/node_config.xml"}}));
}

TEST_F(ShowState, the_configuration_has_every_field_in_json)
{
    json expected = json::parse(R"({
        "started": true, "process": "console", "cfg_path": "", "transport": "tcp",
        "req_min": 32, "req_max": 32, "sgl_min": 64, "sgl_max": 64,
        "page_min": 128, "page_max": 128, "thread_cache_bytes": 0,
        "cache_page": 0, "cache_inner_64k": 0, "cache_outer_64k": 0, "page_max_cache_threads": 0,
        "coredump_level": 0, "creator_mask": 0, "leak_age_s": 600})");
    const json quota = json::parse(R"({
        "reserve_bytes": 0, "max_bytes": 0, "extend_bytes": 0, "fourth_bytes": 0,
        "max_limit": 0, "dontfork": 0, "leak_rate_percent": 0, "handle": null})");
    expected["normal_pool"] = quota;
    expected["io_pool"] = quota;
    expected["file"] = config_.path() + "/node_config.xml";
    expected["page_min_bytes"] = 128 * zymm_object_whole_size_get(8376, 0, 8);
    expected["page_max_bytes"] = 128 * zymm_object_whole_size_get(8376, 0, 8);
    EXPECT_EQ(run_json("umm show config"), expected);
}

/* What a file with everything in it leads to; written into the record as the start does. */
TEST_F(ShowState, configured_values_are_shown_in_their_units)
{
    g_ucmm_config.io_pool = {1024, 65536, 2048, 0, 1, 30, 1, 0x10};
    g_ucmm_config.rdma_flag = 1;
    g_ucmm_config.cache_size = 256;
    zymm_pool_cache_num_set(32, 8, 4, 16);
    zymm_numa_coredump_level_set(1);
    zyumm_partition_creator_set(5);
    const std::string text = run_line("umm show config").text;
    EXPECT_NE(text.find("transport             rdma\n"), std::string::npos);
    EXPECT_NE(text.find("io_pool               1.0 MiB at creation, 64.0 MiB at most, "
                        "grows by 2.0 MiB\n"
                        "                      max_limit 1, leak_rate 30 %, dontfork 1\n"
                        "thread cache          256 KiB\n"
                        "cached pages          32\n"
                        "cached up to 64 KiB   8\n"
                        "cached above          4\n"
                        "threads with pages    16\n"
                        "core dump level       1\n"
                        "outside creators      0x5\n"),
              std::string::npos)
        << text;
    const json said = run_json("umm show config");
    EXPECT_EQ(said["io_pool"], json::parse(R"({
        "reserve_bytes": 1048576, "max_bytes": 67108864, "extend_bytes": 2097152,
        "fourth_bytes": 0, "max_limit": 1, "dontfork": 1, "leak_rate_percent": 30,
        "handle": "0x10"})"));
    EXPECT_EQ(said["transport"], "rdma");
    EXPECT_EQ(said["thread_cache_bytes"], 262144);
    EXPECT_EQ(said["cache_page"], 32);
    EXPECT_EQ(said["cache_inner_64k"], 8);
    EXPECT_EQ(said["cache_outer_64k"], 4);
    EXPECT_EQ(said["page_max_cache_threads"], 16);
    EXPECT_EQ(said["coredump_level"], 1);
    EXPECT_EQ(said["creator_mask"], 5);
    g_ucmm_config.io_pool = {};
}

TEST_F(ShowState, partitions_in_use_are_listed_by_id)
{
    uint32_t first = 0;
    uint32_t second = 0;
    void *object = nullptr;
    ASSERT_EQ(createStructurePartition(10, "ten", TEST_MODULE, 0, 100, &first, nullptr, nullptr, 0),
              0u);
    ASSERT_EQ(createExpStructurePartition(0, 0, "endless", 4711, 0, 200, &second, nullptr, nullptr),
              0u);
    const uint32_t reserved = cmm_alloc_part_id();
    allocStructure(TEST_MODULE, first, &object, "taker");
    EXPECT_EQ(run_line("umm show partitions").text,
              "  id pool                                bytes      used     total module\n"
              "   1 ZERO_PAGE_POOL                      40960         1         1 cmm\n"
              "   2 ten                                   100         1        10 tester\n"
              "   3 endless                               200         0  no limit 4711\n"
              "   4 (no pool)\n"
              "4 partitions of 2047.\n");
    json expected = json::parse(R"({"count": 4, "partitions": [
        {"id": 1, "name": "ZERO_PAGE_POOL", "module_id": 386, "module": "cmm",
         "object_bytes": 40960, "used": 1, "total": 1},
        {"id": 2, "name": "ten", "module_id": 77, "module": "tester",
         "object_bytes": 100, "used": 1, "total": 10},
        {"id": 3, "name": "endless", "module_id": 4711, "module": "unknown",
         "object_bytes": 200, "used": 0, "total": 0},
        {"id": 4, "name": null, "module_id": null, "module": null,
         "object_bytes": null, "used": null, "total": null, "handle": null}]})");
    expected["partitions"][0]["handle"] = hex(pool_named("ZERO_PAGE_POOL").handle);
    expected["partitions"][1]["handle"] = hex(pool_named("ten").handle);
    expected["partitions"][2]["handle"] = hex(pool_named("endless").handle);
    EXPECT_EQ(run_json("umm show partitions"), expected);

    freeStructure(object, first, TEST_MODULE, "giver", 0);
    EXPECT_EQ(deleteStructurePartition(first), 0u);
    EXPECT_EQ(deleteStructurePartition(second), 0u);
    /* No operation gives an id back that never had a pool; the stop would report it. */
    g_cmm_part_s[reserved].part_id = 0;
    g_cmm_part_sum--;
}
