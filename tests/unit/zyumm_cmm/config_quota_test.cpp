/*
 * Object counts of the request, SGL and page pools, and the order in which an entry is read.
 */
#include "zyumm_cmm.h"

#include "config_documents.h"
#include "fake/expect_log.h"

/* What reading <page_num .../> gives, over values of 7. */
struct count_reading {
    uint32_t status;
    uint32_t min         = 7;
    uint32_t max         = 7;
    uint32_t numa_factor = 7;
    uint32_t num_factor  = 7;

    bool operator==(const count_reading &) const = default;
};

static count_reading read_counts(const std::string &parameters)
{
    entry         doc(parameters);
    count_reading read = {};
    read.status = umm_parse_cmm_quota(doc.first_child(), doc.top(), "page_num", &read.min,
                                      &read.max, &read.numa_factor, &read.num_factor);
    return read;
}

static std::vector<std::string> names_in(fake_op op, size_t arg)
{
    std::vector<std::string> names;
    for (const fake_call &call : fake_calls(op))
        names.push_back(call.args[arg].text);
    return names;
}

/* ------------------------------------------------------------------ one element */

TEST(ConfigCounts, minimum_and_maximum_are_read)
{
    EXPECT_EQ(read_counts("<page_num min_num=\"10\" max_num=\"20\"/>"),
              (count_reading{0, 10, 20, 0, 0}));
    EXPECT_NO_LINE();
}

TEST(ConfigCounts, num_is_both)
{
    EXPECT_EQ(read_counts("<page_num num=\"1000\"/>"), (count_reading{0, 1000, 1000, 0, 0}));
}

TEST(ConfigCounts, minimum_and_maximum_go_before_num)
{
    EXPECT_EQ(read_counts("<page_num num=\"5\" min_num=\"10\" max_num=\"20\"/>"),
              (count_reading{0, 10, 20, 0, 0}));
}

TEST(ConfigCounts, num_replaces_a_pair_that_is_not_complete)
{
    EXPECT_EQ(read_counts("<page_num num=\"5\" min_num=\"10\"/>"), (count_reading{0, 5, 5, 0, 0}));
    EXPECT_EQ(read_counts("<page_num num=\"5\" max_num=\"20\"/>"), (count_reading{0, 5, 5, 0, 0}));
    EXPECT_EQ(read_counts("<page_num num=\"5\" min_num=\"10\" max_num=\"x\"/>"),
              (count_reading{0, 5, 5, 0, 0}));
}

TEST(ConfigCounts, a_minimum_alone_fails_but_is_written)
{
    EXPECT_EQ(read_counts("<page_num min_num=\"10\"/>"),
              (count_reading{0xFFFFFFFF, 10, 7, 0, 0}));
}

TEST(ConfigCounts, a_maximum_alone_fails_and_is_not_written)
{
    EXPECT_EQ(read_counts("<page_num max_num=\"20\"/>"), (count_reading{0xFFFFFFFF, 7, 7, 0, 0}));
}

TEST(ConfigCounts, an_element_without_counts_fails)
{
    EXPECT_EQ(read_counts("<page_num/>"), (count_reading{0xFFFFFFFF, 7, 7, 0, 0}));
    EXPECT_EQ(read_counts("<page_num num=\"some\"/>"), (count_reading{0xFFFFFFFF, 7, 7, 0, 0}));
    EXPECT_NO_LINE();
}

TEST(ConfigCounts, factors_are_read_even_when_the_counts_fail)
{
    EXPECT_EQ(read_counts("<page_num numa_factor=\"1\" num_factor=\"50\"/>"),
              (count_reading{0xFFFFFFFF, 7, 7, 1, 50}));
}

TEST(ConfigCounts, factors_that_cannot_be_read_are_0)
{
    EXPECT_EQ(read_counts("<page_num num=\"5\" numa_factor=\"on\" num_factor=\"-1\"/>"),
              (count_reading{0, 5, 5, 0, 0}));
}

TEST(ConfigCounts, an_absent_element_is_0_and_leaves_the_factors_alone)
{
    EXPECT_EQ(read_counts("<other num=\"5\"/>"), (count_reading{0, 0, 0, 7, 7}));
}

