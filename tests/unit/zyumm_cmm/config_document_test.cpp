/*
 * The document: section, process entry, and the reader from file to record.
 */
#include "zyumm_cmm.h"

#include "config_documents.h"
#include "fake/expect_log.h"

/* A file as an operator writes it; the default machine of these tests has 200 MiB. */
static const char FILE_TEXT[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<storage>\n"
    "    <memcfg>\n"
    "        <mem>64</mem>\n"
    "        <mem>128</mem>\n"
    "        <mem>256</mem>\n"
    "    </memcfg>\n"
    "    <config>\n"
    "        <node memory=\"64\">\n"
    "            <umm>\n"
    "                <uprocess name=\"default\">\n"
    "                    <page_num num=\"64\"/>\n"
    "                </uprocess>\n"
    "            </umm>\n"
    "        </node>\n"
    "        <node memory=\"128\">\n"
    "            <umm>\n"
    "                <uprocess name=\"default\">\n"
    "                    <page_num num=\"128\"/>\n"
    "                </uprocess>\n"
    "                <uprocess name=\"prog\">\n"
    "                    <rdma_flag flag=\"0\"/>\n"
    "                    <page_num num=\"129\"/>\n"
    "                </uprocess>\n"
    "            </umm>\n"
    "        </node>\n"
    "        <node memory=\"256\">\n"
    "            <umm>\n"
    "                <uprocess name=\"other\">\n"
    "                    <page_num num=\"256\"/>\n"
    "                </uprocess>\n"
    "            </umm>\n"
    "        </node>\n"
    "    </config>\n"
    "</storage>\n";

static std::string with_config(const std::string &config)
{
    return "<?xml version=\"1.0\"?>\n<file>\n<memcfg>\n<mem>64</mem>\n</memcfg>\n" + config +
           "\n</file>\n";
}

static std::string with_process(const std::string &process)
{
    return with_config("<config>\n<node memory=\"64\">\n<umm>\n" + process +
                       "\n</umm>\n</node>\n</config>");
}

static std::string attribute(mxml_node_t *element, const char *name)
{
    const char *text = element != nullptr ? mxmlElementGetAttr(element, name) : nullptr;
    return text != nullptr ? text : "(none)";
}

/* ------------------------------------------------------------------ umm_get_quota_xml */

TEST(ConfigSection, the_section_of_the_size_is_found)
{
    document doc(FILE_TEXT);

    mxml_node_t *umm = umm_get_quota_xml(doc.top(), 128);

    ASSERT_NE(umm, nullptr);
    EXPECT_EQ(attribute(mxmlGetParent(umm), "memory"), "128");
    EXPECT_ONLY_LINE(6, "umm_get_quota_xml", "[UMM_CMM] Read node config mem size(128).");
}

TEST(ConfigSection, the_first_of_two_sections_of_one_size_is_taken)
{
    document doc(with_config("<config>\n<node memory=\"64\" n=\"1\">\n<umm/>\n</node>\n"
                             "<node memory=\"64\" n=\"2\">\n<umm/>\n</node>\n</config>"));

    mxml_node_t *umm = umm_get_quota_xml(doc.top(), 64);

    EXPECT_EQ(attribute(mxmlGetParent(umm), "n"), "1");
}

TEST(ConfigSection, a_size_without_a_section_is_an_error)
{
    document doc(FILE_TEXT);

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 1), nullptr);

    EXPECT_ONLY_LINE(3, "umm_get_quota_xml", "[UMM_CMM] xml format error. can't find the node, node config need mem size(1).");
}

