/*
 * The four copies between a buffer and a chain: what they share, tested for each of them, and the
 * examples of each measure. Copies of one entry are tested in sgl_copy_entry_test.cpp.
 */
#include <gtest/gtest.h>

#include <ostream>

#include "expect_log.h"

#include "chain_builder.h"

/* One of the four copies and what is its own. */
struct copier {
    const char *name;
    bool        into; /* the chain, out of the buffer */
    bool        data; /* measure */
    int32_t (*copy)(SGL *sgl, uint32_t offset, uint8_t *buffer, uint32_t length);
    const char *no_chain;
    const char *no_buffer;
    const char *not_found;
};

static const copier COPIERS[] = {
    {"copyDataFromBufferToSgl", true, false,
     [](SGL *sgl, uint32_t offset, uint8_t *buffer, uint32_t length) {
         return copyDataFromBufferToSgl(sgl, offset, buffer, length);
     },
     "[UMM_CMM] dstSgl is NULL", "[UMM_CMM] buffer is NULL",
     "[UMM_CMM] Get current sgl by buffer offset failed."},
    {"copyDataFromSglToBuffer", false, false,
     [](SGL *sgl, uint32_t offset, uint8_t *buffer, uint32_t length) {
         return copyDataFromSglToBuffer(sgl, offset, buffer, length);
     },
     "[UMM_CMM] srcSgl is NULL", "[UMM_CMM] buffer is NULL",
     "[UMM_CMM] Get current sgl by buffer offset failed."},
    {"copyDataFromBufferToSglIgnoreDif", true, true,
     [](SGL *sgl, uint32_t offset, uint8_t *buffer, uint32_t length) {
         return copyDataFromBufferToSglIgnoreDif(sgl, offset, buffer, length);
     },
     "[UMM_CMM] dstSgl is NULL.", "[UMM_CMM] buffer is NULL.",
     "[UMM_CMM] get current sgl by buffer offset failed."},
    {"copyDataFromSglToBufferIgnoreDif", false, true,
     [](SGL *sgl, uint32_t offset, uint8_t *buffer, uint32_t length) {
         return copyDataFromSglToBufferIgnoreDif(sgl, offset, buffer, length);
     },
     "[UMM_CMM] srcSgl is NULL.", "[UMM_CMM] buffer is NULL.",
     "[UMM_CMM] get current sgl by buffer offset failed."},
};

void PrintTo(const copier &c, std::ostream *out)
{
    *out << c.name;
}

class SglCopy : public testing::TestWithParam<copier>
{
  protected:
    /* All full-measure lines but none of the data measure's later ones are limited. */
    uint64_t lines_of_five() const
    {
        return GetParam().data ? 5 : 3;
    }

    int32_t copy(const test_chain &chain, uint32_t offset, bytes &buffer, size_t length) const
    {
        return GetParam().copy(chain.head(), offset, buffer.data(), uint32_t(length));
    }

    /* The bytes that offsets of this copy count, front to back. */
    std::vector<uint8_t *> places(const test_chain &chain) const
    {
        return GetParam().data ? chain.flat_data() : chain.flat();
    }

    /* Bytes that an entry of one sector counts in this copy's measure. */
    uint32_t sector() const
    {
        return GetParam().data ? 512 : 520;
    }

    std::string failed_text(const void *memory, const void *buffer, uint32_t len) const
    {
        const void *dst = GetParam().into ? memory : buffer;
        const void *src = GetParam().into ? buffer : memory;
        return text_of("[UMM_CMM] Copy data failed. dest(%p) src(%p) len(%u)", dst, src, len);
    }

    std::string failed_text(const void *memory, const void *buffer, uint32_t len,
                            uint32_t offset) const
    {
        return failed_text(memory, buffer, len) + text_of(" offset(%u)", offset);
    }
};

