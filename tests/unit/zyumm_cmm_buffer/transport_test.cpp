/*
 * The transport flag and its setter.
 */
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

#include "fake/expect_log.h"

TEST(Transport, the_flag_is_0_at_load)
{
    EXPECT_EQ(g_ucmm_config.rdma_flag, 0u);
}

TEST(Transport, a_flag_of_1_means_rdma)
{
    cvx_usr_rdma_flag_set(1);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    EXPECT_ONLY_LINE(6, "cvx_usr_rdma_flag_set", "[UMM_CMM] CMM usr rdma flag set to RDMA.");
}

TEST(Transport, a_flag_of_0_means_tcp)
{
    g_ucmm_config.rdma_flag = 1;

    cvx_usr_rdma_flag_set(0);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 0u);
    EXPECT_ONLY_LINE(6, "cvx_usr_rdma_flag_set", "[UMM_CMM] CMM usr rdma flag set to TCP.");
}

TEST(Transport, a_flag_of_2_is_stored_and_means_tcp)
{
    cvx_usr_rdma_flag_set(2);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 2u);
    EXPECT_ONLY_LINE(6, "cvx_usr_rdma_flag_set", "[UMM_CMM] CMM usr rdma flag set to TCP.");
}

TEST(Transport, any_32_bit_flag_is_stored)
{
    cvx_usr_rdma_flag_set(0xFFFFFFFF);

    EXPECT_EQ(g_ucmm_config.rdma_flag, 4294967295u);
}

TEST(Transport, nothing_but_the_flag_is_written)
{
    cmm_config expected = {};
    expected.rdma_flag  = 1;

    cvx_usr_rdma_flag_set(1);

    EXPECT_EQ(memcmp(&g_ucmm_config, &expected, sizeof expected), 0);
}

TEST(Transport, its_lines_are_not_limited)
{
    EXPECT_NOT_LIMITED(cvx_usr_rdma_flag_set(1), "[UMM_CMM] CMM usr rdma flag set to RDMA.");
    EXPECT_NOT_LIMITED(cvx_usr_rdma_flag_set(0), "[UMM_CMM] CMM usr rdma flag set to TCP.");
}

TEST(Transport, a_disabled_level_writes_no_line)
{
    fake_set_log_level(4);

    cvx_usr_rdma_flag_set(1);

    EXPECT_NO_LINE();
    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
}
