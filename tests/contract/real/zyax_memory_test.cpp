/*
 * Page protection on real pages.
 */
#include "zyax.h"

#include <gtest/gtest.h>

#include <string.h>
#include <sys/mman.h>

/* Three pages of zeroes; the middle one is the test's subject. */
class ZyaxMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        m_start = mmap(nullptr, 3 * 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                       0);
        ASSERT_NE(m_start, MAP_FAILED);
    }

    void TearDown() override
    {
        munmap(m_start, 3 * 4096);
    }

    char *byte(size_t at)
    {
        return static_cast<char *>(m_start) + at;
    }

    void *m_start = nullptr;
};

using ZyaxMemoryDeath = ZyaxMemory;

TEST_F(ZyaxMemoryDeath, a_write_to_a_protected_page_faults)
{
    ASSERT_EQ(zyax_setmemory_ro(byte(4096), 1), 0);

    EXPECT_DEATH(*byte(4096) = 1, "");
    EXPECT_DEATH(*byte(8191) = 1, "");
}

TEST_F(ZyaxMemory, a_protected_page_is_read_and_its_neighbours_are_written)
{
    ASSERT_EQ(zyax_setmemory_ro(byte(4096), 1), 0);

    EXPECT_EQ(*byte(4096), 0);
    *byte(4095) = 1;
    *byte(8192) = 2;
    EXPECT_EQ(*byte(4095), 1);
    EXPECT_EQ(*byte(8192), 2);
}

TEST_F(ZyaxMemory, an_unprotected_page_is_written_again)
{
    ASSERT_EQ(zyax_setmemory_ro(byte(4096), 1), 0);
    ASSERT_EQ(zyax_setmemory_rw(byte(4096), 1), 0);

    *byte(4096) = 3;
    EXPECT_EQ(*byte(4096), 3);
}

TEST_F(ZyaxMemoryDeath, the_count_is_in_pages)
{
    ASSERT_EQ(zyax_setmemory_ro(byte(0), 2), 0);

    EXPECT_DEATH(*byte(0) = 1, "");
    EXPECT_DEATH(*byte(8191) = 1, "");
    *byte(8192) = 4;
    EXPECT_EQ(*byte(8192), 4);
}

TEST_F(ZyaxMemory, an_address_inside_a_page_is_refused)
{
    EXPECT_LT(zyax_setmemory_ro(byte(1), 1), 0);
    EXPECT_LT(zyax_setmemory_rw(byte(4095), 1), 0);

    *byte(0) = 5;
    EXPECT_EQ(*byte(0), 5);
}

TEST_F(ZyaxMemory, null_and_unmapped_pages_are_refused)
{
    void *const below_everything = reinterpret_cast<void *>(4096);

    EXPECT_LT(zyax_setmemory_ro(nullptr, 1), 0);
    EXPECT_LT(zyax_setmemory_rw(nullptr, 1), 0);
    EXPECT_LT(zyax_setmemory_ro(below_everything, 1), 0);
}
