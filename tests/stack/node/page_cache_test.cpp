/*
 * The cache of pages: bounded, picky, and the first to give way when the pool runs short.
 */
#include <gmock/gmock.h>

#include "node_parts.h"
#include "page_marks.h"
#include "pool_show.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

class NodeCache : public NodeParts
{
protected:
    explicit NodeCache(uint32_t pages = 16) : NodeParts(pages)
    {
    }

    void open(uint32_t capacity)
    {
        io_.cache.open(capacity);
        io_.poller.start();
    }

    /* Keeps that many pages of a file, the first of them `first`; nobody else holds them then. */
    void keep(uint32_t pages, uint64_t first = 0, uint32_t source = 0)
    {
        const page_run run = first_.take(pages, 30);
        mark_valid(run.chain(), pages * 8192);
        io_.cache.keep({source, first}, run.chain());
    }

    bool has(uint64_t page, uint32_t source = 0)
    {
        return io_.cache.find({source, page}).page() != nullptr;
    }

    void wait_until_out(uint64_t pages) const
    {
        while (pages_out() != pages)
            std::this_thread::yield();
    }

    void expect_clean()
    {
        io_.cache.clear();
        io_.poller.stop();
        EXPECT_TRUE(audit_objects().clean());
        EXPECT_TRUE(library_->stop());
    }
};

TEST_F(NodeCache, pages_are_found_by_their_place)
{
    open(4);
    keep(2, 7, 3);

    EXPECT_TRUE(has(7, 3));
    EXPECT_TRUE(has(8, 3));
    EXPECT_FALSE(has(9, 3));
    EXPECT_FALSE(has(7, 2));
    EXPECT_EQ(io_.cache.statistics().kept, 2u);
    EXPECT_EQ(io_.cache.statistics().found, 2u);
    EXPECT_EQ(pages_out(), 2u);
    expect_clean();
}

TEST_F(NodeCache, a_full_cache_lets_the_oldest_go)
{
    open(4);
    keep(3, 0);
    keep(3, 3);

    EXPECT_FALSE(has(0));
    EXPECT_FALSE(has(1));
    EXPECT_TRUE(has(2));
    EXPECT_TRUE(has(5));
    EXPECT_EQ(pages_out(), 4u);
    expect_clean();
}

TEST_F(NodeCache, a_cache_without_room_keeps_nothing)
{
    open(0);
    keep(3);

    EXPECT_FALSE(has(0));
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(g_page_async_evict_handler.count, 0u);
    expect_clean();
}

TEST_F(NodeCache, a_page_that_is_filled_in_part_is_not_kept)
{
    open(4);
    {
        const page_run run = first_.take(2, 30);
        mark_valid(run.chain(), 8192 + 7 * 1024);
        io_.cache.keep({0, 0}, run.chain());
    }
    EXPECT_TRUE(has(0));
    EXPECT_FALSE(has(1));
    expect_clean();
}

TEST_F(NodeCache, the_zero_page_is_not_kept)
{
    open(4);
    SGL *chain = nullptr;
    uint32_t index = 0;
    allocSglChain(&chain, 1, NODE_MODULE_ID, __func__, __LINE__);
    SGL *cur = chain;
    add_one_page_to_sgl(chain, &cur, &index, getZeroPageCtrl());
    io_.cache.keep({0, 0}, chain);
    freeSglChain(chain, NODE_MODULE_ID, __func__, __LINE__);

    EXPECT_FALSE(has(0));
    EXPECT_EQ(getPageReference(getZeroPageCtrl(), __func__), 1u);
    expect_clean();
}

TEST_F(NodeCache, pages_go_back_when_the_pool_is_nearly_used_up)
{
    open(4);
    keep(4);
    {
        const page_run most = second_.take(12, 30);
        wait_until_out(12);
    }
    EXPECT_FALSE(has(0));
    EXPECT_EQ(io_.cache.statistics().given_back, 4u);
    EXPECT_GE(io_.cache.statistics().evictions, 1u);
    expect_clean();
}

TEST_F(NodeCache, who_waits_in_the_queue_is_served_with_what_the_cache_gives_back)
{
    open(4);
    keep(4);
    const page_run most = second_.take(12, 30);
    {
        const page_run rest = third_.take(4, 30);
        EXPECT_EQ(rest.chain()->entrySumInChain, 4);
    }
    EXPECT_EQ(io_.cache.statistics().given_back, 4u);
}

