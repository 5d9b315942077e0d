/*
 * The consistency check of a slab, from outside: it finds nothing in slabs that are well, however
 * busy they are, and says what is wrong with one whose holder wrote where he must not.
 */
#include "contract/core/mpool_helpers.h"
#include "zymm_real_helpers.h"

namespace
{

uint64_t make_checked(uint64_t attr, uint64_t obj_size, uint64_t max_num)
{
    zymm_slab_param param = slab_param(obj_size, max_num);
    param.attr            = attr;
    return zymm_create_slab(&param, 386, "test");
}

/* Takes and gives in bursts of different lengths, so that magazines go to and fro. */
void turn_over(uint64_t slab, unsigned rounds)
{
    std::vector<void *> held;
    for (unsigned round = 0; round < rounds; round++) {
        for (unsigned count = round * 7 % 150; held.size() < count;) {
            void *const object = take(slab);
            if (object == nullptr)
                break;
            held.push_back(object);
        }
        for (; !held.empty() && held.size() > round * 3 % 40; held.pop_back())
            give(slab, held.back());
    }
    for (void *object : held)
        give(slab, object);
}

/* Several threads at work while this one checks; and a last check when all are through. */
void expect_consistent_throughout(uint64_t attr, uint64_t obj_size, uint64_t max_num)
{
    const uint64_t        slab = make_checked(attr, obj_size, max_num);
    std::atomic<unsigned> at_work{3};
    uint64_t              checks = 0;
    const std::string     log    = log_of([&] {
        in_threads(4, [&](unsigned number) {
            if (number != 0) {
                turn_over(slab, 400);
                at_work--;
                return;
            }
            do {
                EXPECT_EQ(zymm_slab_check(slab), 0);
                checks++;
            } while (at_work.load() != 0);
        });
        EXPECT_EQ(zymm_slab_check(slab), 0);
    });
    EXPECT_GT(checks, 0u);
    EXPECT_EQ(log, "");
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}

} // namespace

TEST(ZymmCheck, finds_nothing_in_a_slab_that_was_never_used)
{
    const uint64_t slab = make_checked(ZYMM_SLAB_CACHED, 64, 100);
    EXPECT_EQ(zymm_slab_check(slab), 0);
    destroy(slab);
}

TEST(ZymmCheck, finds_nothing_wrong_with_objects_that_are_out_cached_and_loose)
{
    const uint64_t      slab = make_checked(ZYMM_SLAB_CACHED, 8376, 1000);
    std::vector<void *> all  = take_all(slab);
    for (unsigned at = 0; at < 700; at++)
        EXPECT_EQ(give(slab, all[at]), 0);
    std::thread([&] { give(slab, all[700]); }).join();
    EXPECT_EQ(zymm_slab_check(slab), 0);
    EXPECT_EQ(used_of(slab), 299u);
    for (unsigned at = 701; at < 1000; at++)
        EXPECT_EQ(give(slab, all[at]), 0);
    EXPECT_EQ(zymm_slab_check(slab), 0);
    destroy(slab);
}

TEST(ZymmCheck, finds_nothing_in_a_roomy_cached_slab_while_threads_are_at_work)
{
    expect_consistent_throughout(ZYMM_SLAB_CACHED, 64, 5000);
}

TEST(ZymmCheck, finds_nothing_in_a_dry_cached_slab_while_threads_are_at_work)
{
    expect_consistent_throughout(ZYMM_SLAB_CACHED, 8376, 200);
}

TEST(ZymmCheck, finds_nothing_in_a_slab_without_caches_while_threads_are_at_work)
{
    expect_consistent_throughout(0, 200, 200);
}

TEST(ZymmCheck, finds_nothing_while_another_member_cuts_room_off_the_enclosing_pool)
{
    const uint64_t  pool  = zymm_pool_create("pool", 8u << 20, 0, 386, "test");
    zymm_slab_param param = slab_param(8376, 600);
    param.pool_id         = pool;
    param.attr            = ZYMM_SLAB_CACHED;
    const uint64_t one    = zymm_create_slab(&param, 386, "test");
    const uint64_t other  = zymm_create_slab(&param, 386, "test");
    std::atomic<bool> done{false};
    in_threads(2, [&](unsigned number) {
        if (number == 0) {
            turn_over(one, 20);
            turn_over(other, 400);
            done = true;
            return;
        }
        while (!done.load())
            EXPECT_EQ(zymm_slab_check(one), 0);
    });
    EXPECT_EQ(zymm_slab_check(one), 0);
    EXPECT_EQ(zymm_slab_check(other), 0);
    destroy(one);
    destroy(other);
    EXPECT_EQ(zymm_pool_destory(pool, 386, "test"), 0);
}

