/*
 * What several commands write about a pool.
 */
#include "pool_json.h"

#include <stdio.h>

namespace console
{

void write_pool_name(json_line *line, const zymm_slab_record &record)
{
    line->text("name", record.name);
    line->handle("handle", record.handle);
    line->module(record.module_id);
    line->number("object_bytes", record.obj_size);
}

void write_pool(json_line *line, const zymm_slab_record &record)
{
    write_pool_name(line, record);
    line->claim("is_class", record.is_class != 0);
    line->number("whole_bytes", record.whole_size);
    line->number("used", record.used);
    line->number("total", record.total);
    if (record.unlimited != 0)
        line->none("max");
    else
        line->number("max", record.max_num);
    line->number("min", record.min_num);
    line->number("made", record.made);
    line->number("high_water", record.high_water);
    line->number("allocs", record.allocs);
    line->number("frees", record.frees);
    line->number("leaked", record.leaked);
    line->number("out_bytes", record.used * record.obj_size);
    line->number("leaked_bytes", record.leaked * record.obj_size);
    line->number("memory_bytes", record.bytes);
}

void write_nodes(json_line *line, uint64_t handle)
{
    line->open_array("nodes");
    zymm_node_record node;
    for (uint32_t number = 0; zymm_slab_node_get(handle, number, &node) == 0; number++) {
        line->open_object(nullptr);
        line->number("node", number);
        line->number("made", node.made);
        line->number("used", node.used);
        line->number("free", node.free);
        line->number("cached", node.cached);
        line->number("pieces", node.pieces);
        line->number("memory_bytes", node.bytes);
        line->close_object();
    }
    line->close_array();
}

small_text node_text(uint32_t number)
{
    small_text text;
    snprintf(text.chars, sizeof text.chars, "node %u", number);
    return text;
}

} // namespace console
