/*
 * Settings of one value: transport, path of a second file, core-dump level.
 */
#include "zyumm_cmm.h"

#include "config_documents.h"
#include "fake/expect_log.h"

/* ------------------------------------------------------------------ transport */

static uint32_t read_flag(const std::string &parameters)
{
    entry doc(parameters);
    return umm_parse_rdma_flag_quota(doc.first_child(), doc.top());
}

TEST(ConfigRdmaFlag, a_flag_of_1_is_rdma)
{
    EXPECT_EQ(read_flag("<rdma_flag flag=\"1\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    EXPECT_ONLY_LINE(6, "cvx_usr_rdma_flag_set", "[UMM_CMM] CMM usr rdma flag set to RDMA.");
}

TEST(ConfigRdmaFlag, a_flag_of_0_is_tcp)
{
    g_ucmm_config.rdma_flag = 1;

    EXPECT_EQ(read_flag("<rdma_flag flag=\"0\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 0u);
    EXPECT_ONLY_LINE(6, "cvx_usr_rdma_flag_set", "[UMM_CMM] CMM usr rdma flag set to TCP.");
}

TEST(ConfigRdmaFlag, an_absent_element_is_rdma_and_a_warning_behind_the_setter_s_line)
{
    EXPECT_EQ(read_flag("<other/>"), 0u);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] CMM usr rdma flag set to RDMA.",
        "[UMM_CMM] CMM can not get rdma flag in config file, set flag[1] by default.",
    }));
    EXPECT_LAST_LINE(4, "umm_parse_rdma_flag_quota", "[UMM_CMM] CMM can not get rdma flag in config file, set flag[1] by default.");
}

TEST(ConfigRdmaFlag, a_flag_that_cannot_be_read_is_an_error_and_changes_nothing)
{
    g_ucmm_config.rdma_flag = 5;

    EXPECT_EQ(read_flag("<rdma_flag/>"), 0xFFFFFFFF);
    EXPECT_ONLY_LINE(3, "umm_parse_rdma_flag_quota", "[UMM_CMM] CMM parse rdma flag quota failed, can not find 'flag' in config file.");
    EXPECT_EQ(read_flag("<rdma_flag flag=\"rdma\"/>"), 0xFFFFFFFF);
    EXPECT_EQ(read_flag("<rdma_flag flag=\"-1\"/>"), 0xFFFFFFFF);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 5u);
}

TEST(ConfigRdmaFlag, a_flag_of_2_is_an_error_and_changes_nothing)
{
    g_ucmm_config.rdma_flag = 1;

    EXPECT_EQ(read_flag("<rdma_flag flag=\"2\"/>"), 0xFFFFFFFF);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    EXPECT_ONLY_LINE(3, "umm_parse_rdma_flag_quota", "[UMM_CMM] CMM parse rdma flag quota failed, flag is[2], need 0 ro 1.");
}

