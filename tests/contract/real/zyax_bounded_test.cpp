/*
 * Bounded functions at the edge of real memory: behind the bytes that they are given there is
 * nothing that may be touched.
 */
#include "bounded.h"

#include <gtest/gtest.h>

#include <string.h>
#include <sys/mman.h>

/* A page with an inaccessible one behind it. */
class BoundedAtTheEdge : public testing::Test
{
protected:
    void SetUp() override
    {
        m_page = mmap(nullptr, 2 * 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                      0);
        ASSERT_NE(m_page, MAP_FAILED);
        ASSERT_EQ(mprotect(end(), 4096, PROT_NONE), 0);
    }

    void TearDown() override
    {
        munmap(m_page, 2 * 4096);
    }

    char *end()
    {
        return static_cast<char *>(m_page) + 4096;
    }

    void *m_page = nullptr;
};

TEST_F(BoundedAtTheEdge, a_source_without_terminator_is_read_no_further_than_the_count)
{
    memcpy(end() - 4, "abcd", 4);
    char text[8];

    EXPECT_EQ(strncpy_s(text, sizeof(text), end() - 4, 4), 0);
    EXPECT_STREQ(text, "abcd");
}

TEST_F(BoundedAtTheEdge, a_source_is_read_no_further_than_the_destination_could_hold)
{
    memcpy(end() - 4, "abcd", 4);
    char text[4] = "xyz";

    EXPECT_NE(strncpy_s(text, sizeof(text), end() - 4, 100), 0);
    EXPECT_STREQ(text, "");
}

TEST_F(BoundedAtTheEdge, a_destination_is_filled_to_its_last_byte_and_no_further)
{
    EXPECT_EQ(memset_s(end() - 5, 5, 'q', 5), 0);
    EXPECT_EQ(strncpy_s(end() - 5, 5, "abcdefgh", 4), 0);
    EXPECT_STREQ(end() - 5, "abcd");
    EXPECT_EQ(snprintf_s(end() - 5, 5, 4, "%d", 1234), 4);
    EXPECT_STREQ(end() - 5, "1234");
    EXPECT_EQ(snprintf_s(end() - 5, 5, 100, "%d", 12345), -1);
    EXPECT_STREQ(end() - 5, "1234");
    EXPECT_EQ(memcpy_s(end() - 5, 5, "vwxyz", 5), 0);
    EXPECT_EQ(memcmp(end() - 5, "vwxyz", 5), 0);
}

TEST_F(BoundedAtTheEdge, a_refused_copy_touches_nothing)
{
    char bytes[8] = {};

    EXPECT_NE(memcpy_s(bytes, 8, end(), 9), 0);
    EXPECT_NE(memcpy_s(end(), 8, bytes, 9), 0);
    EXPECT_NE(memset_s(end(), 8, 0, 9), 0);
    EXPECT_EQ(memcpy_s(end(), 8, bytes, 0), 0);
    EXPECT_EQ(memset_s(end(), 8, 0, 0), 0);
}

TEST(Bounded, ranges_overlap_if_they_share_a_byte)
{
    char bytes[32] = {};

    EXPECT_NE(memcpy_s(bytes + 7, 8, bytes, 8), 0);
    EXPECT_NE(memcpy_s(bytes, 8, bytes + 7, 8), 0);
    EXPECT_NE(memcpy_s(bytes, 8, bytes, 8), 0);
    EXPECT_EQ(memcpy_s(bytes + 8, 8, bytes, 8), 0);
    EXPECT_EQ(memcpy_s(bytes, 8, bytes + 8, 8), 0);
    EXPECT_EQ(memcpy_s(bytes, 8, bytes, 0), 0);
    EXPECT_EQ(memcpy_s(bytes, 32, bytes + 8, 8), 0);
}