INSTANTIATE_TEST_SUITE_P(All, SglCopy, testing::ValuesIn(COPIERS),
                         [](const testing::TestParamInfo<copier> &tested) {
                             return std::string(tested.param.name);
                         });

static bytes values_at(const std::vector<uint8_t *> &places)
{
    bytes values;
    for (const uint8_t *place : places)
        values.push_back(*place);
    return values;
}

/* ------------------------------------------------------------------------ arguments */

TEST_P(SglCopy, a_null_chain_is_refused_before_a_null_buffer)
{
    EXPECT_EQ(GetParam().copy(nullptr, 0, nullptr, 1), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name, GetParam().no_chain);
}

TEST_P(SglCopy, a_null_buffer_is_refused_before_the_offset_is_looked_up)
{
    const test_chain chain = chain_of({{520}});

    EXPECT_EQ(GetParam().copy(chain.head(), 9999, nullptr, 1), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name, GetParam().no_buffer);
    EXPECT_EQ(fake_count(OP_memcpy_s), 0u);
}

TEST_P(SglCopy, the_line_of_a_null_chain_is_limited)
{
    EXPECT_LIMITED(GetParam().copy(nullptr, 0, nullptr, 1), GetParam().no_chain);
}

TEST_P(SglCopy, the_line_of_a_null_buffer_is_limited)
{
    const test_chain chain = chain_of({{520}});

    EXPECT_LIMITED(GetParam().copy(chain.head(), 0, nullptr, 1), GetParam().no_buffer);
}

TEST_P(SglCopy, the_total_length_is_refused_by_the_lookup_before_anything_is_copied)
{
    const test_chain chain = chain_of({{520}});
    bytes            buffer(4);

    EXPECT_EQ(copy(chain, sector(), buffer, 4), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name, GetParam().not_found);
    EXPECT_EQ(fake_count(OP_memcpy_s), 0u);
}

TEST_P(SglCopy, the_lookups_own_lines_come_first)
{
    const test_chain chain = chain_of({{520}});
    bytes            buffer(4);

    copy(chain, sector(), buffer, 4);

    if (GetParam().data) {
        ASSERT_EQ(fake_log().size(), 3u);
        EXPECT_EQ(fake_log()[0].func, "getCurrentSglByOffsetIgnoreDif");
        EXPECT_EQ(fake_log()[1].func, "cpmm_print_sgl_detail");
    } else {
        ASSERT_EQ(fake_log().size(), 2u);
        EXPECT_EQ(fake_log()[0].func, "getCurrentSglByOffset");
    }
}

TEST_P(SglCopy, the_line_of_an_offset_beyond_the_chain_is_limited_in_the_full_measure_only)
{
    const test_chain chain = chain_of({{520}});
    bytes            buffer(4);

    for (int i = 0; i < 5; ++i)
        copy(chain, sector(), buffer, 4);

    EXPECT_EQ(fake_log_count(GetParam().not_found), lines_of_five());
}

/* ------------------------------------------------------------------------ what moves */

/* Copies `length` bytes at `offset` and expects these bytes moved and no other changed. */
static void expect_exact_copy(const copier &c, const test_chain &chain,
                              const std::vector<uint8_t *> &places, uint32_t offset,
                              uint32_t length)
{
    const std::vector<uint8_t *> all = chain.flat();
    const bytes memory_before        = values_at(all);
    const bytes counted_before       = values_at(places);
    bytes       buffer               = pattern(length + 16, 777);
    const bytes buffer_before        = buffer;

    ASSERT_EQ(c.copy(chain.head(), offset, buffer.data() + 8, length), 0);

    bytes counted_expected = counted_before;
    bytes buffer_expected  = buffer_before;
    if (c.into)
        std::copy_n(buffer_before.begin() + 8, length, counted_expected.begin() + offset);
    else
        std::copy_n(counted_before.begin() + offset, length, buffer_expected.begin() + 8);
    EXPECT_EQ(values_at(places), counted_expected);
    EXPECT_EQ(buffer, buffer_expected);

    /* With the counted bytes put back, the rest must be as it was. */
    for (size_t i = 0; i < places.size(); ++i)
        *places[i] = counted_before[i];
    EXPECT_EQ(values_at(all), memory_before);
    EXPECT_NO_LINE();
}

