/*
 * Who holds objects, and for how long: leak number, dumps, the report of a destroy.
 */
#include "zyax.h"
#include "zymm_real_helpers.h"

namespace
{

void *take_as(uint64_t slab, uint32_t module_id, const char *func, uint32_t line)
{
    return zymm_slab_malloc(slab, module_id, func, line);
}

/* 3 by one call site, 2 by another, 1 by a third that has the first one's text elsewhere. */
std::vector<void *> take_by_three(uint64_t slab)
{
    static char copy_of_text[] = "alpha";
    std::vector<void *> taken;
    taken.push_back(take_as(slab, 11, "beta", 20));
    taken.push_back(take_as(slab, 11, "alpha", 10));
    taken.push_back(take_as(slab, 11, copy_of_text, 10));
    taken.push_back(take_as(slab, 12, nullptr, 30));
    taken.push_back(take_as(slab, 11, "alpha", 10));
    taken.push_back(take_as(slab, 11, "beta", 20));
    return taken;
}

std::string dump_of(uint64_t slab)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(zymm_slab_dump_detailinfo(slab, 386, "test"), 0);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(ZymmHolders, are_grouped_by_text_and_the_top_one_comes_first)
{
    const uint64_t            slab  = make_slab(100, 10);
    const std::vector<void *> taken = take_by_three(slab);
    const std::string         text  = dump_of(slab);
    EXPECT_TRUE(has(text, "6 objects out, held by 3 call sites")) << text;
    const size_t alpha = text.find("         3            300");
    const size_t beta  = text.find("         2            200");
    const size_t none  = text.find("         1            100");
    EXPECT_LT(alpha, beta) << text;
    EXPECT_LT(beta, none) << text;
    EXPECT_NE(none, std::string::npos) << text;
    EXPECT_TRUE(has(text, "11  alpha:10")) << text;
    EXPECT_TRUE(has(text, "11  beta:20")) << text;
    EXPECT_TRUE(has(text, "12  (null):30")) << text;
    for (void *object : taken)
        give(slab, object);
    EXPECT_TRUE(has(dump_of(slab), "0 objects out, held by 0 call sites"));
    destroy(slab);
}

TEST(ZymmHolders, the_usage_dump_tells_the_counts)
{
    const uint64_t slab = make_slab(100, 10);
    void *const    one  = take(slab);
    testing::internal::CaptureStdout();
    EXPECT_EQ(zymm_slab_dump_usageinfo(slab, 386, "test"), 0);
    fflush(stdout);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(has(text, "object size 100,")) << text;
    EXPECT_TRUE(has(text, "min 0, max 10, total 10, used 1")) << text;
    give(slab, one);
    destroy(slab);
}

TEST(ZymmHolders, destroying_a_slab_with_objects_out_reports_its_owners_and_succeeds)
{
    const uint64_t slab = make_slab(100, 10);
    take_by_three(slab);
    int               result = 1;
    const std::string log = log_of([&] { result = zymm_destory_slab(slab, 386, "the_destroyer"); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(count_of(log, "goes with 6 objects out, caller the_destroyer"), 1u) << log;
    EXPECT_EQ(count_of(log, "3 objects out, module 11, alpha line 10"), 1u) << log;
    EXPECT_EQ(count_of(log, "2 objects out, module 11, beta line 20"), 1u) << log;
    EXPECT_EQ(count_of(log, "1 objects out, module 12, (null) line 30"), 1u) << log;
}

TEST(ZymmHolders, the_report_of_a_destroy_is_bounded)
{
    const uint64_t slab = make_slab(64, 1000);
    for (uint32_t line = 1; line <= 1000; line++)
        take_as(slab, 11, "holder", line);
    const std::string log = log_of([&] { destroy(slab); });
    EXPECT_EQ(count_of(log, "objects out, module 11"), 16u);
    EXPECT_EQ(count_of(log, "and 984 more call sites, 0 objects not grouped"), 1u) << log;
}

TEST(ZymmHolders, the_owner_of_a_reused_object_is_the_new_one)
{
    const uint64_t slab = make_slab(64, 1);
    give(slab, take_as(slab, 11, "old_owner", 1));
    void *const object = take_as(slab, 12, "new_owner", 2);
    const std::string text = dump_of(slab);
    EXPECT_TRUE(has(text, "new_owner:2")) << text;
    EXPECT_FALSE(has(text, "old_owner")) << text;
    give(slab, object);
    destroy(slab);
}

TEST(ZymmLeak, number_counts_objects_that_are_out_for_the_leak_age)
{
    const uint64_t slab = make_slab(64, 10);
    take(slab);
    void *const back = take(slab);
    take(slab);
    EXPECT_EQ(zymm_leak_age_get(), 600u);
    EXPECT_EQ(zymm_slab_get_leak_number(slab), 0u);
    zymm_leak_age_set(0);
    EXPECT_EQ(zymm_slab_get_leak_number(slab), 3u);
    give(slab, back);
    EXPECT_EQ(zymm_slab_get_leak_number(slab), 2u);
    zymm_leak_age_set(600);
    log_of([&] { destroy(slab); });
}

TEST(ZymmSettings, keep_what_the_seam_set)
{
    zymm_settings settings = {};
    zymm_numa_coredump_level_set(3);
    zymm_pool_cache_num_set(1, 2, 3, 4);
    EXPECT_EQ(zymm_settings_get(&settings), 0);
    EXPECT_EQ(settings.coredump_level, 3u);
    EXPECT_EQ(settings.cache_page, 1u);
    EXPECT_EQ(settings.cache_inner_64k, 2u);
    EXPECT_EQ(settings.cache_outer_64k, 3u);
    EXPECT_EQ(settings.page_max_cache_threads, 4u);
    EXPECT_NE(zymm_settings_get(nullptr), 0);
    EXPECT_NE(zymm_stats_get(nullptr), 0);
}
