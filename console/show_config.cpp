/*
 * "umm show config": the record of the configuration, and what it led to in the slab layer.
 *
 * The start writes the record before it is done and nobody later, but for the buffer pool's handle.
 */
#include "commands.h"

#include "dbg_console.h"
#include "json_line.h"
#include "text_form.h"
#include "zymm_host.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_buffer.h"

namespace console
{

enum : uint32_t { TRANSPORT_RDMA = 1 };

/* All that is shown, from where it is kept. */
struct seen_config {
    const cmm_config *counts;
    cmm_config_info info;
    zymm_settings settings;
    uint64_t creators;
    bool is_started;

    seen_config()
        : counts(&g_ucmm_config), info(), settings(),
          creators(__atomic_load_n(&g_cmm_part_creator, __ATOMIC_RELAXED)),
          is_started(__atomic_load_n(&g_cmm_init_count, __ATOMIC_RELAXED) > 0)
    {
        zyumm_cmm_config_info_get(&info);
        zymm_settings_get(&settings);
    }
    const char *transport() const
    {
        return info.rdma_flag == TRANSPORT_RDMA ? "rdma" : "tcp";
    }
};

/* ------------------------------------------------------------------ text */

static void print_fact(const char *name, const char *value)
{
    DBG_PrintBuf("%-22s%s\n", name, value[0] != '\0' ? value : "(none)");
}

static void print_counts(const char *name, uint32_t least, uint32_t most)
{
    DBG_PrintBuf("%-22s%u to %u\n", name, least, most);
}

static void print_quota(const char *name, const cmm_pool_info &pool)
{
    DBG_PrintBuf("%-22s%s at creation, %s at most, grows by %s\n", name,
                 size_text(pool.reserve_size).chars, size_text(pool.max_size).chars,
                 size_text(pool.extand_size).chars);
    DBG_PrintBuf("%-22smax_limit %lu, leak_rate %lu %%, dontfork %lu\n", "", pool.max_limit,
                 pool.leak_rate, pool.dontfork_flag);
}

static void print_setting(const char *name, uint32_t value, const char *zero)
{
    if (value == 0)
        DBG_PrintBuf("%-22s%s\n", name, zero);
    else
        DBG_PrintBuf("%-22s%u\n", name, value);
}

static void print_caches(const seen_config &seen)
{
    static const char of_platform[] = "the platform's default";
    DBG_PrintBuf("%-22s%s\n", "thread cache", size_text(seen.info.cache_size).chars);
    print_setting("cached pages", seen.settings.cache_page, of_platform);
    print_setting("cached up to 64 KiB", seen.settings.cache_inner_64k, of_platform);
    print_setting("cached above", seen.settings.cache_outer_64k, of_platform);
    print_setting("threads with pages", seen.settings.page_max_cache_threads, "all");
}

void show_config_text(int32_t, char **)
{
    const seen_config seen;
    print_fact("memory manager", seen.is_started ? "started" : "not started");
    print_fact("file", g_config_path);
    print_fact("process", g_proc_name);
    print_fact("cfg_path", g_cfg_path_absolute);
    print_fact("transport", seen.transport());
    print_counts("requests", seen.counts->req_min, seen.counts->req_max);
    print_counts("SGLs", seen.counts->sgl_min, seen.counts->sgl_max);
    print_counts("pages", seen.counts->page_min, seen.counts->page_max);
    DBG_PrintBuf("%-22s%s to %s\n", "pages in memory", size_text(seen.info.page_min_size).chars,
                 size_text(seen.info.page_max_size).chars);
    print_quota("normal_pool", seen.info.normal_pool);
    print_quota("io_pool", seen.info.io_pool);
    print_caches(seen);
    DBG_PrintBuf("%-22s%u\n", "core dump level", seen.settings.coredump_level);
    DBG_PrintBuf("%-22s0x%lx\n", "outside creators", seen.creators);
    DBG_PrintBuf("%-22s%lu s\n", "leak age", zymm_leak_age_get());
}

/* ------------------------------------------------------------------ JSON */

static void write_quota(json_line *line, const char *key, const cmm_pool_info &pool,
                        uint64_t handle)
{
    line->open_object(key);
    line->number("reserve_bytes", pool.reserve_size);
    line->number("max_bytes", pool.max_size);
    line->number("extend_bytes", pool.extand_size);
    line->number("fourth_bytes", pool.fourth_size);
    line->number("max_limit", pool.max_limit);
    line->number("leak_rate_percent", pool.leak_rate);
    line->number("dontfork", pool.dontfork_flag);
    line->handle("handle", handle);
    line->close_object();
}

static void write_counts(json_line *line, const seen_config &seen)
{
    line->number("req_min", seen.counts->req_min);
    line->number("req_max", seen.counts->req_max);
    line->number("sgl_min", seen.counts->sgl_min);
    line->number("sgl_max", seen.counts->sgl_max);
    line->number("page_min", seen.counts->page_min);
    line->number("page_max", seen.counts->page_max);
    line->number("page_min_bytes", seen.info.page_min_size);
    line->number("page_max_bytes", seen.info.page_max_size);
}

void show_config_json(int32_t, char **)
{
    const seen_config seen;
    json_line line("umm show config");
    line.claim("started", seen.is_started);
    line.text("file", g_config_path);
    line.text("process", g_proc_name);
    line.text("cfg_path", g_cfg_path_absolute);
    line.text("transport", seen.transport());
    write_counts(&line, seen);
    write_quota(&line, "normal_pool", seen.info.normal_pool, seen.counts->normal_pool.pool_handle);
    write_quota(&line, "io_pool", seen.info.io_pool, seen.counts->io_pool.pool_handle);
    line.number("thread_cache_bytes", seen.info.cache_size);
    line.number("cache_page", seen.settings.cache_page);
    line.number("cache_inner_64k", seen.settings.cache_inner_64k);
    line.number("cache_outer_64k", seen.settings.cache_outer_64k);
    line.number("page_max_cache_threads", seen.settings.page_max_cache_threads);
    line.number("coredump_level", seen.settings.coredump_level);
    line.number("creator_mask", seen.creators);
    line.number("leak_age_s", zymm_leak_age_get());
}

} // namespace console