TEST_P(SglCopy, bytes_inside_an_entry_move)
{
    const test_chain chain = chain_of({{1040}});

    expect_exact_copy(GetParam(), chain, places(chain), 10, 50);
}

TEST_P(SglCopy, a_whole_chain_moves)
{
    const test_chain chain = page_chain({2, 2});

    expect_exact_copy(GetParam(), chain, places(chain), 0, 4 * 16 * sector());
}

TEST_P(SglCopy, bytes_across_entries_and_sgls_move)
{
    const test_chain chain = chain_of({{520, 1040}, {520}, {1040}});

    expect_exact_copy(GetParam(), chain, places(chain), 100, sector() * 4);
}

TEST_P(SglCopy, sgls_without_entries_are_passed_over)
{
    const test_chain chain = chain_of({{520}, {}, {}, {520}, {}});

    expect_exact_copy(GetParam(), chain, places(chain), 100, sector() * 2 - 100);
}

TEST_P(SglCopy, a_copy_at_offset_0_passes_over_first_sgls_without_entries)
{
    const test_chain chain = chain_of({{}, {}, {520}, {520}});

    expect_exact_copy(GetParam(), chain, places(chain), 0, sector() + 1);
}

TEST_P(SglCopy, a_copy_that_ends_with_the_chain_is_complete)
{
    const test_chain chain = chain_of({{520, 520}});

    expect_exact_copy(GetParam(), chain, places(chain), 7, sector() * 2 - 7);
}

TEST_P(SglCopy, there_is_one_bounded_copy_of_the_pieces_own_size_for_each_piece)
{
    const test_chain chain = chain_of({{520}, {520}});
    bytes            buffer(sector());

    ASSERT_EQ(copy(chain, 100, buffer, sector()), 0);

    const std::vector<fake_call> copies = fake_calls(OP_memcpy_s);
    ASSERT_EQ(copies.size(), 2u);
    const uint64_t first  = reinterpret_cast<uint64_t>(chain.entry(0, 0)->buf) + 100;
    const uint64_t second = reinterpret_cast<uint64_t>(chain.entry(1, 0)->buf);
    const uint64_t flat   = reinterpret_cast<uint64_t>(buffer.data());
    const size_t   memory = GetParam().into ? 0 : 2;
    EXPECT_EQ(copies[0].args[memory].number, first);
    EXPECT_EQ(copies[0].args[1].number, sector() - 100);
    EXPECT_EQ(copies[0].args[2 - memory].number, flat);
    EXPECT_EQ(copies[0].args[3].number, sector() - 100);
    EXPECT_EQ(copies[1].args[memory].number, second);
    EXPECT_EQ(copies[1].args[1].number, 100u);
    EXPECT_EQ(copies[1].args[2 - memory].number, flat + sector() - 100);
    EXPECT_EQ(copies[1].args[3].number, 100u);
}

TEST_P(SglCopy, two_pages_take_one_copy_an_entry_or_a_sector)
{
    const test_chain chain = page_chain({2});
    bytes            buffer(2 * 8320);

    ASSERT_EQ(copy(chain, 0, buffer, 2 * 16 * sector()), 0);

    EXPECT_EQ(fake_count(OP_memcpy_s), GetParam().data ? 32u : 2u);
}

TEST_P(SglCopy, nothing_is_copied_in_entries_behind_the_last_piece)
{
    const test_chain chain = chain_of({{520, 520}, {520}});
    bytes            buffer(10);

    ASSERT_EQ(copy(chain, 0, buffer, 10), 0);

    EXPECT_EQ(fake_count(OP_memcpy_s), 1u);
}

