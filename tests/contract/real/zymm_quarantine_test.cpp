/*
 * The quarantine of the checking build: what is freed waits, and a write into it is found; but
 * nothing that waits is ever missing to an allocation.
 */
#include "zymm_real_helpers.h"

#if defined(ZYMM_CHECKING)

#include <algorithm>
#include <set>

namespace
{

enum : unsigned { WAITING = 256 };

void *take_as(uint64_t slab, uint32_t module_id, const char *func, uint32_t line)
{
    return zymm_slab_malloc(slab, module_id, func, line);
}

} // namespace

TEST(ZymmQuarantine, a_freed_object_waits_while_another_one_can_be_had)
{
    const uint64_t slab   = make_slab(64, 1000);
    void *const    object = take(slab);
    give(slab, object);
    for (unsigned count = 0; count < WAITING; count++) {
        void *const other = take(slab);
        EXPECT_NE(other, object);
        give(slab, other);
    }
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_EQ(zymm_slab_check(slab), 0);
    destroy(slab);
}

TEST(ZymmQuarantine, is_emptied_before_an_allocation_answers_null)
{
    const uint64_t slab = make_slab(64, 100);
    for (unsigned round = 0; round < 3; round++) {
        const std::vector<void *> all = take_all(slab);
        EXPECT_EQ(std::set<void *>(all.begin(), all.end()).size(), 100u);
        for (void *object : all)
            EXPECT_EQ(give(slab, object), 0);
        EXPECT_EQ(zymm_slab_check(slab), 0);
    }
    destroy(slab);
}

#if !defined(__SANITIZE_ADDRESS__)
TEST(ZymmQuarantine, fills_what_waits)
{
    const uint64_t       slab   = make_slab(64, 2);
    unsigned char *const object = static_cast<unsigned char *>(take(slab));
    memset(object, 0, 64);
    give(slab, object);
    EXPECT_EQ(std::count(object, object + 64, 0xD6), 64);
    destroy(slab);
}

TEST(ZymmQuarantine, reports_a_write_after_the_free_with_who_freed_and_who_held_it)
{
    const uint64_t slab   = make_slab(64, 1);
    char *const    object = static_cast<char *>(take_as(slab, 77, "the_owner", 123));
    EXPECT_EQ(zymm_slab_free(slab, object, 91, "the_freer"), 0);
    object[40]            = 1;
    void             *again = nullptr;
    const std::string log   = log_of([&] { again = take(slab); });
    EXPECT_EQ(again, object);
    EXPECT_EQ(count_of(log, "was written after it was freed, at byte 40; freed by 91 the_freer, "
                            "held by 77 the_owner line 123"), 1u) << log;
    give(slab, again);
    EXPECT_EQ(log_of([&] { destroy(slab); }), "");
}

TEST(ZymmQuarantine, reports_a_write_when_the_queue_is_full_and_the_object_leaves_it)
{
    const uint64_t slab   = make_slab(64, 1000);
    char *const    object = static_cast<char *>(take(slab));
    give(slab, object);
    object[0]             = 1;
    const std::string log = log_of([&] {
        for (unsigned count = 0; count < WAITING; count++)
            give(slab, take(slab));
    });
    EXPECT_EQ(count_of(log, "was written after it was freed, at byte 0"), 1u) << log;
    destroy(slab);
}

TEST(ZymmQuarantine, reports_a_write_when_the_slab_goes)
{
    const uint64_t slab   = make_slab(64, 1000);
    char *const    object = static_cast<char *>(take(slab));
    give(slab, object);
    object[63]            = 1;
    const std::string log = log_of([&] { destroy(slab); });
    EXPECT_EQ(count_of(log, "was written after it was freed, at byte 63"), 1u) << log;
}

TEST(ZymmQuarantine, keeps_a_pages_record_and_reports_a_write_into_it)
{
    const uint64_t slab = make_slab(8376, 1);
    char *const    page = static_cast<char *>(take(slab));
    memset(page, 0x33, 8376);
    give(slab, page);
    EXPECT_EQ(std::count(page + 8320, page + 8376, 0x33), 56);
    page[8330]            = 1;
    const std::string log = log_of([&] { EXPECT_EQ(take(slab), page); });
    EXPECT_EQ(count_of(log, "was written after it was freed"), 1u) << log;
    give(slab, page);
    destroy(slab);
}
#endif

#else
TEST(ZymmQuarantine, needs_the_checking_build)
{
    GTEST_SKIP() << "built without -DZYMM_CHECKING";
}
#endif
