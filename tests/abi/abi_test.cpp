/*
 * The layout of the shared records as a C++ compiler sees it, against the table and against C.
 *
 * A failed expectation prints the record and field; the table is short of a field when the bytes
 * between two of its rows cannot be padding.
 */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"
#include "zylog.h"
#include "bounded.h"
#include "dbg_console.h"

#include "abi_layout.h"

namespace {

#define RECORD ABI_RECORD_ROW
#define FIELD  ABI_FIELD_ROW
const std::vector<abi_row> rows_of_cpp = {
#include "abi_table.h"
};
#undef RECORD
#undef FIELD

const std::vector<abi_row> rows_of_c(abi_rows_of_c, abi_rows_of_c + abi_row_count_of_c);

std::string name_of(const abi_row &row)
{
    return std::string(row.record) + "." + row.field;
}

void expect_as_told(const std::vector<abi_row> &rows)
{
    for (const abi_row &row : rows) {
        EXPECT_EQ(row.offset, row.told_offset) << name_of(row);
        EXPECT_EQ(row.size, row.told_size) << name_of(row);
    }
}

/* Bytes between the end of the row before and this row, or the end of the record, that no field of
 * the table covers. Alignment explains at most 7. */
size_t bytes_before(const std::vector<abi_row> &rows, size_t index, size_t record)
{
    const bool first = index == record + 1;
    const size_t covered = first ? 0 : rows[index - 1].told_offset + rows[index - 1].told_size;
    const bool last = index == rows.size() || rows[index].field[0] == '\0';
    return (last ? rows[record].told_size : rows[index].told_offset) - covered;
}

} // namespace

TEST(Layout, every_field_lies_where_c_programs_expect_it)
{
    expect_as_told(rows_of_c);
}

TEST(Layout, every_field_lies_where_cpp_programs_expect_it)
{
    expect_as_told(rows_of_cpp);
}

TEST(Layout, c_and_cpp_agree_on_every_field)
{
    ASSERT_EQ(rows_of_c.size(), rows_of_cpp.size());
    for (size_t i = 0; i < rows_of_cpp.size(); ++i) {
        EXPECT_EQ(name_of(rows_of_c[i]), name_of(rows_of_cpp[i]));
        EXPECT_EQ(rows_of_c[i].offset, rows_of_cpp[i].offset) << name_of(rows_of_cpp[i]);
        EXPECT_EQ(rows_of_c[i].size, rows_of_cpp[i].size) << name_of(rows_of_cpp[i]);
    }
}

TEST(Layout, the_table_leaves_no_field_out)
{
    size_t record = 0;
    for (size_t i = 1; i <= rows_of_cpp.size(); ++i) {
        EXPECT_LT(bytes_before(rows_of_cpp, i, record), 8u)
            << "in " << rows_of_cpp[record].record << " before row " << i;
        if (i < rows_of_cpp.size() && rows_of_cpp[i].field[0] == '\0')
            record = i;
    }
}

TEST(Layout, constants_that_programs_have_built_in)
{
    EXPECT_EQ(CMM_OK, 0u);
    EXPECT_EQ(CMM_FAILURE, 0xFFFFFFFFu);
    EXPECT_EQ(CMM_MODULE_ID, 386u);
    EXPECT_EQ(CMM_PART_MAX_ID, 2047u);
    EXPECT_EQ(CMM_PART_ENTRIES, 2048u);
    EXPECT_EQ(CMM_CREATOR_PAGE, 1u);
    EXPECT_EQ(CMM_CREATOR_SGL, 2u);
    EXPECT_EQ(CMM_CREATOR_REQ, 4u);
    EXPECT_EQ(STRUCTURE_MEMPOOL_MAGIC, 0xABCABCu);
    EXPECT_EQ(CMM_PATH_SIZE, 4096u);
    EXPECT_EQ(CMM_PROC_NAME_SIZE, 32u);
    EXPECT_EQ(PAGE_SECTORS, 16u);
    EXPECT_EQ(PAGE_SECTOR_DATA_SIZE, 512u);
    EXPECT_EQ(PAGE_SECTOR_DIF_SIZE, 8u);
    EXPECT_EQ(PAGE_SECTOR_SIZE, 520u);
    EXPECT_EQ(PAGE_DATA_SIZE, 8192u);
    EXPECT_EQ(PAGE_SIZE_WITH_DIF, 8320u);
    EXPECT_EQ(PAGE_OBJECT_SIZE, 8376u);
    EXPECT_EQ(PAGE_FREE, 0u);
    EXPECT_EQ(PAGE_IN_USE, 1u);
    EXPECT_EQ(PAGE_IS_ZERO, 0x20u);
    EXPECT_EQ(PAGE_FULLY_VALID, 0xFFu);
    EXPECT_EQ(PAGE_RETRY_NOT_QUEUED, 0xFFFFFFFFu);
    EXPECT_EQ(PAGE_RETRY_TIMED_OUT, 0x80009301u);
    EXPECT_EQ(PAGE_TIMEOUT_NEVER, 0xFFFFFFFFu);
    EXPECT_EQ(PAGE_REQ_OUTPUT_SGL, 0u);
    EXPECT_EQ(PAGE_REQ_OUTPUT_PAGE, 1u);
    EXPECT_EQ(PAGE_EVICT_HANDLERS, 8u);
    EXPECT_EQ(SGL_MAX_ENTRY_NUM, 64u);
    EXPECT_EQ(SGL_OBJECT_SIZE, 1584u);
    EXPECT_EQ(CMM_REQ_OBJECT_SIZE, 768u);
    EXPECT_EQ(CMM_REQ_NOT_QUEUED, 0xABu);
    EXPECT_EQ(int(ZYLOG_FATAL), 2);
    EXPECT_EQ(int(ZYLOG_ERROR), 3);
    EXPECT_EQ(int(ZYLOG_WARNING), 4);
    EXPECT_EQ(int(ZYLOG_INFO), 6);
    EXPECT_EQ(int(ZYMM_SLAB_CACHED), 0x2);
    EXPECT_EQ(int(ZYMM_SLAB_NODUMP), 0x80);
    EXPECT_EQ(int(ZYMM_SLAB_NOFORK), 0x800);
}
