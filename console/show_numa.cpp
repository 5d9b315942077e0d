/*
 * "umm show numa": what lies on each node, summed up and by pool.
 *
 * Pools without memory on a node are left out of the text's rows of that node.
 */
#include "commands.h"

#include "dbg_console.h"
#include "json_line.h"
#include "pool_json.h"
#include "pool_list.h"
#include "text_form.h"

namespace console
{

/* One node over all pools, in bytes. */
struct node_sum {
    uint64_t used, free, cached, memory;
    uint64_t pools; /* that have the node */
};

static void add_to(node_sum *sum, const zymm_node_record &node, uint64_t obj_size)
{
    sum->used += node.used * obj_size;
    sum->free += node.free * obj_size;
    sum->cached += node.cached * obj_size;
    sum->memory += node.bytes;
    sum->pools++;
}

static node_sum sum_of_node(pool_list *pools, uint32_t number)
{
    node_sum sum = {0, 0, 0, 0, 0};
    zymm_node_record node;
    for (const zymm_slab_record &record : *pools) {
        if (zymm_slab_node_get(record.handle, number, &node) == 0)
            add_to(&sum, node, record.obj_size);
    }
    return sum;
}

static void print_sums(pool_list *pools)
{
    DBG_PrintBuf("%-42s %8s %8s %8s %8s\n", "all pools", "used", "free", "cached", "memory");
    node_sum sum = sum_of_node(pools, 0);
    for (uint32_t number = 0; sum.pools != 0; sum = sum_of_node(pools, ++number))
        DBG_PrintBuf("%-42s %8s %8s %8s %8s\n", node_text(number).chars, size_text(sum.used).chars,
                     size_text(sum.free).chars, size_text(sum.cached).chars,
                     size_text(sum.memory).chars);
}

static void print_nodes_of(const zymm_slab_record &record)
{
    zymm_node_record node;
    for (uint32_t number = 0; zymm_slab_node_get(record.handle, number, &node) == 0; number++) {
        if (node.bytes == 0)
            continue;
        DBG_PrintBuf("%-31s %-10s %8lu %8lu %8lu %8s\n", label_of(record).chars,
                     node_text(number).chars, node.used, node.free, node.cached,
                     size_text(node.bytes).chars);
    }
}

void show_numa_text(int32_t, char **)
{
    pool_list pools(false);
    if (!pools.is_made()) {
        fail_without_memory();
        return;
    }
    print_sums(&pools);
    DBG_PrintBuf("\n%-31s %-10s %8s %8s %8s %8s\n", "pool, objects", "", "used", "free", "cached",
                 "memory");
    for (const zymm_slab_record &record : pools)
        print_nodes_of(record);
}

static void write_sum(json_line *line, uint32_t number, const node_sum &sum)
{
    line->open_object(nullptr);
    line->number("node", number);
    line->number("used_bytes", sum.used);
    line->number("free_bytes", sum.free);
    line->number("cached_bytes", sum.cached);
    line->number("memory_bytes", sum.memory);
    line->close_object();
}

void show_numa_json(int32_t, char **)
{
    pool_list pools(false);
    if (!pools.is_made()) {
        fail_without_memory();
        return;
    }
    json_line line("umm show numa");
    line.open_array("nodes");
    node_sum sum = sum_of_node(&pools, 0);
    for (uint32_t number = 0; sum.pools != 0; sum = sum_of_node(&pools, ++number))
        write_sum(&line, number, sum);
    line.close_array();
    line.open_array("pools");
    for (const zymm_slab_record &record : pools) {
        line.open_object(nullptr);
        line.text("name", record.name);
        line.handle("handle", record.handle);
        line.number("object_bytes", record.obj_size);
        write_nodes(&line, record.handle);
        line.close_object();
    }
    line.close_array();
}

} // namespace console
