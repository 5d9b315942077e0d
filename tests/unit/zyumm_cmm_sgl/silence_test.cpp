/*
 * Scatter-gather lists with all levels off: the answers are the same, and not a line is written.
 */
#include "unit/silence.h"

#include "chain_builder.h"
#include "page_chain.h"

/* ---- pool */

TEST_F(Silence, an_sgl_pool_that_cannot_be_made_is_a_failure)
{
    g_ucmm_config.sgl_max = 4;
    fake_fail(OP_memcpy_s);
    EXPECT_EQ(cmm_create_sgl_mempool(), -1);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(cmm_create_sgl_mempool(), -1);
}

TEST_F(Silence, an_sgl_pool_from_outside_is_refused)
{
    g_ucmm_config.sgl_max = 4;
    EXPECT_EQ(zyumm_sgl_slab_create(9, 0, 77, nullptr), -1);
    EXPECT_EQ(zyumm_sgl_slab_create(0, 0, 77, "me"), -1);
    EXPECT_EQ(zyumm_sgl_slab_create(9, 0, 77, "me"), -1);
    zyumm_partition_creator_set(CMM_CREATOR_SGL);
    fake_fail(OP_zymm_create_slab);
    EXPECT_EQ(zyumm_sgl_slab_create(9, 0, 77, "me"), -1);
    EXPECT_EQ(g_sgl_partition_id, 0u);
}

/* ---- chains of nothing */

TEST_F(Silence, clones_and_frees_of_nothing)
{
    SGL *copy = nullptr;
    freeSglChain(nullptr, 77, "me", 1);
    freeCloneSgl(nullptr);
    EXPECT_EQ(cloneSglChain(nullptr, &copy), -1);
    EXPECT_EQ(copy, nullptr);
}

TEST_F(Silence, a_clone_of_a_chain_that_is_too_short_is_as_short)
{
    start_page_chains();
    SGL *chain = page_chain_of({2});
    chain->entrySumInChain = 3;
    SGL *copy = nullptr;
    cloneSgl(chain, 0, &copy, 77, "me", 1);
    EXPECT_EQ(shape_of(copy), shape{2});
}

TEST_F(Silence, a_walk_over_a_chain_that_is_too_short_fails)
{
    start_page_chains();
    SGL *chain = page_chain_of({2});
    chain->entrySumInChain = 3;
    EXPECT_EQ(incPageReferenceBySgl(chain, 77, "me"), -1);
}

TEST_F(Silence, chains_and_clones_that_cannot_be_had)
{
    start_page_chains(1);
    SGL *chain = nullptr, *copy = nullptr;
    allocSglChain(&chain, 65, 77, "me", 1);
    EXPECT_EQ(chain, nullptr);
    allocOneSgl(&chain, 77, "me", 1);
    allocSglChain(&copy, 1, 77, "me", 1);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(cloneSglChain(chain, &copy), -1);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(sgls_out(), 1u);
}

/* ---- lookups */

using lookup_fn = int32_t (*)(SGL *, uint32_t, SGL **, uint32_t *, uint32_t *);

static void look_up_in_vain(lookup_fn look_up)
{
    const test_chain chain = chain_of({{520}});
    SGL *sgl = nullptr;
    uint32_t index = 0, offset = 0;
    EXPECT_EQ(look_up(nullptr, 0, &sgl, &index, &offset), -1);
    EXPECT_EQ(look_up(chain.head(), 0, nullptr, &index, &offset), -1);
    EXPECT_EQ(look_up(chain.head(), 0, &sgl, nullptr, &offset), -1);
    EXPECT_EQ(look_up(chain.head(), 0, &sgl, &index, nullptr), -1);
    EXPECT_EQ(look_up(chain.head(), 521, &sgl, &index, &offset), -1);
    EXPECT_EQ(sgl, nullptr);
}

TEST_F(Silence, lookups_in_vain)
{
    look_up_in_vain(getCurrentSglByOffset);
    look_up_in_vain(getCurrentSglByOffsetIgnoreDif);
}

TEST_F(Silence, the_last_entry_of_nothing)
{
    const test_chain empty = chain_of({{}});
    SGL *last = empty.head();
    uint32_t index = 7;
    getLastSgl(empty.head(), nullptr, &index);
    EXPECT_EQ(index, 7u);
    getLastSgl(empty.head(), &last, nullptr);
    EXPECT_EQ(last, nullptr);
    getLastSgl(nullptr, &last, &index);
    getLastSgl(empty.head(), &last, &index);
    EXPECT_EQ(last, nullptr);
    EXPECT_EQ(index, 0u);
}

TEST_F(Silence, the_last_entry_of_a_chain_that_is_miscounted)
{
    const test_chain chain = chain_of({{520, 520}});
    SGL *last = nullptr;
    uint32_t index = 0;
    chain.head()->entrySumInChain = 3;
    getLastSgl(chain.head(), &last, &index);
    EXPECT_EQ(last, nullptr);
    chain.head()->entrySumInChain = 1;
    getLastSgl(chain.head(), &last, &index);
    EXPECT_EQ(last, nullptr);
}

TEST_F(Silence, positions_of_nothing)
{
    const test_chain chain = chain_of({{520, 520}});
    SGL *sgl = nullptr;
    uint32_t index = 0;
    sglAndEntryOffsetPages(nullptr, &index, 1);
    sglAndEntryOffsetPages(&sgl, &index, 1);
    sgl = chain.head();
    sglAndEntryOffsetPages(&sgl, nullptr, 1);
    EXPECT_EQ(sgl, nullptr);
    EXPECT_EQ(index, 0u);
}

TEST_F(Silence, a_range_beyond_the_chain_has_no_entries)
{
    const test_chain chain = chain_of({{520}});
    EXPECT_EQ(getValidSglPageNum(chain.head(), 0, 521), 0u);
}

/* ---- copies; each direction and measure says its failures in a place of its own */

static void copy_in_vain(int32_t (*copy)(SGL *, uint32_t, void *, uint32_t))
{
    const test_chain chain = chain_of({{520}, {520}});
    bytes side(2000);
    EXPECT_EQ(copy(nullptr, 0, side.data(), 1), -1);
    EXPECT_EQ(copy(chain.head(), 0, nullptr, 1), -1);
    EXPECT_EQ(copy(chain.head(), 2000, side.data(), 1), -1);
    EXPECT_EQ(copy(chain.head(), 0, side.data(), 2000), -1);
    fake_fail(OP_memcpy_s, 1);
    EXPECT_EQ(copy(chain.head(), 0, side.data(), 1), -1);
    fake_fail(OP_memcpy_s, 2);
    EXPECT_EQ(copy(chain.head(), 0, side.data(), 600), -1);
}

TEST_F(Silence, copies_out_of_a_chain_in_vain)
{
    copy_in_vain(copyDataFromSglToBuffer);
    copy_in_vain(copyDataFromSglToBufferIgnoreDif);
}

TEST_F(Silence, copies_into_a_chain_in_vain)
{
    copy_in_vain([](SGL *sgl, uint32_t offset, void *side, uint32_t length) {
        return copyDataFromBufferToSgl(sgl, offset, side, length);
    });
    copy_in_vain([](SGL *sgl, uint32_t offset, void *side, uint32_t length) {
        return copyDataFromBufferToSglIgnoreDif(sgl, offset, side, length);
    });
}