/* ------------------------------------------------------------------------ no bytes */

TEST_P(SglCopy, no_bytes_are_one_copy_of_0_bytes_at_the_place)
{
    const test_chain chain = chain_of({{520}, {520}});
    bytes            buffer(1);

    EXPECT_EQ(copy(chain, sector() + 10, buffer, 0), 0);

    ASSERT_EQ(fake_count(OP_memcpy_s), 1u);
    const fake_call call = fake_last_call(OP_memcpy_s);
    EXPECT_EQ(call.args[GetParam().into ? 0 : 2].number,
              reinterpret_cast<uint64_t>(chain.entry(1, 0)->buf + 10));
    EXPECT_EQ(call.args[1].number, 0u);
    EXPECT_EQ(call.args[3].number, 0u);
    EXPECT_NO_LINE();
}

TEST_P(SglCopy, the_result_of_a_copy_of_no_bytes_is_that_copys)
{
    const test_chain chain = chain_of({{520}});
    bytes            buffer(1);
    fake_fail(OP_memcpy_s);

    EXPECT_EQ(copy(chain, 10, buffer, 0), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(chain.entry(0, 0)->buf + 10, buffer.data(), 0, 10));
}

TEST_P(SglCopy, no_bytes_beyond_the_chain_are_refused_by_the_lookup)
{
    const test_chain chain = chain_of({{520}});
    bytes            buffer(1);

    EXPECT_EQ(copy(chain, sector(), buffer, 0), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name, GetParam().not_found);
}

TEST_P(SglCopy, no_bytes_at_offset_0_pass_over_first_sgls_without_entries)
{
    const test_chain chain = chain_of({{}, {520}});
    bytes            buffer(1);

    EXPECT_EQ(copy(chain, 0, buffer, 0), 0);

    ASSERT_EQ(fake_count(OP_memcpy_s), 1u);
    EXPECT_EQ(fake_last_call(OP_memcpy_s).args[GetParam().into ? 0 : 2].number,
              reinterpret_cast<uint64_t>(chain.entry(1, 0)->buf));
}

TEST_P(SglCopy, no_bytes_of_a_chain_without_entries_succeed_with_nothing_touched)
{
    const test_chain chain = chain_of({{}, {}});
    bytes            buffer(1);

    EXPECT_EQ(copy(chain, 0, buffer, 0), 0);

    EXPECT_EQ(fake_count(OP_memcpy_s), 0u);
    EXPECT_NO_LINE();
}

TEST_P(SglCopy, one_byte_of_a_chain_without_entries_finds_the_chain_ended)
{
    const test_chain chain = chain_of({{}, {}});
    bytes            buffer(1);

    EXPECT_EQ(copy(chain, 0, buffer, 1), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name, "[UMM_CMM] Sgl error.");
    EXPECT_EQ(fake_count(OP_memcpy_s), 0u);
}

TEST_P(SglCopy, an_entry_without_bytes_takes_a_copy_of_0_bytes)
{
    const test_chain chain = chain_of({{0, 520}});
    bytes            buffer(10);

    EXPECT_EQ(copy(chain, 0, buffer, 10), 0);

    ASSERT_EQ(fake_count(OP_memcpy_s), 2u);
    EXPECT_EQ(fake_calls(OP_memcpy_s)[0].args[3].number, 0u);
    EXPECT_EQ(fake_calls(OP_memcpy_s)[1].args[3].number, 10u);
}

/* ------------------------------------------------------------------------ failures */

