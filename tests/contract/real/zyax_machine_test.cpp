/*
 * Facts about the machine that the tests run on: clocks, files, memory, NUMA nodes.
 */
#include "zyax.h"
#include "zyax_temp_folder.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

TEST(ZyaxClock, time_never_goes_back_and_a_jiffy_is_a_millisecond)
{
    uint64_t former = zyax_time_getnanosec();
    uint64_t steps_back = 0;
    for (int i = 0; i < 100000; ++i) {
        const uint64_t now = zyax_time_getnanosec();
        steps_back += now < former;
        former = now;
    }
    const uint64_t before = zyax_time_getnanosec() / 1000000;
    const uint64_t jiffies = zyax_get_jiffies();
    const uint64_t after = zyax_time_getnanosec() / 1000000;

    EXPECT_EQ(steps_back, 0u);
    EXPECT_GE(jiffies, before);
    EXPECT_LE(jiffies, after);
}

TEST(ZyaxClock, jiffies_move_on)
{
    const uint64_t start = zyax_get_jiffies();
    while (zyax_get_jiffies() == start)
        sched_yield();

    EXPECT_GT(zyax_get_jiffies(), start);
}

TEST(ZyaxAccess, a_file_exists_or_does_not)
{
    const temp_folder folder;
    const std::string file = folder.write("file", "text");

    EXPECT_EQ(zyax_access(file.c_str(), F_OK), 0);
    EXPECT_EQ(zyax_access(file.c_str(), R_OK | W_OK), 0);
    EXPECT_NE(zyax_access(folder.path("no_file").c_str(), F_OK), 0);
    EXPECT_NE(zyax_access("", F_OK), 0);
    EXPECT_NE(zyax_access(nullptr, F_OK), 0);
    EXPECT_EQ(chmod(file.c_str(), 0400), 0);
    EXPECT_NE(zyax_access(file.c_str(), X_OK), 0);
}

TEST(ZyaxMachine, total_memory_is_what_the_kernel_has)
{
    uint64_t bytes = 0;

    ASSERT_EQ(zyax_get_total_mem(&bytes), 0);
    EXPECT_EQ(bytes, uint64_t(sysconf(_SC_PHYS_PAGES)) * uint64_t(sysconf(_SC_PAGESIZE)));
    EXPECT_NE(zyax_get_total_mem(nullptr), 0);
}

TEST(ZyaxMachine, the_nodes_of_the_process_are_some_of_the_machines)
{
    uint64_t mask = 0;
    const uint32_t nodes = zyax_numam_num_get();

    ASSERT_GE(nodes, 1u);
    ASSERT_EQ(zyax_numam_proc_numamask_get(&mask), 0);
    EXPECT_NE(mask, 0u);
    EXPECT_LE(uint32_t(__builtin_popcountll(mask)), nodes);
    EXPECT_EQ(zyax_numam_status_get() != 0, nodes >= 2);
    EXPECT_NE(zyax_numam_proc_numamask_get(nullptr), 0);
}
