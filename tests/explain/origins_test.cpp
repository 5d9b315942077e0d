/*
 * Each value with its origin, the choices that led to the entry, and the figures of the pools.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "told.h"

using testing::ElementsAre;

/* Value, unit and origin of one value on a node of 1,024 MiB. */
static std::string told_of(const std::string &name, const std::string &document,
                           uint32_t numa_nodes = 1)
{
    const node_files files(document);
    explain_request request = files.request();
    request.numa_nodes = numa_nodes;
    const description told = describe(request);
    const value_line &line = value_of(told, name);
    return std::to_string(line.value) + " " + line.unit + ": " + line.said;
}

static std::string with(const std::string &element, const std::string &replacement)
{
    return one_entry(sound_but(element, replacement));
}

TEST(ExplainOrigin, an_attribute_is_named_with_its_element)
{
    const std::string sound = one_entry(SOUND_PARAMETERS);

    EXPECT_EQ(told_of("rdma_flag", sound), "1 RDMA: flag of <rdma_flag>");
    EXPECT_EQ(told_of("normal_pool.max_size", sound), "64 KiB: max_size of <normal_pool>");
    EXPECT_EQ(told_of("cache_size", sound), "256 KiB: cache_size of <pool_threadcache>");
    EXPECT_EQ(told_of("cache page", sound), "32 objects: page of <pool_cachenum>");
    EXPECT_EQ(told_of("cache page threads", sound),
              "16 threads: page_maxcachethreadnum of <pool_cachenum>");
    EXPECT_EQ(told_of("cache 64K_inner", sound), "8 objects: 64K_inner of <pool_cachenum>");
    EXPECT_EQ(told_of("cache 64K_outer", sound), "4 objects: 64K_outer of <pool_cachenum>");
    EXPECT_EQ(told_of("req_min", sound), "16 objects: min_num of <req_num>");
    EXPECT_EQ(told_of("req_max", sound), "64 objects: max_num of <req_num>");
    EXPECT_EQ(told_of("page_max", sound), "128 pages: num of <page_num>");
    EXPECT_EQ(told_of("coredump_level", sound), "2 level: dump_level of <mem_coredump>");
}

TEST(ExplainOrigin, a_value_beyond_32_bits_is_told_with_what_the_file_says)
{
    EXPECT_EQ(told_of("sgl_max", with("sgl_num", "<sgl_num num=\"4294967297\"/>")),
              "1 objects: num of <sgl_num>, the low 32 bits of 4,294,967,297");
}

TEST(ExplainOrigin, an_element_that_is_not_there_is_a_default)
{
    EXPECT_EQ(told_of("rdma_flag", with("rdma_flag", "")),
              "1 RDMA: default, there is no <rdma_flag>");
    EXPECT_EQ(told_of("normal_pool.leak_rate", with("normal_pool", "")),
              "0 percent: default, there is no <normal_pool>");
    EXPECT_EQ(told_of("page_max", with("page_num", "")),
              "0 pages: default, there is no <page_num>");
}

TEST(ExplainOrigin, an_attribute_that_is_not_there_or_no_number_is_a_default)
{
    EXPECT_EQ(told_of("normal_pool.leak_rate", one_entry(SOUND_PARAMETERS)),
              "30 percent: default, <normal_pool> has no leak_rate");
    EXPECT_EQ(told_of("coredump_level", with("mem_coredump", "<mem_coredump dump_level=\"-1\"/>")),
              "0 level: default, dump_level of <mem_coredump> is no number: \"-1\"");
}

TEST(ExplainOrigin, a_bound_is_told_with_what_the_file_says)
{
    const std::string document =
        with("normal_pool",
             "<normal_pool reserve_size=\"8\" max_size=\"64\" extand_size=\"4\" max_limit=\"5\"/>");

    EXPECT_EQ(told_of("normal_pool.max_limit", document),
              "1 flag: max_limit of <normal_pool> says 5, adjusted to the bound");
}

