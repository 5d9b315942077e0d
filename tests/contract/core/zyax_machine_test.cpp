/*
 * Facts of the machine and the process that every platform answers in some consistent way.
 */
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

#include "zyax.h"
#include "zylog.h"

TEST(Clock, never_goes_back)
{
    const uint64_t nanosec = zyax_time_getnanosec();
    const uint64_t jiffies = zyax_get_jiffies();
    EXPECT_GE(zyax_time_getnanosec(), nanosec);
    EXPECT_GE(zyax_get_jiffies(), jiffies);
}

TEST(TotalMemory, is_known)
{
    uint64_t bytes = 0;
    EXPECT_EQ(zyax_get_total_mem(&bytes), 0);
    EXPECT_GT(bytes, uint64_t{1} << 20);
}

TEST(TotalMemory, needs_a_place_to_go)
{
    EXPECT_NE(zyax_get_total_mem(nullptr), 0);
}

TEST(FileTest, passes_for_what_exists_and_fails_for_what_does_not)
{
    EXPECT_EQ(zyax_access("/", F_OK), 0);
    EXPECT_NE(zyax_access("/no/such/file", F_OK), 0);
}

TEST(PageProtection, is_refused_for_an_unaligned_address)
{
    void *page = nullptr;
    ASSERT_EQ(posix_memalign(&page, 4096, 8192), 0);
    EXPECT_LT(zyax_setmemory_ro(static_cast<char *>(page) + 1, 1), 0);
    EXPECT_LT(zyax_setmemory_rw(static_cast<char *>(page) + 512, 1), 0);
    free(page);
}

TEST(PageProtection, is_given_and_taken_back)
{
    void *page = nullptr;
    ASSERT_EQ(posix_memalign(&page, 4096, 4096), 0);
    static_cast<char *>(page)[0] = 'x';
    EXPECT_EQ(zyax_setmemory_ro(page, 1), 0);
    EXPECT_EQ(static_cast<char *>(page)[0], 'x');
    EXPECT_EQ(zyax_setmemory_rw(page, 1), 0);
    static_cast<char *>(page)[0] = 'y';
    free(page);
}

TEST(ModuleName, is_never_null)
{
    EXPECT_NE(zyax_pid_get_name(0), nullptr);
    EXPECT_NE(zyax_pid_get_name(386), nullptr);
    EXPECT_NE(zyax_pid_get_name(0xFFFFFFFF), nullptr);
}

TEST(Numa, mask_names_at_least_one_node)
{
    uint64_t mask = 0;
    EXPECT_EQ(zyax_numam_proc_numamask_get(&mask), 0);
    EXPECT_NE(mask, 0u);
}

TEST(Numa, is_off_on_a_machine_of_one_node)
{
    EXPECT_EQ(zyax_numam_num_get() < 2, zyax_numam_status_get() == 0);
}

TEST(LogLevel, of_errors_is_enabled_from_the_start)
{
    EXPECT_EQ(zylog_level_check(386, ZYLOG_FATAL), 0);
    EXPECT_EQ(zylog_level_check(386, ZYLOG_ERROR), 0);
    EXPECT_EQ(zylog_level_check(386, ZYLOG_WARNING), 0);
}

TEST(LogLevel, of_mere_debugging_is_not)
{
    EXPECT_NE(zylog_level_check(386, 7), 0);
}
