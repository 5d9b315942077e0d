/*
 * The parts of the block device that need neither library nor server: the cutting of requests,
 * masks, protection information, and the journal's repair of a file.
 */
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>

#include "backing_file.h"
#include "journal.h"
#include "page_map.h"
#include "protection.h"
#include "request_part.h"

namespace {

using page_bytes = std::vector<uint8_t>;

page_bytes page_of(uint8_t byte, uint64_t number)
{
    page_bytes page(8320, byte);
    protect_sectors(page.data(), number, 0xFFFF);
    return page;
}

class BlockFile : public ::testing::Test
{
protected:
    BlockFile()
    {
        std::string folder = ::testing::TempDir() + "block_file_test-XXXXXX";
        folder_ = mkdtemp(folder.data());
    }
    ~BlockFile() override { std::filesystem::remove_all(folder_); }

    std::string path() const { return folder_ + "/disk"; }

    static void put(backing_file &file, uint64_t number, const page_bytes &page)
    {
        ASSERT_EQ(file.write(page.data(), page.size(), 4300800 + number * 8320), 0);
    }
    static page_bytes get(const backing_file &file, uint64_t number)
    {
        page_bytes page(8320);
        EXPECT_EQ(file.read(page.data(), page.size(), 4300800 + number * 8320), 0);
        return page;
    }

    /* Announces pages and leaves the record, as a process does that ends before striking it out. */
    static void announce(journal &intents, uint32_t kind, page_range range,
                         std::vector<page_bytes> pages)
    {
        std::vector<iovec> vectors;
        for (page_bytes &page : pages)
            vectors.push_back({page.data(), page.size()});
        journal::place place(intents);
        ASSERT_EQ(place.announce(kind, range, vectors.data()), 0);
        place.keep_record();
    }

    std::string folder_;
};

} // namespace

TEST(Protection, a_page_that_was_protected_holds)
{
    const page_bytes page = page_of(0x5A, 7);

    EXPECT_EQ(damaged_sectors(page.data(), 7), 0);
    EXPECT_FALSE(is_hole(page.data()));
}

TEST(Protection, the_information_lies_behind_the_data_big_endian)
{
    page_bytes page(8320, 0);
    protect_sectors(page.data(), 0x123, 0xFFFF);

    /* The CRC of zeros is 0; sector 1 of page 0x123 is sector 0x1231. */
    const page_bytes expected = {0, 0, 0x4E, 0x42, 0, 0, 0x12, 0x31};
    EXPECT_EQ(page_bytes(page.begin() + 520 + 512, page.begin() + 1040), expected);
}

TEST(Protection, the_guard_is_the_t10_crc)
{
    /* The check value of CRC-16/T10-DIF, 0xD0DB, is that of "123456789"; leading zeros do not
     * change a CRC that begins with 0. */
    page_bytes page(8320, 0);
    const char text[] = "123456789";
    std::copy(text, text + 9, page.begin() + 512 - 9);
    protect_sectors(page.data(), 0, 1);

    EXPECT_EQ(page[512], 0xD0);
    EXPECT_EQ(page[513], 0xDB);
}

TEST(Protection, a_flipped_bit_is_named_after_its_field)
{
    page_bytes page = page_of(0x5A, 7);
    page[0] ^= 1;
    page[520 + 513] ^= 1;
    page[2 * 520 + 515] ^= 1;
    page[3 * 520 + 519] ^= 1;

    EXPECT_EQ(damaged_sectors(page.data(), 7), 0x000F);
    EXPECT_EQ(damage_of(page.data(), 7, 0), damage::GUARD);
    EXPECT_EQ(damage_of(page.data(), 7, 1), damage::GUARD);
    EXPECT_EQ(damage_of(page.data(), 7, 2), damage::APPLICATION_TAG);
    EXPECT_EQ(damage_of(page.data(), 7, 3), damage::REFERENCE_TAG);
    EXPECT_EQ(damage_of(page.data(), 7, 4), damage::NONE);
}

