/*
 * Clones that hold references, and copies that borrow the pages.
 */
#include "page_chain.h"

namespace
{

class SglClone : public ::testing::Test
{
protected:
    void SetUp() override
    {
        start_page_chains();
    }
};

class SglCloneChain : public SglClone
{
};

class SglFreeClone : public SglClone
{
};

constexpr uint64_t TAG = 0xABCDEF0123456789;

SGL *clone_of(SGL *source, uint64_t key = 0)
{
    SGL *clone = nullptr;
    cloneSgl(source, key, &clone, 88, "the cloner", 55);
    return clone;
}

SGL *copy_of(SGL *source)
{
    SGL *copy = nullptr;
    EXPECT_EQ(cloneSglChain(source, &copy), 0);
    return copy;
}

/* Something that is no chain, to see that it is overwritten. */
SGL *no_chain()
{
    static SGL some;
    return &some;
}

/* A chain that promises more entries than it has. */
SGL *short_chain(const shape &counts, uint16_t promised)
{
    SGL *chain             = page_chain_of(counts);
    chain->entrySumInChain = promised;
    return chain;
}

} // namespace

/* ------------------------------------------------------------------ cloneSgl: refusals */

TEST_F(SglClone, a_null_out_does_nothing)
{
    SGL *source = page_chain_of({1});

    cloneSgl(source, 0, nullptr, 88, "the cloner", 55);
    cloneSgl(nullptr, 0, nullptr, 88, "the cloner", 55);

    EXPECT_TRUE(fake_calls().empty());
    EXPECT_NO_LINE();
    give_back(source);
}

TEST_F(SglClone, a_null_source_gives_null_without_a_line)
{
    SGL *clone = no_chain();

    cloneSgl(nullptr, 0, &clone, 88, "the cloner", 55);

    EXPECT_EQ(clone, nullptr);
    EXPECT_NO_LINE();
}

TEST_F(SglClone, another_key_than_the_sources_tag_gives_null_and_takes_no_reference)
{
    SGL *source     = page_chain_of({2});
    source->userTag = TAG;
    SGL *clone      = no_chain();

    cloneSgl(source, TAG ^ (1ull << 63), &clone, 88, "the cloner", 55);

    EXPECT_EQ(clone, nullptr);
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 1}));
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
    EXPECT_NO_LINE();
    give_back(source);
}

TEST_F(SglClone, a_source_that_counts_no_entries_gives_null)
{
    SGL *source             = page_chain_of({2});
    source->entrySumInChain = 0;
    SGL *clone              = no_chain();

    cloneSgl(source, 0, &clone, 88, "the cloner", 55);

    EXPECT_EQ(clone, nullptr);
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 1}));
    EXPECT_EQ(fake_count(OP_zymm_slab_malloc), 0u);
    EXPECT_NO_LINE();
    source->entrySumInChain = 2;
    give_back(source);
}

TEST_F(SglClone, without_sgls_the_clone_is_null_and_only_the_allocation_says_so)
{
    SGL *source = page_chain_of({1});
    fake_fail(OP_zymm_slab_malloc);
    SGL *clone = no_chain();

    cloneSgl(source, 0, &clone, 88, "the cloner", 55);

    EXPECT_EQ(clone, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "allocSglChain", "[UMM_CMM] sglPtr is NULL.");
    EXPECT_EQ(refs_of(source), std::vector<int32_t>{1});
    give_back(source);
}

TEST_F(SglClone, every_refused_sgl_leaves_pages_and_pool_as_they_were)
{
    SGL                       *source = page_chain_of({40, 64, 30});
    const std::vector<int32_t> before = refs_of(source);
    uint64_t                   hits   = 0;

    for_each_fault(OP_zymm_slab_malloc, [&](const fault &f) {
        SGL *clone = clone_of(source);
        if (f.hit) {
            ++hits;
            EXPECT_EQ(clone, nullptr) << f.nth;
            EXPECT_EQ(refs_of(source), before) << f.nth;
        } else {
            ASSERT_NE(clone, nullptr);
            give_back(clone);
        }
        EXPECT_EQ(sgls_out(), 3u) << f.nth;
    });

    EXPECT_EQ(hits, 3u); /* 134 entries take three SGLs */
    give_back(source);
}

