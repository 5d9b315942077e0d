/*
 * The code behind memcpy_s: each kind of it that this processor has, for all sizes up to those that
 * the C library gets anyway, at all places in a cache line, against a plain copy.
 */
#include "bounded.h"
#include "zyax_copy.h"

#include <gtest/gtest.h>

#include <string.h>
#include <sys/mman.h>

#include <string>
#include <thread>
#include <vector>

static constexpr size_t LONGEST = 9000;
static constexpr size_t LINE = 64;
static constexpr size_t ROOM = LONGEST + 2 * LINE;

class ZyaxCopy : public testing::TestWithParam<const char *>
{
protected:
    void SetUp() override
    {
        if (zyax_copy_kernel_set(GetParam()) != 0)
            GTEST_SKIP() << "not on this processor, or not in a build with a sanitizer";
        ASSERT_STREQ(zyax_copy_kernel(), GetParam());
    }
};

INSTANTIATE_TEST_SUITE_P(Kernel, ZyaxCopy, testing::Values("libc", "sse2", "avx2", "avx512"),
                         [](const auto &test) { return std::string(test.param); });

/* Copies `count` bytes from one place in a line to another; true when nothing else has changed. */
static bool copies_just_that(const uint8_t *source, uint8_t *target, size_t from, size_t to,
                             size_t count)
{
    memset(target + to, 0x5a, count);
    if (memcpy_s(target + to, count, source + from, count) != 0)
        return false;
    const bool is_same = memcmp(target + to, source + from, count) == 0;
    const bool is_all = target[to + count] == 0xa5 && (to == 0 || target[to - 1] == 0xa5);
    memset(target + to, 0xa5, count);
    return is_same && is_all;
}

static std::vector<uint8_t> numbered(size_t count)
{
    std::vector<uint8_t> bytes(count);
    uint32_t state = 1;
    for (uint8_t &byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = uint8_t(state >> 24);
    }
    return bytes;
}

/* Where in their lines source and target begin, for a count: over 64 counts each of the one meets
 * each of the other, and the sizes that data consists of are tried at all of them. */
static bool copies_at_all_places(const uint8_t *source, uint8_t *target, size_t count)
{
    const bool is_usual = count % 520 == 0 || count % 512 <= 1 || count % 512 == 511;
    for (size_t to = 0; to < LINE; ++to) {
        for (size_t from = is_usual ? 0 : (to + count) % LINE; from < LINE;
             from += is_usual ? 1 : LINE) {
            if (!copies_just_that(source, target, from, to, count))
                return false;
        }
    }
    return true;
}

TEST_P(ZyaxCopy, copies_every_size_at_every_place_and_nothing_else)
{
    const std::vector<uint8_t> source = numbered(ROOM);
    std::vector<uint8_t> target(ROOM, 0xa5);

    for (size_t count = 0; count <= LONGEST; ++count)
        ASSERT_TRUE(copies_at_all_places(source.data(), target.data(), count)) << count;
}

/* Behind both ranges there is memory that may not be touched. */
TEST_P(ZyaxCopy, reads_and_writes_nothing_behind_the_ranges)
{
    constexpr size_t BLOCK = 12288;
    auto *block = static_cast<uint8_t *>(mmap(nullptr, 4 * BLOCK, PROT_READ | PROT_WRITE,
                                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(block, MAP_FAILED);
    ASSERT_EQ(mprotect(block + BLOCK, BLOCK, PROT_NONE), 0);
    ASSERT_EQ(mprotect(block + 3 * BLOCK, BLOCK, PROT_NONE), 0);
    uint8_t *const from_end = block + BLOCK;
    uint8_t *const to_end = block + 3 * BLOCK;

    for (size_t count = 0; count <= LONGEST; ++count) {
        const uint8_t mark = uint8_t(count);
        memset(from_end - count, mark, count);
        ASSERT_EQ(memcpy_s(to_end - count, count, from_end - count, count), 0);
        ASSERT_EQ(memcmp(to_end - count, from_end - count, count), 0) << count;
    }
    for (const size_t count : {size_t(512), size_t(513), size_t(8320)}) {
        ASSERT_EQ(memcpy_s(block + 2 * BLOCK, count, block, count), 0) << count;
        ASSERT_EQ(memcmp(block + 2 * BLOCK, block, count), 0) << count;
    }
    munmap(block, 4 * BLOCK);
}

TEST_P(ZyaxCopy, refuses_what_overlaps)
{
    std::vector<uint8_t> bytes(20000, 0x11);

    for (const size_t count : {size_t(511), size_t(512), size_t(513), size_t(8320), size_t(8321)}) {
        EXPECT_NE(memcpy_s(bytes.data() + count - 1, count, bytes.data(), count), 0);
        EXPECT_NE(memcpy_s(bytes.data(), count, bytes.data() + count - 1, count), 0);
        EXPECT_NE(memcpy_s(bytes.data(), count, bytes.data(), count), 0);
        EXPECT_NE(memcpy_s(bytes.data(), count - 1, bytes.data() + count, count), 0);
        EXPECT_EQ(memcpy_s(bytes.data() + count, count, bytes.data(), count), 0);
        EXPECT_EQ(memcpy_s(bytes.data(), count, bytes.data() + count, count), 0);
    }
}

TEST(ZyaxCopyChoice, some_code_is_in_use_from_the_start)
{
    const std::string name = zyax_copy_kernel();

    EXPECT_TRUE(name == "libc" || name == "sse2" || name == "avx2" || name == "avx512") << name;
    EXPECT_EQ(zyax_copy_kernel_set(name.c_str()), 0);
}

TEST(ZyaxCopyChoice, code_that_is_not_there_leaves_the_choice_as_it_was)
{
    ASSERT_EQ(zyax_copy_kernel_set("libc"), 0);

    EXPECT_EQ(zyax_copy_kernel_set("sse3"), -1);
    EXPECT_EQ(zyax_copy_kernel_set(nullptr), -1);
    EXPECT_STREQ(zyax_copy_kernel(), "libc");
}

/* Threads that copy meanwhile do so with the old code or with the new. */
TEST(ZyaxCopyChoice, may_change_while_others_copy)
{
    const std::string first = zyax_copy_kernel();
    const std::vector<uint8_t> source = numbered(8320);
    std::thread copier([&source] {
        std::vector<uint8_t> target(8320);
        for (int i = 0; i < 1000; ++i) {
            const size_t count = i % 2 == 0 ? 512 : 8320;
            ASSERT_EQ(memcpy_s(target.data(), count, source.data(), count), 0);
            ASSERT_EQ(memcmp(target.data(), source.data(), count), 0);
        }
    });

    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(zyax_copy_kernel_set(i % 2 == 0 ? "libc" : first.c_str()), 0);
    copier.join();
}
