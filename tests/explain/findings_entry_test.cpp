/*
 * What bites in the entry and in its pools: each sentence, and that it alone is said.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "told.h"

using testing::ElementsAre;
using testing::IsEmpty;

static std::string entry(const std::string &name, const std::string &parameters)
{
    return "<uprocess name=\"" + name + "\">" + parameters + "</uprocess>\n";
}

static std::string entries(const std::string &text)
{
    return document_of("<mem>1024</mem>\n",
                       "<node memory=\"1024\">\n<umm>" + text + "</umm>\n</node>\n");
}

static std::vector<std::string> findings_with(const std::string &element,
                                              const std::string &replacement)
{
    return findings_in(one_entry(sound_but(element, replacement)));
}

TEST(ExplainEntry, a_process_that_falls_to_default_is_told)
{
    EXPECT_THAT(
        findings_in(entries("\n" + entry("default", SOUND_PARAMETERS))),
        ElementsAre("default_entry: The section has no entry \"io_process\"; the process falls "
                    "to the entry \"default\"."));
}

TEST(ExplainEntry, a_process_named_default_has_an_entry_of_its_own)
{
    const node_files files(entries("\n" + entry("default", SOUND_PARAMETERS)));

    EXPECT_THAT(findings_of(describe(files.request("default"))), IsEmpty());
}

TEST(ExplainEntry, a_first_parameter_without_white_space_before_it_is_told)
{
    EXPECT_THAT(findings_in(one_entry(SOUND_PARAMETERS + 1)),
                ElementsAre("first_child_not_seen: <rdma_flag> is the first child of <uprocess> "
                            "without white space before it, and is not seen."));
}

TEST(ExplainEntry, a_first_entry_without_white_space_before_it_is_told)
{
    EXPECT_THAT(
        findings_in(
            entries(entry("io_process", SOUND_PARAMETERS) + entry("default", SOUND_PARAMETERS))),
        ElementsAre(
            "first_child_not_seen: <uprocess name=\"io_process\"> is the first child of <umm> "
            "without white space before it, and is not seen.",
            "default_entry: The section has no entry \"io_process\"; the process falls to the "
            "entry \"default\"."));
}

TEST(ExplainEntry, a_first_child_that_nobody_looks_for_is_not_told)
{
    EXPECT_THAT(findings_in(one_entry("<!-- sizes -->" + std::string(SOUND_PARAMETERS))),
                IsEmpty());
    EXPECT_THAT(findings_in(one_entry("<note/>" + std::string(SOUND_PARAMETERS))), IsEmpty());
}

TEST(ExplainEntry, a_value_beyond_32_bits_is_told)
{
    EXPECT_THAT(
        findings_with("pool_threadcache", "<pool_threadcache cache_size=\"4294967297\"/>"),
        ElementsAre("value_beyond_32_bits: cache_size of <pool_threadcache> is 4,294,967,297, "
                    "beyond 32 bits: it counts as 1."));
}

TEST(ExplainEntry, a_number_that_is_none_is_told)
{
    EXPECT_THAT(
        findings_with("mem_coredump", "<mem_coredump dump_level=\"0x2\"/>"),
        ElementsAre("number_ignored: dump_level of <mem_coredump> is no number and counts as "
                    "absent: \"0x2\"."));
}

TEST(ExplainEntry, a_value_that_is_brought_to_its_bound_is_told)
{
    EXPECT_THAT(
        findings_with("io_pool", "<io_pool reserve_size=\"0\" max_size=\"0\" extand_size=\"0\" "
                                 "leak_rate=\"150\"/>"),
        ElementsAre("value_adjusted: leak_rate of <io_pool> is 150 and is brought to 100."));
}

TEST(ExplainEntry, an_element_that_is_refused_is_told_once)
{
    EXPECT_THAT(findings_with("io_pool", "<io_pool reserve_size=\"0\" max_size=\"8M\"/>"),
                ElementsAre("element_refused: <io_pool> is refused: its values are as at load, "
                            "max_size of <io_pool> is no number: \"8M\"."));
    EXPECT_THAT(
        findings_with("rdma_flag", "<rdma_flag flag=\"2\"/>"),
        ElementsAre("element_refused: <rdma_flag> is refused: its values are as at load, flag "
                    "of <rdma_flag> is neither 0 nor 1: \"2\"."));
    EXPECT_THAT(
        findings_with("req_num", "<req_num min_num=\"4\"/>"),
        ElementsAre("element_refused: <req_num> is refused: its values are as at load, "
                    "<req_num> has neither a number in num nor in both min_num and max_num."));
    EXPECT_THAT(
        findings_with("cfg_path", "<cfg_path/>"),
        ElementsAre("element_refused: <cfg_path> is refused: none, <cfg_path> has no path."));
}

TEST(ExplainEntry, an_entry_with_nothing_in_it_is_unusable)
{
    const node_files files(one_entry(""));
    const description told = describe(files.request());

    EXPECT_EQ(told.result, EXPLAIN_UNUSABLE);
    EXPECT_THAT(findings_of(told),
                ElementsAre("empty_entry: The entry has nothing in it: all values are 0."));
}

TEST(ExplainEntry, a_process_that_no_entry_serves_is_unusable)
{
    const node_files files(entries("\n" + entry("other", SOUND_PARAMETERS)));
    const description told = describe(files.request());

    EXPECT_EQ(told.result, EXPLAIN_UNUSABLE);
    EXPECT_THAT(
        findings_of(told),
        ElementsAre("no_entry: The section has neither an entry \"io_process\" nor one named "
                    "\"default\"."));
}

/* ------------------------------------------------------------------ pools */