/* ------------------------------------------------------------------- cloneSgl: clones */

TEST_F(SglClone, a_clone_has_the_sources_entries_and_a_reference_on_each_page)
{
    SGL *source = page_chain_of({3});

    SGL *clone = clone_of(source);

    ASSERT_NE(clone, nullptr);
    EXPECT_NE(clone, source);
    EXPECT_TRUE(same_entries(clone, source));
    EXPECT_EQ(clone->entrySumInChain, 3u);
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{2, 2, 2}));
    EXPECT_NO_LINE();
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, forty_and_twenty_five_entries_become_sixty_four_and_one)
{
    SGL *source = page_chain_of({40, 25});

    SGL *clone = clone_of(source);

    EXPECT_EQ(shape_of(clone), (shape{64, 1}));
    EXPECT_EQ(clone->entrySumInChain, 65u);
    EXPECT_EQ(clone->nextSgl->entrySumInChain, 0u);
    EXPECT_TRUE(same_entries(clone, source));
    EXPECT_EQ(refs_of(source), std::vector<int32_t>(65, 2));
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, exactly_sixty_four_entries_take_one_sgl)
{
    SGL *source = page_chain_of({60, 4});

    SGL *clone = clone_of(source);

    EXPECT_EQ(shape_of(clone), shape{64});
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, sgls_without_entries_are_passed_over_also_a_first_one)
{
    SGL *source = page_chain_of({0, 2, 0, 0, 1, 0});

    SGL *clone = clone_of(source);

    EXPECT_EQ(shape_of(clone), shape{3});
    EXPECT_TRUE(same_entries(clone, source));
    EXPECT_NO_LINE();
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, the_clones_tag_stays_0)
{
    SGL *source     = page_chain_of({1});
    source->userTag = TAG;

    SGL *clone = clone_of(source, TAG);

    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->userTag, 0u);
    EXPECT_EQ(source->userTag, TAG);
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, each_sgl_ends_with_the_flag_of_its_last_entrys_source)
{
    SGL *source = page_chain_of({40, 0, 30, 10});
    source->userFlag                            = 1;
    source->nextSgl->userFlag                   = 2;
    source->nextSgl->nextSgl->userFlag          = 3;
    source->nextSgl->nextSgl->nextSgl->userFlag = 4;

    SGL *clone = clone_of(source);

    ASSERT_EQ(shape_of(clone), (shape{64, 16}));
    EXPECT_EQ(clone->userFlag, 3u);
    EXPECT_EQ(clone->nextSgl->userFlag, 4u);
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, the_clones_sgls_are_the_callers)
{
    SGL *source = page_chain_of({40, 25});
    fake_forget_calls();

    SGL *clone = clone_of(source);

    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0].number, g_sgl_partition_id);
    EXPECT_EQ(calls[0].args[1].number, 88u);
    EXPECT_EQ(calls[0].args[2].text, "the cloner");
    EXPECT_EQ(calls[0].args[3].number, 55u);
    EXPECT_EQ(calls[1].args[2].text, "the cloner");
    give_back(clone);
    give_back(source);
}

TEST_F(SglClone, no_more_entries_than_counted_are_cloned)
{
    SGL *source             = page_chain_of({3});
    source->entrySumInChain = 2;

    SGL *clone = clone_of(source);

    EXPECT_EQ(shape_of(clone), shape{2});
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{2, 2, 1}));
    give_back(clone);
    source->entrySumInChain = 3;
    give_back(source);
}

TEST_F(SglClone, a_clone_outlives_its_source)
{
    SGL *source = page_chain_of({2});
    SGL *clone  = clone_of(source);

    give_back(source);

    EXPECT_EQ(pages_out(), 2u);
    EXPECT_EQ(refs_of(clone), (std::vector<int32_t>{1, 1}));
    give_back(clone);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
}