TEST_P(SglCopy, a_copy_from_the_last_entry_beyond_it_fails_with_the_entry_copied_to_its_end)
{
    const test_chain             chain = chain_of({{520}, {520}});
    const std::vector<uint8_t *> where = places(chain);
    bytes                        buffer = pattern(600, 5);

    EXPECT_EQ(copy(chain, sector() + 100, buffer, 600), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name, "[UMM_CMM] Sgl error.");
    const bytes tail = values_at(
        std::vector<uint8_t *>(where.begin() + sector() + 100, where.end()));
    EXPECT_EQ(tail.size(), sector() - 100);
    EXPECT_EQ(tail, bytes(buffer.begin(), buffer.begin() + sector() - 100));
}

TEST_P(SglCopy, a_chain_that_ends_in_sgls_without_entries_has_ended_too)
{
    const test_chain chain = chain_of({{520}, {}, {}});
    bytes            buffer(600);

    EXPECT_EQ(copy(chain, 0, buffer, 600), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name, "[UMM_CMM] Sgl error.");
}

TEST_P(SglCopy, the_line_of_a_chain_that_ended_is_limited_in_the_full_measure_only)
{
    const test_chain chain = chain_of({{520}});
    bytes            buffer(600);

    for (int i = 0; i < 5; ++i)
        copy(chain, 0, buffer, 600);

    EXPECT_EQ(fake_log_count("[UMM_CMM] Sgl error."), lines_of_five());
}

TEST_P(SglCopy, a_failed_first_piece_names_both_ends_its_length_and_its_offset)
{
    const test_chain chain = chain_of({{1040}});
    bytes            buffer(700);
    fake_fail(OP_memcpy_s);

    EXPECT_EQ(copy(chain, 300, buffer, 700), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(chain.entry(0, 0)->buf + 300, buffer.data(), 700, 300));
}

TEST_P(SglCopy, a_failed_first_piece_is_cut_to_its_entry)
{
    const test_chain chain = chain_of({{520}, {520}});
    bytes            buffer(900);
    fake_fail(OP_memcpy_s);

    EXPECT_EQ(copy(chain, 20, buffer, 900), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(chain.entry(0, 0)->buf + 20, buffer.data(), sector() - 20, 20));
}

TEST_P(SglCopy, a_failed_later_piece_names_both_ends_and_its_length)
{
    const test_chain chain = chain_of({{520}, {520}});
    bytes            buffer(1000);
    fake_fail(OP_memcpy_s, 2);

    EXPECT_EQ(copy(chain, 20, buffer, 900), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(chain.entry(1, 0)->buf, buffer.data() + sector() - 20,
                                 900 - (sector() - 20)));
}

TEST_P(SglCopy, in_the_data_measure_the_entry_copys_own_line_comes_first)
{
    const test_chain chain = chain_of({{1040}});
    bytes            buffer(100);
    fake_fail(OP_memcpy_s);

    copy(chain, 600, buffer, 100);

    /* Data byte 600 is byte 88 of the second sector, which starts at 520. */
    const char *entry_copy = GetParam().into ? "copyDataFromBufferToEntryIgnoreDif"
                                             : "copyDataFromEntryToBufferIgnoreDif";
    const std::string entry_line =
        failed_text(chain.entry(0, 0)->buf + 608, buffer.data(), 100, 88);
    if (GetParam().data) {
        ASSERT_EQ(fake_log().size(), 2u);
        EXPECT_EQ(fake_log()[0].func, entry_copy);
        EXPECT_EQ(fake_log()[0].text, entry_line);
    } else {
        EXPECT_EQ(fake_log().size(), 1u);
    }
    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(chain.entry(0, 0)->buf + 600, buffer.data(), 100, 600));
}

TEST_P(SglCopy, the_line_of_a_failed_first_piece_is_limited_in_the_full_measure_only)
{
    const test_chain chain = chain_of({{1040}});
    bytes            buffer(10);
    fake_fail_always(OP_memcpy_s);

    /* In the second sector, so that the entry copy's line is a different text. */
    for (int i = 0; i < 5; ++i)
        copy(chain, 600, buffer, 10);

    EXPECT_EQ(fake_log_count(failed_text(chain.entry(0, 0)->buf + 600, buffer.data(), 10, 600)),
              lines_of_five());
}

