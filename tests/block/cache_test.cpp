/*
 * The device without a server: who may look at a cached page while it is written where it is.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "block_device.h"
#include "config_directory.h"
#include "library_use.h"

namespace {

class BlockCache : public ::testing::Test
{
protected:
    BlockCache()
    {
        library_ = std::make_unique<library_use>(folder_.path());
        files_ = std::make_unique<device_files>(folder_.path() + "/disk", std::vector<std::string>{},
                                                1 << 20, false);
        device_ = new block_device(*files_, false);
        device_->start(30);
    }
    ~BlockCache() override
    {
        EXPECT_EQ(device_->stop(), 0);
        EXPECT_TRUE(library_->stop());
    }

    void write_page(uint64_t number, uint8_t byte)
    {
        const std::vector<uint8_t> data(8192, byte);
        ASSERT_EQ(device_->write(data.data(), 8192, number * 8192, false), 0);
    }
    bool begin_change(uint64_t number, cached_page **page)
    {
        cache_shard &shard = device_->cache.shard_of(number);
        std::lock_guard hold(shard.lock);
        return device_->cache.begin_change(shard, {number, 1}, page);
    }
    void end_change(cached_page *page)
    {
        std::lock_guard hold(device_->cache.shard_of(page->number).lock);
        page->changing = false;
    }

    const config_directory        folder_{{64, 256, 64}};
    std::unique_ptr<library_use>  library_;
    std::unique_ptr<device_files> files_;
    static block_device          *device_; /* kept for good: the eviction call-back refers to it */
};

block_device *BlockCache::device_;

} // namespace

TEST_F(BlockCache, who_wants_a_page_that_is_being_changed_waits_for_the_writer)
{
    std::vector<uint8_t> seen(8192);
    std::atomic<bool> done = false;
    cached_page *page = nullptr;
    std::thread reader;

    write_page(3, 0x11);
    {
        const range_hold range(device_->cache, {3, 1});
        ASSERT_TRUE(begin_change(3, &page));
        memset(page->page->page_addr, 0x22, 4160);
        const uint64_t before = device_->supply.statistics.requests;
        reader = std::thread([&] {
            EXPECT_EQ(device_->read(seen.data(), 8192, 3 * 8192), 0);
            done = true;
        });
        /* It takes a page of its own before it waits for the range. */
        while (device_->supply.statistics.requests == before && !done)
            std::this_thread::yield();
        memset(page->page->page_addr + 4160, 0x22, 4160);
        end_change(page);
    }
    reader.join();
    EXPECT_EQ(seen, std::vector<uint8_t>(8192, 0x22));
    write_page(3, 0x33); /* what was put there by hand has no protection information */
}

TEST_F(BlockCache, a_page_that_somebody_looks_at_is_replaced_and_not_changed)
{
    cached_page *page = nullptr;

    write_page(3, 0x11);
    {
        const page_reference looker =
            page_reference::to(device_->cache.shard_of(3).find(3)->page);
        const range_hold range(device_->cache, {3, 1});
        EXPECT_FALSE(begin_change(3, &page));
    }
    {
        const page_reference looker =
            page_reference::to(device_->cache.shard_of(3).find(3)->page);
        write_page(3, 0x22);
        EXPECT_EQ(looker.page()->page_addr[0], 0x11);
        EXPECT_NE(device_->cache.shard_of(3).find(3)->page, looker.page());
    }
}

TEST_F(BlockCache, a_page_that_nobody_looks_at_is_written_where_it_is)
{
    write_page(3, 0x11);
    const page_ctrl *page = device_->cache.shard_of(3).find(3)->page;
    write_page(3, 0x22);

    EXPECT_EQ(device_->cache.shard_of(3).find(3)->page, page);
    EXPECT_EQ(page->page_addr[0], 0x22);
}

TEST_F(BlockCache, a_clean_page_that_is_changed_is_dirty_and_written_back)
{
    std::vector<uint8_t> seen(8320);

    write_page(3, 0x11);
    ASSERT_EQ(device_->flush(), 0);
    EXPECT_EQ(device_->cache.dirty(), 0u);
    write_page(3, 0x22);
    EXPECT_EQ(device_->cache.dirty(), 1u);
    ASSERT_EQ(device_->flush(), 0);

    std::ifstream file(folder_.path() + "/disk", std::ios::binary);
    file.seekg(4300800 + 3 * 8320);
    file.read(reinterpret_cast<char *>(seen.data()), 8320);
    EXPECT_EQ(seen[0], 0x22);
    EXPECT_EQ(seen[15 * 520 + 511], 0x22);
}

TEST_F(BlockCache, a_page_that_is_cached_in_part_is_not_changed)
{
    cached_page *page = nullptr;
    const std::vector<uint8_t> data(1024, 0x22);

    write_page(3, 0x11);
    ASSERT_EQ(device_->flush(), 0);
    while (device_->cache.give_back(1, true) > 0) {
    }
    ASSERT_EQ(device_->write(data.data(), 1024, 3 * 8192, false), 0);
    const range_hold range(device_->cache, {3, 1});
    EXPECT_FALSE(begin_change(3, &page));
}