TEST(ConfigSection, a_section_without_a_size_ends_the_search)
{
    document doc(with_config("<config>\n<node>\n<umm/>\n</node>\n<node memory=\"64\">\n<umm/>\n"
                             "</node>\n</config>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), nullptr);

    EXPECT_ONLY_LINE(3, "umm_get_quota_xml", "[UMM_CMM] xml format error. can't find the node, node config need mem size(64).");
}

TEST(ConfigSection, a_section_whose_size_is_no_number_ends_the_search)
{
    document doc(with_config("<config>\n<node memory=\"64M\">\n<umm/>\n</node>\n"
                             "<node memory=\"64\">\n<umm/>\n</node>\n</config>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), nullptr);

    EXPECT_ONLY_LINE(3, "umm_get_quota_xml", "[UMM_CMM] xml format error. can't find the node, node config need mem size(64).");
}

TEST(ConfigSection, a_broken_section_behind_the_right_one_does_no_harm)
{
    document doc(with_config("<config>\n<node memory=\"64\">\n<umm/>\n</node>\n<node/>\n"
                             "</config>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), doc.find("umm"));
}

TEST(ConfigSection, a_size_keeps_its_low_32_bits)
{
    document doc(with_config("<config>\n<node memory=\"4294967360\">\n<umm/>\n</node>\n"
                             "</config>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), doc.find("umm"));
}

TEST(ConfigSection, sections_before_the_config_element_are_not_seen)
{
    document doc(with_config("<node memory=\"64\">\n<umm/>\n</node>\n<config>\n</config>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), nullptr);
}

TEST(ConfigSection, a_document_without_config_is_an_error)
{
    document doc(with_config("<node memory=\"64\">\n<umm/>\n</node>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), nullptr);

    EXPECT_ONLY_LINE(3, "umm_get_quota_xml", "[UMM_CMM] xml format error. can't find the node");
}

TEST(ConfigSection, a_section_without_umm_is_an_error)
{
    document doc(with_config("<config>\n<node memory=\"64\">\n</node>\n</config>"));

    EXPECT_EQ(umm_get_quota_xml(doc.top(), 64), nullptr);

    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Read node config mem size(64).",
        "[UMM_CMM] xml parse:umm_quota can not find!",
    }));
    EXPECT_LAST_LINE(3, "umm_get_quota_xml", "[UMM_CMM] xml parse:umm_quota can not find!");
}

TEST(ConfigSection, the_umm_of_a_later_section_is_taken_when_the_own_one_is_missing_is_kept)
{
    document doc(with_config("<config>\n<node memory=\"64\">\n</node>\n"
                             "<node memory=\"128\">\n<umm n=\"1\"/>\n</node>\n</config>"));

    EXPECT_EQ(attribute(umm_get_quota_xml(doc.top(), 64), "n"), "1");
}

TEST(ConfigSection, a_null_document_is_an_error)
{
    EXPECT_EQ(umm_get_quota_xml(nullptr, 64), nullptr);

    EXPECT_ONLY_LINE(3, "umm_get_quota_xml", "[UMM_CMM] xml format error. can't find the node");
}

static mxml_node_t *section_of(const std::string &text)
{
    document doc(text);
    return umm_get_quota_xml(doc.top(), 64);
}

TEST(ConfigSection, none_of_its_lines_is_limited)
{
    EXPECT_NOT_LIMITED(section_of("<file/>"), "[UMM_CMM] xml format error. can't find the node");
    EXPECT_NOT_LIMITED(section_of(with_config("<config/>")), "[UMM_CMM] xml format error. can't find the node, node config need mem size(64).");
    EXPECT_NOT_LIMITED(section_of(with_config("<config><node memory=\"64\"/></config>")), "[UMM_CMM] Read node config mem size(64).");
    EXPECT_NOT_LIMITED(section_of(with_config("<config><node memory=\"64\"/></config>")), "[UMM_CMM] xml parse:umm_quota can not find!");
}

/* ------------------------------------------------------------------ the process's entry */

/* Attribute n of the entry that this umm element has for the process. */
static std::string entry_of(const std::string &umm, const char *proc_name)
{
    document doc("<?xml version=\"1.0\"?>\n<umm>" + umm + "</umm>");
    return attribute(umm_get_process_xml(doc.find("umm"), doc.top(), proc_name), "n");
}

TEST(ConfigProcess, the_process_s_own_entry_is_found)
{
    EXPECT_EQ(entry_of("\n<uprocess name=\"default\" n=\"1\"/>\n<uprocess name=\"prog\" n=\"2\"/>\n",
                       "prog"), "2");
    EXPECT_ONLY_LINE(6, "umm_get_process_xml", "[UMM_CMM] umm process name is prog");
}

TEST(ConfigProcess, a_process_without_an_entry_gets_the_default_one)
{
    EXPECT_EQ(entry_of("\n<uprocess name=\"other\" n=\"1\"/>\n<uprocess name=\"default\" n=\"2\"/>\n",
                       "prog"), "2");
}

TEST(ConfigProcess, without_either_there_is_none)
{
    EXPECT_EQ(entry_of("\n<uprocess name=\"other\" n=\"1\"/>\n", "prog"), "(none)");
}

TEST(ConfigProcess, names_are_compared_exactly)
{
    EXPECT_EQ(entry_of("\n<uprocess name=\"Prog\" n=\"1\"/>\n<uprocess name=\"prog2\" n=\"2\"/>\n"
                       "<uprocess name=\" prog\" n=\"3\"/>\n", "prog"), "(none)");
}

TEST(ConfigProcess, the_first_of_two_entries_is_taken)
{
    EXPECT_EQ(entry_of("\n<uprocess name=\"prog\" n=\"1\"/>\n<uprocess name=\"prog\" n=\"2\"/>\n",
                       "prog"), "1");
}

TEST(ConfigProcess, an_entry_without_a_name_is_passed_over)
{
    EXPECT_EQ(entry_of("\n<uprocess n=\"1\"/>\n<uprocess name=\"prog\" n=\"2\"/>\n", "prog"), "2");
}

TEST(ConfigProcess, entries_below_other_elements_are_not_seen)
{
    EXPECT_EQ(entry_of("\n<group>\n<uprocess name=\"prog\" n=\"1\"/>\n</group>\n", "prog"),
              "(none)");
}

TEST(ConfigProcess, entries_behind_the_umm_element_are_not_seen)
{
    document doc("<?xml version=\"1.0\"?>\n<node>\n<umm>\n</umm>\n"
                 "<uprocess name=\"prog\"/>\n</node>\n<uprocess name=\"prog\"/>\n");

    EXPECT_EQ(umm_get_process_xml(doc.find("umm"), doc.top(), "prog"), nullptr);
}

TEST(ConfigProcess, an_entry_without_white_space_before_it_is_lost_is_kept)
{
    EXPECT_EQ(entry_of("<uprocess name=\"prog\" n=\"1\"/><uprocess name=\"default\" n=\"2\"/>",
                       "prog"), "2");
}

TEST(ConfigProcess, an_empty_umm_element_has_no_entry)
{
    EXPECT_EQ(entry_of("", "prog"), "(none)");
}

TEST(ConfigProcess, a_null_name_is_written_out_and_gets_the_default_entry)
{
    EXPECT_EQ(entry_of("\n<uprocess name=\"default\" n=\"1\"/>\n", nullptr), "1");
    EXPECT_ONLY_LINE(6, "umm_get_process_xml", "[UMM_CMM] umm process name is (null)");
}

TEST(ConfigProcess, a_null_element_has_no_entry)
{
    EXPECT_EQ(umm_get_process_xml(nullptr, nullptr, "prog"), nullptr);
    EXPECT_EQ(get_process_xml_by_name(nullptr, nullptr, "prog"), nullptr);
}

TEST(ConfigProcess, a_look_up_by_name_has_no_default_and_writes_no_line)
{
    document doc("<?xml version=\"1.0\"?>\n<umm>\n<uprocess name=\"default\"/>\n</umm>");

    EXPECT_EQ(get_process_xml_by_name(doc.find("umm"), doc.top(), "prog"), nullptr);
    EXPECT_EQ(get_process_xml_by_name(doc.find("umm"), doc.top(), "default"),
              doc.find("uprocess"));
    EXPECT_EQ(get_process_xml_by_name(doc.find("umm"), doc.top(), nullptr), nullptr);
    EXPECT_NO_LINE();
}

TEST(ConfigProcess, its_line_is_not_limited)
{
    EXPECT_NOT_LIMITED(entry_of("", "prog"), "[UMM_CMM] umm process name is prog");
}

/* ------------------------------------------------------------------ umm_parse_xml */

/* One file in a directory of its own, and what was open before it was read. */
class ConfigFile : public testing::Test
{
protected:
    uint32_t read(const std::string &text, const char *proc_name = "prog")
    {
        path_ = dir_.write("node_config.xml", text);
        return umm_parse_xml(path_.c_str(), proc_name);
    }

    /* The error that umm_parse_xml itself wrote last. */
    std::string error()
    {
        const std::vector<fake_line> lines = fake_log_from("umm_parse_xml");
        return lines.empty() || lines.back().level != 3 ? "" : lines.back().text;
    }

    void TearDown() override
    {
        EXPECT_EQ(open_descriptors(), descriptors_);
    }

    scratch_directory dir_;
    std::string       path_;
    const long        descriptors_ = open_descriptors();
};

TEST_F(ConfigFile, a_file_fills_the_record_from_the_process_s_entry)
{
    EXPECT_EQ(read(FILE_TEXT), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 129u);
    EXPECT_EQ(g_ucmm_config.rdma_flag, 0u);
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 1u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Read mem_size(209715200) from zyax.",
        "[UMM_CMM] Get node mem_size(200 MB).",
        "[UMM_CMM] Read node config mem size(128).",
        "[UMM_CMM] umm process name is prog",
        "[UMM_CMM] CMM usr rdma flag set to TCP.",
        "[UMM_CMM] Pool(normal_pool), reserve(0), max(0), extand(0), max_limit(0), leak_rate(0), dontfork_flag(0).",
        "[UMM_CMM] Pool(io_pool), reserve(0), max(0), extand(0), max_limit(0), leak_rate(0), dontfork_flag(0).",
        "[UMM_CMM] Get pool cache_size(0K).",
        "[UMM_CMM] Get pool_cachenum failed.",
        "[UMM_CMM] Node config info: page(min:129, max:129, numa_factor:0, num_factor:0), sgl(min:0, max:0, numa_factor:0, num_factor:0), req(min:0, max:0, numa_factor:0, num_factor:0).",
        "[UMM_CMM] Get mem coredump_level(0).",
    }));
}

TEST_F(ConfigFile, a_process_without_an_entry_gets_the_default_one)
{
    EXPECT_EQ(read(FILE_TEXT, "somebody"), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 128u);
    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
}

TEST_F(ConfigFile, the_node_s_memory_selects_the_section)
{
    fake_set_total_mem(uint64_t(100) << 20);

    EXPECT_EQ(read(FILE_TEXT), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 64u);
}

TEST_F(ConfigFile, a_node_below_the_smallest_size_finds_no_section)
{
    fake_set_total_mem(uint64_t(50) << 20);

    EXPECT_EQ(read(FILE_TEXT), 0xFFFFFFFF);

    EXPECT_EQ(fake_log_count("[UMM_CMM] xml format error. can't find the node, node config need mem size(1)."), 1u);
    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] '" + path_ + "' xml format error.");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 1u);
}

TEST_F(ConfigFile, all_parameters_reach_the_record_and_the_slab_layer)
{
    strcpy(g_config_path, "/a/node_config.xml");

    EXPECT_EQ(read(with_process("<uprocess name=\"prog\">\n"
        "<rdma_flag flag=\"1\"/>\n"
        "<normal_pool reserve_size=\"1\" max_size=\"2\" extand_size=\"3\" max_limit=\"1\" leak_rate=\"4\" dontfork_flag=\"1\"/>\n"
        "<io_pool reserve_size=\"5\" max_size=\"6\" extand_size=\"7\"/>\n"
        "<pool_threadcache cache_size=\"8\"/>\n"
        "<pool_cachenum page=\"9\" page_maxcachethreadnum=\"10\" 64K_inner=\"11\" 64K_outer=\"12\"/>\n"
        "<req_num min_num=\"13\" max_num=\"14\"/>\n"
        "<sgl_num min_num=\"15\" max_num=\"16\"/>\n"
        "<page_num min_num=\"17\" max_num=\"18\"/>\n"
        "<cfg_path path=\"x.cfg\"/>\n"
        "<mem_coredump dump_level=\"19\"/>\n"
        "</uprocess>")), 0u);

    cmm_config expected     = {};
    expected.req_min        = 13;
    expected.req_max        = 14;
    expected.sgl_min        = 15;
    expected.sgl_max        = 16;
    expected.page_min       = 17;
    expected.page_max       = 18;
    expected.normal_pool    = {1, 2, 3, 0, 1, 4, 1, 0};
    expected.io_pool        = {5, 6, 7, 0, 0, 30, 0, 0};
    expected.rdma_flag      = 1;
    expected.cache_size     = 8;
    expected.coredump_level = 19;
    EXPECT_EQ(memcmp(&g_ucmm_config, &expected, offsetof(cmm_config, coredump_level) + 4), 0);
    EXPECT_STREQ(g_cfg_path_absolute, "/a/x.cfg");
    EXPECT_EQ(fake_last_call(OP_zymm_pool_cache_num_set).args[1].number, 11u);
}

TEST_F(ConfigFile, a_missing_file_is_an_error)
{
    const std::string path = dir_.path() + "/none.xml";

    EXPECT_EQ(umm_parse_xml(path.c_str(), "prog"), 0xFFFFFFFF);

    EXPECT_ONLY_LINE(3, "umm_parse_xml", "[UMM_CMM] failed to open config file[" + path + "]");
    EXPECT_EQ(fake_count(OP_zyax_xml_loadfd), 0u);
}

TEST_F(ConfigFile, a_null_path_is_a_file_that_cannot_be_opened)
{
    EXPECT_EQ(umm_parse_xml(nullptr, "prog"), 0xFFFFFFFF);

    EXPECT_ONLY_LINE(3, "umm_parse_xml", "[UMM_CMM] failed to open config file[(null)]");
}

TEST_F(ConfigFile, an_empty_file_is_an_error)
{
    EXPECT_EQ(read(""), 0xFFFFFFFF);

    EXPECT_EQ(error(), "[UMM_CMM] failed to load xml tree from file[" + path_ + "] err(22)");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 0u);
}

TEST_F(ConfigFile, broken_xml_is_an_error)
{
    EXPECT_EQ(read("<?xml version=\"1.0\"?>\n<file>\n<memcfg></file>"), 0xFFFFFFFF);

    EXPECT_EQ(error(), "[UMM_CMM] failed to load xml tree from file[" + path_ + "] err(22)");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 0u);
}

TEST_F(ConfigFile, a_file_without_xml_is_an_error)
{
    EXPECT_EQ(read("page_num = 5\n"), 0xFFFFFFFF);

    EXPECT_NE(error(), "");
}

TEST_F(ConfigFile, a_directory_is_an_error)
{
    EXPECT_EQ(umm_parse_xml(dir_.path().c_str(), "prog"), 0xFFFFFFFF);

    EXPECT_EQ(error().substr(0, 47), "[UMM_CMM] failed to load xml tree from file[" + dir_.path().substr(0, 3));
}

TEST_F(ConfigFile, a_file_without_sizes_gives_no_size_and_leaves_its_tree_is_kept)
{
    EXPECT_EQ(read("<?xml version=\"1.0\"?>\n<file>\n<config/>\n</file>"), 0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] Get node mem size(0) failed.");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 0u);
}

TEST_F(ConfigFile, seventeen_sizes_give_no_size)
{
    std::string sizes;
    for (int i = 1; i <= 17; ++i)
        sizes += "<mem>" + std::to_string(i) + "</mem>\n";

    EXPECT_EQ(read("<?xml version=\"1.0\"?>\n<file>\n<memcfg>\n" + sizes + "</memcfg>\n</file>"),
              0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] Get node mem size(0) failed.");
}

TEST_F(ConfigFile, a_machine_of_64_gib_has_no_size)
{
    fake_set_total_mem(uint64_t(64) << 30);

    EXPECT_EQ(read(FILE_TEXT), 0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] Get node mem size(0) failed.");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 0u);
}

TEST_F(ConfigFile, a_file_without_config_is_an_error)
{
    EXPECT_EQ(read(with_config("")), 0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] '" + path_ + "' xml format error.");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 1u);
}

TEST_F(ConfigFile, without_an_entry_the_transport_is_rdma_and_the_reading_fails)
{
    EXPECT_EQ(read(with_process("<uprocess name=\"other\">\n</uprocess>")), 0xFFFFFFFF);

    const std::vector<std::string> texts = fake_log_texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[texts.size() - 2], "[UMM_CMM] CMM usr rdma flag set to RDMA.");
    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] '" + path_ + "' xml format error. can't find the corresponding process");
    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 1u);
}

