/*
 * Dumps of a slab to the debug console: its counts, and who holds its objects.
 *
 * The text is gathered by DBG_PrintBuf, so that what one command prints stays together. No lock is
 * held while it is printed; counts of a busy slab are of slightly different moments.
 */
#include "dbg_console.h"
#include "zymm_handle.h"
#include "zymm_holders.h"
#include "zymm_host.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"

using namespace zymm;

static void print_nodes(uint64_t handle)
{
    zymm_node_record counts;
    for (uint32_t node = 0; zymm_slab_node_get(handle, node, &counts) == 0; node++) {
        DBG_PrintBuf("  node %u: used %lu, free %lu (%lu in threads' caches), pieces %lu, "
                     "memory %lu bytes\n",
                     node, counts.used, counts.free, counts.cached, counts.pieces, counts.bytes);
    }
}

int zymm_slab_dump_usageinfo(uint64_t handle, uint32_t module_id, const char *func)
{
    zymm_slab_facts facts;
    if (zymm_slab_facts_get(handle, &facts, __func__) != 0)
        return -1;

    DBG_PrintBuf("slab %s (0x%lx) of module %u, asked by module %u %s\n", facts.name, handle,
                 facts.module_id, module_id, text_of(func));
    DBG_PrintBuf("  object size %lu, whole size %lu, align %u, attributes 0x%lx\n", facts.obj_size,
                 facts.whole_size, facts.align, facts.attr);
    DBG_PrintBuf("  min %lu, max %lu%s, total %lu, used %lu\n", facts.min_num, facts.max_num,
                 facts.unlimited != 0 ? " (no limit)" : "", facts.total, facts.used);
    print_nodes(handle);
    return 0;
}

static void print_groups(uint64_t obj_size, const holder_list *list)
{
    DBG_PrintBuf("%10s %14s %10s %10s  %s\n", "objects", "bytes", "oldest(s)", "module",
                 "function:line");
    for (uint64_t at = 0; at < list->used; at++) {
        const holder_group *group = &list->groups[at];
        DBG_PrintBuf("%10lu %14lu %10lu %10u  %s:%u\n", group->count, group->count * obj_size,
                     age_seconds(group->oldest), group->module_id, text_of(group->func),
                     group->line);
    }
    if (list->ungrouped != 0)
        DBG_PrintBuf("%10lu objects of further call sites\n", list->ungrouped);
}

/* Gathers who holds the slab's objects; false after an error line. */
static bool gather(uint64_t handle, holder_list *list, uint32_t module_id, const char *func,
                   const char *operation)
{
    const gate_guard alive;
    slab *s = static_cast<slab *>(handle_expect(handle, HANDLE_SLAB, operation, func));
    if (s == nullptr)
        return false;
    if (holders_gather(s, list))
        return true;
    ZYMM_ERROR(operation, "slab %s: no memory for the report, caller %u %s.", s->name, module_id,
               text_of(func));
    return false;
}

int zymm_slab_dump_detailinfo(uint64_t handle, uint32_t module_id, const char *func)
{
    zymm_slab_facts facts;
    holder_list list;
    if (zymm_slab_facts_get(handle, &facts, __func__) != 0 ||
        !gather(handle, &list, module_id, func, __func__))
        return -1;

    DBG_PrintBuf("slab %s (0x%lx): %lu objects out, held by %lu call sites\n", facts.name, handle,
                 list.objects, list.used);
    print_groups(facts.obj_size, &list);
    holders_release(&list);
    return 0;
}