TEST(ExplainOrigin, an_element_that_is_refused_leaves_its_values)
{
    EXPECT_EQ(
        told_of("req_max", with("req_num", "<req_num max_num=\"9\"/>")),
        "0 objects: as at load, <req_num> has neither a number in num nor in both min_num and "
        "max_num");
}

TEST(ExplainOrigin, a_refused_normal_pool_leaves_io_pool_unread)
{
    const std::string document = with("normal_pool", "<normal_pool/>");

    EXPECT_EQ(told_of("normal_pool.max_size", document),
              "0 KiB: as at load, <normal_pool> has no reserve_size");
    EXPECT_EQ(told_of("io_pool.max_size", document),
              "0 KiB: <io_pool> is not read, so it is as at load");
}

TEST(ExplainOrigin, a_corrected_count_is_told_with_its_calculation)
{
    const std::string document =
        with("req_num", "<req_num num=\"1000\" numa_factor=\"1\" num_factor=\"50\"/>");

    EXPECT_EQ(told_of("req_max", document, 4),
              "2000 objects: num of <req_num>, 1,000 x 50 % x 4 NUMA nodes");
    EXPECT_EQ(told_of("req_max", document, 1), "1000 objects: num of <req_num>");
}

TEST(ExplainOrigin, the_nodes_that_the_process_may_run_on_are_those_that_count)
{
    const node_files files(
        with("req_num", "<req_num num=\"1000\" numa_factor=\"1\" num_factor=\"50\"/>"));
    explain_request request = files.request();
    request.numa_nodes = 4;
    request.numa_mask = 5;
    const description told = describe(request);

    EXPECT_EQ(told.numa_nodes, 2u);
    EXPECT_EQ(value_of(told, "req_max").value, 1000u);
}

TEST(ExplainOrigin, the_process_s_own_file_lies_behind_the_folder)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    const description told = describe(files.request());

    EXPECT_EQ(told.cfg_path, files.path() + "/io/limits.cfg");
    EXPECT_EQ(told.cfg_path_said, "path of <cfg_path>, behind the folder of the file");
}

/* ------------------------------------------------------------------ choices */

TEST(ExplainChoice, the_way_from_the_memory_to_the_entry_is_told)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    explain_request request = files.request();
    request.memory = 5368709120;
    const description told = describe(request);

    EXPECT_THAT(
        told.memory.said,
        ElementsAre("--memory says 5,368,709,120 bytes; no ini file is asked.",
                    "Only the low 32 bits count: 1,073,741,824 bytes, which measure 1,024 MiB.",
                    "The file lists 1024 MiB; the last before the first one above the "
                    "measured size is 1,024 MiB."));
    EXPECT_EQ(told.section.said,
              "<node memory=\"1024\">, number 1 of 1, is the first one for the chosen size.");
    EXPECT_EQ(told.entry.said, "<uprocess name=\"io_process\"> is the process's own.");
}

TEST(ExplainChoice, a_node_below_the_smallest_size_is_told)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    explain_request request = files.request();
    request.memory = 1048576;

    EXPECT_THAT(
        describe(request).memory.said,
        ElementsAre("--memory says 1,048,576 bytes; no ini file is asked.", "That measures 1 MiB.",
                    "The file lists 1024 MiB; the first is above the measured size, so 1 MiB "
                    "is taken."));
}

static description of_ini_files(const std::string &cgroup, const std::string &storage)
{
    node_files files(document_of("", ""));
    if (!cgroup.empty())
        files.add_cgroup_info(cgroup);
    if (!storage.empty())
        files.add_storage_info(storage);
    explain_request request = files.request();
    request.memory = {};
    request.root = files.path();
    description told = describe(request);
    for (std::string &line : told.memory.said) {
        if (line.rfind(files.path(), 0) == 0)
            line.erase(0, files.path().size());
    }
    return told;
}