TEST_F(ConfigFile, an_entry_without_children_is_an_error_but_no_failure)
{
    EXPECT_EQ(read(with_process("<uprocess name=\"prog\"/>")), 0u);

    EXPECT_LAST_LINE(3, "umm_parse_xml", "[UMM_CMM] parse xml[" + path_ + "] format error. quota format not correct");
    EXPECT_EQ(fake_count(OP_zyax_xml_del), 1u);
}

TEST_F(ConfigFile, bad_parameters_are_no_failure)
{
    EXPECT_EQ(read(with_process("<uprocess name=\"prog\">\n<page_num/>\n<rdma_flag/>\n"
                                "</uprocess>")), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 0u);
}

TEST_F(ConfigFile, a_failure_before_the_entry_leaves_the_record_as_it_was)
{
    memset(&g_ucmm_config, 0x5A, sizeof g_ucmm_config);
    const cmm_config before = g_ucmm_config;

    EXPECT_EQ(read(""), 0xFFFFFFFF);
    EXPECT_EQ(read(with_config("<config/>")), 0xFFFFFFFF);
    EXPECT_EQ(read("<?xml version=\"1.0\"?><file/>"), 0xFFFFFFFF);

    EXPECT_EQ(memcmp(&g_ucmm_config, &before, sizeof before), 0);
}