TEST(Protection, a_page_in_the_place_of_another_does_not_hold)
{
    EXPECT_EQ(damaged_sectors(page_of(0x5A, 7).data(), 8), 0xFFFF);
}

TEST(RequestPart, a_request_is_cut_at_stripes_and_at_the_longest_part)
{
    std::vector<uint64_t> firsts;
    std::vector<uint32_t> lengths;
    uint8_t buffer[1];

    EXPECT_EQ(for_each_part(63 * 8192 + 100, 3 * 8192, buffer, nullptr, 2,
                            [&](const request_part &part) {
                                firsts.push_back(part.pages.first);
                                lengths.push_back(part.length);
                                return 0;
                            }),
              0);
    EXPECT_EQ(firsts, (std::vector<uint64_t>{63, 64, 66}));
    EXPECT_EQ(lengths, (std::vector<uint32_t>{8092, 16384, 100}));
}

TEST(RequestPart, a_part_that_fails_ends_the_request)
{
    int calls = 0;

    EXPECT_EQ(for_each_part(0, 64 * 8192, nullptr, nullptr, 8,
                            [&](const request_part &) { return ++calls == 2 ? 5 : 0; }),
              5);
    EXPECT_EQ(calls, 2);
}

TEST(RequestPart, a_slice_knows_what_it_touches_and_what_it_covers)
{
    const request_part part = {{10, 2}, 8192 - 700, 1400, nullptr, nullptr};
    const request_part first = part.slice(0, 1), second = part.slice(1, 1);

    EXPECT_EQ(first.length, 700u);
    EXPECT_EQ(touched_sectors(first), 0xC000);
    EXPECT_EQ(covered_sectors(first), 0x8000);
    EXPECT_EQ(second.pages.first, 11u);
    EXPECT_EQ(touched_sectors(second), 0x0003);
    EXPECT_EQ(covered_sectors(second), 0x0001);
}

TEST(RequestPart, a_slice_within_one_sector_covers_none)
{
    const request_part part = {{0, 1}, 600, 10, nullptr, nullptr};

    EXPECT_EQ(touched_sectors(part), 0x0002);
    EXPECT_EQ(covered_sectors(part), 0);
}

TEST(RequestPart, bits_of_the_bitmap_stand_for_two_sectors)
{
    EXPECT_EQ(bits_with_any(0x0006), 0x03);
    EXPECT_EQ(bits_with_both(0x0006), 0x00);
    EXPECT_EQ(bits_with_both(0xC00F), 0x83);
    EXPECT_EQ(sectors_of_bits(0x81), 0xC003);
}

TEST(PageMap, a_stripe_is_one_word)
{
    page_map map;
    map.resize(200);
    map.add({64, 64});
    map.remove({65, 2});

    EXPECT_FALSE(map.has(63));
    EXPECT_TRUE(map.has(64));
    EXPECT_FALSE(map.has(66));
    EXPECT_TRUE(map.has_all({67, 61}));
    EXPECT_TRUE(map.has_none({128, 64}));
}

TEST_F(BlockFile, a_new_file_holds_its_size_and_no_data)
{
    backing_file file(path(), 1 << 20);

    EXPECT_EQ(file.pages(), 128u);
    EXPECT_EQ(std::filesystem::file_size(path()), 4300800u + 128 * 8320);
    EXPECT_GE(file.next_data(4300800), 4300800u + 128 * 8320);
}

TEST_F(BlockFile, a_torn_header_is_the_older_one)
{
    uint64_t epoch = 0;
    {
        backing_file file(path(), 1 << 20);
        ASSERT_EQ(file.mark(STATE_OPEN, 5), 0);
        ASSERT_EQ(file.mark(STATE_CLOSED, 6), 0);
        epoch = file.header().sequence % 2;
    }
    std::fstream raw(path(), std::ios::in | std::ios::out | std::ios::binary);
    raw.seekp(std::streamoff(epoch * 4096 + 20));
    raw.put('\xEE');
    raw.close();

    EXPECT_EQ(backing_file(path(), 0).header().epoch, 5u);
}

