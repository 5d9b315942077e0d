/*
 * Dumps of a slab to the debug console: its counts, and who holds its objects.
 *
 * The text is gathered by DBG_PrintBuf, so that what one command prints stays together. No lock is
 * held while it is printed; counts of a busy slab are of slightly different moments.
 */
#include "dbg_console.h"
#include "zymm_handle.h"
#include "zymm_holders.h"
#include "zymm_lock.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"

using namespace zymm;

static slab *slab_behind(uint64_t handle, const char *operation, const char *caller)
{
    return static_cast<slab *>(handle_expect(handle, HANDLE_SLAB, operation, caller));
}

static void print_node(slab *s, uint32_t node)
{
    depot *d = depot_of(s, node);
    uint64_t carved = 0;
    uint64_t free_count = 0;
    uint64_t pieces = 0;
    uint64_t bytes = 0;
    {
        scoped_lock held(&d->lock);
        carved = d->carved;
        free_count = d->free_count;
        for (const piece *p = d->first; p != nullptr; p = p->next) {
            pieces++;
            bytes += p->bytes;
        }
    }
    DBG_PrintBuf("  node %u: used %lu, free %lu, pieces %lu, memory %lu bytes\n", node,
                 carved - free_count, free_count, pieces, bytes);
}

int zymm_slab_dump_usageinfo(uint64_t handle, uint32_t module_id, const char *func)
{
    slab *s = slab_behind(handle, __func__, func);
    zymm_slab_facts facts;
    if (s == nullptr || zymm_slab_facts_get(handle, &facts, __func__) != 0)
        return -1;

    DBG_PrintBuf("slab %s (0x%lx) of module %u, asked by module %u %s\n", facts.name, handle,
                 facts.module_id, module_id, text_of(func));
    DBG_PrintBuf("  object size %lu, whole size %lu, align %u, attributes 0x%lx\n", facts.obj_size,
                 facts.whole_size, s->align, s->attr);
    DBG_PrintBuf("  min %lu, max %lu%s, total %lu, used %lu\n", facts.min_num, facts.max_num,
                 s->unlimited ? " (no limit)" : "", facts.total, facts.used);
    for (uint32_t node = 0; node < s->depots; node++)
        print_node(s, node);
    return 0;
}

static void print_groups(const slab *s, const holder_list *list)
{
    DBG_PrintBuf("%10s %14s %10s %10s  %s\n", "objects", "bytes", "oldest(s)", "module",
                 "function:line");
    for (uint64_t at = 0; at < list->used; at++) {
        const holder_group *group = &list->groups[at];
        DBG_PrintBuf("%10lu %14lu %10lu %10u  %s:%u\n", group->count, group->count * s->obj_size,
                     age_seconds(group->oldest), group->module_id, text_of(group->func),
                     group->line);
    }
    if (list->ungrouped != 0)
        DBG_PrintBuf("%10lu objects of further call sites\n", list->ungrouped);
}

int zymm_slab_dump_detailinfo(uint64_t handle, uint32_t module_id, const char *func)
{
    slab *s = slab_behind(handle, __func__, func);
    if (s == nullptr)
        return -1;
    holder_list list;
    if (!holders_gather(s, &list)) {
        ZYMM_ERROR(__func__, "slab %s: no memory for the report, caller %u %s.", s->name, module_id,
                   text_of(func));
        return -1;
    }
    DBG_PrintBuf("slab %s (0x%lx): %lu objects out, held by %lu call sites\n", s->name, handle,
                 list.objects, list.used);
    print_groups(s, &list);
    holders_release(&list);
    return 0;
}
