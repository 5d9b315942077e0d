/*
 * The node's memory: where its size comes from, and which listed size it counts as.
 */
#include "zyumm_cmm.h"

#include "config_documents.h"
#include "fake/expect_log.h"

static const char CGROUP[]  = "/opt/marrowbay/cgroup_info.ini";
static const char STORAGE[] = "/opt/marrowbay/storage_resource_info.ini";

static const uint64_t MIB = 1048576;

/* A document that lists these sizes, each an element of its own. */
static std::string listing(const std::vector<std::string> &sizes)
{
    std::string text = "<?xml version=\"1.0\"?>\n<file>\n<memcfg>\n";
    for (const std::string &size : sizes)
        text += "<mem>" + size + "</mem>\n";
    return text + "</memcfg>\n</file>\n";
}

static uint32_t size_of(const std::string &text, uint64_t measured_mib)
{
    document doc(text);
    fake_set_total_mem(measured_mib * MIB);
    return umm_get_node_mem_size(doc.top());
}

/* ------------------------------------------------------------------ umm_get_total_mem */

TEST(ConfigTotalMem, a_control_group_s_limit_comes_first)
{
    fake_set_ini(CGROUP, "cgroup_info", "cgroup_mem", "1073741824");
    fake_set_ini(STORAGE, "prog", "mem", "5");
    strcpy(g_proc_name, "prog");

    EXPECT_EQ(umm_get_total_mem(), 1073741824u);

    EXPECT_ONLY_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size(1073741824) from cgroup info.");
    EXPECT_EQ(fake_count(OP_zyax_cfg_init), 1u);
    EXPECT_EQ(fake_count(OP_zyax_cfg_destroy_ex), 1u);
    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 0u);
}

TEST(ConfigTotalMem, a_control_group_file_without_a_value_gives_0_and_nobody_else_is_asked)
{
    fake_set_ini(CGROUP, "cgroup_info", "other", "1");
    fake_set_ini(STORAGE, "prog", "mem", "5");
    strcpy(g_proc_name, "prog");

    EXPECT_EQ(umm_get_total_mem(), 0u);

    EXPECT_ONLY_LINE(4, "umm_get_total_mem", "[UMM_CMM] Read mem_size from cgroup info failed.");
    EXPECT_EQ(fake_count(OP_zyax_cfg_init), 1u);
    EXPECT_EQ(fake_count(OP_zyax_cfg_destroy_ex), 1u);
    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 0u);
}

TEST(ConfigTotalMem, a_control_group_value_that_is_no_number_counts_as_0)
{
    fake_set_ini(CGROUP, "cgroup_info", "cgroup_mem", "plenty");

    EXPECT_EQ(umm_get_total_mem(), 0u);

    EXPECT_ONLY_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size(0) from cgroup info.");
    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 0u);
}

TEST(ConfigTotalMem, the_process_s_own_share_comes_second)
{
    fake_set_ini(STORAGE, "prog", "mem", "536870912");
    fake_set_ini(STORAGE, "other", "mem", "7");
    strcpy(g_proc_name, "prog");

    EXPECT_EQ(umm_get_total_mem(), 536870912u);

    EXPECT_ONLY_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size(536870912) from storage resource info.");
    EXPECT_EQ(fake_count(OP_zyax_cfg_init), 2u);
    EXPECT_EQ(fake_count(OP_zyax_cfg_destroy_ex), 1u);
    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 0u);
}

TEST(ConfigTotalMem, a_process_without_a_share_asks_the_platform)
{
    fake_set_ini(STORAGE, "other", "mem", "7");
    strcpy(g_proc_name, "prog");
    fake_set_total_mem(209715200);

    EXPECT_EQ(umm_get_total_mem(), 209715200u);

    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Read mem_size from storage resource info failed.",
        "[UMM_CMM] Read mem_size(209715200) from zyax.",
    }));
    EXPECT_EQ(fake_log()[0].level, 4u);
    EXPECT_EQ(fake_log()[0].func, "umm_get_total_mem");
    EXPECT_EQ(fake_count(OP_zyax_cfg_destroy_ex), 1u);
}

TEST(ConfigTotalMem, without_files_the_platform_is_asked)
{
    fake_set_total_mem(274877906944);

    EXPECT_EQ(umm_get_total_mem(), 274877906944u);

    EXPECT_ONLY_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size(274877906944) from zyax.");
    EXPECT_EQ(fake_count(OP_zyax_cfg_destroy_ex), 0u);
}

TEST(ConfigTotalMem, a_platform_that_does_not_know_gives_0)
{
    fake_fail(OP_zyax_get_total_mem);

    EXPECT_EQ(umm_get_total_mem(), 0u);

    EXPECT_ONLY_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size failed.");
}