TEST_F(NodeCache, pages_stay_as_long_as_the_pool_has_enough)
{
    open(4);
    keep(4);
    const page_run some = second_.take(11, 30); /* 15 of 16: 93 % */
    zyumm_page_evict_timer_hendler();

    EXPECT_TRUE(has(0));
    EXPECT_EQ(io_.cache.statistics().given_back, 0u);
}

TEST_F(NodeCache, a_page_that_is_being_read_survives_its_eviction)
{
    open(4);
    keep(4);
    const page_hold held = io_.cache.find({0, 2});
    const page_run most = second_.take(12, 30);
    wait_until_out(13);

    EXPECT_EQ(getPageReference(held.page(), __func__), 1u);
    EXPECT_NE(getPageAddrByPageCtrl(held.page()), nullptr);
}

TEST_F(NodeCache, an_empty_cache_is_asked_in_vain)
{
    open(4);
    const page_run all = second_.take(16, 30);
    zyumm_page_evict_timer_hendler();

    EXPECT_EQ(io_.cache.statistics().evictions, 0u);
    EXPECT_EQ(pages_out(), 16u);
}

/* With places to wait for two threads that ask again as soon as they were answered. */
class NodeCacheOfTwo : public NodeCache
{
protected:
    NodeCacheOfTwo() : NodeCache(40)
    {
    }
};

TEST_F(NodeCacheOfTwo, keeping_finding_and_evicting_at_once_loses_nothing)
{
    ASSERT_EQ(places_to_wait(), 2u);
    open(4);
    std::vector<std::jthread> threads;
    for (uint32_t source = 0; source < 2; ++source)
        threads.emplace_back([this, source] {
            page_waiter &waiter = source == 0 ? first_ : second_;
            for (uint64_t round = 0; round < 300; ++round) {
                const page_run run = waiter.take(18, 30);
                mark_valid(run.chain(), 18 * 8192);
                io_.cache.keep({source, round}, run.chain());
                io_.cache.find({1 - source, round + 3});
                io_.cache.newest();
            }
        });
    threads.emplace_back([] {
        for (int round = 0; round < 1000; ++round)
            zyumm_page_evict_timer_hendler();
    });
    threads.clear();

    EXPECT_EQ(io_.cache.statistics().kept, 10800u);
    EXPECT_LE(pages_out(), 4u);
    expect_clean();
}

TEST_F(NodeCache, a_library_without_room_for_a_call_back_is_a_failure)
{
    for (int i = 0; i < 8; ++i)
        zyumm_page_evict_handler_reg(0, [](uint64_t) {}, 0, NODE_MODULE_ID, __func__);

    EXPECT_THROW(io_.cache.open(4), node_error);
}

/* ---- shown on demand */

TEST_F(NodeCache, the_page_that_was_kept_last_is_shown)
{
    open(4);
    keep(2);
    const page_hold last = io_.cache.find({0, 1});
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<void *>(last.page()->page_addr));

    const std::string text = show_pools(io_.cache);
    EXPECT_THAT(text, HasSubstr("umm show requests\n The page request number is ZERO.\n"));
    EXPECT_THAT(text, ContainsRegex("page addr: +" + std::string(address) + "\n"));
    EXPECT_THAT(text, ContainsRegex("ref counter: +3\n")); /* the cache, this test, the showing */
    EXPECT_THAT(text, ContainsRegex("page valid_bitmap: +255\n"));
    EXPECT_THAT(text, ContainsRegex("page owner_modid: +900\n"));
    EXPECT_EQ(getPageReference(last.page(), __func__), 2u);
}

TEST_F(NodeCache, the_zero_page_is_shown_while_the_cache_is_empty)
{
    const std::string text = show_pools(io_.cache);

    EXPECT_THAT(text, ContainsRegex("page zero_flags: +32\n"));
    EXPECT_THAT(text, ContainsRegex("page owner_modid: +386\n"));
}

TEST_F(NodeCache, who_waits_for_pages_is_shown)
{
    std::future<void> waiting;
    {
        const page_run all = first_.take(16, 30);
        waiting = wait_for_a_page(second_, 30);
        wait_until_queued(1);
        const std::string text = show_pools(io_.cache);
        EXPECT_THAT(text, HasSubstr("The page request number is 1.\n"));
        EXPECT_THAT(text, ContainsRegex("\n1 +1 +[0-9]+ +take +[0-9]+ +900 "));
    }
    io_.poller.start();
    waiting.get();
}
