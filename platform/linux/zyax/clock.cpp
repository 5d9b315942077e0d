/*
 * Clocks and other plain facts about the machine.
 */
#include "zyax_local.h"

#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

uint64_t zyax_time_getnanosec(void)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1000000000 + uint64_t(now.tv_nsec);
}

uint64_t zyax_get_jiffies(void)
{
    return zyax_time_getnanosec() / 1000000;
}

int zyax_access(const char *path, int mode)
{
    if (path == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Access test of a null path.");
        return -1;
    }

    return access(path, mode);
}

int zyax_get_total_mem(uint64_t *bytes)
{
    if (bytes == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Total memory is asked for with a null result.");
        return -1;
    }

    struct sysinfo machine;
    if (sysinfo(&machine) != 0)
        return -1;
    *bytes = uint64_t(machine.totalram) * machine.mem_unit;
    return 0;
}

/* Nothing in this layer waits for it: each part gets ready on its first use. */
int zyax_Init(void)
{
    return 0;
}
