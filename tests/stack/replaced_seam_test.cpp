/*
 * A program that defines seam operations itself: the shared library must use the program's ones.
 */
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "node_process.h"

/* Visible, as the functions of a program are unless it is built like this project's tests. */
#define PROGRAMS_OWN extern "C" __attribute__((visibility("default")))

static std::atomic<uint32_t> lines_seen{0};
static std::atomic<uint32_t> copies_seen{0};

PROGRAMS_OWN int zylog_level_check(uint32_t, uint32_t)
{
    return 0;
}

PROGRAMS_OWN void zylog(uint32_t, uint32_t, const char *, uint32_t, const char *, uint32_t,
                        const char *, ...)
{
    lines_seen++;
}

PROGRAMS_OWN int memcpy_s(void *dst, size_t dst_max, const void *src, size_t count)
{
    copies_seen++;
    if (count > dst_max)
        return -1;
    memcpy(dst, src, count);
    return 0;
}

TEST(ReplacedSeam, the_library_calls_the_operations_that_the_program_defines)
{
    const config_directory config({64, 16, 8});

    ASSERT_EQ(cmm_module_init(), 0u);
    EXPECT_GT(lines_seen, 0u);
    EXPECT_GT(copies_seen, 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}
