/*
 * The walk over the pages of a chain, and taking and dropping references with it.
 */
#include "chain_builder.h"
#include "page_chain.h"

namespace
{

class SglWalk : public ::testing::Test
{
protected:
    void SetUp() override
    {
        start_page_chains();
    }
};

class SglPageReferences : public SglWalk
{
};

struct visit {
    page_ctrl  *page;
    uint32_t    value;
    const char *text;
};

std::vector<visit> visits;

uint32_t note(page_ctrl *page, uint32_t value, const char *text)
{
    visits.push_back({page, value, text});
    return 0xFFFFFFFF; /* nobody looks at it */
}

std::vector<page_ctrl *> pages_visited()
{
    std::vector<page_ctrl *> pages;
    for (const visit &each : visits)
        pages.push_back(each.page);
    return pages;
}

std::vector<page_ctrl *> pages_of(const SGL *chain)
{
    std::vector<page_ctrl *> pages;
    for (const SGL_ENTRY &entry : entries_of(chain))
        pages.push_back(entry.pageCtrl);
    return pages;
}

std::string ended_early(const SGL *chain, uint32_t counted, uint32_t visited)
{
    return text_of("[UMM_CMM] Param error, sgl(%p), cur_sgl((nil)), page_num(%u), cur_num(%u).",
                   static_cast<const void *>(chain), counted, visited);
}

} // namespace

TEST_F(SglWalk, a_null_chain_is_refused_without_a_line)
{
    EXPECT_EQ(traversePageInSgl(nullptr, note, 7, "the text"), -1);

    EXPECT_TRUE(visits.empty());
    EXPECT_NO_LINE();
}

TEST_F(SglWalk, a_null_text_is_refused_and_nothing_called)
{
    SGL *chain = page_chain_of({1});

    EXPECT_EQ(traversePageInSgl(chain, note, 7, nullptr), -1);

    EXPECT_TRUE(visits.empty());
    EXPECT_NO_LINE();
    give_back(chain);
}

TEST_F(SglWalk, a_null_text_is_refused_also_for_a_chain_without_entries)
{
    SGL empty = {};

    EXPECT_EQ(traversePageInSgl(&empty, note, 7, nullptr), -1);
}

TEST_F(SglWalk, a_chain_that_counts_no_entries_is_walked_with_nothing_called)
{
    SGL empty = {};

    EXPECT_EQ(traversePageInSgl(&empty, note, 7, "the text"), 0);

    EXPECT_TRUE(visits.empty());
    EXPECT_NO_LINE();
}

TEST_F(SglWalk, the_operation_gets_page_value_and_text_and_its_result_is_ignored)
{
    SGL        *chain = page_chain_of({1});
    const char *text  = "the text";

    EXPECT_EQ(traversePageInSgl(chain, note, 0xFEDCBA98, text), 0);

    ASSERT_EQ(visits.size(), 1u);
    EXPECT_EQ(visits[0].page, chain->entries[0].pageCtrl);
    EXPECT_EQ(visits[0].value, 0xFEDCBA98u);
    EXPECT_EQ(visits[0].text, text);
    EXPECT_NO_LINE();
    give_back(chain);
}

TEST_F(SglWalk, every_page_is_visited_once_front_to_back)
{
    SGL *chain = page_chain_of({64, 40, 25});

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), 0);

    EXPECT_EQ(visits.size(), 129u);
    EXPECT_EQ(pages_visited(), pages_of(chain));
    give_back(chain);
}

TEST_F(SglWalk, sgls_without_entries_are_passed_over_also_a_first_one)
{
    SGL *chain = page_chain_of({0, 0, 2, 0, 1, 0});

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), 0);

    EXPECT_EQ(visits.size(), 3u);
    EXPECT_EQ(pages_visited(), pages_of(chain));
    EXPECT_NO_LINE();
    give_back(chain);
}

TEST_F(SglWalk, no_more_entries_than_counted_are_visited)
{
    SGL *chain             = page_chain_of({2, 2});
    chain->entrySumInChain = 3;

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), 0);

    EXPECT_EQ(visits.size(), 3u);
    EXPECT_NO_LINE();
}

TEST_F(SglWalk, a_page_record_of_null_is_handed_on_as_it_is)
{
    SGL *chain                 = page_chain_of({1});
    chain->entries[0].pageCtrl = nullptr;

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), 0);

    EXPECT_EQ(pages_visited(), std::vector<page_ctrl *>{nullptr});
}

TEST_F(SglWalk, a_chain_that_ends_early_fails_behind_its_last_entry)
{
    SGL *chain             = page_chain_of({1, 1});
    chain->entrySumInChain = 5;

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), -1);

    EXPECT_EQ(pages_visited(), pages_of(chain));
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "traversePageInSgl", ended_early(chain, 5, 2));
}

TEST_F(SglWalk, a_chain_whose_rest_has_no_entries_ends_early)
{
    SGL *chain             = page_chain_of({1, 0, 0});
    chain->entrySumInChain = 2;

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), -1);

    EXPECT_EQ(visits.size(), 1u);
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "traversePageInSgl", ended_early(chain, 2, 1));
}

TEST_F(SglWalk, a_chain_without_any_entries_that_counts_some_ends_at_once)
{
    SGL *chain             = page_chain_of({0});
    chain->entrySumInChain = 1;

    EXPECT_EQ(traversePageInSgl(chain, note, 7, "the text"), -1);

    EXPECT_TRUE(visits.empty());
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "traversePageInSgl", ended_early(chain, 1, 0));
}