TEST(ConfigCounts, counts_keep_their_low_32_bits)
{
    EXPECT_EQ(read_counts("<page_num min_num=\"4294967297\" max_num=\"4294967298\"/>"),
              (count_reading{0, 1, 2, 0, 0}));
}

TEST(ConfigCounts, nothing_is_corrected_here)
{
    fake_set_numa(1, 0b11, 2);

    EXPECT_EQ(read_counts("<page_num num=\"5\" numa_factor=\"1\" num_factor=\"100\"/>"),
              (count_reading{0, 5, 5, 1, 100}));
}

TEST(ConfigCounts, attributes_are_read_in_order_until_the_counts_are_known)
{
    read_counts("<page_num max_num=\"2\" min_num=\"1\" num=\"5\"/>");

    EXPECT_EQ(names_in(OP_zyax_xml_element_getattr, 1),
              (std::vector<std::string>{"numa_factor", "num_factor", "min_num", "max_num"}));
}

TEST(ConfigCounts, without_a_minimum_num_is_asked_for_next)
{
    read_counts("<page_num max_num=\"2\" num=\"5\"/>");

    EXPECT_EQ(names_in(OP_zyax_xml_element_getattr, 1),
              (std::vector<std::string>{"numa_factor", "num_factor", "min_num", "num"}));
}

TEST(ConfigCounts, null_places_fail)
{
    entry    doc("<page_num num=\"5\"/>");
    uint32_t n = 7;

    EXPECT_EQ(umm_parse_cmm_quota(doc.first_child(), doc.top(), "page_num", nullptr, &n, &n, &n),
              0xFFFFFFFF);
    EXPECT_EQ(umm_parse_cmm_quota(doc.first_child(), doc.top(), "page_num", &n, nullptr, &n, &n),
              0xFFFFFFFF);
    EXPECT_EQ(umm_parse_cmm_quota(doc.first_child(), doc.top(), "page_num", &n, &n, nullptr, &n),
              0xFFFFFFFF);
    EXPECT_EQ(umm_parse_cmm_quota(doc.first_child(), doc.top(), "page_num", &n, &n, &n, nullptr),
              0xFFFFFFFF);

    EXPECT_EQ(n, 7u);
}

/* ------------------------------------------------------------------ the three pools */

static uint32_t read_all_counts(const std::string &parameters)
{
    entry doc(parameters);
    return umm_parse_cmm_xml(doc.first_child(), doc.top());
}

TEST(ConfigPoolCounts, each_pool_has_its_own_pair)
{
    EXPECT_EQ(read_all_counts("<page_num min_num=\"5\" max_num=\"6\"/>"
                              "<sgl_num min_num=\"3\" max_num=\"4\"/>"
                              "<req_num min_num=\"1\" max_num=\"2\"/>"),
              0u);

    EXPECT_EQ(g_ucmm_config.req_min, 1u);
    EXPECT_EQ(g_ucmm_config.req_max, 2u);
    EXPECT_EQ(g_ucmm_config.sgl_min, 3u);
    EXPECT_EQ(g_ucmm_config.sgl_max, 4u);
    EXPECT_EQ(g_ucmm_config.page_min, 5u);
    EXPECT_EQ(g_ucmm_config.page_max, 6u);
    EXPECT_ONLY_LINE(6, "umm_parse_cmm_xml",
        "[UMM_CMM] Node config info: page(min:5, max:6, numa_factor:0, num_factor:0), "
        "sgl(min:3, max:4, numa_factor:0, num_factor:0), "
        "req(min:1, max:2, numa_factor:0, num_factor:0).");
}

TEST(ConfigPoolCounts, each_pool_is_corrected_by_its_own_factors)
{
    fake_set_numa(1, 0b0101, 4);

    read_all_counts("<req_num num=\"100\" numa_factor=\"1\" num_factor=\"200\"/>"
                    "<sgl_num num=\"100\"/>"
                    "<page_num num=\"1000\" numa_factor=\"1\" num_factor=\"50\"/>");

    EXPECT_EQ(g_ucmm_config.req_max, 400u);
    EXPECT_EQ(g_ucmm_config.sgl_max, 100u);
    EXPECT_EQ(g_ucmm_config.page_min, 1000u);
    EXPECT_EQ(g_ucmm_config.page_max, 1000u);
    EXPECT_ONLY_LINE(6, "umm_parse_cmm_xml",
        "[UMM_CMM] Node config info: page(min:1000, max:1000, numa_factor:1, num_factor:50), "
        "sgl(min:100, max:100, numa_factor:0, num_factor:0), "
        "req(min:400, max:400, numa_factor:1, num_factor:200).");
}

