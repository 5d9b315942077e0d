/*
 * Slabs: creation, how many objects there are, what is refused.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>

#include "slab_helpers.h"
#include "under_test.h"

TEST(SlabParam, defaults_are_filled_in)
{
    zymm_slab_param param;
    memset(&param, 0x5A, sizeof param);
    EXPECT_EQ(zymm_slab_param_init(&param), 0);
    EXPECT_STREQ(param.name, "");
    EXPECT_EQ(param.align, 8u);
    EXPECT_EQ(param.attr, 0u);
    EXPECT_EQ(param.obj_size, 768u);
    EXPECT_EQ(param.min_num, 0u);
    EXPECT_EQ(param.max_num, 0u);
    EXPECT_EQ(param.pool_id, 0u);
}

TEST(SlabParam, that_is_null_is_refused)
{
    EXPECT_NE(zymm_slab_param_init(nullptr), 0);
    EXPECT_EQ(zymm_create_slab(nullptr, 386, "test"), 0u);
}

TEST(Slab, gives_out_exactly_its_maximum)
{
    const uint64_t slab = make_slab(64, 3);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_EQ(take(slab), nullptr);
    EXPECT_EQ(take(slab), nullptr);
    destroy(slab);
}

TEST(Slab, gives_out_again_what_came_back)
{
    const uint64_t slab = make_slab(64, 1);
    void *const    once = take(slab);
    EXPECT_EQ(take(slab), nullptr);
    EXPECT_EQ(give(slab, once), 0);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_EQ(take(slab), nullptr);
    destroy(slab);
}

TEST(Slab, with_a_maximum_of_0_has_no_objects)
{
    const uint64_t slab = make_slab(64, 0);
    EXPECT_NE(slab, 0u);
    EXPECT_EQ(take(slab), nullptr);
    destroy(slab);
}

TEST(Slab, of_more_objects_at_creation_than_at_most_is_refused)
{
    zymm_slab_param param = slab_param(64, 10);
    param.min_num         = 11;
    EXPECT_EQ(zymm_create_slab(&param, 386, "test"), 0u);
}

TEST(Slab, with_all_objects_made_at_creation_gives_out_exactly_these)
{
    zymm_slab_param param = slab_param(64, 2);
    param.min_num         = 2;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    ASSERT_NE(slab, 0u);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_EQ(take(slab), nullptr);
    destroy(slab);
}

TEST(Slab, objects_are_apart_from_each_other)
{
    const uint64_t slab = make_slab(100, 50);
    std::set<char *> starts;
    for (int i = 0; i < 50; ++i) {
        char *const object = static_cast<char *>(take(slab));
        memset(object, i, 100);
        starts.insert(object);
    }
    ASSERT_EQ(starts.size(), 50u);
    char *before = nullptr;
    for (char *start : starts) {
        EXPECT_TRUE(before == nullptr || start - before >= 100);
        before = start;
    }
    destroy(slab);
}

TEST(Slab, objects_lie_as_its_alignment_says)
{
    zymm_slab_param param = slab_param(100, 5);
    param.align           = 64;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(reinterpret_cast<uintptr_t>(take(slab)) % 64, 0u);
    destroy(slab);
}

TEST(Slab, objects_lie_on_pages_when_it_says_so)
{
    zymm_slab_param param = slab_param(8376, 3);
    param.align           = 4096;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(reinterpret_cast<uintptr_t>(take(slab)) % 4096, 0u);
    destroy(slab);
}

TEST(Slab, with_an_alignment_that_is_no_power_of_two_is_refused)
{
    zymm_slab_param param = slab_param(100, 5);
    param.align           = 24;
    EXPECT_EQ(zymm_create_slab(&param, 386, "test"), 0u);
}

TEST(Slab, with_objects_of_no_size_is_refused)
{
    EXPECT_EQ(make_slab(0, 5), 0u);
}

TEST(Slab, serves_under_each_attribute)
{
    for (uint64_t attr : {ZYMM_SLAB_CACHED, ZYMM_SLAB_NODUMP, ZYMM_SLAB_NOFORK}) {
        SCOPED_TRACE(attr);
        zymm_slab_param param = slab_param(8376, 1);
        param.attr            = attr;
        const uint64_t slab   = zymm_create_slab(&param, 386, "test");
        void *const    object = take(slab);
        EXPECT_NE(object, nullptr);
        EXPECT_EQ(take(slab), nullptr);
        EXPECT_EQ(give(slab, object), 0);
        destroy(slab);
    }
}

TEST(Slab, takes_back_on_one_thread_what_went_out_on_another)
{
    const uint64_t slab   = make_slab(64, 1);
    void          *object = nullptr;
    int            result = -1;
    std::thread([&] { object = take(slab); }).join();
    std::thread([&] { result = give(slab, object); }).join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_NE(take(slab), nullptr);
    destroy(slab);
}

TEST(Slab, handles_differ)
{
    const uint64_t first  = make_slab(64, 1);
    const uint64_t second = make_slab(64, 1);
    EXPECT_NE(first, second);
    destroy(first);
    destroy(second);
}

TEST(Slab, is_destroyed_with_objects_out)
{
    const uint64_t slab = make_slab(64, 2);
    take(slab);
    EXPECT_EQ(zymm_destory_slab(slab, 386, "test"), 0);
}

TEST(SlabHandleZero, is_quiet)
{
    char object[64];
    EXPECT_EQ(error_lines_of([&] {
        EXPECT_EQ(take(0), nullptr);
        EXPECT_NE(give(0, object), 0);
        EXPECT_EQ(zymm_destory_slab(0, 386, "test"), 0);
    }), 0u);
}

TEST(StaleSlab, gives_out_nothing_and_says_so)
{
    const uint64_t slab = make_stale_slab();
    EXPECT_EQ(error_lines_of([&] { EXPECT_EQ(take(slab), nullptr); }), 1u);
}

TEST(StaleSlab, takes_nothing_back_and_says_so)
{
    const uint64_t slab = make_stale_slab();
    char           object[64];
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give(slab, object), 0); }), 1u);
}

TEST(StaleSlab, is_not_destroyed_again_and_says_so)
{
    const uint64_t slab = make_stale_slab();
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(zymm_destory_slab(slab, 386, "test"), 0); }), 1u);
}

TEST(StaleSlab, is_not_mistaken_for_a_younger_one)
{
    const uint64_t stale   = make_stale_slab();
    const uint64_t younger = make_slab(64, 1);
    EXPECT_EQ(take(stale), nullptr);
    EXPECT_EQ(used_of(younger), 0u);
    destroy(younger);
}

TEST(SlabFree, of_an_object_that_is_free_already_is_refused_with_a_line)
{
    const uint64_t slab   = make_slab(64, 2);
    void *const    object = take(slab);
    give(slab, object);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give(slab, object), 0); }), 1u);
    EXPECT_NE(take(slab), take(slab)); /* it is not there twice */
    EXPECT_EQ(take(slab), nullptr);
    destroy(slab);
}

