/*
 * The buffer pool with its allocator, the transport flag, and the configuration in bytes.
 */
#include "sweep.h"

#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

namespace
{

cmm_config_info info;

void sizes()
{
    g_ucmm_config.page_min = 2;
    g_ucmm_config.page_max = 4;
}

void no_pool()
{
    cmm_destory_buffer_mempool();
}

std::string told_status(uint32_t status)
{
    return told(status) +
           (g_ucmm_config.io_pool.pool_handle != 0 ? ", registered" : ", not registered");
}

} // namespace

const std::vector<operation> &buffer_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(cvx_usr_rdma_flag_set),
            .call =
                [] {
                    cvx_usr_rdma_flag_set(1);
                    return told(g_ucmm_config.rdma_flag);
                },
            .clean = "1",
        },
        {
            /* The pool made before its allocator could not be stays, without a handle. */
            .name = EXPORTED(cmm_create_buffer_mempool),
            .scene = sizes,
            .ready = no_pool,
            .call = [] { return told_status(cmm_create_buffer_mempool(1, 1)); },
            .clean = "0, registered",
            .undo = no_pool,
            .stops = {goes_on({OP_memset_s, OP_zymm_object_whole_size_get}),
                      goes_on({OP_zymm_free}).leaving("objects+1"),
                      ends("0xFFFFFFFF, not registered", {OP_zymm_pool_create}),
                      ends("0xFFFFFFFF, not registered",
                           {OP_zymm_malloc, OP_zymm_allocator_init, OP_zymm_allocator_create})
                          .leaving("pools+1")},
        },
        {
            .name = EXPORTED(cmm_create_allocator),
            .scene =
                [] {
                    g_ucmm_config.io_pool.pool_handle =
                        zymm_pool_create("outside", 1 << 20, 0, 77, "the test");
                },
            .call = [] { return told(cmm_create_allocator()); },
            .clean = "0",
            .undo =
                [] {
                    g_ucmm_config.buffer_allocator.destroy(&g_ucmm_config.buffer_allocator, 77,
                                                           "the test");
                },
            .stops = {goes_on({OP_memset_s}), goes_on({OP_zymm_free}).leaving("objects+1"),
                      ends("0xFFFFFFFF",
                           {OP_zymm_malloc, OP_zymm_allocator_init, OP_zymm_allocator_create})},
        },
        {
            .name = EXPORTED(cmm_destory_buffer_mempool),
            .scene = sizes,
            .ready = [] { cmm_create_buffer_mempool(1, 1); },
            .call =
                [] {
                    cmm_destory_buffer_mempool();
                    return told_status(0u);
                },
            .clean = "0, not registered",
            .stops = {goes_on({OP_zymm_allocator_destroy}).leaving("pools+1 allocators+1"),
                      goes_on({OP_zymm_pool_destory}).leaving("pools+1")},
        },
        {
            .name = EXPORTED(zyumm_cmm_config_info_get),
            .scene = sizes,
            .call = [] { return told(zyumm_cmm_config_info_get(&info)); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_object_whole_size_get})},
        },
        {
            .name = EXPORTED(zyumm_cmm_pool_info_set),
            .ready = [] { info.pool_id = 7; },
            .call = [] { return told_status(zyumm_cmm_pool_info_set(&info, nullptr)); },
            .clean = "0, registered",
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Buffer, Sweep, ::testing::ValuesIn(buffer_operations()), row_name);
