/*
 * Where objects lie and what memory they cost: alignment, backing, large pieces, everything back.
 */
#include <algorithm>
#include <cstring>
#include <set>

#include <sys/resource.h>

#include "zyax.h"
#include "zymm_real_helpers.h"

namespace
{

/* Takes some objects of each combination, writes them full, and counts what is wrong. */
uint64_t misplaced(uint64_t size, uint32_t align)
{
    zymm_slab_param param = slab_param(size, 5);
    param.align           = align;
    const uint64_t            slab  = zymm_create_slab(&param, 386, "test");
    const std::vector<void *> taken = take_all(slab);
    uint64_t                  wrong = taken.size() != 5;
    for (void *object : taken) {
        wrong += reinterpret_cast<uintptr_t>(object) % align != 0;
        memset(object, 0x5A, size);
    }
    std::vector<uintptr_t> sorted;
    for (void *object : taken)
        sorted.push_back(reinterpret_cast<uintptr_t>(object));
    std::sort(sorted.begin(), sorted.end());
    for (size_t at = 1; at < sorted.size(); at++)
        wrong += sorted[at] - sorted[at - 1] < size;
    for (void *object : taken)
        wrong += give(slab, object) != 0;
    destroy(slab);
    return wrong;
}

uint64_t address_space_in_use()
{
    std::ifstream statm("/proc/self/statm");
    uint64_t      pages = 0;
    statm >> pages;
    return pages * 4096;
}

/* What happens to a slab of 1 MiB objects when the process may map only `room` bytes more. */
struct shortage {
    uint64_t taken, wrong;
};

shortage run_short(uint64_t room)
{
    void          *taken[20] = {};
    shortage       result    = {0, 0};
    const uint64_t slab      = make_slab(1048576 - 64, 20);
    rlimit         before    = {};
    getrlimit(RLIMIT_AS, &before);
    const rlimit tight = {address_space_in_use() + room, before.rlim_max};
    setrlimit(RLIMIT_AS, &tight);
    while (result.taken < 20 && (taken[result.taken] = take(slab)) != nullptr)
        result.taken++;
    setrlimit(RLIMIT_AS, &before);
    result.wrong += used_of(slab) != result.taken;
    for (uint64_t at = 0; at < result.taken; at++)
        result.wrong += give(slab, taken[at]) != 0;
    result.wrong += take_all(slab).size() != 20; /* the shortage is over */
    log_of([&] { destroy(slab); });
    return result;
}

} // namespace

TEST(ZymmMemory, objects_of_every_size_lie_aligned_and_apart)
{
    uint64_t wrong = 0;
    for (uint64_t size : {1ul, 7ul, 8ul, 24ul, 96ul, 100ul, 768ul, 1584ul, 4096ul, 8320ul, 8376ul,
                          65536ul, 65537ul, 131072ul, 1000000ul, 2097152ul, 16777216ul,
                          20000000ul})
        for (uint32_t align : {1u, 8u, 64u, 4096u, 65536u, 2097152u})
            wrong += misplaced(size, align);
    EXPECT_EQ(wrong, 0u);
}

TEST(ZymmMemory, an_alignment_that_is_no_power_of_two_or_too_large_is_refused)
{
    zymm_slab_param param = slab_param(64, 5);
    param.align           = 24;
    EXPECT_EQ(zymm_create_slab(&param, 386, "test"), 0u);
    param.align = 0;
    EXPECT_EQ(zymm_create_slab(&param, 386, "test"), 0u);
    param.align = 4194304;
    EXPECT_EQ(zymm_create_slab(&param, 386, "test"), 0u);
}

TEST(ZymmMemory, the_object_freed_last_is_the_next_one_out)
{
    const uint64_t slab  = make_slab(64, 3);
    void *const    one   = take(slab);
    void *const    two   = take(slab);
    void *const    three = take(slab);
    give(slab, two);
    give(slab, three);
    give(slab, one);
    EXPECT_EQ(take(slab), one);
    EXPECT_EQ(take(slab), three);
    EXPECT_EQ(take(slab), two);
    log_of([&] { destroy(slab); });
}

TEST(ZymmMemory, min_num_objects_are_backed_when_creation_returns)
{
    zymm_slab_param param  = slab_param(8192, 4096);
    param.min_num          = 1000;
    const uint64_t    slab = zymm_create_slab(&param, 386, "test");
    const char *const first = static_cast<const char *>(take(slab));
    EXPECT_EQ(resident_pages(first, 8192 * 1000 - 4096), 1999u);
    log_of([&] { destroy(slab); });
}

TEST(ZymmMemory, without_min_num_creation_takes_no_memory)
{
    const uint64_t before = mapped_bytes();
    const uint64_t slab   = make_slab(8376, 1000000);
    EXPECT_EQ(mapped_bytes(), before);
    destroy(slab);
}