TEST_F(SglWalk, the_line_of_a_chain_that_ends_early_is_limited)
{
    SGL *chain             = page_chain_of({1});
    chain->entrySumInChain = 2;

    EXPECT_LIMITED(traversePageInSgl(chain, note, 7, "the text"), ended_early(chain, 2, 1));
}

/* --------------------------------------------------------------------- references */

TEST_F(SglPageReferences, taking_adds_one_for_each_entry)
{
    SGL *chain = page_chain_of({2, 0, 1});

    EXPECT_EQ(incPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(refs_of(chain), (std::vector<int32_t>{2, 2, 2}));
    EXPECT_NO_LINE();
}

TEST_F(SglPageReferences, taking_and_dropping_leave_the_counts_as_they_were)
{
    SGL *chain = page_chain_of({64, 3});

    EXPECT_EQ(incPageReferenceBySgl(chain, 88, "the holder"), 0);
    EXPECT_EQ(decPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(refs_of(chain), std::vector<int32_t>(67, 1));
    EXPECT_EQ(pages_out(), 67u);
    EXPECT_NO_LINE();
}

TEST_F(SglPageReferences, the_last_drop_frees_the_pages_in_the_callers_name_but_no_sgl)
{
    SGL *chain = page_chain_of({1, 1});

    EXPECT_EQ(decPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 2u);
    const std::vector<fake_call> freed = fake_calls(OP_zymm_slab_free);
    ASSERT_EQ(freed.size(), 2u);
    EXPECT_EQ(freed[0].args[0].number, s_page_partition_id);
    EXPECT_EQ(freed[0].args[2].number, 88u);
    EXPECT_EQ(freed[0].args[3].text, "the holder");
    freeSglChain(chain, 77, "the test", 1);
}

TEST_F(SglPageReferences, a_page_that_appears_twice_counts_twice)
{
    SGL *chain        = page_chain_of({2});
    chain->entries[1] = chain->entries[0];

    EXPECT_EQ(incPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(chain->entries[0].pageCtrl->ref, 3);
}

TEST_F(SglPageReferences, a_null_chain_is_refused_without_a_line)
{
    EXPECT_EQ(incPageReferenceBySgl(nullptr, 88, "the holder"), -1);
    EXPECT_EQ(decPageReferenceBySgl(nullptr, 88, "the holder"), -1);

    EXPECT_NO_LINE();
}

TEST_F(SglPageReferences, a_null_function_name_is_refused_without_a_line)
{
    SGL *chain = page_chain_of({1});

    EXPECT_EQ(incPageReferenceBySgl(chain, 88, nullptr), -1);
    EXPECT_EQ(decPageReferenceBySgl(chain, 88, nullptr), -1);

    EXPECT_EQ(refs_of(chain), std::vector<int32_t>{1});
    EXPECT_NO_LINE();
}

TEST_F(SglPageReferences, a_page_that_is_not_held_does_not_stop_the_taking_and_is_told_with_line_0)
{
    SGL *chain                     = page_chain_of({2});
    chain->entries[0].pageCtrl->ref = 0;

    EXPECT_EQ(incPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(refs_of(chain), (std::vector<int32_t>{1, 2}));
    EXPECT_EQ(fake_log().size(), 1u);
    EXPECT_NE(fake_last_line().text.find("func: the holder, file line: 0,"), std::string::npos);
}

TEST_F(SglPageReferences, an_entry_without_a_page_record_does_not_stop_the_dropping)
{
    SGL *chain                 = page_chain_of({2});
    chain->entries[0].pageCtrl = nullptr;

    EXPECT_EQ(decPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(pages_out(), 1u);
    EXPECT_EQ(fake_log_texts(), std::vector<std::string>{"[UMM_CMM] page ctrl is NULL"});
}

TEST_F(SglPageReferences, without_a_page_pool_every_drop_is_refused_and_the_walk_succeeds)
{
    SGL *chain          = page_chain_of({2});
    s_page_partition_id = 0;

    EXPECT_EQ(decPageReferenceBySgl(chain, 88, "the holder"), 0);

    EXPECT_EQ(refs_of(chain), (std::vector<int32_t>{1, 1}));
    EXPECT_EQ(fake_log_count("[UMM_CMM] page partition is NOT created"), 2u);
}

TEST_F(SglPageReferences, a_chain_that_ends_early_keeps_what_was_applied)
{
    SGL *chain             = page_chain_of({2});
    chain->entrySumInChain = 3;

    EXPECT_EQ(incPageReferenceBySgl(chain, 88, "the holder"), -1);

    EXPECT_EQ(refs_of(chain), (std::vector<int32_t>{2, 2}));
    EXPECT_ONLY_LINE(ZYLOG_ERROR, "traversePageInSgl", ended_early(chain, 3, 2));
}

TEST_F(SglPageReferences, both_operations_share_the_walks_limiter)
{
    SGL *chain             = page_chain_of({1});
    chain->entrySumInChain = 2;
    EXPECT_LIMITED(incPageReferenceBySgl(chain, 88, "the holder"), ended_early(chain, 2, 1));
    fake_forget_log();

    decPageReferenceBySgl(chain, 88, "the holder");

    EXPECT_NO_LINE();
}

TEST_F(SglPageReferences, a_page_that_is_free_already_ends_the_process)
{
    SGL       *chain = page_chain_of({1});
    page_ctrl *page  = chain->entries[0].pageCtrl;
    decPageReferenceBySgl(chain, 88, "the holder");

    EXPECT_DEATH(decPageReferenceBySgl(chain, 99, "the thief"),
                 text_of("2\\|try_free_one_page\\|0\\|Page_ctrl\\(%p\\) double free\\.",
                         static_cast<void *>(page)));
}
