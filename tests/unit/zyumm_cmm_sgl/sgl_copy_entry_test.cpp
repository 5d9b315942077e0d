/*
 * The two copies between a buffer and the data bytes of one entry.
 */
#include <gtest/gtest.h>

#include <ostream>

#include "expect_log.h"

#include "chain_builder.h"

/* One of the two copies. */
struct entry_copier {
    const char *name;
    bool        into;
    int32_t (*copy)(SGL_ENTRY *entry, uint32_t offset, uint8_t *buffer, uint32_t length);
};

static const entry_copier COPIERS[] = {
    {"copyDataFromBufferToEntryIgnoreDif", true,
     [](SGL_ENTRY *entry, uint32_t offset, uint8_t *buffer, uint32_t length) {
         return copyDataFromBufferToEntryIgnoreDif(entry, offset, buffer, length);
     }},
    {"copyDataFromEntryToBufferIgnoreDif", false,
     [](SGL_ENTRY *entry, uint32_t offset, uint8_t *buffer, uint32_t length) {
         return copyDataFromEntryToBufferIgnoreDif(entry, offset, buffer, length);
     }},
};

void PrintTo(const entry_copier &c, std::ostream *out)
{
    *out << c.name;
}

class SglCopyEntry : public testing::TestWithParam<entry_copier>
{
  protected:
    test_chain page_  = page_chain({1});
    bytes      buffer_ = pattern(8192, 40);

    /* Copies at `offset` to or from the start of the buffer. */
    int32_t copy(uint32_t offset, uint32_t length)
    {
        return GetParam().copy(page_.entry(0, 0), offset, buffer_.data(), length);
    }

    /* Both ends of the n-th bounded copy: bytes into the entry, bytes into the buffer, count. */
    struct ends {
        uint64_t entry, buffer, count;
        bool     operator==(const ends &) const = default;
    };

    std::vector<ends> copies() const
    {
        const uint64_t    entry  = reinterpret_cast<uint64_t>(page_.entry(0, 0)->buf);
        const uint64_t    buffer = reinterpret_cast<uint64_t>(buffer_.data());
        const size_t      at     = GetParam().into ? 0 : 2;
        std::vector<ends> all;
        for (const fake_call &call : fake_calls(OP_memcpy_s)) {
            EXPECT_EQ(call.args[1].number, call.args[3].number);
            all.push_back({call.args[at].number - entry, call.args[2 - at].number - buffer,
                           call.args[3].number});
        }
        return all;
    }

    std::string failed_text(const void *memory, const void *buffer, uint32_t len,
                            uint32_t offset) const
    {
        const void *dst = GetParam().into ? memory : buffer;
        const void *src = GetParam().into ? buffer : memory;
        return text_of("[UMM_CMM] Copy data failed. dest(%p) src(%p) len(%u) offset(%u)", dst,
                       src, len, offset);
    }
};

INSTANTIATE_TEST_SUITE_P(Both, SglCopyEntry, testing::ValuesIn(COPIERS),
                         [](const testing::TestParamInfo<entry_copier> &tested) {
                             return std::string(tested.param.name);
                         });

TEST_P(SglCopyEntry, bytes_inside_a_sector_are_one_copy)
{
    EXPECT_EQ(copy(10, 100), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{10, 0, 100}}));
    EXPECT_NO_LINE();
}

TEST_P(SglCopyEntry, a_whole_sector_is_one_copy)
{
    EXPECT_EQ(copy(0, 512), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{0, 0, 512}}));
}

TEST_P(SglCopyEntry, data_byte_511_is_the_first_sectors_last)
{
    EXPECT_EQ(copy(511, 1), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{511, 0, 1}}));
}

TEST_P(SglCopyEntry, data_byte_512_is_the_second_sectors_first)
{
    EXPECT_EQ(copy(512, 1), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{520, 0, 1}}));
}

TEST_P(SglCopyEntry, the_last_data_byte_of_a_page_is_found)
{
    EXPECT_EQ(copy(8191, 1), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{8311, 0, 1}}));
}

TEST_P(SglCopyEntry, integrity_bytes_are_skipped_between_sectors)
{
    EXPECT_EQ(copy(500, 1000), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{500, 0, 12}, {520, 12, 512}, {1040, 524, 476}}));
}

TEST_P(SglCopyEntry, a_sector_but_for_its_last_byte_is_copied_no_further)
{
    EXPECT_EQ(copy(0, 1024 + 511), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{0, 0, 512}, {520, 512, 512}, {1040, 1024, 511}}));
}