TEST_F(SglClone, a_clone_may_be_freed_like_any_page_run)
{
    SGL *source = page_chain_of({40, 25});
    SGL *clone  = clone_of(source);

    freeMultiPages(clone, 77, "the test", 1);

    EXPECT_EQ(refs_of(source), std::vector<int32_t>(65, 1));
    EXPECT_EQ(sgls_out(), 2u);
    give_back(source);
}

TEST_F(SglClone, a_clone_of_a_clone_adds_references_of_its_own)
{
    SGL *source = page_chain_of({1, 1});
    SGL *first  = clone_of(source);

    SGL *second = clone_of(first);

    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{3, 3}));
    give_back(first);
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{2, 2}));
    give_back(second);
    give_back(source);
    EXPECT_EQ(pages_out(), 0u);
}

TEST_F(SglClone, a_page_that_appears_twice_gets_two_references)
{
    SGL *source        = page_chain_of({2});
    source->entries[1] = source->entries[0];
    page_ctrl *page    = source->entries[0].pageCtrl;

    SGL *clone = clone_of(source);

    EXPECT_EQ(page->ref, 3);
    freeSglChain(clone, 77, "the test", 1);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, out_may_be_the_variable_that_held_the_source)
{
    SGL *source = page_chain_of({1});
    SGL *chain  = source;

    cloneSgl(chain, 0, &chain, 88, "the cloner", 55);

    EXPECT_NE(chain, source);
    EXPECT_TRUE(same_entries(chain, source));
    give_back(chain);
    give_back(source);
}

/* ------------------------------------------------ cloneSgl: what a page's count answers */

TEST_F(SglClone, a_page_that_is_not_held_is_reported_and_cloned_all_the_same)
{
    SGL *source                     = page_chain_of({2});
    source->entries[0].pageCtrl->ref = 0;

    SGL *clone = clone_of(source);

    EXPECT_EQ(shape_of(clone), shape{2});
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(fake_log().size(), 1u);
    EXPECT_NE(fake_last_line().text.find("func: the cloner, file line: 55,"), std::string::npos);
    freeSglChain(clone, 77, "the test", 1);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, an_entry_without_a_page_record_is_reported_and_cloned_all_the_same)
{
    SGL *source                  = page_chain_of({2});
    page_ctrl *page              = source->entries[0].pageCtrl;
    source->entries[0].pageCtrl = nullptr;

    SGL *clone = clone_of(source);

    EXPECT_TRUE(same_entries(clone, source));
    EXPECT_EQ(fake_log_texts(), std::vector<std::string>{"[UMM_CMM] page ctrl is NULL"});
    source->entries[0].pageCtrl = page;
    freeSglChain(clone, 77, "the test", 1);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, without_a_function_name_the_clone_holds_no_references)
{
    SGL *source = page_chain_of({1});
    SGL *clone  = nullptr;

    cloneSgl(source, 0, &clone, 88, nullptr, 55);

    EXPECT_TRUE(same_entries(clone, source));
    EXPECT_EQ(refs_of(source), std::vector<int32_t>{1});
    EXPECT_EQ(fake_log_texts(), std::vector<std::string>{"[UMM_CMM] func name is NULL"});
    freeSglChain(clone, 77, "the test", 1);
    give_back(source);
}

/* ------------------------------------------------------------- cloneSgl: short sources */

