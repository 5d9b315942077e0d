/*
 * Attributes of a slab's and a memory pool's memory, as the kernel knows them.
 */
#include <algorithm>

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "contract/core/mpool_helpers.h"
#include "zymm_real_helpers.h"

namespace
{

uint64_t make_slab_with(uint64_t attr)
{
    zymm_slab_param param = slab_param(8192, 100);
    param.attr            = attr;
    return zymm_create_slab(&param, 386, "test");
}

uint64_t make_mpool_with(uint64_t attr, uint64_t obj_size, uint64_t max_num)
{
    static const uint32_t partition = zyumm_partition_create(1, 0, 0, "attributes");
    zyumm_mpool_param     param     = mpool_param(partition, obj_size, max_num);
    param.attr                      = attr;
    return zyumm_mpool_create(&param);
}

void *take_of(uint64_t pool)
{
    return zyumm_mpool_alloc_i(pool, 386, "test");
}

/* Whether the page is there in a forked child. */
bool child_has(const void *address)
{
    const pid_t child = fork();
    if (child == 0) {
        unsigned char in_core = 0;
        const uintptr_t page = reinterpret_cast<uintptr_t>(address) / 4096 * 4096;
        _exit(mincore(reinterpret_cast<void *>(page), 4096, &in_core) == 0 ? 1 : 2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

/* Takes the calling thread's right to lock beyond the limit away. */
bool drop_lock_capability()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct   data[2] = {};
    if (syscall(SYS_capget, &header, data) != 0)
        return false;
    data[0].effective &= ~(1u << CAP_IPC_LOCK);
    return syscall(SYS_capset, &header, data) == 0;
}

void finish(uint64_t pool, void *object)
{
    EXPECT_EQ(zyumm_mpool_free_i(pool, object, 386, "test"), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

} // namespace

TEST(ZymmAttribute, nodump_memory_is_left_out_of_core_dumps)
{
    const uint64_t slab   = make_slab_with(ZYMM_SLAB_NODUMP);
    void *const    object = take(slab);
    EXPECT_TRUE(has(vm_flags(object), " dd")) << vm_flags(object);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmAttribute, memory_is_dumped_and_forked_unless_asked_otherwise)
{
    const uint64_t slab   = make_slab_with(ZYMM_SLAB_CACHED);
    void *const    object = take(slab);
    EXPECT_FALSE(has(vm_flags(object), " dd")) << vm_flags(object);
    EXPECT_FALSE(has(vm_flags(object), " dc")) << vm_flags(object);
    EXPECT_TRUE(child_has(object));
    give(slab, object);
    destroy(slab);
}

TEST(ZymmAttribute, nofork_memory_is_missing_in_a_forked_child)
{
    const uint64_t slab   = make_slab_with(ZYMM_SLAB_NOFORK);
    void *const    object = take(slab);
    EXPECT_FALSE(child_has(object));
    EXPECT_TRUE(is_mapped(object));
    give(slab, object);
    destroy(slab);
}

TEST(ZymmAttribute, a_pools_0x40_and_0x80_are_nodump_and_nofork)
{
    const uint64_t pool   = make_mpool_with(0x40 | 0x80 | 0x10, 8192, 10);
    void *const    object = take_of(pool);
    EXPECT_TRUE(has(vm_flags(object), " dd")) << vm_flags(object);
    EXPECT_FALSE(child_has(object));
    finish(pool, object);
}

TEST(ZymmAttribute, a_cleared_pools_objects_are_zero_again)
{
    const uint64_t pool   = make_mpool_with(0x4, 1000, 1);
    unsigned char *object = static_cast<unsigned char *>(take_of(pool));
    memset(object, 0xFF, 1000);
    zyumm_mpool_free_i(pool, object, 386, "test");
    unsigned char *again = static_cast<unsigned char *>(take_of(pool));
    ASSERT_EQ(again, object);
    EXPECT_EQ(std::count(again, again + 1000, 0), 1000);
    finish(pool, again);
}

TEST(ZymmAttribute, one_block_is_contiguous_and_begins_on_a_page)
{
    const uint64_t pool  = make_mpool_with(0x200, 3000000, 1);
    char *const    block = static_cast<char *>(take_of(pool));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 4096, 0u);
    memset(block, 1, 3000000);
    EXPECT_EQ(take_of(pool), nullptr);
    finish(pool, block);
}

TEST(ZymmAttribute, one_block_of_many_objects_holds_them_side_by_side)
{
    const uint64_t pool  = make_mpool_with(0x200, 4096, 3);
    char *const    first = static_cast<char *>(take_of(pool));
    char *const    next  = static_cast<char *>(take_of(pool));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 4096, 0u);
    EXPECT_EQ(next - first, RED_ZONE == 0 ? 4096 : 4112);
    zyumm_mpool_free_i(pool, next, 386, "test");
    finish(pool, first);
}

TEST(ZymmAttribute, one_block_without_a_limit_is_refused_with_a_line)
{
    const std::string log = log_of([] { EXPECT_EQ(make_mpool_with(0x200, 4096, 0), 0u); });
    EXPECT_TRUE(has(log, "one block needs a max_num")) << log;
}

TEST(ZymmAttribute, a_pool_on_huge_pages_works_whether_the_system_has_them_or_not)
{
    const uint64_t pool   = make_mpool_with(0x400, 8192, 1000);
    char *const    object = static_cast<char *>(take_of(pool));
    ASSERT_NE(object, nullptr);
    memset(object, 1, 8192);
    const std::string flags = vm_flags(object);
    EXPECT_TRUE(has(flags, " hg") || has(flags, " ht")) << flags;
    finish(pool, object);
}

TEST(ZymmAttribute, a_locked_pools_memory_is_locked)
{
    if (SANITIZED)
        GTEST_SKIP() << "sanitizers switch mlock off";
    const uint64_t pool = make_mpool_with(0x100, 4096, 100);
    if (pool == 0)
        GTEST_SKIP() << "this process may not lock memory";
    void *const object = take_of(pool);
    EXPECT_TRUE(has(vm_flags(object), " lo")) << vm_flags(object);
    finish(pool, object);
}

TEST(ZymmAttribute, a_locked_pool_beyond_the_limit_is_refused_with_a_line)
{
    if (SANITIZED)
        GTEST_SKIP() << "sanitizers switch mlock off";
    rlimit before = {};
    getrlimit(RLIMIT_MEMLOCK, &before);
    const rlimit none = {0, before.rlim_max};
    setrlimit(RLIMIT_MEMLOCK, &none);
    const uint64_t mapped  = mapped_bytes();
    bool           dropped = false;
    uint64_t       pool    = 1;
    const std::string log  = log_of([&] {
        std::thread([&] { /* capabilities belong to a thread */
            dropped = drop_lock_capability();
            pool    = make_mpool_with(0x100, 4096, 100);
        }).join();
    });
    setrlimit(RLIMIT_MEMLOCK, &before);
    ASSERT_TRUE(dropped);
    EXPECT_EQ(pool, 0u);
    EXPECT_EQ(count_of(log, "memory cannot be locked"), 1u) << log;
    EXPECT_EQ(mapped_bytes(), mapped);
}

TEST(ZymmAttribute, what_a_slab_put_on_an_enclosing_pools_memory_goes_with_the_slab)
{
    const uint64_t  pool  = zymm_pool_create("pool", 1048576, 0, 386, "test");
    zymm_slab_param param = slab_param(8192, 10);
    param.attr            = ZYMM_SLAB_NODUMP | ZYMM_SLAB_NOFORK;
    param.pool_id         = pool;
    uint64_t    slab      = zymm_create_slab(&param, 386, "test");
    char *const object    = static_cast<char *>(take(slab));
    *object               = 1;
    EXPECT_TRUE(has(vm_flags(object), " dd")) << vm_flags(object);
    give(slab, object);
    destroy(slab);
    EXPECT_FALSE(has(vm_flags(object), " dd")) << vm_flags(object);
    EXPECT_TRUE(child_has(object));
    EXPECT_EQ(resident_pages(object, 4096), 0u);
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}