TEST_F(ConfigFile, a_file_on_one_line_loses_every_first_child_is_kept)
{
    EXPECT_EQ(read("<?xml version=\"1.0\"?><file><memcfg><mem>64</mem></memcfg><config>"
                   "<node memory=\"64\"><umm><uprocess name=\"prog\"><page_num num=\"1\"/>"
                   "</uprocess><uprocess name=\"default\"><page_num num=\"2\"/><sgl_num num=\"3\"/>"
                   "</uprocess></umm></node></config></file>"), 0u);

    /* The process's own entry is umm's first child, the page count the default entry's. */
    EXPECT_EQ(g_ucmm_config.page_max, 0u);
    EXPECT_EQ(g_ucmm_config.sgl_max, 3u);
}

TEST_F(ConfigFile, comments_between_elements_do_no_harm)
{
    EXPECT_EQ(read(with_process("<!-- ours -->\n<uprocess name=\"prog\">\n<!-- pages -->\n"
                                "<page_num num=\"5\"/>\n</uprocess>")), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 5u);
}

TEST_F(ConfigFile, the_tree_is_loaded_whole_with_opaque_text)
{
    read(FILE_TEXT);

    const fake_call load = fake_last_call(OP_zyax_xml_loadfd);
    EXPECT_EQ(load.args[0].number, 0u);
    EXPECT_EQ(load.args[2].number, uint64_t(&mxml_opaque_cb));
}