TEST_F(BlockFile, a_torn_page_gets_its_new_content_from_the_journal)
{
    backing_file file(path(), 1 << 20);
    journal intents(file, false);
    page_bytes torn = page_of(1, 3);
    const page_bytes fresh = page_of(2, 3);

    std::copy(fresh.begin(), fresh.begin() + 4096, torn.begin());
    put(file, 3, torn);
    announce(intents, RECORD_PAGES, {3, 1}, {fresh});

    const journal::repair repair = intents.replay();
    EXPECT_EQ(repair.pages, 1u);
    ASSERT_EQ(repair.touched.size(), 1u);
    EXPECT_EQ(repair.touched[0].first, 3u);
    EXPECT_EQ(get(file, 3), fresh);
}

TEST_F(BlockFile, a_whole_page_is_left_alone_be_it_old_or_new)
{
    backing_file file(path(), 1 << 20);
    journal intents(file, false);

    put(file, 3, page_of(1, 3));
    announce(intents, RECORD_PAGES, {3, 1}, {page_of(2, 3)});

    EXPECT_EQ(intents.replay().pages, 0u);
    EXPECT_EQ(get(file, 3), page_of(1, 3));
}

TEST_F(BlockFile, a_page_torn_by_its_first_write_is_repaired)
{
    backing_file file(path(), 1 << 20);
    journal intents(file, false);
    const page_bytes fresh = page_of(2, 3);
    page_bytes torn(8320, 0);

    std::copy(fresh.begin(), fresh.begin() + 4096, torn.begin());
    put(file, 3, torn);
    announce(intents, RECORD_PAGES, {3, 1}, {fresh});

    EXPECT_EQ(intents.replay().pages, 1u);
    EXPECT_EQ(get(file, 3), fresh);
}

TEST_F(BlockFile, a_trim_torn_in_the_middle_becomes_a_hole)
{
    backing_file file(path(), 1 << 20);
    journal intents(file, false);
    page_bytes torn = page_of(1, 3);

    std::fill(torn.begin(), torn.begin() + 3000, uint8_t(0));
    put(file, 3, torn);
    put(file, 4, page_of(1, 4));
    announce(intents, RECORD_TRIM, {3, 2}, {});

    EXPECT_EQ(intents.replay().pages, 1u);
    EXPECT_TRUE(is_hole(get(file, 3).data()));
    EXPECT_EQ(get(file, 4), page_of(1, 4));
}

TEST_F(BlockFile, a_record_that_is_not_complete_is_no_record)
{
    backing_file file(path(), 1 << 20);
    journal intents(file, false);
    const page_bytes damaged(8320, 0x77);

    put(file, 3, damaged);
    announce(intents, RECORD_PAGES, {3, 1}, {page_of(2, 3)});
    const uint8_t wrong = 0xEE;
    ASSERT_EQ(file.write(&wrong, 1, 8192 + 4096 + 8000), 0);

    EXPECT_TRUE(intents.replay().touched.empty());
    EXPECT_EQ(get(file, 3), damaged);
}

TEST_F(BlockFile, a_write_that_was_through_leaves_no_record)
{
    backing_file file(path(), 1 << 20);
    journal intents(file, false);
    page_bytes page = page_of(1, 3);
    const page_bytes damaged(8320, 0x77);
    {
        journal::place place(intents);
        iovec vector = {page.data(), page.size()};
        ASSERT_EQ(place.announce(RECORD_PAGES, {3, 1}, &vector), 0);
    }
    put(file, 3, damaged);

    EXPECT_TRUE(intents.replay().touched.empty());
    EXPECT_EQ(get(file, 3), damaged);
}