TEST_F(SglClone, a_source_that_ends_early_leaves_a_partial_clone_with_its_references)
{
    SGL *source = short_chain({1, 1}, 4);

    SGL *clone = clone_of(source);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cloneSgl", "[UMM_CMM] srcSglPtr is NULL.");
    ASSERT_EQ(shape_of(clone), shape{2});
    EXPECT_EQ(clone->entrySumInChain, 2u);
    EXPECT_TRUE(same_entries(clone, source));
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{2, 2}));
    give_back(clone);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, a_partial_clone_has_the_sgls_of_the_whole_count)
{
    SGL *source = short_chain({1}, 65);

    SGL *clone = clone_of(source);

    EXPECT_EQ(shape_of(clone), (shape{1, 0}));
    give_back(clone);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, a_source_whose_rest_has_no_entries_ends_early)
{
    SGL *source = short_chain({1, 0, 0}, 2);

    SGL *clone = clone_of(source);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cloneSgl", "[UMM_CMM] srcSglPtr is NULL.");
    EXPECT_EQ(shape_of(clone), shape{1});
    give_back(clone);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, a_source_without_any_entries_that_counts_some_ends_at_once)
{
    SGL *source = short_chain({0, 0}, 2);

    SGL *clone = clone_of(source);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cloneSgl", "[UMM_CMM] srcSglPtr is NULL.");
    EXPECT_EQ(shape_of(clone), shape{0});
    EXPECT_EQ(clone->userFlag, 0u);
    freeSglChain(clone, 77, "the test", 1);
    freeSglChain(source, 77, "the test", 1);
}

TEST_F(SglClone, the_line_of_a_source_that_ends_early_is_limited)
{
    SGL *source = short_chain({1}, 2);

    EXPECT_LIMITED(clone_of(source), "[UMM_CMM] srcSglPtr is NULL.");
}

/* -------------------------------------------------------------- cloneSglChain: refusals */

TEST_F(SglCloneChain, a_null_source_is_refused_with_a_line)
{
    SGL *copy = no_chain();

    EXPECT_EQ(cloneSglChain(nullptr, &copy), -1);

    EXPECT_EQ(copy, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cloneSglChain", "[UMM_CMM] input sgl is null.");
}

TEST_F(SglCloneChain, the_line_of_a_null_source_is_limited)
{
    SGL *copy = nullptr;
    EXPECT_LIMITED(cloneSglChain(nullptr, &copy), "[UMM_CMM] input sgl is null.");
}

TEST_F(SglCloneChain, a_null_out_is_refused_without_a_line)
{
    SGL *source = page_chain_of({1});

    EXPECT_EQ(cloneSglChain(source, nullptr), -1);
    EXPECT_EQ(cloneSglChain(nullptr, nullptr), -1);

    EXPECT_TRUE(fake_calls().empty());
    EXPECT_NO_LINE();
    give_back(source);
}

TEST_F(SglCloneChain, without_a_first_sgl_there_is_no_copy)
{
    SGL *source = page_chain_of({1, 1});
    fake_fail(OP_zymm_slab_malloc);
    SGL *copy = no_chain();

    EXPECT_EQ(cloneSglChain(source, &copy), -1);

    EXPECT_EQ(copy, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cloneSglChain", "[UMM_CMM] alloc sgl failed.");
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
    give_back(source);
}

TEST_F(SglCloneChain, when_the_pool_runs_dry_at_the_third_sgl_the_first_two_go_back)
{
    SGL *source = page_chain_of({1, 1, 1});
    fake_limit(g_sgl_partition_id, 5);
    fake_forget_calls();
    SGL *copy = no_chain();

    EXPECT_EQ(cloneSglChain(source, &copy), -1);

    EXPECT_EQ(copy, nullptr);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "cloneSglChain", "[UMM_CMM] alloc sgl failed.");
    EXPECT_EQ(sgls_out(), 3u);
    const std::vector<fake_call> freed = fake_calls(OP_zymm_slab_free);
    ASSERT_EQ(freed.size(), 2u);
    EXPECT_EQ(freed[0].args[1].number, fake_calls(OP_zymm_slab_malloc)[0].result);
    EXPECT_EQ(freed[1].args[1].number, fake_calls(OP_zymm_slab_malloc)[1].result);
    EXPECT_EQ(freed[0].args[2].number, 386u);
    EXPECT_EQ(freed[0].args[3].text, "cloneSglChain");
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 1, 1}));
    give_back(source);
}

