/*
 * "umm show pools" and "umm show pool <name>".
 *
 * The list shows what an operator compares; the detail all that is known. Size classes of an
 * allocator that never had an object are left out of the list's text, and counted: there are 141 of
 * them beside a buffer pool.
 */
#include "commands.h"

#include "dbg_console.h"
#include "json_line.h"
#include "pool_list.h"
#include "pool_json.h"
#include "text_form.h"
#include "zymm_host.h"

namespace console
{

/* ------------------------------------------------------------------ the list */

static bool is_idle_class(const zymm_slab_record &record)
{
    return record.is_class != 0 && record.made == 0;
}

static void print_row(const zymm_slab_record &record)
{
    DBG_PrintBuf("%-31s %9lu ", label_of(record).chars, record.used);
    if (record.unlimited != 0)
        DBG_PrintBuf("%9s ", "no limit");
    else
        DBG_PrintBuf("%9lu ", record.total);
    DBG_PrintBuf("%9lu %8lu %9s\n", record.high_water, record.leaked,
                 size_text(record.bytes).chars);
}

void show_pools_text(int32_t, char **)
{
    pool_list pools(true);
    if (!pools.is_made()) {
        fail_without_memory();
        return;
    }
    uint64_t bytes = 0;
    uint64_t idle = 0;
    DBG_PrintBuf("%-31s %9s %9s %9s %8s %9s\n", "pool", "used", "total", "high", "leaked",
                 "memory");
    for (const zymm_slab_record &record : pools) {
        bytes += record.bytes;
        if (is_idle_class(record))
            idle++;
        else
            print_row(record);
    }
    if (idle != 0)
        DBG_PrintBuf("%lu further size %s never had an object.\n", idle,
                     idle == 1 ? "class" : "classes");
    DBG_PrintBuf("%s, %s for objects. Leaked: out for %lu s or more.\n",
                 count_text(pools.count(), "pool").chars, size_text(bytes).chars,
                 zymm_leak_age_get());
}

void show_pools_json(int32_t, char **)
{
    pool_list pools(true);
    if (!pools.is_made()) {
        fail_without_memory();
        return;
    }
    zymm_stats stats = {};
    zymm_stats_get(&stats);
    json_line line("umm show pools");
    line.number("leak_age_s", zymm_leak_age_get());
    line.number("mapped_bytes", stats.mapped);
    line.number("control_bytes", stats.control);
    line.open_array("pools");
    for (const zymm_slab_record &record : pools) {
        line.open_object(nullptr);
        write_pool(&line, record);
        line.close_object();
    }
    line.close_array();
}

/* ------------------------------------------------------------------ one pool */

static const char POOL_USAGE[] = "umm show pool <name>";

struct attribute_name {
    uint64_t bit;
    const char *name;
};

static const attribute_name s_attributes[] = {
    {ZYMM_RECORD_ATTR_CACHED, "cached"},         {ZYMM_RECORD_ATTR_NODUMP, "nodump"},
    {ZYMM_RECORD_ATTR_NOFORK, "nofork"},         {ZYMM_RECORD_ATTR_CLEARED, "cleared"},
    {ZYMM_RECORD_ATTR_LOCKED, "locked"},         {ZYMM_RECORD_ATTR_ONE_BLOCK, "one_block"},
    {ZYMM_RECORD_ATTR_HUGE_PAGES, "huge_pages"},
};

static void print_attributes(uint64_t attr)
{
    DBG_PrintBuf("  %-18s", "attributes");
    bool is_any = false;
    for (const attribute_name &each : s_attributes) {
        if ((attr & each.bit) == 0)
            continue;
        DBG_PrintBuf("%s%s", is_any ? ", " : "", each.name);
        is_any = true;
    }
    DBG_PrintBuf("%s\n", is_any ? "" : "none");
}

static void print_limit(const zymm_slab_record &record)
{
    if (record.unlimited != 0)
        DBG_PrintBuf("  %-18s%lu, no limit but memory\n", "used", record.used);
    else
        DBG_PrintBuf("  %-18s%lu of %lu, %s of objects\n", "used", record.used, record.max_num,
                     size_text(record.used * record.obj_size).chars);
}

static void print_nodes(uint64_t handle)
{
    zymm_node_record node;
    for (uint32_t number = 0; zymm_slab_node_get(handle, number, &node) == 0; number++)
        DBG_PrintBuf("  %-18s%lu used, %lu free (%lu in threads' caches), %s in %s\n",
                     node_text(number).chars, node.used, node.free, node.cached,
                     size_text(node.bytes).chars, count_text(node.pieces, "piece").chars);
}

static void print_pool(const zymm_slab_record &record)
{
    DBG_PrintBuf("%s, handle 0x%lx, module %s\n", record.name, record.handle,
                 module_text(record.module_id).chars);
    DBG_PrintBuf("  %-18s%lu bytes, %lu with all that one costs, aligned to %u%s\n", "object",
                 record.obj_size, record.whole_size, record.align,
                 record.is_class != 0 ? ", a size class" : "");
    print_attributes(record.attr);
    print_limit(record);
    DBG_PrintBuf("  %-18s%lu at least, %lu at most\n", "high-water mark", record.high_water,
                 record.made);
    DBG_PrintBuf("  %-18s%lu, backed from the start %lu\n", "objects made", record.made,
                 record.min_num);
    DBG_PrintBuf("  %-18s%lu, frees %lu\n", "allocations", record.allocs, record.frees);
    DBG_PrintBuf("  %-18s%lu, %s, out for %lu s or more\n", "leaked", record.leaked,
                 size_text(record.leaked * record.obj_size).chars, zymm_leak_age_get());
    print_nodes(record.handle);
}

void show_pool_text(int32_t count, char **words)
{
    const typed_pool typed(count, words, POOL_USAGE);
    if (!typed.is_typed)
        return;
    pool_list pools(true, typed.text);
    if (!has_pools(&pools, typed))
        return;
    for (const zymm_slab_record &record : pools)
        print_pool(record);
}

static void write_detail(json_line *line, const zymm_slab_record &record)
{
    line->number("align", record.align);
    line->open_array("attributes");
    for (const attribute_name &each : s_attributes) {
        if ((record.attr & each.bit) != 0)
            line->text(nullptr, each.name);
    }
    line->close_array();
    write_nodes(line, record.handle);
}

void show_pool_json(int32_t count, char **words)
{
    const typed_pool typed(count, words, POOL_USAGE);
    if (!typed.is_typed)
        return;
    pool_list pools(true, typed.text);
    if (!has_pools(&pools, typed))
        return;
    json_line line("umm show pool");
    line.number("leak_age_s", zymm_leak_age_get());
    line.open_array("pools");
    for (const zymm_slab_record &record : pools) {
        line.open_object(nullptr);
        write_pool(&line, record);
        write_detail(&line, record);
        line.close_object();
    }
    line.close_array();
}

} // namespace console