TEST_P(SglCopy, the_line_of_a_failed_later_piece_is_limited_in_the_full_measure_only)
{
    const test_chain chain = chain_of({{520}, {520}});
    bytes            buffer(1000);

    for (int i = 0; i < 5; ++i) {
        fake_fail(OP_memcpy_s, 2);
        copy(chain, 0, buffer, sector() + 1);
    }

    EXPECT_EQ(fake_log_count(failed_text(chain.entry(1, 0)->buf, buffer.data() + sector(), 1)),
              lines_of_five());
}

TEST_P(SglCopy, a_failure_keeps_the_pieces_before_it_whichever_piece_fails)
{
    for_each_fault(OP_memcpy_s, [this](const fault &f) {
        const test_chain             chain  = chain_of({{520, 520}, {}, {520, 520}});
        const std::vector<uint8_t *> where  = places(chain);
        const bytes                  before = values_at(where);
        bytes                        buffer = pattern(sector() * 4, 9);
        const bytes                  given  = buffer;

        const int32_t status = copy(chain, 0, buffer, sector() * 4);

        EXPECT_EQ(status, f.hit ? -1 : 0);
        const size_t done = f.hit ? (f.nth - 1) * sector() : sector() * 4;
        bytes        expected = GetParam().into ? before : given;
        const bytes &source   = GetParam().into ? given : before;
        std::copy_n(source.begin(), done, expected.begin());
        EXPECT_EQ(GetParam().into ? values_at(where) : buffer, expected);
        EXPECT_EQ(f.hit, f.nth <= 4);
    });
}

TEST_P(SglCopy, a_failure_names_the_piece_that_failed_whichever_it_is)
{
    for_each_fault(OP_memcpy_s, [this](const fault &f) {
        const test_chain chain = chain_of({{520, 520}, {520}});
        bytes            buffer(sector() * 3);
        fake_forget_log();

        copy(chain, 0, buffer, sector() * 3);

        if (f.hit && f.nth == 1) {
            EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                             failed_text(chain.entry(0, 0)->buf, buffer.data(), sector(), 0));
        } else if (f.hit) {
            const SGL_ENTRY *entry = f.nth == 2 ? chain.entry(0, 1) : chain.entry(1, 0);
            const uint8_t   *from  = buffer.data() + sector() * (f.nth - 1);
            EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                             failed_text(entry->buf, from, sector()));
        } else {
            EXPECT_NO_LINE();
        }
    });
}

TEST_P(SglCopy, an_entry_without_memory_is_a_failed_piece)
{
    const test_chain chain = chain_of({{520}, {520}});
    chain.entry(1, 0)->buf = nullptr;
    bytes buffer(1000);

    EXPECT_EQ(copy(chain, 0, buffer, sector() + 10), -1);

    EXPECT_LAST_LINE(ZYLOG_ERROR, GetParam().name,
                     failed_text(nullptr, buffer.data() + sector(), 10));
}

/* ------------------------------------------------------------------------ limiters */

/* Runs `copy` often enough that its limiter closes. */
static void exhaust_null_buffer_line(const copier &c, const test_chain &chain)
{
    for (int i = 0; i < 5; ++i)
        c.copy(chain.head(), 0, nullptr, 1);
}

TEST_P(SglCopy, no_other_copy_shares_its_limiters)
{
    const test_chain chain = chain_of({{520}});
    for (const copier &other : COPIERS)
        if (other.name != GetParam().name)
            exhaust_null_buffer_line(other, chain);
    fake_forget_log();

    GetParam().copy(chain.head(), 0, nullptr, 1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, GetParam().name, GetParam().no_buffer);
}

/* ------------------------------------------------------------------------ full measure */

