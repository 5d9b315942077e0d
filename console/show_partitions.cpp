/*
 * "umm show partitions": the structure partitions whose ids are taken.
 *
 * The ids are copied under the registry's lock, which is held for the scan alone; a pool behind an
 * id is asked for afterwards and may be gone, or not be there yet.
 */
#include "commands.h"

#include <initializer_list>

#include "block.h"
#include "dbg_console.h"
#include "json_line.h"
#include "text_form.h"
#include "zyax.h"
#include "zymm_host.h"
#include "zyumm_cmm.h"

namespace console
{

struct seen_partition {
    uint32_t id;
    bool has_pool;
    zymm_slab_record pool;
};

class partition_list
{
public:
    partition_list() : entries_(CMM_PART_ENTRIES)
    {
        if (!entries_.is_made())
            return;
        copy_ids();
        for (uint64_t at = 0; at < used_; at++)
            look_at_pool(&entries_[at]);
    }
    bool is_made() const
    {
        return entries_.is_made();
    }
    uint64_t count() const
    {
        return used_;
    }
    const seen_partition *begin()
    {
        return entries_.items();
    }
    const seen_partition *end()
    {
        return entries_.items() + used_;
    }

private:
    void copy_ids()
    {
        do_zyax_spinlock_lock(&g_cmm_part_lock, __func__, __LINE__);
        for (uint32_t id = 1; id <= CMM_PART_MAX_ID; id++) {
            if (g_cmm_part_s[id].part_id != 0)
                entries_[used_++].id = id;
        }
        do_zyax_spinlock_unlock(&g_cmm_part_lock);
    }
    static void look_at_pool(seen_partition *seen)
    {
        const cmm_partition *entry = get_cmm_partition_byid(int32_t(seen->id));
        const uint64_t pool = __atomic_load_n(&entry->pool, __ATOMIC_ACQUIRE);
        seen->has_pool = zymm_slab_record_get(pool, 0, &seen->pool) == 0;
    }

    block<seen_partition> entries_;
    uint64_t used_ = 0;
};

static void print_partition(const seen_partition &seen)
{
    if (!seen.has_pool) {
        DBG_PrintBuf("%4u (no pool)\n", seen.id);
        return;
    }
    DBG_PrintBuf("%4u %-31s %9lu %9lu ", seen.id, seen.pool.name, seen.pool.obj_size,
                 seen.pool.used);
    if (seen.pool.unlimited != 0)
        DBG_PrintBuf("%9s ", "no limit");
    else
        DBG_PrintBuf("%9lu ", seen.pool.total);
    DBG_PrintBuf("%s\n", module_text(seen.pool.module_id).chars);
}

void show_partitions_text(int32_t, char **)
{
    partition_list partitions;
    if (!partitions.is_made()) {
        fail_without_memory();
        return;
    }
    DBG_PrintBuf("%4s %-31s %9s %9s %9s %s\n", "id", "pool", "bytes", "used", "total", "module");
    for (const seen_partition &seen : partitions)
        print_partition(seen);
    DBG_PrintBuf("%s of %u.\n", count_text(partitions.count(), "partition").chars, CMM_PART_MAX_ID);
}

static void write_pool_of(json_line *line, const zymm_slab_record &pool)
{
    line->text("name", pool.name);
    line->handle("handle", pool.handle);
    line->module(pool.module_id);
    line->number("object_bytes", pool.obj_size);
    line->number("used", pool.used);
    line->number("total", pool.total);
}

static void write_no_pool(json_line *line)
{
    for (const char *key :
         {"name", "handle", "module_id", "module", "object_bytes", "used", "total"})
        line->none(key);
}

void show_partitions_json(int32_t, char **)
{
    partition_list partitions;
    if (!partitions.is_made()) {
        fail_without_memory();
        return;
    }
    json_line line("umm show partitions");
    line.number("count", partitions.count());
    line.open_array("partitions");
    for (const seen_partition &seen : partitions) {
        line.open_object(nullptr);
        line.number("id", seen.id);
        if (seen.has_pool)
            write_pool_of(&line, seen.pool);
        else
            write_no_pool(&line);
        line.close_object();
    }
    line.close_array();
}

} // namespace console
