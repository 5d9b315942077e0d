/*
 * What can be asked about a slab: counts as a whole and by node, leaked objects, the node of an
 * object, what one object costs. A query that fails writes nothing; one that meets the destruction
 * of its slab either comes first or finds a stale handle.
 *
 * On a machine with one node, node 0 has everything: its total is the slab's. On several nodes any
 * of them may come to hold any object, so a node's total is what its memory holds by now.
 */
#include <string.h>

#include "zymm_handle.h"
#include "zymm_holders.h"
#include "zymm_node.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_settings.h"
#include "zymm_slab.h"
#include "zymm_system.h"
#include "zymm_tick.h"

using namespace zymm;

enum : uint32_t { NO_NODE = 0xFFFFFFFF };

static slab *slab_behind(uint64_t handle, const char *operation)
{
    return static_cast<slab *>(handle_expect(handle, HANDLE_SLAB, operation, operation));
}

static uint64_t carved_of(const slab *s)
{
    return s->carved.load(std::memory_order_relaxed);
}

uint64_t zymm::total_of(const slab *s)
{
    return s->unlimited ? carved_of(s) : s->max_num;
}

int zymm_slab_get_usage_info(uint64_t handle, uint64_t *total, uint64_t *used)
{
    const gate_guard alive;
    slab *s = slab_behind(handle, __func__);
    if (s == nullptr)
        return -1;
    if (total == nullptr || used == nullptr) {
        ZYMM_ERROR(__func__, "slab %s: null pointer for total (%p) or used (%p).", s->name,
                   static_cast<void *>(total), static_cast<void *>(used));
        return -1;
    }
    *total = total_of(s);
    *used = slab_used(s);
    return 0;
}

int zymm_slab_get_usage_by_numa(uint64_t handle, uint32_t numa_id, zymm_numa_usage *usage)
{
    const gate_guard alive;
    slab *s = slab_behind(handle, __func__);
    if (s == nullptr)
        return -1;
    if (usage == nullptr || numa_id >= s->depots) {
        ZYMM_ERROR(__func__, "slab %s: null usage (%p) or no node %u.", s->name,
                   static_cast<void *>(usage), numa_id);
        return -1;
    }
    const uint64_t carved = depot_of(s, numa_id)->carved.load(std::memory_order_relaxed);
    usage->total = s->depots == 1 ? total_of(s) : carved;
    usage->used = slab_used_on(s, numa_id);
    usage->cached = slab_cached(s, numa_id);
    return 0;
}

struct leak_count {
    uint64_t age, count; /* ns, objects */
};

static void count_leaked(void *context, uint64_t tag)
{
    leak_count *leaks = static_cast<leak_count *>(context);
    leaks->count += is_leaked(tick_now() - tag_tick(tag), leaks->age) ? 1 : 0;
}

uint64_t zymm::slab_leaked(slab *s)
{
    leak_count leaks = {leak_age_ns(), 0};
    slab_visit_out(s, count_leaked, &leaks);
    return leaks.count;
}

uint64_t zymm_slab_get_leak_number(uint64_t handle)
{
    const gate_guard alive;
    slab *s = slab_behind(handle, __func__);
    return s != nullptr ? slab_leaked(s) : 0;
}

uint32_t zymm_object_get_numaid(uint64_t handle, const void *object)
{
    const gate_guard alive;
    slab *s = slab_behind(handle, __func__);
    if (s == nullptr)
        return NO_NODE;
    const object_place place = place_of(s, object);
    if (place.in == nullptr) {
        ZYMM_ERROR(__func__, "slab %s: %p is no object of it.", s->name, object);
        return NO_NODE;
    }
    return place.in->node;
}

uint64_t zymm_object_whole_size_get(uint64_t size, uint32_t reserved, uint32_t align)
{
    if (size > UINT64_MAX / 4)
        return 0;
    const uint64_t usable_align = align != 0 ? align : 8;
    if (stride_of(size + reserved, usable_align, false) == 0)
        return 0;
    const object_shape shape = shape_of(size + reserved, usable_align, false);
    const uint64_t tag = shape.tag_offset == 0 ? sizeof(object_tag) : 0;
    const uint64_t piece_bytes = standard_piece_bytes(shape.stride);
    const uint64_t objects = piece_bytes / shape.stride;
    const uint64_t side = tag + sizeof(std::atomic<uint32_t>);
    return round_up((piece_bytes + objects - 1) / objects + side, 8);
}

int zymm_slab_facts_get(uint64_t handle, zymm_slab_facts *facts, const char *operation)
{
    const gate_guard alive;
    slab *s = slab_behind(handle, operation);
    if (s == nullptr)
        return -1;
    memcpy(facts->name, s->name, sizeof facts->name);
    facts->obj_size = s->obj_size;
    facts->whole_size = zymm_object_whole_size_get(s->obj_size, 0, s->align);
    facts->min_num = s->min_num;
    facts->max_num = s->unlimited ? 0 : s->max_num;
    facts->total = total_of(s);
    facts->used = slab_used(s);
    facts->attr = s->attr;
    facts->module_id = s->module_id;
    facts->align = s->align;
    facts->unlimited = s->unlimited ? 1 : 0;
    facts->pad = 0;
    return 0;
}
