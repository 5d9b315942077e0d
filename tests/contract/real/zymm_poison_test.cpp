/*
 * Objects under AddressSanitizer (what is free, and what lies behind an object, is poisoned) and in
 * the checking build (a write past the end is found when the object comes back).
 */
#include "zymm_real_helpers.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>

TEST(ZymmPoison, a_free_object_is_poisoned_and_one_that_is_out_is_not)
{
    const uint64_t slab   = make_slab(8376, 4);
    char *const    object = static_cast<char *>(take(slab));
    EXPECT_EQ(__asan_region_is_poisoned(object, 8376), nullptr);
    EXPECT_TRUE(__asan_address_is_poisoned(object + 8376));
    give(slab, object);
    EXPECT_TRUE(__asan_address_is_poisoned(object));
    EXPECT_TRUE(__asan_address_is_poisoned(object + 8364));
    EXPECT_EQ(take(slab), object);
    EXPECT_EQ(__asan_region_is_poisoned(object, 8376), nullptr);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmPoison, memory_that_was_never_handed_out_is_poisoned)
{
    zymm_slab_param param = slab_param(64, 100);
    param.min_num         = 100;
    const uint64_t slab   = zymm_create_slab(&param, 386, "test");
    char *const    object = static_cast<char *>(take(slab));
    EXPECT_TRUE(__asan_address_is_poisoned(object + 80));
    give(slab, object);
    destroy(slab);
}

TEST(ZymmPoison, memory_of_a_destroyed_slab_is_clean_for_whoever_maps_it_next)
{
    const uint64_t slab   = make_slab(65536, 4);
    char *const    object = static_cast<char *>(take(slab));
    give(slab, object);
    destroy(slab);
    EXPECT_FALSE(__asan_address_is_poisoned(object));
}

TEST(ZymmPoisonDeathTest, a_use_after_free_ends_the_process_at_its_line)
{
    const uint64_t slab   = make_slab(64, 4);
    char *const    object = static_cast<char *>(take(slab));
    give(slab, object);
    EXPECT_DEATH(object[3] = 1, "use-after-poison.*zymm_poison_test.cpp");
    destroy(slab);
}

TEST(ZymmPoisonDeathTest, a_write_past_the_end_ends_the_process_at_its_line)
{
    const uint64_t slab   = make_slab(64, 4);
    char *const    object = static_cast<char *>(take(slab));
    EXPECT_DEATH(object[64] = 1, "use-after-poison.*zymm_poison_test.cpp");
    give(slab, object);
    destroy(slab);
}
#elif defined(ZYMM_CHECKING)
TEST(ZymmPoison, a_write_past_the_end_is_reported_when_the_object_comes_back)
{
    const uint64_t slab   = make_slab(64, 4);
    char *const    object = static_cast<char *>(zymm_slab_malloc(slab, 77, "the_owner", 123));
    object[64]            = 1;
    int               result = 1;
    const std::string log    = log_of([&] { result = give(slab, object); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(count_of(log, "written past its end; held by 77 the_owner line 123"), 1u) << log;
    destroy(slab);
}
#else
TEST(ZymmPoison, needs_address_sanitizer_or_the_checking_build)
{
    GTEST_SKIP() << "built without AddressSanitizer and without -DZYMM_CHECKING";
}
#endif