TEST(ConfigPoolCounts, without_a_numa_factor_nothing_is_corrected)
{
    fake_set_numa(1, 0b0101, 4);

    read_all_counts("<page_num num=\"1000\" numa_factor=\"0\" num_factor=\"50\"/>");

    EXPECT_EQ(g_ucmm_config.page_min, 1000u);
    EXPECT_EQ(g_ucmm_config.page_max, 1000u);
}

TEST(ConfigPoolCounts, with_numa_off_nothing_is_corrected)
{
    fake_set_numa(0, 0b0101, 4);

    read_all_counts("<page_num num=\"1000\" numa_factor=\"1\" num_factor=\"50\"/>");

    EXPECT_EQ(g_ucmm_config.page_min, 1000u);
    EXPECT_EQ(g_ucmm_config.page_max, 1000u);
}

TEST(ConfigPoolCounts, a_bad_element_keeps_its_old_pair_and_the_others_are_read)
{
    g_ucmm_config.sgl_min = 11;
    g_ucmm_config.sgl_max = 12;

    EXPECT_EQ(read_all_counts("<req_num num=\"1\"/><sgl_num min_num=\"10\" num_factor=\"3\"/>"
                              "<page_num num=\"5\"/>"),
              0u);

    EXPECT_EQ(g_ucmm_config.req_max, 1u);
    EXPECT_EQ(g_ucmm_config.sgl_min, 11u);
    EXPECT_EQ(g_ucmm_config.sgl_max, 12u);
    EXPECT_EQ(g_ucmm_config.page_max, 5u);
    EXPECT_ONLY_LINE(6, "umm_parse_cmm_xml",
        "[UMM_CMM] Node config info: page(min:5, max:5, numa_factor:0, num_factor:0), "
        "sgl(min:11, max:12, numa_factor:0, num_factor:3), "
        "req(min:1, max:1, numa_factor:0, num_factor:0).");
}

TEST(ConfigPoolCounts, absent_elements_are_0)
{
    g_ucmm_config.page_min = 9;
    g_ucmm_config.page_max = 9;

    EXPECT_EQ(read_all_counts("<other/>"), 0u);

    EXPECT_EQ(g_ucmm_config.page_min, 0u);
    EXPECT_EQ(g_ucmm_config.page_max, 0u);
}

TEST(ConfigPoolCounts, a_failed_mask_leaves_the_pair_as_the_document_has_it)
{
    fake_set_numa(1, 0b11, 2);
    fake_fail(OP_zyax_numam_proc_numamask_get);

    read_all_counts("<page_num num=\"1000\" numa_factor=\"1\" num_factor=\"50\"/>");

    EXPECT_EQ(g_ucmm_config.page_max, 1000u);
    EXPECT_EQ(fake_log()[0].text, "[UMM_CMM] CMM get proc numa mask failed.");
}

TEST(ConfigPoolCounts, the_line_is_not_limited)
{
    EXPECT_NOT_LIMITED(read_all_counts(""),
        "[UMM_CMM] Node config info: page(min:0, max:0, numa_factor:0, num_factor:0), "
        "sgl(min:0, max:0, numa_factor:0, num_factor:0), "
        "req(min:0, max:0, numa_factor:0, num_factor:0).");
}

/* ------------------------------------------------------------------ the creator of a pool */

static uint32_t read_creator(const std::string &parameters, uint32_t *creator)
{
    entry doc(parameters);
    return umm_parse_cmm_page_creator(doc.first_child(), doc.top(), "page_creator", creator);
}

TEST(ConfigPageCreator, the_attribute_is_read)
{
    uint32_t creator = 7;

    EXPECT_EQ(read_creator("<page_creator creator=\"3\"/>", &creator), 0u);

    EXPECT_EQ(creator, 3u);
}

TEST(ConfigPageCreator, an_absent_element_is_0)
{
    uint32_t creator = 7;

    EXPECT_EQ(read_creator("<other/>", &creator), 0u);

    EXPECT_EQ(creator, 0u);
}