TEST_P(SglCopyEntry, a_page_is_sixteen_copies)
{
    EXPECT_EQ(copy(0, 8192), 0);

    ASSERT_EQ(copies().size(), 16u);
    EXPECT_EQ(copies()[15], (ends{7800, 7680, 512}));
}

TEST_P(SglCopyEntry, the_bytes_arrive)
{
    const bytes before = page_.memory(0, 0);
    const bytes given  = buffer_;

    EXPECT_EQ(copy(500, 100), 0);

    const bytes after = page_.memory(0, 0);
    bytes       expected_memory(before);
    bytes       expected_buffer(given);
    if (GetParam().into) {
        std::copy_n(given.begin(), 12, expected_memory.begin() + 500);
        std::copy_n(given.begin() + 12, 88, expected_memory.begin() + 520);
    } else {
        std::copy_n(before.begin() + 500, 12, expected_buffer.begin());
        std::copy_n(before.begin() + 520, 88, expected_buffer.begin() + 12);
    }
    EXPECT_EQ(after, expected_memory);
    EXPECT_EQ(buffer_, expected_buffer);
}

TEST_P(SglCopyEntry, no_bytes_are_one_copy_of_0_bytes_at_the_place)
{
    EXPECT_EQ(copy(600, 0), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{608, 0, 0}}));
}

TEST_P(SglCopyEntry, the_result_of_a_copy_of_no_bytes_is_that_copys)
{
    fake_fail(OP_memcpy_s);

    EXPECT_EQ(copy(600, 0), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(page_.entry(0, 0)->buf + 608, buffer_.data(), 0, 88));
}

TEST_P(SglCopyEntry, the_entrys_length_is_not_looked_at)
{
    page_.entry(0, 0)->len = 0;

    EXPECT_EQ(copy(0, 600), 0);

    EXPECT_EQ(copies(), (std::vector<ends>{{0, 0, 512}, {520, 512, 88}}));
}

TEST_P(SglCopyEntry, a_null_buffer_is_a_failed_copy)
{
    EXPECT_EQ(GetParam().copy(page_.entry(0, 0), 10, nullptr, 100), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(page_.entry(0, 0)->buf + 10, nullptr, 100, 10));
}

TEST_P(SglCopyEntry, a_failed_first_sector_names_its_address_and_its_offset_in_the_sector)
{
    fake_fail(OP_memcpy_s, 1);

    EXPECT_EQ(copy(1030, 1000), -1);

    /* Data byte 1030 is byte 6 of the third sector, which starts at 1040. */
    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(page_.entry(0, 0)->buf + 1046, buffer_.data(), 506, 6));
}

TEST_P(SglCopyEntry, a_failed_later_sector_starts_at_offset_0)
{
    fake_fail(OP_memcpy_s, 2);

    EXPECT_EQ(copy(1030, 1000), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(page_.entry(0, 0)->buf + 1560, buffer_.data() + 506, 494, 0));
}

TEST_P(SglCopyEntry, its_line_is_not_limited)
{
    fake_fail_always(OP_memcpy_s);

    EXPECT_NOT_LIMITED(copy(0, 100), failed_text(page_.entry(0, 0)->buf, buffer_.data(), 100, 0));
}

TEST_P(SglCopyEntry, a_failure_keeps_the_sectors_before_it_whichever_fails)
{
    for_each_fault(OP_memcpy_s, [this](const fault &f) {
        page_                 = page_chain({1});
        buffer_               = pattern(8192, 40);
        const bytes memory    = page_.memory(0, 0);
        const bytes given     = buffer_;
        bytes expected_memory = memory;
        bytes expected_buffer = given;

        const int32_t status = copy(0, 8192);

        EXPECT_EQ(status, f.hit ? -1 : 0);
        const long done = f.hit ? long(f.nth) - 1 : 16;
        for (long sector = 0; sector < done; ++sector) {
            if (GetParam().into)
                std::copy_n(given.begin() + sector * 512, 512,
                            expected_memory.begin() + sector * 520);
            else
                std::copy_n(memory.begin() + sector * 520, 512,
                            expected_buffer.begin() + sector * 512);
        }
        EXPECT_EQ(page_.memory(0, 0), expected_memory);
        EXPECT_EQ(buffer_, expected_buffer);
    });
}
