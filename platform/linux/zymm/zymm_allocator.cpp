/*
 * Allocator over a table of size classes: one slab a class, made with the allocator, without memory
 * until its first object (unless the table says how many to back).
 *
 *     item of the table     its slab
 *     obj_size, align       object size and alignment
 *     first                 min_num: objects backed at creation
 *     limit                 max_num
 *     class_word            bit 0x2: per-thread caches (ZYMM_SLAB_CACHED); other bits are not read
 *
 * A request takes the smallest class that is large enough. When that class is used up the request
 * fails: larger classes are not drawn on, so that their limits mean what the table says.
 *
 * A memory that comes back is found by its address; its slab says which allocator it belongs to.
 *
 * Threads: `alloc` and `free` by any thread at any time, they read the table only; `create` and
 * `destroy` by one thread with no other user.
 */
#include <algorithm>

#include "bounded.h"
#include "zymm_address.h"
#include "zymm_lock.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_store.h"
#include "zymm_system.h"

using namespace zymm;

struct allocator_body {
    void    *store_link;
    char     name[32];
    slab   **classes; /* by object size, smallest first */
    uint64_t map_bytes;
    uint32_t count;
};

static control_store s_bodies = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};

static allocator_body *body_of(const zymm_allocator *allocator)
{
    return allocator != nullptr ? static_cast<allocator_body *>(allocator->instance) : nullptr;
}

static void release_body(allocator_body *body, const char *operation, const char *caller)
{
    for (uint32_t at = 0; at < body->count; at++)
        slab_destroy(body->classes[at], operation, caller);
    body->count = 0;
    system_unmap(body->classes, body->map_bytes);
    body->classes = nullptr;
    store_put(&s_bodies, body);
}

static allocator_body *make_body(const char *name, uint32_t items)
{
    allocator_body *body = static_cast<allocator_body *>(store_get(&s_bodies, sizeof *body));
    if (body == nullptr)
        return nullptr;
    const char *kept_name = name != nullptr ? name : "";
    strncpy_s(body->name, sizeof body->name, kept_name, sizeof body->name - 1);
    body->count = 0;
    body->map_bytes = items * sizeof(body->classes[0]);
    body->classes = static_cast<slab **>(system_map(body->map_bytes, PAGE_BYTES));
    if (body->classes != nullptr)
        return body;
    store_put(&s_bodies, body);
    return nullptr;
}

static bool add_class(allocator_body *body, const zymm_slab_item *item, uint64_t pool,
                      uint32_t module_id)
{
    slab_spec spec = {};
    spec.name = body->name;
    spec.attr = item->class_word & ZYMM_SLAB_CACHED;
    spec.obj_size = item->obj_size;
    spec.min_num = item->first;
    spec.max_num = item->limit;
    spec.pool_id = pool;
    spec.module_id = module_id;
    spec.align = item->align;
    spec.group = body;
    slab *s = slab_create(&spec, "zymm_allocator.create");
    if (s == nullptr)
        return false;
    body->classes[body->count++] = s;
    return true;
}

static bool is_smaller(const slab *a, const slab *b)
{
    return a->obj_size < b->obj_size;
}

static int allocator_create(zymm_allocator *allocator, const char *name,
                            const zymm_slab_item *table, uint32_t items, uint64_t pool,
                            uint32_t module_id, const char *func)
{
    const bool is_usable = allocator != nullptr && table != nullptr && items != 0;
    if (!is_usable || body_of(allocator) != nullptr) {
        ZYMM_ERROR("zymm_allocator.create", "%s: no allocator or table, or created already; %u %s.",
                   text_of(name), module_id, text_of(func));
        return -1;
    }
    allocator_body *body = make_body(name, items);
    if (body == nullptr) {
        ZYMM_ERROR("zymm_allocator.create", "%s: no memory, %u %s.", text_of(name), module_id,
                   text_of(func));
        return -1;
    }
    for (uint32_t at = 0; at < items; at++) {
        if (!add_class(body, &table[at], pool, module_id)) {
            release_body(body, "zymm_allocator.create", func);
            return -1;
        }
    }
    std::stable_sort(body->classes, body->classes + body->count, is_smaller);
    allocator->instance = body;
    return 0;
}

static bool is_too_small(const slab *s, uint64_t size)
{
    return s->obj_size < size;
}

static void *allocator_alloc(zymm_allocator *allocator, uint64_t size, uint32_t module_id,
                             const char *func, uint32_t line)
{
    const allocator_body *body = body_of(allocator);
    if (body == nullptr)
        return nullptr;
    slab **end = body->classes + body->count;
    slab **fitting = std::lower_bound(body->classes, end, size, is_too_small);
    return fitting != end ? slab_alloc(*fitting, module_id, func, line) : nullptr;
}

static int allocator_destroy(zymm_allocator *allocator, uint32_t module_id, const char *func)
{
    allocator_body *body = body_of(allocator);
    if (body == nullptr) {
        ZYMM_ERROR("zymm_allocator.destroy", "never created or destroyed already, caller %u %s.",
                   module_id, text_of(func));
        return -1;
    }
    allocator->instance = nullptr;
    release_body(body, "zymm_allocator.destroy", func);
    return 0;
}

static int allocator_free(zymm_allocator *allocator, void *memory, uint32_t module_id,
                          const char *func)
{
    const allocator_body *body = body_of(allocator);
    const piece *p = address_find(memory);
    slab *s = p != nullptr ? p->owner.load(std::memory_order_acquire) : nullptr;
    if (body == nullptr || s == nullptr || s->group != body) {
        ZYMM_ERROR("zymm_allocator.free", "%p is no memory of the allocator, freed by %u %s.",
                   memory, module_id, text_of(func));
        return -1;
    }
    return slab_free(s, memory, module_id, func, "zymm_allocator.free");
}

int zymm_allocator_init(zymm_allocator *allocator)
{
    if (allocator == nullptr) {
        ZYMM_ERROR(__func__, "allocator is null.");
        return -1;
    }
    *allocator = {nullptr,           allocator_create, allocator_alloc, allocator_destroy,
                  allocator_free, {0, 0, 0}};
    return 0;
}

uint64_t zymm_allocator_used(const zymm_allocator *allocator)
{
    const allocator_body *body = body_of(allocator);
    uint64_t used = 0;
    for (uint32_t at = 0; body != nullptr && at < body->count; at++)
        used += slab_used(body->classes[at]);
    return used;
}