TEST(ConfigPageCreator, an_element_without_the_attribute_fails_and_leaves_the_value)
{
    uint32_t creator = 7;

    EXPECT_EQ(read_creator("<page_creator/>", &creator), 0xFFFFFFFF);

    EXPECT_EQ(creator, 7u);
    EXPECT_NO_LINE();
}

TEST(ConfigPageCreator, a_null_place_fails)
{
    EXPECT_EQ(read_creator("<page_creator creator=\"3\"/>", nullptr), 0xFFFFFFFF);
}

/* ------------------------------------------------------------------ a whole entry */

TEST(ConfigEntry, parameters_are_read_in_a_fixed_order)
{
    entry doc("<mem_coredump/>");

    EXPECT_EQ(umm_parse_param(doc.element(), doc.top()), 0u);

    EXPECT_EQ(names_in(OP_zyax_xml_findelement, 2),
              (std::vector<std::string>{"rdma_flag", "normal_pool", "io_pool", "pool_threadcache",
                                        "pool_cachenum", "req_num", "sgl_num", "page_num",
                                        "cfg_path", "mem_coredump"}));
}

TEST(ConfigEntry, an_entry_without_children_fails_and_reads_nothing)
{
    document doc("<?xml version=\"1.0\"?><umm>\n<uprocess name=\"p\"/>\n</umm>");

    EXPECT_EQ(umm_parse_param(doc.find("uprocess"), doc.top()), 0xFFFFFFFF);

    EXPECT_EQ(fake_count(OP_zyax_xml_findelement), 0u);
    EXPECT_NO_LINE();
}

TEST(ConfigEntry, a_null_entry_fails)
{
    EXPECT_EQ(umm_parse_param(nullptr, nullptr), 0xFFFFFFFF);
    EXPECT_NO_LINE();
}

TEST(ConfigEntry, no_bad_parameter_stops_the_next)
{
    entry doc("<rdma_flag flag=\"7\"/><normal_pool/><pool_threadcache/><cfg_path/>"
              "<req_num/><sgl_num/><page_num num=\"8\"/><mem_coredump dump_level=\"2\"/>");

    EXPECT_EQ(umm_parse_param(doc.element(), doc.top()), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 8u);
    EXPECT_EQ(g_ucmm_config.coredump_level, 2u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] CMM parse rdma flag quota failed, flag is[7], need 0 ro 1.",
        "[UMM_CMM] CMM obtain normal_pool info failed.",
        "[UMM_CMM] Get mem_size_64G cache_size failed.",
        "[UMM_CMM] Get pool cache_size(0K).",
        "[UMM_CMM] Get pool_cachenum failed.",
        "[UMM_CMM] Node config info: page(min:8, max:8, numa_factor:0, num_factor:0), "
        "sgl(min:0, max:0, numa_factor:0, num_factor:0), "
        "req(min:0, max:0, numa_factor:0, num_factor:0).",
        "[UMM_CMM] CMM cfg path get failed, param error in node_config.xml.",
        "[UMM_CMM] Get mem coredump_level(2).",
    }));
}

TEST(ConfigEntry, parameters_of_another_entry_are_not_taken)
{
    document doc("<?xml version=\"1.0\"?>\n<umm>\n<uprocess name=\"p\">\n</uprocess>\n"
                 "<page_num num=\"5\"/>\n<uprocess name=\"q\">\n<page_num num=\"6\"/>\n</uprocess>\n"
                 "</umm>\n<page_num num=\"7\"/>\n");

    EXPECT_EQ(umm_parse_param(doc.find("uprocess"), doc.top()), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 0u);
}

TEST(ConfigEntry, a_parameter_without_white_space_before_it_is_lost_is_kept)
{
    document doc("<?xml version=\"1.0\"?><uprocess name=\"p\"><page_num num=\"5\"/>"
                 "<sgl_num num=\"6\"/></uprocess>");

    EXPECT_EQ(umm_parse_param(doc.find("uprocess"), doc.top()), 0u);

    EXPECT_EQ(g_ucmm_config.page_max, 0u);
    EXPECT_EQ(g_ucmm_config.sgl_max, 6u);
}
