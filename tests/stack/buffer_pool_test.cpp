/*
 * The buffer pool and its size classes on the real slab layer.
 */
#include <cstring>

#include "node_process.h"
#include "zyumm_cmm_buffer.h"

static constexpr uint32_t MODULE = 82;

TEST(BufferPool, serves_small_and_large_buffers_and_may_be_made_again_after_it_went)
{
    const config_directory config({16, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    zymm_allocator *allocator = &g_ucmm_config.buffer_allocator;

    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(cmm_create_buffer_mempool(65536, 4096), 0u);
        for (const uint64_t size : {1ull, 64ull, 2048ull, 4097ull, 36864ull, 0xFE0000ull}) {
            void *buffer = allocator->alloc(allocator, size, MODULE, __func__, __LINE__);
            ASSERT_NE(buffer, nullptr) << size;
            memset(buffer, 0x5A, size);
            EXPECT_EQ(allocator->free(allocator, buffer, MODULE, __func__), 0) << size;
        }
        EXPECT_EQ(allocator->alloc(allocator, 0xFE0001, MODULE, __func__, __LINE__), nullptr);
        cmm_destory_buffer_mempool();
        EXPECT_EQ(g_ucmm_config.io_pool.pool_handle, 0u);
    }
    EXPECT_EQ(cmm_module_exit(), 0u);
}
