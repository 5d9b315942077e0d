/*
 * A process that starts the library as any process does, on the Linux platform, and prints what it
 * found: the other side of an explanation.
 *
 *     <process name> DIRECTORY MEMORY ROOT NODES MASK          "-" = the machine's own
 *
 * It is run under the name that it is to be listed under. Facts of the node that the machine does
 * not have come from the operations that it defines itself; all else is the platform's. One line
 * each, key and value with a tab between.
 */
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

#include "zyax.h"
#include "zylog.h"

#define PROGRAMS_OWN extern "C" __attribute__((visibility("default")))

/* Lines of the platform's timer thread come when they come, and are no part of a start. */
static thread_local bool s_is_starter;

static const char *s_memory, *s_root, *s_nodes, *s_mask;

static std::vector<std::string> s_lines;
/* The document; of the log lines that follow, those are shown that are no mere information. */
static std::atomic<bool> s_is_read;

template <typename function>
static function platforms_own(function, const char *name)
{
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, name));
}

/* What stands in a damaged document may hold line breaks. */
static std::string one_line(std::string text)
{
    for (char &c : text)
        c = uint8_t(c) < ' ' ? '?' : c;
    return text;
}

static bool is_given(const char *argument)
{
    return strcmp(argument, "-") != 0;
}

PROGRAMS_OWN int zylog_level_check(uint32_t, uint32_t)
{
    return 0;
}

PROGRAMS_OWN void zylog(uint32_t module_id, uint32_t level, const char *, uint32_t, const char *,
                        uint32_t, const char *format, ...)
{
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    const char *start = strncmp(text, "[UMM_CMM] ", 10) == 0 ? text + 10 : text;
    const bool is_wanted = s_is_starter && (!s_is_read || level <= ZYLOG_WARNING);
    if (module_id == CMM_MODULE_ID && is_wanted)
        s_lines.push_back(std::to_string(level) + " " + one_line(start));
}

PROGRAMS_OWN int zyax_get_total_mem(uint64_t *bytes)
{
    /* The slab layer asks too when it makes the pools: for the machine on which it makes them. */
    if (!is_given(s_memory) || s_is_read)
        return platforms_own(zyax_get_total_mem, "zyax_get_total_mem")(bytes);
    *bytes = strtoull(s_memory, nullptr, 10);
    return 0;
}

PROGRAMS_OWN int zyax_cfg_init(const char *path, zyax_cfg **cfg)
{
    if (is_given(s_memory))
        return -1;
    const std::string place = (is_given(s_root) ? std::string(s_root) : "") + path;
    return platforms_own(zyax_cfg_init, "zyax_cfg_init")(place.c_str(), cfg);
}

PROGRAMS_OWN int zyax_numam_status_get(void)
{
    return atoi(s_nodes) >= 2;
}

PROGRAMS_OWN int zyax_numam_proc_numamask_get(uint64_t *mask)
{
    *mask = strtoull(s_mask, nullptr, 10);
    return 0;
}

PROGRAMS_OWN uint32_t zyax_numam_num_get(void)
{
    return uint32_t(atoi(s_nodes));
}

PROGRAMS_OWN void zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                                          uint32_t page_max_cache_threads)
{
    printf("cache page\t%u\ncache 64K_inner\t%u\ncache 64K_outer\t%u\ncache page threads\t%u\n",
           page, inner_64k, outer_64k, page_max_cache_threads);
    platforms_own(zymm_pool_cache_num_set, "zymm_pool_cache_num_set")(page, inner_64k, outer_64k,
                                                                      page_max_cache_threads);
}

PROGRAMS_OWN void zymm_numa_coredump_level_set(uint32_t level)
{
    s_is_read = true;
    platforms_own(zymm_numa_coredump_level_set, "zymm_numa_coredump_level_set")(level);
}

static void print_quota(const char *name, const cmm_pool_quota &quota)
{
    printf("%s.reserve_size\t%lu\n%s.max_size\t%lu\n%s.extand_size\t%lu\n", name,
           quota.reserve_size, name, quota.max_size, name, quota.extand_size);
    printf("%s.max_limit\t%lu\n%s.leak_rate\t%lu\n%s.dontfork_flag\t%lu\n", name, quota.max_limit,
           name, quota.leak_rate, name, quota.dontfork_flag);
}

static void print_record(const cmm_config &config)
{
    printf("rdma_flag\t%u\ncache_size\t%u\ncoredump_level\t%u\n", config.rdma_flag,
           config.cache_size, config.coredump_level);
    print_quota("normal_pool", config.normal_pool);
    print_quota("io_pool", config.io_pool);
    printf("req_min\t%u\nreq_max\t%u\n", config.req_min, config.req_max);
    printf("sgl_min\t%u\nsgl_max\t%u\n", config.sgl_min, config.sgl_max);
    printf("page_min\t%u\npage_max\t%u\n", config.page_min, config.page_max);
    printf("cfg_path\t%s\n", one_line(g_cfg_path_absolute).c_str());
}

static void print_pool(uint64_t handle)
{
    zyumm_partition_info info = {};
    if (handle != 0 && zyumm_partition_info_get(handle, &info) == 0)
        printf("pool %s\t%lu bytes, %lu whole, %lu to %lu\n", info.name, info.obj_size,
               info.whole_size, info.min_num, info.max_num);
}

int main(int count, char **arguments)
{
    if (count != 6)
        return 1;
    s_memory = arguments[2];
    s_root = arguments[3];
    s_nodes = arguments[4];
    s_mask = arguments[5];

    if (zyumm_set_config_path(arguments[1], __func__, __LINE__) != CMM_OK)
        return 1;
    s_is_starter = true;
    const uint32_t status = cmm_module_init();
    s_is_starter = false;
    printf("start\t%u\n", status);
    print_record(g_ucmm_config);
    print_pool(g_req_partition_id);
    print_pool(g_sgl_partition_id);
    print_pool(s_page_partition_id);
    print_pool(s_page_request_id);
    for (const std::string &line : s_lines)
        printf("log\t%s\n", line.c_str());
    if (status == CMM_OK && cmm_module_exit() != CMM_OK)
        return 1;
    /* Not through the exit handlers: a thread of the platform may be on its way into its first line,
     * and what a sanitizer's runtime then holds for it looks like a leak. */
    fflush(stdout);
    _exit(0);
}
