/*
 * Frees that must be refused: twice, foreign, into the middle of an object. Each leaves the slab as
 * it was and one line that names the guilty.
 */
#include <array>

#include "zymm_real_helpers.h"

namespace
{

int give_as(uint64_t slab, void *object, uint32_t module_id, const char *func)
{
    return zymm_slab_free(slab, object, module_id, func);
}

/* Refused with one error line that has the words, and the slab still holds `used` objects. */
void expect_refused(uint64_t slab, void *object, uint64_t used, const char *words)
{
    int               result = 0;
    const std::string log = log_of([&] { result = give_as(slab, object, 91, "the_offender"); });
    EXPECT_NE(result, 0);
    EXPECT_EQ(count_of(log, "the_offender"), 1u) << log;
    EXPECT_TRUE(has(log, words)) << log;
    EXPECT_EQ(used_of(slab), used);
}

} // namespace

TEST(ZymmRefusal, of_a_second_free_names_both_who_free)
{
    const uint64_t slab   = make_slab(64, 4);
    void *const    object = zymm_slab_malloc(slab, 77, "the_owner", 123);
    give_as(slab, object, 78, "the_first");
    int               result = 0;
    const std::string log = log_of([&] { result = give_as(slab, object, 79, "the_second"); });
    EXPECT_NE(result, 0);
    EXPECT_TRUE(has(log, "freed twice, by 79 the_second; already freed by 78 the_first")) << log;
    EXPECT_TRUE(has(log, "line 123")) << log;
    EXPECT_EQ(take_all(slab).size(), 4u);
    destroy(slab);
}

TEST(ZymmRefusal, of_a_pointer_into_an_object)
{
    const uint64_t slab   = make_slab(64, 4);
    char *const    object = static_cast<char *>(take(slab));
    expect_refused(slab, object + 1, 1, "is no object of it");
    expect_refused(slab, object + 63, 1, "is no object of it");
    EXPECT_EQ(give(slab, object), 0);
    destroy(slab);
}

TEST(ZymmRefusal, of_memory_behind_the_last_object_that_exists)
{
    const uint64_t slab   = make_slab(64, 4);
    char *const    object = static_cast<char *>(take(slab));
    expect_refused(slab, object + 1024, 1, "is no object of it");
    destroy(slab);
}

TEST(ZymmRefusal, of_an_object_of_another_slab)
{
    const uint64_t slab    = make_slab(64, 4);
    const uint64_t other   = make_slab(64, 4);
    void *const    foreign = take(other);
    expect_refused(slab, foreign, 0, "is no object of it");
    EXPECT_EQ(give(other, foreign), 0);
    destroy(slab);
    destroy(other);
}

TEST(ZymmRefusal, of_pointers_that_no_slab_ever_gave)
{
    static char    global[64];
    const uint64_t slab = make_slab(64, 4);
    char           on_the_stack[64];
    expect_refused(slab, on_the_stack, 0, "is no object of it");
    expect_refused(slab, global, 0, "is no object of it");
    expect_refused(slab, nullptr, 0, "is no object of it");
    expect_refused(slab, reinterpret_cast<void *>(uintptr_t(0x10)), 0, "is no object of it");
    expect_refused(slab, reinterpret_cast<void *>(~uintptr_t(0) - 63), 0, "is no object of it");
    destroy(slab);
}

TEST(ZymmRefusal, of_an_object_whose_slab_is_gone)
{
    const uint64_t gone   = make_slab(64, 4);
    void *const    object = take(gone);
    log_of([&] { destroy(gone); });
    const uint64_t slab = make_slab(4096, 4);
    expect_refused(slab, object, 0, "is no object of it");
    destroy(slab);
}

TEST(ZymmRefusal, of_a_stale_handle_holds_after_its_slot_is_used_again)
{
    const uint64_t stale = make_stale_slab();
    std::vector<uint64_t> slabs;
    for (unsigned count = 0; count < 70000; count++) { /* once around the handle table */
        slabs.push_back(make_slab(64, 1));
        EXPECT_NE(slabs.back(), stale);
        destroy(slabs.back());
    }
    const std::string log = log_of([&] { EXPECT_EQ(take(stale), nullptr); });
    EXPECT_EQ(count_of(log, "is no slab or memory pool"), 1u) << log;
}

TEST(ZymmRefusal, keeps_what_the_last_holder_left_in_a_free_object)
{
    if (FREED_OBJECTS_WAIT)
        GTEST_SKIP() << "in the checking build free objects are filled";
    const uint64_t   slab   = make_slab(8376, 2);
    unsigned char   *object = static_cast<unsigned char *>(take(slab));
    for (unsigned at = 0; at < 8376; at++)
        object[at] = static_cast<unsigned char>(at % 251);
    give(slab, object);
    unsigned char *again = static_cast<unsigned char *>(take(slab));
    ASSERT_EQ(again, object);
    unsigned changed = 0;
    for (unsigned at = 0; at < 8376; at++)
        changed += again[at] != at % 251;
    EXPECT_EQ(changed, 0u);
    give(slab, again);
    destroy(slab);
}