TEST(ExplainPools, a_minimum_above_its_maximum_fails_the_start)
{
    const node_files files(
        one_entry(sound_but("req_num", "<req_num min_num=\"5\" max_num=\"4\"/>")));
    const description told = describe(files.request());
    const std::vector<std::string> found = findings_of(told);

    EXPECT_EQ(told.result, EXPLAIN_UNUSABLE);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_THAT(found[0], testing::StartsWith("start_fails: The start of the process fails: "));
    EXPECT_THAT(found[0], testing::EndsWith(" | REQ PARTITION create failed."));
    EXPECT_EQ(found[1],
              "min_above_max: The minimum of requests, 5, is above their maximum, 4: the pool "
              "cannot be made, and the start fails.");
}

TEST(ExplainPools, a_minimum_of_a_pool_that_is_not_made_has_no_effect)
{
    EXPECT_THAT(
        findings_with("req_num", "<req_num min_num=\"5\" max_num=\"0\"/>"),
        ElementsAre("min_above_max: The minimum of requests, 5, is above their maximum, 0: the "
                    "pool is not made."));
}

TEST(ExplainPools, a_reserve_above_its_maximum_is_told)
{
    EXPECT_THAT(
        findings_with("normal_pool",
                      "<normal_pool reserve_size=\"65\" max_size=\"64\" extand_size=\"4\"/>"),
        ElementsAre("min_above_max: reserve_size of <normal_pool>, 65 KiB, is above its "
                    "max_size, 64 KiB."));
}

TEST(ExplainPools, an_sgl_pool_that_cannot_describe_all_pages_is_told)
{
    EXPECT_THAT(
        findings_with("page_num", "<page_num num=\"513\"/>"),
        ElementsAre("sgl_pool_too_small: 8 SGLs describe 512 pages at most; the page pool has "
                    "513."));
    EXPECT_THAT(findings_with("page_num", "<page_num num=\"512\"/>"), IsEmpty());
}

TEST(ExplainPools, a_request_slab_of_0_is_told)
{
    EXPECT_THAT(findings_with("page_num", "<page_num num=\"7\"/>"),
                ElementsAre("request_slab_empty: 7 pages make a request slab of 0 records, one for "
                            "each 8 pages: a request that would have to wait is refused at once."));
    EXPECT_THAT(findings_with("page_num", "<page_num num=\"8\"/>"), IsEmpty());
}

TEST(ExplainPools, a_reservation_beyond_the_node_s_memory_is_told)
{
    /* 131,072 pages of 8,376 bytes are more than 1 GiB without anything else. */
    const node_files files(
        one_entry(sound_but("page_num", "<page_num min_num=\"131072\" max_num=\"131072\"/>")
                      .replace(0, 0, "")));
    const std::vector<std::string> found = findings_of(describe(files.request()));

    ASSERT_EQ(found.size(), 2u);
    EXPECT_THAT(found[1], testing::StartsWith("memory_exceeded: The pools reserve 1,"));
    EXPECT_THAT(found[1], testing::EndsWith(" bytes, more than the node's 1,073,741,824."));
}

TEST(ExplainPools, a_numa_factor_without_a_percentage_is_told)
{
    const node_files files(
        one_entry(sound_but("req_num", "<req_num num=\"64\" numa_factor=\"1\"/>")));
    explain_request request = files.request();
    request.numa_nodes = 2;

    EXPECT_THAT(findings_of(describe(request)),
                ElementsAre("numa_makes_zero: req_min is 0 after the NUMA correction.",
                            "numa_makes_zero: req_max is 0 after the NUMA correction."));
}

TEST(ExplainPools, a_count_that_wraps_around_in_the_numa_correction_is_told)
{
    const node_files files(one_entry(sound_but(
        "req_num",
        "<req_num min_num=\"1\" max_num=\"10737419\" numa_factor=\"1\" num_factor=\"100\"/>")));
    explain_request request = files.request();
    request.numa_nodes = 4;
    const description told = describe(request);

    /* 10,737,419 x 400 is 4,294,967,600, 304 beyond 32 bits; a hundredth of that is 3. */
    EXPECT_EQ(value_of(told, "req_max").value, 3u);
    ASSERT_GE(findings_of(told).size(), 1u);
    EXPECT_EQ(findings_of(told).back(),
              "value_beyond_32_bits: req_max does not fit 32 bits on its way through the NUMA "
              "correction and wraps around to 3.");
}