TEST_F(ConfigFile, the_tree_that_was_loaded_is_the_one_that_is_released)
{
    read(FILE_TEXT);

    EXPECT_EQ(fake_last_call(OP_zyax_xml_del).args[0].number,
              fake_last_call(OP_zyax_xml_loadfd).result);
}

TEST_F(ConfigFile, none_of_its_errors_is_limited)
{
    EXPECT_NOT_LIMITED(umm_parse_xml("/none/x", "p"), "[UMM_CMM] failed to open config file[/none/x]");
    read("");
    EXPECT_NOT_LIMITED(read(""), "[UMM_CMM] failed to load xml tree from file[" + path_ + "] err(22)");
    EXPECT_NOT_LIMITED(read("<file/>"), "[UMM_CMM] Get node mem size(0) failed.");
    EXPECT_NOT_LIMITED(read(with_config("")), "[UMM_CMM] '" + path_ + "' xml format error.");
    EXPECT_NOT_LIMITED(read(with_process("")), "[UMM_CMM] '" + path_ + "' xml format error. can't find the corresponding process");
    EXPECT_NOT_LIMITED(read(with_process("\n<uprocess name=\"prog\"/>")), "[UMM_CMM] parse xml[" + path_ + "] format error. quota format not correct");
}

/* ------------------------------------------------------------------ fault sweeps */