TEST(ConfigTotalMem, both_files_are_asked_in_order_with_a_buffer_of_64_bytes)
{
    fake_set_ini(STORAGE, "prog", "mem", "1");
    strcpy(g_proc_name, "prog");

    umm_get_total_mem();

    EXPECT_EQ(fake_calls(OP_zyax_cfg_init)[0].args[0].text, "/opt/marrowbay/cgroup_info.ini");
    EXPECT_EQ(fake_calls(OP_zyax_cfg_init)[1].args[0].text,
              "/opt/marrowbay/storage_resource_info.ini");
    EXPECT_EQ(fake_last_call(OP_zyax_cfg_getItemValue).args[1].text, "prog");
    EXPECT_EQ(fake_last_call(OP_zyax_cfg_getItemValue).args[2].text, "mem");
    EXPECT_EQ(fake_last_call(OP_zyax_cfg_getItemValue).args[4].number, 64u);
}

TEST(ConfigTotalMem, a_value_of_64_characters_does_not_fit)
{
    fake_set_ini(CGROUP, "cgroup_info", "cgroup_mem", std::string(63, ' ') + "1");

    EXPECT_EQ(umm_get_total_mem(), 0u);

    EXPECT_ONLY_LINE(4, "umm_get_total_mem", "[UMM_CMM] Read mem_size from cgroup info failed.");
}

TEST(ConfigTotalMem, none_of_its_lines_is_limited)
{
    EXPECT_NOT_LIMITED(umm_get_total_mem(), "[UMM_CMM] Read mem_size(209715200) from zyax.");
    fake_fail_always(OP_zyax_get_total_mem);
    EXPECT_NOT_LIMITED(umm_get_total_mem(), "[UMM_CMM] Read mem_size failed.");
    fake_set_ini(STORAGE);
    EXPECT_NOT_LIMITED(umm_get_total_mem(), "[UMM_CMM] Read mem_size from storage resource info failed.");
    fake_set_ini(STORAGE, "prog", "mem", "5");
    strcpy(g_proc_name, "prog");
    EXPECT_NOT_LIMITED(umm_get_total_mem(), "[UMM_CMM] Read mem_size(5) from storage resource info.");
    fake_set_ini(CGROUP);
    EXPECT_NOT_LIMITED(umm_get_total_mem(), "[UMM_CMM] Read mem_size from cgroup info failed.");
    fake_set_ini(CGROUP, "cgroup_info", "cgroup_mem", "6");
    EXPECT_NOT_LIMITED(umm_get_total_mem(), "[UMM_CMM] Read mem_size(6) from cgroup info.");
}

/* ------------------------------------------------------------------ umm_get_node_mem_size */

TEST(ConfigNodeSize, the_largest_listed_size_that_is_not_above_the_measured_one_is_chosen)
{
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 200), 128u);
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 100), 64u);
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 1000), 256u);
}

TEST(ConfigNodeSize, a_size_that_is_met_exactly_is_chosen)
{
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 64), 64u);
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 128), 128u);
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 127), 64u);
}

TEST(ConfigNodeSize, less_than_the_smallest_listed_size_gives_1)
{
    EXPECT_EQ(size_of(listing({"64", "128", "256"}), 50), 1u);
}

TEST(ConfigNodeSize, a_list_that_starts_at_1_serves_any_machine)
{
    EXPECT_EQ(size_of(listing({"1"}), 1), 1u);
    EXPECT_EQ(size_of(listing({"1"}), 4095), 1u);
}

TEST(ConfigNodeSize, the_measured_size_is_logged)
{
    size_of(listing({"64"}), 200);

    EXPECT_LAST_LINE(6, "umm_get_node_mem_size", "[UMM_CMM] Get node mem_size(200 MB).");
}

TEST(ConfigNodeSize, a_list_out_of_order_is_walked_up_to_the_first_larger_size_is_kept)
{
    EXPECT_EQ(size_of(listing({"64", "512", "128"}), 200), 64u);
}

TEST(ConfigNodeSize, a_list_that_ends_below_its_first_size_gives_1)
{
    EXPECT_EQ(size_of(listing({"64", "32"}), 200), 1u);
    EXPECT_EQ(size_of(listing({"64", "32", "128"}), 200), 128u);
}

TEST(ConfigNodeSize, without_listed_sizes_the_measured_one_is_the_answer)
{
    EXPECT_EQ(size_of(listing({}), 200), 200u);
}

TEST(ConfigNodeSize, negative_sizes_are_compared_with_their_sign)
{
    EXPECT_EQ(size_of(listing({"-5", "64"}), 200), 64u);
    EXPECT_EQ(size_of(listing({"-5"}), 200), 4294967291u);
}

TEST(ConfigNodeSize, sizes_beyond_32_bits_are_larger_than_any_node)
{
    EXPECT_EQ(size_of(listing({"64", "4294967360"}), 200), 64u);
}

TEST(ConfigNodeSize, white_space_around_a_size_is_allowed)
{
    EXPECT_EQ(size_of(listing({"\n   64\n   "}), 200), 64u);
}

TEST(ConfigNodeSize, a_size_that_is_no_number_counts_as_0)
{
    EXPECT_EQ(size_of(listing({"some", "128"}), 50), 0u);
    EXPECT_EQ(size_of(listing({"some", "128"}), 200), 128u);
}

