/*
 * What can be asked about a slab: counts as a whole and by node, leaked objects, the node of an
 * object, what one object costs. A query that fails writes nothing; one that meets the destruction
 * of its slab either comes first or finds a stale handle.
 *
 * On a machine with one node, node 0 has everything: its total is the slab's. On several nodes any
 * of them may come to hold any object, so a node's total is what its memory holds by now.
 */
#include <string.h>

#include "zyax.h"
#include "zymm_address.h"
#include "zymm_handle.h"
#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_settings.h"
#include "zymm_slab.h"
#include "zymm_system.h"

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

static uint64_t total_of(const slab *s)
{
    return s->unlimited ? carved_of(s) : s->max_num;
}

int zymm_slab_get_usage_info(uint64_t handle, uint64_t *total, uint64_t *used)
{
    const query_guard alive;
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
    const query_guard alive;
    slab *s = slab_behind(handle, __func__);
    if (s == nullptr)
        return -1;
    if (usage == nullptr || numa_id >= s->depots) {
        ZYMM_ERROR(__func__, "slab %s: null usage (%p) or no node %u.", s->name,
                   static_cast<void *>(usage), numa_id);
        return -1;
    }
    depot *d = depot_of(s, numa_id);
    scoped_lock held(&d->lock);
    usage->total = s->depots == 1 ? total_of(s) : d->carved;
    usage->used = d->carved - d->free_count;
    usage->cached = 0;
    return 0;
}

struct leak_count {
    uint64_t now, age, count; /* ns, ns, objects */
};

static void count_leaked(void *context, const object_record *record)
{
    leak_count *leaks = static_cast<leak_count *>(context);
    const bool is_old = record->since <= leaks->now && leaks->now - record->since >= leaks->age;
    leaks->count += is_old ? 1 : 0;
}

uint64_t zymm_slab_get_leak_number(uint64_t handle)
{
    const query_guard alive;
    slab *s = slab_behind(handle, __func__);
    if (s == nullptr)
        return 0;
    leak_count leaks = {zyax_time_getnanosec(), leak_age_ns(), 0};
    slab_visit_out(s, count_leaked, &leaks);
    return leaks.count;
}

static bool is_object(piece *p, slab *s, const void *object)
{
    depot *d = depot_of(s, p->node);
    scoped_lock held(&d->lock);
    return record_at(p, object) != nullptr;
}

uint32_t zymm_object_get_numaid(uint64_t handle, const void *object)
{
    const query_guard alive;
    slab *s = slab_behind(handle, __func__);
    if (s == nullptr)
        return NO_NODE;
    piece *p = address_find(object);
    const bool is_own = p != nullptr && p->owner.load(std::memory_order_acquire) == s;
    if (!is_own || !is_object(p, s, object)) {
        ZYMM_ERROR(__func__, "slab %s: %p is no object of it.", s->name, object);
        return NO_NODE;
    }
    return p->node;
}

uint64_t zymm_object_whole_size_get(uint64_t size, uint32_t reserved, uint32_t align)
{
    if (size > UINT64_MAX / 4)
        return 0;
    const uint64_t stride = stride_of(size + reserved, align != 0 ? align : 8);
    if (stride == 0)
        return 0;
    const uint64_t piece_bytes = standard_piece_bytes(stride);
    const uint64_t objects = piece_bytes / stride;
    return round_up((piece_bytes + objects - 1) / objects + sizeof(object_record), 8);
}

int zymm_slab_facts_get(uint64_t handle, zymm_slab_facts *facts, const char *operation)
{
    const query_guard alive;
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
