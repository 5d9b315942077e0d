/*
 * The buffer pool and the configuration report with all levels off: the answers are the same, and
 * not a line is written.
 */
#include "unit/silence.h"

#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

static constexpr uint32_t FAILURE = 0xFFFFFFFF;

TEST_F(Silence, a_pool_without_sizes_gets_the_default_ones)
{
    EXPECT_EQ(cmm_create_buffer_mempool(0, 0), 0u);
    EXPECT_EQ(g_ucmm_config.io_pool.reserve_size, 102400u);
    cmm_destory_buffer_mempool();
    EXPECT_EQ(fake_objects_out(), 0u);
}

TEST_F(Silence, a_pool_without_a_table_is_refused)
{
    fake_fail(OP_zymm_malloc);
    EXPECT_EQ(cmm_create_buffer_mempool(1, 1), FAILURE);
    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
}

TEST_F(Silence, a_pool_of_somebody_else_is_registered)
{
    cmm_config_info info = {};
    info.pool_id = 9;
    EXPECT_EQ(zyumm_cmm_config_info_get(nullptr), FAILURE);
    EXPECT_EQ(zyumm_cmm_pool_info_set(nullptr, nullptr), FAILURE);
    EXPECT_EQ(zyumm_cmm_pool_info_set(&info, nullptr), 0u);
    EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 9u);
}

TEST_F(Silence, the_transport_is_set)
{
    cvx_usr_rdma_flag_set(1);
    EXPECT_EQ(g_ucmm_config.rdma_flag, 1u);
    cvx_usr_rdma_flag_set(0);
    EXPECT_EQ(g_ucmm_config.rdma_flag, 0u);
}
