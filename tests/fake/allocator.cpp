/*
 * Allocator over a table of size classes. A block has its class's size; the classes have no limit
 * of their own here. The record's `instance` holds the number of the created instance.
 */
#include <algorithm>
#include <map>

#include "fake_local.h"

namespace
{

struct instance_record {
    uint64_t                    pool;    /* that encloses it, 0 = none */
    std::vector<zymm_slab_item> classes; /* by rising object size */
};

std::map<uint64_t, instance_record> &instances()
{
    static std::map<uint64_t, instance_record> *const all = new std::map<uint64_t, instance_record>;
    return *all;
}

uint64_t instance_of(const zymm_allocator *allocator)
{
    return allocator != nullptr ? reinterpret_cast<uint64_t>(allocator->instance) : 0;
}

bool is_created(const zymm_allocator *allocator)
{
    const fake::guard held(fake::state_mutex());
    return instances().count(instance_of(allocator)) != 0;
}

/* The smallest class that holds `size` bytes; false without an instance or such a class. */
bool find_class(uint64_t instance, uint64_t size, zymm_slab_item *found)
{
    const fake::guard held(fake::state_mutex());
    const auto        record = instances().find(instance);
    if (record == instances().end())
        return false;
    for (const zymm_slab_item &item : record->second.classes) {
        if (item.obj_size >= size) {
            *found = item;
            return true;
        }
    }
    return false;
}

int create(zymm_allocator *allocator, const char *name, const zymm_slab_item *table,
           uint32_t items, uint64_t pool, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_allocator_create, allocator, name,
                 fake::record_arg{table, items * sizeof *table}, items, pool, module_id, func);
    return c.answer<int>([&] {
        if (allocator == nullptr || table == nullptr || items == 0 || !fake::may_enclose(pool) ||
            is_created(allocator)) {
            fake::platform_line(ZYLOG_ERROR, "zymm_allocator_create", "an argument is bad.");
            return -1;
        }
        const uint64_t  instance = fake::new_block_owner();
        instance_record record{pool, {table, table + items}};
        std::sort(record.classes.begin(), record.classes.end(),
                  [](const auto &a, const auto &b) { return a.obj_size < b.obj_size; });
        allocator->instance = reinterpret_cast<void *>(instance);

        const fake::guard held(fake::state_mutex());
        instances()[instance] = std::move(record);
        return 0;
    });
}

void *alloc(zymm_allocator *allocator, uint64_t size, uint32_t module_id, const char *func,
            uint32_t line)
{
    fake::call c(OP_zymm_allocator_alloc, allocator, size, module_id, func, line);
    return c.answer<void *>([&]() -> void * {
        zymm_slab_item item;
        if (!find_class(instance_of(allocator), size, &item))
            return nullptr;
        return fake::take_block(instance_of(allocator), item.obj_size, item.align);
    });
}

int destroy(zymm_allocator *allocator, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_allocator_destroy, allocator, module_id, func);
    return c.answer<int>([&] {
        const uint64_t instance = instance_of(allocator);
        bool           erased   = false;
        {
            const fake::guard held(fake::state_mutex());
            erased = instances().erase(instance) != 0;
        }
        if (!erased) {
            fake::platform_line(ZYLOG_ERROR, "zymm_allocator_destroy", "there is no allocator.");
            return -1;
        }
        fake::end_block_owner(instance);
        allocator->instance = nullptr;
        return 0;
    });
}

int give_back(zymm_allocator *allocator, void *memory, uint32_t module_id, const char *func)
{
    fake::call c(OP_zymm_allocator_free, allocator, memory, module_id, func);
    return c.answer<int>([&] {
        const uint64_t instance = instance_of(allocator);
        if (instance != 0 && fake::block_owner_alive(instance) &&
            fake::give_block_back(instance, memory))
            return 0;
        fake::platform_line(ZYLOG_ERROR, "zymm_allocator_free", "block %p is not out.", memory);
        return -1;
    });
}

} // namespace

uint64_t fake::allocators_inside(uint64_t enclosing)
{
    uint64_t inside = 0;
    for (const auto &[instance, record] : instances())
        inside += record.pool == enclosing;
    return inside;
}

int zymm_allocator_init(zymm_allocator *allocator)
{
    fake::call c(OP_zymm_allocator_init, allocator);
    return c.answer<int>([&] {
        if (allocator == nullptr)
            return -1;
        *allocator = zymm_allocator{nullptr, create, alloc, destroy, give_back, {0, 0, 0}};
        return 0;
    });
}

uint64_t fake_allocators_alive()
{
    const fake::guard held(fake::state_mutex());
    return instances().size();
}