TEST(SlabFree, of_another_slabs_object_is_refused_with_a_line)
{
    const uint64_t slab   = make_slab(64, 2);
    const uint64_t other  = make_slab(64, 2);
    void *const    object = take(other);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give(slab, object), 0); }), 1u);
    EXPECT_EQ(used_of(other), 1u);
    EXPECT_EQ(give(other, object), 0);
    destroy(slab);
    destroy(other);
}

TEST(SlabFree, of_memory_that_is_no_object_is_refused_with_a_line)
{
    const uint64_t slab = make_slab(64, 2);
    char           on_the_stack[64];
    take(slab);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give(slab, on_the_stack), 0); }), 1u);
    EXPECT_EQ(used_of(slab), 1u);
    destroy(slab);
}

TEST(SlabFree, of_null_is_refused_with_a_line)
{
    const uint64_t slab = make_slab(64, 2);
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give(slab, nullptr), 0); }), 1u);
    destroy(slab);
}

TEST(SlabFree, of_the_middle_of_an_object_is_refused_with_a_line)
{
    const uint64_t slab   = make_slab(64, 2);
    char *const    object = static_cast<char *>(take(slab));
    EXPECT_EQ(error_lines_of([&] { EXPECT_NE(give(slab, object + 8), 0); }), 1u);
    EXPECT_EQ(used_of(slab), 1u);
    EXPECT_EQ(give(slab, object), 0);
    destroy(slab);
}