TEST_F(SglCloneChain, every_refused_sgl_leaves_nothing_behind)
{
    SGL     *source = page_chain_of({1, 0, 64, 2});
    uint64_t hits   = 0;

    for_each_fault(OP_zymm_slab_malloc, [&](const fault &f) {
        SGL          *copy   = no_chain();
        const int32_t status = cloneSglChain(source, &copy);
        if (f.hit) {
            ++hits;
            EXPECT_EQ(status, -1) << f.nth;
            EXPECT_EQ(copy, nullptr) << f.nth;
        } else {
            EXPECT_EQ(status, 0);
            freeCloneSgl(copy);
        }
        EXPECT_EQ(sgls_out(), 4u) << f.nth;
        EXPECT_EQ(refs_of(source), std::vector<int32_t>(67, 1)) << f.nth;
    });

    EXPECT_EQ(hits, 4u);
    give_back(source);
}

TEST_F(SglCloneChain, the_line_of_a_refused_sgl_is_limited)
{
    SGL *source = page_chain_of({1});
    fake_fail_always(OP_zymm_slab_malloc);
    SGL *copy = nullptr;

    EXPECT_LIMITED(cloneSglChain(source, &copy), "[UMM_CMM] alloc sgl failed.");
}

/* ---------------------------------------------------------------- cloneSglChain: copies */

TEST_F(SglCloneChain, a_copy_mirrors_its_source_sgl_for_sgl)
{
    SGL *source              = page_chain_of({2, 0, 3});
    source->userTag          = TAG;
    source->userFlag         = 5;
    source->nextSgl->userTag = 6;
    source->nextSgl->entrySumInChain   = 7; /* means nothing there, and is copied all the same */
    source->nextSgl->nextSgl->userFlag = 8;

    SGL *copy = copy_of(source);

    EXPECT_EQ(shape_of(copy), (shape{2, 0, 3}));
    EXPECT_TRUE(same_entries(copy, source));
    EXPECT_EQ(copy->entrySumInChain, 5u);
    EXPECT_EQ(copy->userTag, TAG);
    EXPECT_EQ(copy->userFlag, 5u);
    EXPECT_EQ(copy->nextSgl->userTag, 6u);
    EXPECT_EQ(copy->nextSgl->entrySumInChain, 7u);
    EXPECT_EQ(copy->nextSgl->nextSgl->userFlag, 8u);
    EXPECT_NO_LINE();
    freeCloneSgl(copy);
    give_back(source);
}

TEST_F(SglCloneChain, no_page_reference_is_taken_or_dropped)
{
    SGL *source = page_chain_of({1, 1, 1});

    SGL *copy = copy_of(source);
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 1, 1}));
    freeCloneSgl(copy);
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 1, 1}));

    EXPECT_EQ(sgls_out(), 3u);
    give_back(source);
}

TEST_F(SglCloneChain, the_copys_sgls_are_the_librarys_at_a_fixed_line_is_kept)
{
    SGL *source = page_chain_of({1, 1});

    SGL *copy = copy_of(source);

    const std::vector<fake_call> calls = fake_calls(OP_zymm_slab_malloc);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0].number, g_sgl_partition_id);
    EXPECT_EQ(calls[0].args[1].number, 386u);
    EXPECT_EQ(calls[0].args[2].text, "cloneSglChain");
    EXPECT_EQ(calls[0].args[3].number, 989u);
    EXPECT_EQ(calls[1].args[1].number, 386u);
    EXPECT_EQ(calls[1].args[2].text, "cloneSglChain");
    EXPECT_EQ(calls[1].args[3].number, 989u);
    freeCloneSgl(copy);
    give_back(source);
}

TEST_F(SglCloneChain, the_links_are_followed_and_not_the_counts)
{
    SGL *source             = page_chain_of({1, 1});
    source->entrySumInChain = 1;

    SGL *copy = copy_of(source);

    EXPECT_EQ(shape_of(copy), (shape{1, 1}));
    EXPECT_EQ(copy->entrySumInChain, 1u);
    freeCloneSgl(copy);
    source->entrySumInChain = 2;
    give_back(source);
}

