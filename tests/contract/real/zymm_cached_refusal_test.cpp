/*
 * Refused frees in slabs with per-thread caches: wherever the object lies by then, in the cache of
 * this thread, of another one or of none, the second free is found and names both who free.
 */
#include <latch>
#include <set>

#include "zymm_real_helpers.h"

namespace
{

enum : uint64_t { OBJECTS = 1023 };

uint64_t make_cached(uint64_t obj_size)
{
    zymm_slab_param param = slab_param(obj_size, OBJECTS);
    param.attr            = ZYMM_SLAB_CACHED;
    return zymm_create_slab(&param, 386, "test");
}

int give_as(uint64_t slab, void *object, uint32_t module_id, const char *func)
{
    return zymm_slab_free(slab, object, module_id, func);
}

/* Refused with one line that names both, and the object is there once and not twice. */
void expect_second_free_refused(uint64_t slab, void *object)
{
    int               result = 0;
    const std::string log = log_of([&] { result = give_as(slab, object, 91, "the_offender"); });
    EXPECT_NE(result, 0);
    EXPECT_EQ(count_of(log, "freed twice"), 1u) << log;
    EXPECT_EQ(count_of(log, "91 the_offender"), 1u) << log;
    EXPECT_EQ(count_of(log, "78 the_first"), 1u) << log;
    EXPECT_EQ(used_of(slab), 0u);

    const std::vector<void *> all = take_all(slab);
    EXPECT_EQ(all.size(), 1023u);
    EXPECT_EQ(std::set<void *>(all.begin(), all.end()).size(), 1023u);
    for (void *each : all)
        EXPECT_EQ(give(slab, each), 0);
    destroy(slab);
}

/* Refused with one line that names the offender; `used` objects are out as before. */
void expect_foreign_refused(uint64_t slab, void *object, uint64_t used)
{
    int               result = 0;
    const std::string log = log_of([&] { result = give_as(slab, object, 91, "the_offender"); });
    EXPECT_NE(result, 0);
    EXPECT_EQ(count_of(log, "91 the_offender"), 1u) << log;
    EXPECT_TRUE(has(log, "is no object of it")) << log;
    EXPECT_EQ(used_of(slab), used);
}

} // namespace

TEST(ZymmCachedRefusal, of_a_second_free_by_the_same_thread)
{
    const uint64_t slab   = make_cached(64);
    void *const    object = take(slab);
    EXPECT_EQ(give_as(slab, object, 78, "the_first"), 0);
    expect_second_free_refused(slab, object);
}

TEST(ZymmCachedRefusal, of_a_second_free_while_another_living_thread_has_the_object_cached)
{
    const uint64_t slab   = make_cached(8376);
    void *const    object = take(slab);
    std::latch     freed(1);
    std::latch     may_end(1);
    std::thread    other([&] {
        give_as(slab, object, 78, "the_first");
        freed.count_down();
        may_end.wait();
    });
    freed.wait();
    expect_second_free_refused(slab, object);
    may_end.count_down();
    other.join();
}

TEST(ZymmCachedRefusal, of_a_second_free_after_the_thread_of_the_first_is_gone)
{
    const uint64_t slab   = make_cached(8376);
    void *const    object = take(slab);
    std::thread([&] { give_as(slab, object, 78, "the_first"); }).join();
    expect_second_free_refused(slab, object);
}

TEST(ZymmCachedRefusal, of_a_second_free_after_a_thousand_other_objects_came_back)
{
    const uint64_t            slab = make_cached(64);
    const std::vector<void *> all  = take_all(slab);
    for (void *each : all)
        EXPECT_EQ(give_as(slab, each, 78, "the_first"), 0);
    expect_second_free_refused(slab, all.front());
}

TEST(ZymmCachedRefusal, of_a_second_free_that_comes_with_the_objects_next_life_is_impossible)
{
    if (FREED_OBJECTS_WAIT)
        GTEST_SKIP() << "in the checking build the object that was freed last is not the next one";
    const uint64_t slab   = make_cached(64);
    void *const    object = take(slab);
    EXPECT_EQ(give_as(slab, object, 77, "an_earlier_one"), 0);
    ASSERT_EQ(take(slab), object); /* last in, first out */
    EXPECT_EQ(give_as(slab, object, 78, "the_first"), 0);
    expect_second_free_refused(slab, object);
}

TEST(ZymmCachedRefusal, of_a_free_into_another_slab_with_objects_of_the_same_size)
{
    const uint64_t slab    = make_cached(8376);
    const uint64_t other   = make_cached(8376);
    void *const    own     = take(slab);
    void *const    foreign = take(other);
    expect_foreign_refused(slab, foreign, 1);
    EXPECT_EQ(used_of(other), 1u);
    EXPECT_EQ(give(slab, own), 0); /* into a cache that might be used for both */
    expect_foreign_refused(other, own, 1);
    expect_foreign_refused(slab, foreign, 0);
    EXPECT_EQ(give(other, foreign), 0);
    destroy(slab);
    destroy(other);
}

TEST(ZymmCachedRefusal, of_a_free_of_what_was_never_handed_out)
{
    const uint64_t slab   = make_cached(64);
    char *const    object = static_cast<char *>(take(slab));
    char           on_the_stack[64];
    expect_foreign_refused(slab, on_the_stack, 1);
    expect_foreign_refused(slab, object + 8, 1);
    expect_foreign_refused(slab, nullptr, 1);
    expect_foreign_refused(slab, reinterpret_cast<void *>(uintptr_t(64)), 1);
    EXPECT_EQ(give(slab, object), 0);
    destroy(slab);
}

TEST(ZymmCachedRefusal, of_an_object_that_outlived_its_slab)
{
    const uint64_t gone   = make_cached(64);
    void *const    object = take(gone);
    log_of([&] { destroy(gone); });
    const uint64_t slab = make_cached(64);
    expect_foreign_refused(slab, object, 0);
    const std::string log = log_of([&] { EXPECT_NE(give_as(gone, object, 91, "x"), 0); });
    EXPECT_EQ(count_of(log, "error"), 1u) << log;
    destroy(slab);
}

TEST(ZymmCachedRefusal, leaves_threads_that_work_undisturbed)
{
    const uint64_t        slab = make_cached(64);
    std::atomic<uint64_t> wrong{0};
    std::string           log = log_of([&] {
        in_threads(4, [&](unsigned number) {
            for (unsigned round = 0; round < 300; round++) {
                char *const object = static_cast<char *>(take(slab));
                wrong += object == nullptr;
                if (number == 0) /* the middle of an object is never one, whoever holds it */
                    wrong += give_as(slab, object + 8, 91, "the_offender") == 0;
                wrong += give(slab, object) != 0;
            }
        });
    });
    EXPECT_EQ(wrong.load(), 0u);
    EXPECT_EQ(used_of(slab), 0u);
    EXPECT_EQ(take_all(slab).size(), 1023u);
    log_of([&] { destroy(slab); });
}
