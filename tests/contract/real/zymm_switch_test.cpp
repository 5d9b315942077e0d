/*
 * What the host switches do: huge pages and the level of core dumps, as the kernel sees them.
 */
#include "contract/core/mpool_helpers.h"
#include "zymm_real_helpers.h"

namespace
{

bool is_huge(const void *address)
{
    const std::string flags = vm_flags(address);
    return has(flags, " hg") || has(flags, " ht");
}

bool is_left_out_of_dumps(const void *address)
{
    return has(vm_flags(address), " dd");
}

/* The object that a slab of this size gives at this core dump level. */
bool is_left_out_at(uint32_t level, uint64_t obj_size, uint64_t attr)
{
    zymm_numa_coredump_level_set(level);
    zymm_slab_param param = slab_param(obj_size, 100);
    param.attr            = attr;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    void *const    object = take(slab);
    const bool     result = is_left_out_of_dumps(object);
    give(slab, object);
    destroy(slab);
    return result;
}

uint64_t make_block_pool(uint64_t bytes)
{
    const uint32_t    partition = zyumm_partition_create(1, 0, 0, "blocks");
    zyumm_mpool_param param     = mpool_param(partition, bytes, 1);
    param.attr                  = 0x200;
    return zyumm_mpool_create(&param);
}

} // namespace

TEST(ZymmHugePages, are_not_asked_for_unless_the_host_says_so)
{
    const uint64_t slab   = make_slab(8376, 1000);
    void *const    object = take(slab);
    EXPECT_FALSE(is_huge(object));
    give(slab, object);
    destroy(slab);
}

TEST(ZymmHugePages, carry_every_piece_of_a_slab_that_was_made_with_the_switch_on)
{
    zymm_huge_pages_set(1);
    const uint64_t            slab = make_slab(8376, 2000);
    const std::vector<void *> all  = take_all(slab);
    ASSERT_EQ(all.size(), 2000u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(all[0]) % 2097152, 0u);
    /* Several of each piece; a look costs milliseconds where much is mapped. */
    for (size_t at = 0; at < all.size(); at += 125)
        ASSERT_TRUE(is_huge(all[at])) << vm_flags(all[at]);
    for (void *object : all)
        give(slab, object);
    EXPECT_EQ(zymm_slab_check(slab), 0);
    destroy(slab);
}

TEST(ZymmHugePages, are_not_given_to_slabs_that_exist_or_come_after_the_switch_is_off_again)
{
    const uint64_t before = make_slab(8376, 1000);
    zymm_huge_pages_set(1);
    void *const of_before = take(before);
    zymm_huge_pages_set(0);
    const uint64_t after    = make_slab(8376, 1000);
    void *const    of_after = take(after);
    EXPECT_FALSE(is_huge(of_before));
    EXPECT_FALSE(is_huge(of_after));
    give(before, of_before);
    give(after, of_after);
    destroy(before);
    destroy(after);
}

TEST(ZymmHugePages, are_not_wasted_on_a_slab_that_can_never_fill_one)
{
    zymm_huge_pages_set(1);
    const uint64_t mapped = mapped_bytes();
    const uint64_t slab   = make_slab(64, 10);
    void *const    object = take(slab);
    EXPECT_FALSE(is_huge(object));
    EXPECT_LT(mapped_bytes(), mapped + 2097152);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmHugePages, go_back_with_their_slab)
{
    zymm_huge_pages_set(1);
    const uint64_t mapped = mapped_bytes();
    const uint64_t slab   = make_slab(8376, 2000);
    void *const    object = take(slab);
    give(slab, object);
    destroy(slab);
    EXPECT_EQ(mapped_bytes(), mapped);
}

/* A holder may protect a block; its mapping is its own, and huge pages beside it stay whole. */
TEST(ZymmHugePages, never_lie_in_a_mapping_with_a_block_that_its_holder_protects)
{
    zymm_huge_pages_set(1);
    const uint64_t slab   = make_slab(8376, 1000);
    char *const    object = static_cast<char *>(take(slab));
    *object               = 1;
    const uint64_t pool   = make_block_pool(4 * 8376);
    char *const    block  = static_cast<char *>(zyumm_mpool_alloc_i(pool, 386, "test"));
    memset(block, 0, 4 * 8376);

    EXPECT_FALSE(is_huge(block)) << vm_flags(block);
    EXPECT_TRUE(has(vm_flags(block), " nh")) << vm_flags(block);
    ASSERT_EQ(mprotect(block, 8192, PROT_READ), 0);
    EXPECT_TRUE(has(vm_flags(block), " nh")) << vm_flags(block);
    EXPECT_TRUE(has(vm_flags(block + 8192), " nh")) << vm_flags(block + 8192);
    EXPECT_TRUE(is_huge(object));
    EXPECT_TRUE(is_huge(object + 8376));

    ASSERT_EQ(mprotect(block, 8192, PROT_READ | PROT_WRITE), 0);
    zyumm_mpool_free_i(pool, block, 386, "test");
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmCoredumpLevel, of_0_leaves_it_to_the_attributes)
{
    EXPECT_FALSE(is_left_out_at(0, 8192, 0));
    EXPECT_FALSE(is_left_out_at(0, 64, 0));
    EXPECT_TRUE(is_left_out_at(0, 64, ZYMM_SLAB_NODUMP));
}

TEST(ZymmCoredumpLevel, of_1_leaves_objects_of_4_kib_and_more_out)
{
    EXPECT_TRUE(is_left_out_at(1, 8376, 0));
    EXPECT_TRUE(is_left_out_at(1, 4096, 0));
    EXPECT_FALSE(is_left_out_at(1, 4095, 0));
    EXPECT_TRUE(is_left_out_at(1, 64, ZYMM_SLAB_NODUMP));
}

TEST(ZymmCoredumpLevel, of_2_and_more_leaves_all_objects_out)
{
    EXPECT_TRUE(is_left_out_at(2, 64, 0));
    EXPECT_TRUE(is_left_out_at(2, 8376, ZYMM_SLAB_CACHED));
    EXPECT_TRUE(is_left_out_at(7, 64, 0));
}

TEST(ZymmCoredumpLevel, counts_for_memory_that_is_taken_afterwards)
{
    const uint64_t slab  = make_slab(1048576, 8);
    void *const    early = take(slab);
    void *const    same  = take(slab); /* the first piece has two of them */
    zymm_numa_coredump_level_set(1);
    void *const late = take(slab);
    EXPECT_FALSE(is_left_out_of_dumps(early));
    EXPECT_TRUE(is_left_out_of_dumps(late));
    for (void *object : {early, same, late})
        give(slab, object);
    destroy(slab);
}

TEST(ZymmCoredumpLevel, acts_in_an_enclosing_pool_and_goes_with_the_slab)
{
    zymm_numa_coredump_level_set(2);
    const uint64_t  pool  = zymm_pool_create("pool", 1048576, 0, 386, "test");
    zymm_slab_param param = slab_param(64, 10);
    param.pool_id         = pool;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    void *const    object = take(slab);
    EXPECT_TRUE(is_left_out_of_dumps(object));
    give(slab, object);
    destroy(slab);
    EXPECT_FALSE(is_left_out_of_dumps(object));
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}