TEST_F(SglCloneChain, a_chain_without_entries_is_copied_too)
{
    SGL *source = page_chain_of({0});

    SGL *copy = copy_of(source);

    EXPECT_EQ(shape_of(copy), shape{0});
    EXPECT_EQ(copy->entrySumInChain, 0u);
    freeCloneSgl(copy);
    give_back(source);
}

TEST_F(SglCloneChain, entries_behind_the_used_ones_are_not_copied)
{
    SGL *source        = page_chain_of({1});
    source->entries[1] = {reinterpret_cast<uint8_t *>(0x10), nullptr, 1};

    SGL *copy = copy_of(source);

    EXPECT_EQ(copy->entries[1].len, 0xA5A5A5A5u); /* as a new object comes from the pool */
    freeCloneSgl(copy);
    give_back(source);
}

TEST_F(SglCloneChain, a_full_sgl_is_copied_to_its_last_entry)
{
    SGL *source = page_chain_of({64});

    SGL *copy = copy_of(source);

    EXPECT_TRUE(same_entries(copy, source));
    freeCloneSgl(copy);
    give_back(source);
}

/* ------------------------------------------------------------------------ freeCloneSgl */

TEST_F(SglFreeClone, a_null_chain_is_refused_with_a_line)
{
    freeCloneSgl(nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "freeCloneSgl", "[UMM_CMM] input sgl is null.");
    EXPECT_EQ(fake_count(OP_zymm_slab_free), 0u);
}

TEST_F(SglFreeClone, its_line_is_limited)
{
    EXPECT_LIMITED(freeCloneSgl(nullptr), "[UMM_CMM] input sgl is null.");
}

TEST_F(SglFreeClone, its_line_has_a_limiter_of_its_own)
{
    SGL *copy = nullptr;
    EXPECT_LIMITED(cloneSglChain(nullptr, &copy), "[UMM_CMM] input sgl is null.");
    EXPECT_LIMITED(freeCloneSgl(nullptr), "[UMM_CMM] input sgl is null.");
}

TEST_F(SglFreeClone, every_sgl_goes_back_in_the_librarys_name)
{
    SGL *source = page_chain_of({1, 1});
    SGL *copy   = copy_of(source);
    fake_forget_calls();

    freeCloneSgl(copy);

    const std::vector<fake_call> freed = fake_calls(OP_zymm_slab_free);
    ASSERT_EQ(freed.size(), 2u);
    EXPECT_EQ(freed[0].args[1].number, reinterpret_cast<uint64_t>(copy));
    EXPECT_EQ(freed[0].args[2].number, 386u);
    EXPECT_EQ(freed[0].args[3].text, "freeCloneSgl");
    EXPECT_EQ(freed[1].args[2].number, 386u);
    EXPECT_EQ(freed[1].args[3].text, "freeCloneSgl");
    EXPECT_EQ(sgls_out(), 2u);
    give_back(source);
}

/* The programmable platform keeps a freed object as it was, so it can be looked at. */
TEST_F(SglFreeClone, freed_sgls_keep_no_pointers_to_pages)
{
    SGL *source = page_chain_of({1, 2});
    SGL *copy   = copy_of(source);
    SGL *second = copy->nextSgl;
    copy->entries[1].len = 77;

    freeCloneSgl(copy);

    const SGL_ENTRY cleared = {nullptr, nullptr, 0};
    EXPECT_TRUE(same_entry(copy->entries[0], cleared));
    EXPECT_EQ(copy->entries[1].len, 77u); /* behind the used ones */
    EXPECT_TRUE(same_entry(second->entries[0], cleared));
    EXPECT_TRUE(same_entry(second->entries[1], cleared));
    EXPECT_EQ(refs_of(source), (std::vector<int32_t>{1, 1, 1}));
    give_back(source);
}

TEST_F(SglFreeClone, a_refused_release_of_one_sgl_does_not_stop_the_others)
{
    SGL *source = page_chain_of({1, 1});
    SGL *copy   = copy_of(source);
    fake_fail(OP_zymm_slab_free);

    freeCloneSgl(copy);

    EXPECT_EQ(sgls_out(), 3u);
    give_back(source);
}