TEST(ZymmMemory, a_huge_max_num_costs_nothing_until_it_is_used)
{
    const uint64_t before = mapped_bytes();
    const uint64_t slab   = make_slab(4096, UINT64_MAX);
    ASSERT_NE(slab, 0u);
    EXPECT_NE(take(slab), nullptr);
    EXPECT_LT(mapped_bytes() - before, 4u << 20);
    log_of([&] { destroy(slab); });
}

TEST(ZymmMemory, memory_is_taken_in_large_pieces)
{
    const uint64_t     slab  = make_slab(8376, 10000);
    std::set<uint64_t> sizes;
    for (unsigned count = 0; count < 10000; count++) {
        take(slab);
        sizes.insert(mapped_bytes());
    }
    EXPECT_LT(sizes.size(), 40u);
    log_of([&] { destroy(slab); });
}

TEST(ZymmMemory, one_hundred_thousand_pages_cost_less_than_one_percent_more)
{
    if (RED_ZONE != 0)
        GTEST_SKIP() << "a red zone follows each object in this build";
    const uint64_t  before = mapped_bytes();
    zymm_slab_param param  = slab_param(8376, 100000);
    param.align            = 64;
    const uint64_t slab    = zymm_create_slab(&param, 386, "test");
    EXPECT_EQ(take_all(slab).size(), 100000u);
    EXPECT_LT(mapped_bytes() - before, 100000ull * 8384 * 101 / 100);
    log_of([&] { destroy(slab); });
}

TEST(ZymmMemory, the_whole_size_is_what_objects_cost_in_the_end)
{
    const uint64_t before = mapped_bytes();
    const uint64_t slab   = make_slab(8320, 25200);
    EXPECT_EQ(take_all(slab).size(), 25200u);
    const uint64_t spent = mapped_bytes() - before;
    const uint64_t told  = 25200 * zymm_object_whole_size_get(8320, 0, 8);
    EXPECT_LT(spent, told + told / 100);
    EXPECT_GT(spent, told - told / 100);
    log_of([&] { destroy(slab); });
}

TEST(ZymmMemory, destroying_a_slab_gives_everything_back)
{
    const uint64_t  before = mapped_bytes();
    zymm_slab_param param  = slab_param(8376, 3000);
    param.min_num          = 100;
    const uint64_t            slab  = zymm_create_slab(&param, 386, "test");
    const std::vector<void *> taken = take_all(slab);
    EXPECT_TRUE(is_mapped(taken.front()));
    EXPECT_TRUE(is_mapped(taken.back()));
    EXPECT_GT(mapped_bytes(), before);
    for (void *object : taken)
        give(slab, object);
    destroy(slab);
    EXPECT_EQ(mapped_bytes(), before);
    EXPECT_FALSE(is_mapped(taken.front()));
    EXPECT_FALSE(is_mapped(taken.back()));
}

TEST(ZymmMemory, more_min_num_than_the_machine_has_fails_the_creation_with_a_line)
{
    uint64_t        machine = 0;
    zymm_slab_param param   = slab_param(1048576, UINT64_MAX);
    zyax_get_total_mem(&machine);
    param.min_num           = machine / 1048576 * 2;
    const uint64_t    before = mapped_bytes();
    uint64_t          slab   = 1;
    const std::string log    = log_of([&] { slab = zymm_create_slab(&param, 386, "test"); });
    EXPECT_EQ(slab, 0u);
    EXPECT_EQ(count_of(log, "no memory"), 1u) << log;
    EXPECT_EQ(mapped_bytes(), before);
    param.min_num = UINT64_MAX / 2;
    EXPECT_EQ(zymm_create_slab(&param, 386, "test"), 0u);
}

TEST(ZymmMemory, an_object_larger_than_the_address_space_is_a_failed_allocation)
{
    const uint64_t slab = make_slab(1ull << 47, 4);
    ASSERT_NE(slab, 0u);
    EXPECT_EQ(take(slab), nullptr);
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
    EXPECT_EQ(make_slab(UINT64_MAX, 1), 0u);
}

TEST(ZymmMemory, a_shortage_at_any_step_is_a_failed_allocation_and_nothing_more)
{
    if (SANITIZED)
        GTEST_SKIP() << "sanitizers need an address space without limit";
    const uint64_t before  = mapped_bytes();
    uint64_t       wrong   = 0;
    uint64_t       refused = 0;
    for (uint64_t room = 0; room < 12u << 20; room += 65536) {
        const shortage result = run_short(room);
        wrong += result.wrong;
        refused += result.taken < 20;
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(refused, 100u);
    EXPECT_EQ(mapped_bytes(), before);
}

TEST(ZymmMemory, creating_and_destroying_for_ever_does_not_grow)
{
    zymm_stats first = {};
    zymm_stats last  = {};
    for (unsigned round = 0; round < 3000; round++) {
        const uint64_t slab = make_slab(64, 10);
        give(slab, take(slab));
        destroy(slab);
        zymm_stats_get(round < 2000 ? &first : &last);
    }
    EXPECT_EQ(last.mapped, first.mapped);
    EXPECT_EQ(last.handles, first.handles);
    EXPECT_LE(last.control, first.control + 65536);
}