TEST(ConfigRdmaFlag, only_the_low_32_bits_count)
{
    EXPECT_EQ(read_flag("<rdma_flag flag=\"4294967297\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
}

TEST(ConfigRdmaFlag, none_of_its_lines_is_limited)
{
    EXPECT_NOT_LIMITED(read_flag(""), "[UMM_CMM] CMM can not get rdma flag in config file, set flag[1] by default.");
    EXPECT_NOT_LIMITED(read_flag("<rdma_flag/>"), "[UMM_CMM] CMM parse rdma flag quota failed, can not find 'flag' in config file.");
    EXPECT_NOT_LIMITED(read_flag("<rdma_flag flag=\"3\"/>"), "[UMM_CMM] CMM parse rdma flag quota failed, flag is[3], need 0 ro 1.");
}

/* ------------------------------------------------------------------ path of a second file */

static uint32_t read_path(const std::string &parameters)
{
    entry doc(parameters);
    return umm_parse_cfg_path(doc.first_child(), doc.top());
}

TEST(ConfigCfgPath, a_path_is_joined_to_the_configuration_s_directory)
{
    strcpy(g_config_path, "/a/b/./node_config.xml");

    EXPECT_EQ(read_path("<cfg_path path=\"sub/x.cfg\"/>"), 0u);

    EXPECT_STREQ(g_cfg_path_absolute, "/a/b/./sub/x.cfg");
    EXPECT_STREQ(g_config_path, "/a/b/./node_config.xml");
    EXPECT_ONLY_LINE(6, "umm_parse_cfg_path", "[UMM_CMM] CMM cfg path get success, relative path: sub/x.cfg, absolute path: /a/b/./sub/x.cfg.");
}

TEST(ConfigCfgPath, an_absolute_path_is_joined_too_is_kept)
{
    strcpy(g_config_path, "/a/node_config.xml");

    EXPECT_EQ(read_path("<cfg_path path=\"/etc/x.cfg\"/>"), 0u);

    EXPECT_STREQ(g_cfg_path_absolute, "/a//etc/x.cfg");
}

TEST(ConfigCfgPath, an_absent_element_changes_nothing)
{
    strcpy(g_cfg_path_absolute, "/old");

    EXPECT_EQ(read_path("<other path=\"x\"/>"), 0u);

    EXPECT_STREQ(g_cfg_path_absolute, "/old");
    EXPECT_NO_LINE();
}

TEST(ConfigCfgPath, an_element_without_a_path_is_an_error)
{
    strcpy(g_cfg_path_absolute, "/old");

    EXPECT_EQ(read_path("<cfg_path/>"), 0xFFFFFFFF);

    EXPECT_STREQ(g_cfg_path_absolute, "/old");
    EXPECT_ONLY_LINE(3, "umm_parse_cfg_path", "[UMM_CMM] CMM cfg path get failed, param error in node_config.xml.");
}

TEST(ConfigCfgPath, an_empty_path_is_the_directory)
{
    strcpy(g_config_path, "/a/node_config.xml");

    EXPECT_EQ(read_path("<cfg_path path=\"\"/>"), 0u);

    EXPECT_STREQ(g_cfg_path_absolute, "/a/");
}

TEST(ConfigCfgPath, a_joined_path_of_4095_characters_fits)
{
    strcpy(g_config_path, "/a/node_config.xml");
    const std::string path(4092, 'x');

    EXPECT_EQ(read_path("<cfg_path path=\"" + path + "\"/>"), 0u);

    EXPECT_EQ(g_cfg_path_absolute, "/a/" + path);
}

TEST(ConfigCfgPath, a_joined_path_of_4096_characters_is_an_error)
{
    strcpy(g_config_path, "/a/node_config.xml");
    const std::string path(4093, 'x');

    EXPECT_EQ(read_path("<cfg_path path=\"" + path + "\"/>"), 0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "umm_parse_cfg_path", "[UMM_CMM] CMM cfg absolute path get failed, relative path is: " + path + ".");
}

TEST(ConfigCfgPath, the_path_reaches_callers)
{
    char buf[4096] = "";
    strcpy(g_config_path, "/a/node_config.xml");
    read_path("<cfg_path path=\"x\"/>");

    EXPECT_EQ(zyumm_config_path_get(buf), 0u);

    EXPECT_STREQ(buf, "/a/x");
}

TEST(ConfigCfgPath, none_of_its_lines_is_limited)
{
    strcpy(g_config_path, "/a/node_config.xml");

    EXPECT_NOT_LIMITED(read_path("<cfg_path/>"), "[UMM_CMM] CMM cfg path get failed, param error in node_config.xml.");
    EXPECT_NOT_LIMITED(read_path("<cfg_path path=\"x\"/>"), "[UMM_CMM] CMM cfg path get success, relative path: x, absolute path: /a/x.");
    fake_fail_always(OP_snprintf_s);
    EXPECT_NOT_LIMITED(read_path("<cfg_path path=\"x\"/>"), "[UMM_CMM] CMM cfg absolute path get failed, relative path is: x.");
}

/* ------------------------------------------------------------------ core-dump level */

static uint32_t read_level(const std::string &parameters)
{
    entry doc(parameters);
    return umm_parse_coredump_level(doc.first_child(), doc.top());
}

TEST(ConfigCoredump, the_level_is_stored)
{
    EXPECT_EQ(read_level("<mem_coredump dump_level=\"3\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.coredump_level, 3u);
    EXPECT_ONLY_LINE(6, "umm_parse_coredump_level", "[UMM_CMM] Get mem coredump_level(3).");
    EXPECT_EQ(fake_count(OP_zymm_numa_coredump_level_set), 0u);
}

TEST(ConfigCoredump, an_absent_element_stores_0_without_a_warning)
{
    g_ucmm_config.coredump_level = 9;

    EXPECT_EQ(read_level("<other/>"), 0u);

    EXPECT_EQ(g_ucmm_config.coredump_level, 0u);
    EXPECT_ONLY_LINE(6, "umm_parse_coredump_level", "[UMM_CMM] Get mem coredump_level(0).");
}

TEST(ConfigCoredump, a_level_that_cannot_be_read_is_a_warning_and_stored_as_0)
{
    g_ucmm_config.coredump_level = 9;

    EXPECT_EQ(read_level("<mem_coredump dump_level=\"all\"/>"), 0u);

    EXPECT_EQ(g_ucmm_config.coredump_level, 0u);
    EXPECT_EQ(fake_log_texts(), (std::vector<std::string>{
        "[UMM_CMM] Get dump_level failed.",
        "[UMM_CMM] Get mem coredump_level(0).",
    }));
    EXPECT_EQ(fake_log()[0].level, 4u);
    EXPECT_EQ(fake_log()[0].func, "umm_parse_coredump_level");
}

TEST(ConfigCoredump, its_lines_are_not_limited)
{
    EXPECT_NOT_LIMITED(read_level("<mem_coredump/>"), "[UMM_CMM] Get dump_level failed.");
    EXPECT_NOT_LIMITED(read_level(""), "[UMM_CMM] Get mem coredump_level(0).");
}