TEST(ZymmCheck, serves_a_memory_pool_of_one_block)
{
    const uint32_t    partition = zyumm_partition_create(1, 0, 0, "checked");
    zyumm_mpool_param param     = mpool_param(partition, 4096, 8);
    param.attr                  = 0x200;
    const uint64_t pool         = zyumm_mpool_create(&param);
    void *const    object       = zyumm_mpool_alloc_i(pool, 386, "test");
    EXPECT_EQ(zymm_slab_check(pool), 0);
    zyumm_mpool_free_i(pool, object, 386, "test");
    EXPECT_EQ(zymm_slab_check(pool), 0);
    EXPECT_EQ(zyumm_mpool_delete(pool), 0);
}

TEST(ZymmCheck, leaves_no_memory_behind)
{
    const uint64_t slab   = make_checked(0, 64, 1000);
    void *const    object = take(slab);
    const uint64_t mapped = mapped_bytes();
    EXPECT_EQ(zymm_slab_check(slab), 0);
    EXPECT_EQ(mapped_bytes(), mapped);
    give(slab, object);
    destroy(slab);
}

TEST(ZymmCheck, of_a_stale_handle_fails_with_a_line_and_of_0_without)
{
    EXPECT_EQ(count_of(log_of([] { EXPECT_EQ(zymm_slab_check(make_stale_slab()), -1); }), "error"),
              1u);
    EXPECT_EQ(log_of([] { EXPECT_EQ(zymm_slab_check(0), -1); }), "");
}

#if !defined(__SANITIZE_ADDRESS__)
TEST(ZymmCheck, finds_a_write_past_the_end_while_the_object_is_still_out)
{
    const uint64_t slab   = make_checked(ZYMM_SLAB_CACHED, 64, 100);
    char *const    object = static_cast<char *>(zymm_slab_malloc(slab, 77, "the_owner", 123));
    char *const    other  = static_cast<char *>(take(slab));
    char           before[16 + RED_ZONE];
    memcpy(before, object + 64, sizeof before);
    memset(object + 64, 0x11, 8 + RED_ZONE);
    const std::string log = log_of([&] { EXPECT_EQ(zymm_slab_check(slab), -1); });
    EXPECT_EQ(count_of(log, "the tag behind an object is damaged"), 1u) << log;
    memcpy(object + 64, before, 8 + RED_ZONE);
    EXPECT_EQ(zymm_slab_check(slab), 0);
    give(slab, object);
    give(slab, other);
    destroy(slab);
}

TEST(ZymmCheck, finds_an_object_whose_tag_was_overwritten_with_zeros)
{
    const uint64_t slab   = make_checked(ZYMM_SLAB_CACHED, 64, 100);
    char *const    object = static_cast<char *>(take(slab));
    memset(object + 64, 0, 8 + RED_ZONE);
    const std::string log = log_of([&] { EXPECT_EQ(zymm_slab_check(slab), -1); });
    EXPECT_EQ(count_of(log, "a free object lies nowhere"), 1u) << log;
    destroy(slab);
}

TEST(ZymmCheck, names_a_few_of_many_findings_and_the_number_of_the_rest)
{
    const uint64_t            slab = make_checked(0, 64, 50);
    const std::vector<void *> all  = take_all(slab);
    for (void *object : all)
        memset(static_cast<char *>(object) + 64, 0x22, 8 + RED_ZONE);
    const std::string log = log_of([&] { EXPECT_EQ(zymm_slab_check(slab), -1); });
    EXPECT_EQ(count_of(log, "is damaged"), 8u) << log;
    EXPECT_EQ(count_of(log, "and 42 more findings"), 1u) << log;
    destroy(slab);
}
#endif