TEST(ExplainChoice, the_control_group_s_file_comes_first)
{
    const description told =
        of_ini_files("[cgroup_info]\ncgroup_mem = 2147483648\n", "[io_process]\nmem = 1\n");

    EXPECT_EQ(told.memory.source, "cgroup");
    EXPECT_THAT(told.memory.said,
                ElementsAre("/opt/marrowbay/cgroup_info.ini says [cgroup_info] cgroup_mem = "
                            "2147483648.",
                            "That measures 2,048 MiB.",
                            "The file lists no sizes, so the measured one is taken: 2,048 MiB."));
}

TEST(ExplainChoice, a_control_group_s_file_without_its_key_ends_the_search)
{
    const description told = of_ini_files("[cgroup_info]\n", "[io_process]\nmem = 1048576\n");

    EXPECT_EQ(told.memory.source, "none");
    EXPECT_THAT(told.memory.said,
                ElementsAre("/opt/marrowbay/cgroup_info.ini has no [cgroup_info] cgroup_mem, and "
                            "nobody else is asked."));
}

TEST(ExplainChoice, the_process_s_share_comes_second)
{
    const description told = of_ini_files("", "[io_process]\nmem = 1048576\n");

    EXPECT_EQ(told.memory.source, "storage");
    EXPECT_THAT(told.memory.said,
                ElementsAre("/opt/marrowbay/cgroup_info.ini cannot be opened or is no ini file.",
                            "/opt/marrowbay/storage_resource_info.ini says [io_process] mem = "
                            "1048576.",
                            "That measures 1 MiB.",
                            "The file lists no sizes, so the measured one is taken: 1 MiB."));
}

TEST(ExplainChoice, without_a_share_the_machine_is_asked)
{
    const description told = of_ini_files("", "[other]\nmem = 1048576\n");

    EXPECT_EQ(told.memory.source, "machine");
    ASSERT_GE(told.memory.said.size(), 3u);
    EXPECT_EQ(told.memory.said[1],
              "/opt/marrowbay/storage_resource_info.ini has no [io_process] mem.");
    EXPECT_THAT(told.memory.said[2], testing::StartsWith("This machine has "));
}

/* ------------------------------------------------------------------ pools */

TEST(ExplainPool, minimum_and_maximum_are_told_in_bytes)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    const description told = describe(files.request());
    const pool_line &req = pool_of(told, "REQ PARTITION");

    EXPECT_EQ(req.maker, "library");
    EXPECT_EQ(req.object_bytes, 768u);
    EXPECT_GE(req.whole_bytes, 768u);
    EXPECT_EQ(req.reserve_bytes, 16 * req.whole_bytes);
    EXPECT_EQ(req.cost_bytes, 64 * req.whole_bytes);
    EXPECT_EQ(pool_of(told, "SGL PARTITION").object_bytes, 1584u);
    EXPECT_EQ(pool_of(told, "PAGE PARTITION").object_bytes, 8376u);
    EXPECT_EQ(pool_of(told, "PAGE REQUEST").max, 16u);
    EXPECT_EQ(pool_of(told, "normal_pool").reserve_bytes, 8192u);
    EXPECT_EQ(pool_of(told, "normal_pool").cost_bytes, 65536u);
    EXPECT_EQ(pool_of(told, "io_pool").note, "its sizes are 0");
}

TEST(ExplainPool, pages_of_the_storage_service_are_told_apart)
{
    const node_files files(
        with("io_pool", "<io_pool reserve_size=\"4\" max_size=\"8\" extand_size=\"4\"/>"));
    const description told = describe(files.request());
    const pool_line &page = pool_of(told, "PAGE PARTITION");

    EXPECT_EQ(page.maker, "storage service");
    EXPECT_EQ(page.max, 128u);
    EXPECT_GE(page.cost_bytes, 128u * 8376);
    EXPECT_EQ(page.note, "reserve_size of <io_pool> is not 0, so the library leaves it to others");
}

TEST(ExplainPool, a_pool_without_a_maximum_is_not_made)
{
    const node_files files(with("req_num", ""));
    const pool_line req = pool_of(describe(files.request()), "REQ PARTITION");

    EXPECT_EQ(req.maker, "nobody");
    EXPECT_EQ(req.note, "its maximum is 0");
}