TEST(SglCopyFull, two_pages_are_filled_completely_with_their_integrity_areas)
{
    const test_chain chain  = page_chain({64});
    const bytes      third  = chain.memory(0, 2);
    const bytes      buffer = pattern(8320 * 2, 3);

    EXPECT_EQ(copyDataFromBufferToSgl(chain.head(), 0, buffer.data(), 8320 * 2), 0);

    EXPECT_EQ(chain.memory(0, 0), bytes(buffer.begin(), buffer.begin() + 8320));
    EXPECT_EQ(chain.memory(0, 1), bytes(buffer.begin() + 8320, buffer.end()));
    EXPECT_EQ(chain.memory(0, 2), third);
}

TEST(SglCopyFull, two_pages_are_read_completely_with_their_integrity_areas)
{
    const test_chain chain = page_chain({64});
    bytes            buffer(8320 * 2);

    EXPECT_EQ(copyDataFromSglToBuffer(chain.head(), 0, buffer.data(), 8320 * 2), 0);

    EXPECT_EQ(bytes(buffer.begin(), buffer.begin() + 8320), chain.memory(0, 0));
    EXPECT_EQ(bytes(buffer.begin() + 8320, buffer.end()), chain.memory(0, 1));
}

TEST(SglCopyFull, an_overlap_of_buffer_and_chain_is_a_failed_piece)
{
    const test_chain chain = chain_of({{520}});
    uint8_t         *buf   = chain.entry(0, 0)->buf;

    EXPECT_EQ(copyDataFromBufferToSgl(chain.head(), 0, buf + 10, 100), -1);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "copyDataFromBufferToSgl",
                     text_of("[UMM_CMM] Copy data failed. dest(%p) src(%p) len(100) offset(0)",
                             static_cast<void *>(buf), static_cast<void *>(buf + 10)));
}

/* ------------------------------------------------------------------------ data measure */

/* Bytes [from, to) of an entry. */
static bytes slice(const test_chain &chain, size_t index, size_t from, size_t to)
{
    const bytes memory = chain.memory(0, index);
    return bytes(memory.begin() + long(from), memory.begin() + long(to));
}

TEST(SglCopyData, two_sectors_are_written_around_the_integrity_field_between_them)
{
    const test_chain chain  = page_chain({1});
    const bytes      before = chain.memory(0, 0);
    const bytes      buffer = pattern(1024, 3);

    EXPECT_EQ(copyDataFromBufferToSglIgnoreDif(chain.head(), 0, buffer.data(), 1024), 0);

    EXPECT_EQ(slice(chain, 0, 0, 512), bytes(buffer.begin(), buffer.begin() + 512));
    EXPECT_EQ(slice(chain, 0, 512, 520), bytes(before.begin() + 512, before.begin() + 520));
    EXPECT_EQ(slice(chain, 0, 520, 1032), bytes(buffer.begin() + 512, buffer.end()));
    EXPECT_EQ(slice(chain, 0, 1032, 8320), bytes(before.begin() + 1032, before.end()));
}

TEST(SglCopyData, a_hundred_bytes_at_500_are_twelve_of_one_sector_and_the_rest_of_the_next)
{
    const test_chain chain  = page_chain({1});
    const bytes      before = chain.memory(0, 0);
    const bytes      buffer = pattern(100, 3);

    EXPECT_EQ(copyDataFromBufferToSglIgnoreDif(chain.head(), 500, buffer.data(), 100), 0);

    EXPECT_EQ(slice(chain, 0, 0, 500), bytes(before.begin(), before.begin() + 500));
    EXPECT_EQ(slice(chain, 0, 500, 512), bytes(buffer.begin(), buffer.begin() + 12));
    EXPECT_EQ(slice(chain, 0, 512, 520), bytes(before.begin() + 512, before.begin() + 520));
    EXPECT_EQ(slice(chain, 0, 520, 608), bytes(buffer.begin() + 12, buffer.end()));
    EXPECT_EQ(slice(chain, 0, 608, 8320), bytes(before.begin() + 608, before.end()));
}