TEST(ConfigNodeSize, a_size_whose_first_child_is_no_text_counts_as_0)
{
    EXPECT_EQ(size_of(listing({"<x>64</x>"}), 200), 0u);
    EXPECT_EQ(size_of(listing({"<!-- here -->64"}), 200), 0u);
}

TEST(ConfigNodeSize, an_empty_size_ends_the_list)
{
    EXPECT_EQ(size_of(listing({"64", "", "128"}), 200), 64u);
}

TEST(ConfigNodeSize, sixteen_sizes_are_read)
{
    EXPECT_EQ(size_of(listing({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13",
                               "14", "15", "16"}), 200), 16u);
}

TEST(ConfigNodeSize, seventeen_sizes_are_an_error)
{
    EXPECT_EQ(size_of(listing({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13",
                               "14", "15", "16", "17"}), 200), 0u);

    EXPECT_ONLY_LINE(3, "umm_get_node_mem_size", "[UMM_CMM] Node config mem_size num(16) error.");
    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 0u);
}

TEST(ConfigNodeSize, an_empty_seventeenth_size_only_ends_the_list)
{
    EXPECT_EQ(size_of(listing({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13",
                               "14", "15", "16", ""}), 200), 16u);
}

TEST(ConfigNodeSize, sizes_nested_and_behind_the_list_count_too)
{
    EXPECT_EQ(size_of("<?xml version=\"1.0\"?><file>\n<mem>7</mem>\n<memcfg>\n<group>\n"
                      "<mem>64</mem>\n</group>\n</memcfg>\n<mem>128</mem>\n</file>", 200), 128u);
}

TEST(ConfigNodeSize, a_document_without_a_list_is_an_error)
{
    EXPECT_EQ(size_of("<?xml version=\"1.0\"?><file>\n<mem>64</mem>\n</file>", 200), 0u);

    EXPECT_ONLY_LINE(3, "umm_get_node_mem_size", "[UMM_CMM] xml format error. can't find the node");
    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 0u);
}

TEST(ConfigNodeSize, the_search_does_not_return_the_document_s_own_top)
{
    EXPECT_EQ(size_of("<memcfg>\n<mem>64</mem>\n</memcfg>", 200), 0u);

    EXPECT_LAST_LINE(3, "umm_get_node_mem_size", "[UMM_CMM] xml format error. can't find the node");
}

TEST(ConfigNodeSize, the_byte_count_keeps_its_low_32_bits_is_kept)
{
    document doc(listing({"64", "4160"}));
    fake_set_total_mem(4096 * MIB + 70 * MIB);

    EXPECT_EQ(umm_get_node_mem_size(doc.top()), 64u);

    EXPECT_LAST_LINE(6, "umm_get_node_mem_size", "[UMM_CMM] Get node mem_size(70 MB).");
}

TEST(ConfigNodeSize, a_multiple_of_4_gib_has_no_size_is_kept)
{
    EXPECT_EQ(size_of(listing({"1"}), 65536), 0u);

    EXPECT_LAST_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size(68719476736) from zyax.");
}

TEST(ConfigNodeSize, less_than_one_mib_is_a_size_of_0)
{
    document doc(listing({}));
    fake_set_total_mem(1048575);

    EXPECT_EQ(umm_get_node_mem_size(doc.top()), 0u);

    EXPECT_LAST_LINE(6, "umm_get_node_mem_size", "[UMM_CMM] Get node mem_size(0 MB).");
}

TEST(ConfigNodeSize, a_node_of_unknown_memory_has_no_size)
{
    document doc(listing({"64"}));
    fake_fail(OP_zyax_get_total_mem);

    EXPECT_EQ(umm_get_node_mem_size(doc.top()), 0u);

    EXPECT_ONLY_LINE(6, "umm_get_total_mem", "[UMM_CMM] Read mem_size failed.");
}

TEST(ConfigNodeSize, the_list_is_read_before_the_memory_is_measured)
{
    document doc(listing({"64"}));
    fake_hook(OP_zyax_get_total_mem, 1, [] { EXPECT_EQ(fake_count(OP_zyax_str_tos64), 1u); });

    EXPECT_EQ(umm_get_node_mem_size(doc.top()), 64u);

    EXPECT_EQ(fake_count(OP_zyax_get_total_mem), 1u);
}

TEST(ConfigNodeSize, a_null_document_is_an_error)
{
    EXPECT_EQ(umm_get_node_mem_size(nullptr), 0u);

    EXPECT_LAST_LINE(3, "umm_get_node_mem_size", "[UMM_CMM] xml format error. can't find the node");
}

TEST(ConfigNodeSize, none_of_its_lines_is_limited)
{
    EXPECT_NOT_LIMITED(size_of("<file/>", 200), "[UMM_CMM] xml format error. can't find the node");
    EXPECT_NOT_LIMITED(size_of(listing({}), 200), "[UMM_CMM] Get node mem_size(200 MB).");
    EXPECT_NOT_LIMITED(size_of(listing(std::vector<std::string>(17, "1")), 200), "[UMM_CMM] Node config mem_size num(16) error.");
}
