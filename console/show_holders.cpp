/*
 * "umm show holders <pool>" and "umm show leaks": call sites by what they hold.
 *
 * A pool may have tens of thousands of call sites; the largest 256 are enough for a person and for
 * a collector, and how many there are is said.
 */
#include "commands.h"

#include "dbg_console.h"
#include "json_line.h"
#include "pool_json.h"
#include "pool_list.h"
#include "text_form.h"

namespace console
{

enum : uint64_t { MOST_SITES = 256 };

static const char HOLDERS_USAGE[] = "umm show holders <pool>";

/* The sites of one pool; `is_found` is false when it went away or there is no memory. */
struct site_list {
    block<zymm_holder> sites;
    zymm_holder_sum sum;
    bool is_found;

    site_list(uint64_t handle, uint32_t which) : sites(MOST_SITES), sum(), is_found(false)
    {
        if (sites.is_made())
            is_found = zymm_slab_holders_get(handle, which, sites.items(), MOST_SITES, &sum) == 0;
    }
    uint64_t shown() const
    {
        return sum.sites < MOST_SITES ? sum.sites : uint64_t(MOST_SITES);
    }
};

static void print_sites(const zymm_slab_record &record, site_list *list)
{
    DBG_PrintBuf("%9s %9s %9s %9s  %-12s %s\n", "objects", "bytes", "leaked", "oldest(s)", "module",
                 "function:line");
    for (uint64_t at = 0; at < list->shown(); at++) {
        const zymm_holder &site = list->sites[at];
        DBG_PrintBuf("%9lu %9s %9lu %9lu  %-12s %s:%u\n", site.objects,
                     size_text(site.objects * record.obj_size).chars, site.leaked, site.oldest_s,
                     module_text(site.module_id).chars, site.func, site.line);
    }
    if (list->sum.sites > list->shown())
        DBG_PrintBuf("and %s.\n",
                     count_text(list->sum.sites - list->shown(), "further call site").chars);
    if (list->sum.ungrouped != 0)
        DBG_PrintBuf("and %s of call sites that were too many.\n",
                     count_text(list->sum.ungrouped, "object").chars);
}

static void write_sites(json_line *line, const zymm_slab_record &record, site_list *list)
{
    line->open_array("sites");
    for (uint64_t at = 0; at < list->shown(); at++) {
        const zymm_holder &site = list->sites[at];
        line->open_object(nullptr);
        line->module(site.module_id);
        line->text("function", site.func);
        line->number("line", site.line);
        line->number("objects", site.objects);
        line->number("bytes", site.objects * record.obj_size);
        line->number("oldest_age_s", site.oldest_s);
        line->number("leaked", site.leaked);
        line->close_object();
    }
    line->close_array();
}

/* ------------------------------------------------------------------ holders */

static void print_holders(const zymm_slab_record &record)
{
    site_list list(record.handle, ZYMM_HOLDERS_ALL);
    if (!list.is_found) {
        DBG_PrintBuf("%s, handle 0x%lx: gone, or no memory for its holders.\n",
                     label_of(record).chars, record.handle);
        return;
    }
    DBG_PrintBuf("%s, handle 0x%lx: %s out, %s, held by %s\n", label_of(record).chars,
                 record.handle, count_text(list.sum.objects, "object").chars,
                 size_text(list.sum.objects * record.obj_size).chars,
                 count_text(list.sum.sites, "call site").chars);
    if (list.sum.objects != 0)
        print_sites(record, &list);
}

void show_holders_text(int32_t count, char **words)
{
    const typed_pool typed(count, words, HOLDERS_USAGE);
    if (!typed.is_typed)
        return;
    pool_list pools(false, typed.text);
    if (!has_pools(&pools, typed))
        return;
    for (const zymm_slab_record &record : pools)
        print_holders(record);
}

static void write_holders(json_line *line, const zymm_slab_record &record)
{
    site_list list(record.handle, ZYMM_HOLDERS_ALL);
    if (!list.is_found)
        return;
    line->open_object(nullptr);
    write_pool_name(line, record);
    line->number("objects", list.sum.objects);
    line->number("bytes", list.sum.objects * record.obj_size);
    line->number("sites_total", list.sum.sites);
    line->number("ungrouped", list.sum.ungrouped);
    write_sites(line, record, &list);
    line->close_object();
}

void show_holders_json(int32_t count, char **words)
{
    const typed_pool typed(count, words, HOLDERS_USAGE);
    if (!typed.is_typed)
        return;
    pool_list pools(false, typed.text);
    if (!has_pools(&pools, typed))
        return;
    json_line line("umm show holders");
    line.number("leak_age_s", zymm_leak_age_get());
    line.open_array("pools");
    for (const zymm_slab_record &record : pools)
        write_holders(&line, record);
    line.close_array();
}

/* ------------------------------------------------------------------ leaks */

struct leak_sum {
    uint64_t objects, bytes, pools;
};

static leak_sum sum_leaks(pool_list *pools)
{
    leak_sum sum = {0, 0, 0};
    for (const zymm_slab_record &record : *pools) {
        sum.objects += record.leaked;
        sum.bytes += record.leaked * record.obj_size;
        sum.pools += record.leaked != 0 ? 1 : 0;
    }
    return sum;
}

static void print_leaks(const zymm_slab_record &record)
{
    site_list list(record.handle, ZYMM_HOLDERS_LEAKED);
    DBG_PrintBuf("%s, handle 0x%lx: %lu of %lu out, %s\n", label_of(record).chars, record.handle,
                 record.leaked, record.used, size_text(record.leaked * record.obj_size).chars);
    if (list.is_found)
        print_sites(record, &list);
}

void show_leaks_text(int32_t, char **)
{
    pool_list pools(true);
    if (!pools.is_made()) {
        fail_without_memory();
        return;
    }
    const leak_sum sum = sum_leaks(&pools);
    if (sum.objects == 0) {
        DBG_PrintBuf("No object is out for %lu s or more.\n", zymm_leak_age_get());
        return;
    }
    DBG_PrintBuf("%s out for %lu s or more, %s, of %s\n", count_text(sum.objects, "object").chars,
                 zymm_leak_age_get(), size_text(sum.bytes).chars,
                 count_text(sum.pools, "pool").chars);
    for (const zymm_slab_record &record : pools) {
        if (record.leaked != 0)
            print_leaks(record);
    }
}

static void write_leaks(json_line *line, const zymm_slab_record &record)
{
    site_list list(record.handle, ZYMM_HOLDERS_LEAKED);
    line->open_object(nullptr);
    write_pool_name(line, record);
    line->number("leaked", record.leaked);
    line->number("leaked_bytes", record.leaked * record.obj_size);
    write_sites(line, record, &list);
    line->close_object();
}

void show_leaks_json(int32_t, char **)
{
    pool_list pools(true);
    if (!pools.is_made()) {
        fail_without_memory();
        return;
    }
    const leak_sum sum = sum_leaks(&pools);
    json_line line("umm show leaks");
    line.number("leak_age_s", zymm_leak_age_get());
    line.number("leaked", sum.objects);
    line.number("leaked_bytes", sum.bytes);
    line.open_array("pools");
    for (const zymm_slab_record &record : pools) {
        if (record.leaked != 0)
            write_leaks(&line, record);
    }
    line.close_array();
}

} // namespace console