/* Whatever fails, the tree is released but on the one path that keeps it: there the sweep releases
 * it itself, whole. TearDown checks that the file is closed. */
static void sweep(fake_op op, const std::string &path)
{
    for_each_fault(op, [&](const fault &f) {
        fake_forget_calls();
        fake_forget_log();
        const uint32_t status = umm_parse_xml(path.c_str(), "prog");

        const uint64_t tree = fake_last_call(OP_zyax_xml_loadfd).result;
        const uint64_t kept = fake_log_count("[UMM_CMM] Get node mem size(0) failed.");
        EXPECT_EQ(fake_count(OP_zyax_xml_del) + kept, tree != 0 ? 1u : 0u)
            << fake_op_name(op) << f.nth;
        if (kept == 1)
            mxmlDelete(reinterpret_cast<mxml_node_t *>(tree));
        if (!f.hit) {
            EXPECT_EQ(status, 0u) << fake_op_name(op) << f.nth;
        }
    });
}

TEST_F(ConfigFile, whatever_xml_call_fails_tree_and_file_are_released)
{
    const std::string path = dir_.write("node_config.xml", FILE_TEXT);

    sweep(OP_zyax_xml_loadfd, path);
    sweep(OP_zyax_xml_findelement, path);
    sweep(OP_zyax_xml_getfirstchild, path);
    sweep(OP_zyax_xml_element_getattr, path);
}

TEST_F(ConfigFile, whatever_conversion_or_query_fails_tree_and_file_are_released)
{
    const std::string path = dir_.write("node_config.xml", FILE_TEXT);
    fake_set_numa(1, 1, 2);

    sweep(OP_zyax_str_isuint, path);
    sweep(OP_zyax_str_tou64, path);
    sweep(OP_zyax_str_tos64, path);
    sweep(OP_zyax_get_total_mem, path);
    sweep(OP_zyax_numam_status_get, path);
    sweep(OP_snprintf_s, path);
    sweep(OP_memcpy_s, path);
}

TEST_F(ConfigFile, whatever_ini_call_fails_tree_and_files_are_released)
{
    const std::string path = dir_.write("node_config.xml", FILE_TEXT);
    strcpy(g_proc_name, "prog");
    fake_set_ini("/opt/marrowbay/storage_resource_info.ini", "prog", "mem", "134217728");

    sweep(OP_zyax_cfg_init, path);
    sweep(OP_zyax_cfg_getItemValue, path);
}