TEST(SglCopyData, a_hundred_bytes_at_500_are_read_around_the_integrity_field)
{
    const test_chain chain = page_chain({1});
    bytes            buffer(100);

    EXPECT_EQ(copyDataFromSglToBufferIgnoreDif(chain.head(), 500, buffer.data(), 100), 0);

    EXPECT_EQ(bytes(buffer.begin(), buffer.begin() + 12), slice(chain, 0, 500, 512));
    EXPECT_EQ(bytes(buffer.begin() + 12, buffer.end()), slice(chain, 0, 520, 608));
}

/* The integrity fields of an entry's 16 sectors, one behind the other. */
static bytes integrity_fields(const bytes &memory)
{
    bytes fields;
    for (long sector = 0; sector < 16; ++sector)
        fields.insert(fields.end(), memory.begin() + sector * 520 + 512,
                      memory.begin() + sector * 520 + 520);
    return fields;
}

TEST(SglCopyData, two_pages_of_data_leave_all_32_integrity_fields_alone)
{
    const test_chain chain         = page_chain({64});
    const bytes      fields_first  = integrity_fields(chain.memory(0, 0));
    const bytes      fields_second = integrity_fields(chain.memory(0, 1));
    const bytes      third         = chain.memory(0, 2);
    const bytes      buffer        = pattern(8192 * 2, 3);

    EXPECT_EQ(copyDataFromBufferToSglIgnoreDif(chain.head(), 0, buffer.data(), 8192 * 2), 0);

    EXPECT_EQ(integrity_fields(chain.memory(0, 0)), fields_first);
    EXPECT_EQ(integrity_fields(chain.memory(0, 1)), fields_second);
    EXPECT_EQ(chain.memory(0, 2), third);
    const bytes data = values_at(chain.flat_data());
    EXPECT_EQ(bytes(data.begin(), data.begin() + 8192 * 2), buffer);
}

TEST(SglCopyData, a_failure_inside_an_entry_keeps_the_sectors_before_it)
{
    for_each_fault(OP_memcpy_s, [](const fault &f) {
        const test_chain chain  = chain_of({{520 * 3}, {520 * 2}});
        const bytes      buffer = pattern(512 * 5, 4);
        const bytes      before = values_at(chain.flat_data());

        const int32_t status =
            copyDataFromBufferToSglIgnoreDif(chain.head(), 0, buffer.data(), 512 * 5);

        EXPECT_EQ(status, f.hit ? -1 : 0);
        const long done     = f.hit ? long(f.nth - 1) * 512 : 512 * 5;
        bytes      expected = before;
        std::copy_n(buffer.begin(), done, expected.begin());
        EXPECT_EQ(values_at(chain.flat_data()), expected);
    });
}

TEST(SglCopyData, the_chains_line_names_the_whole_piece_although_one_sector_failed)
{
    const test_chain chain  = chain_of({{520 * 3}});
    const bytes      buffer = pattern(512 * 3, 4);
    fake_fail(OP_memcpy_s, 3);

    EXPECT_EQ(copyDataFromBufferToSglIgnoreDif(chain.head(), 10, buffer.data(), 1500), -1);

    const uint8_t *buf = chain.entry(0, 0)->buf;
    ASSERT_EQ(fake_log().size(), 2u);
    EXPECT_EQ(fake_log()[0].text,
              text_of("[UMM_CMM] Copy data failed. dest(%p) src(%p) len(486) offset(0)",
                      static_cast<const void *>(buf + 1040),
                      static_cast<const void *>(buffer.data() + 1014)));
    EXPECT_EQ(fake_log()[1].text,
              text_of("[UMM_CMM] Copy data failed. dest(%p) src(%p) len(1500) offset(10)",
                      static_cast<const void *>(buf + 10),
                      static_cast<const void *>(buffer.data())));
}
