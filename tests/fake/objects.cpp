/*
 * Pools of objects: what slabs and memory pools of the fake have in common.
 *
 * An object is a block of plain memory of exactly its size, so that a memory checker sees a write
 * past its end. A freed one goes on top of a stack and is the next to be handed out; its memory
 * and content stay until the pool is destroyed, because the library reads control records of freed
 * pages and tests do too. New objects carry a pattern instead of zeros.
 */
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "fake_local.h"

namespace
{

constexpr uint64_t NO_LIMIT = UINT64_MAX;

struct release {
    void operator()(void *block) const
    {
        free(block);
    }
};

struct object_pool {
    fake::pool_facts                           facts;
    uint64_t                                   limit = NO_LIMIT; /* set by a test */
    std::vector<std::unique_ptr<void, release>> blocks;
    std::set<const void *>                     known; /* all of the blocks */
    std::set<const void *>                     out;
    std::vector<void *>                        freed; /* the newest is handed out first */
};

struct objects_state {
    uint64_t                         next_handle = 0x10001;
    std::map<uint64_t, object_pool> pools;
    bool                             usage_set = false;
    fake::pool_counts                usage     = {0, 0};
};

objects_state &state()
{
    static objects_state *const objects = new objects_state;
    return *objects;
}

/* The pool of a handle, or null, with a line for a stale one. */
object_pool *find_pool(uint64_t handle, bool *stale)
{
    const auto found = state().pools.find(handle);
    *stale           = found == state().pools.end() && handle != 0;
    return found == state().pools.end() ? nullptr : &found->second;
}

void stale_line(uint64_t handle, const char *op)
{
    fake::platform_line(ZYLOG_ERROR, op, "handle %#lx is no slab or pool.", handle);
}

void foreign_line(const void *object, const char *op)
{
    fake::platform_line(ZYLOG_ERROR, op, "object %p is of another pool.", object);
}

void *carve(object_pool *pool)
{
    void *const object = fake::new_block(pool->facts.obj_size, pool->facts.align);
    pool->blocks.emplace_back(object);
    pool->known.insert(object);
    return object;
}

uint64_t limit_of(const object_pool &pool)
{
    const uint64_t own = pool.facts.unlimited ? NO_LIMIT : pool.facts.max_num;
    return own < pool.limit ? own : pool.limit;
}

void *take_locked(object_pool *pool)
{
    if (pool->out.size() >= limit_of(*pool))
        return nullptr;
    void *object = nullptr;
    if (pool->freed.empty()) {
        object = carve(pool);
    } else {
        object = pool->freed.back();
        pool->freed.pop_back();
    }
    if (pool->facts.clears)
        memset(object, 0, pool->facts.obj_size);
    pool->out.insert(object);
    return object;
}

enum class returned { TAKEN_BACK, FREE_ALREADY, FOREIGN };

returned give_back_locked(object_pool *pool, void *object)
{
    if (pool->out.erase(object) != 0) {
        pool->freed.push_back(object);
        return returned::TAKEN_BACK;
    }
    return pool->known.count(object) != 0 ? returned::FREE_ALREADY : returned::FOREIGN;
}

bool facts_are_good(const fake::pool_facts &facts)
{
    const bool power_of_two = facts.align != 0 && (facts.align & (facts.align - 1)) == 0;
    return facts.obj_size != 0 && power_of_two &&
           (facts.unlimited || facts.min_num <= facts.max_num);
}

} // namespace

uint64_t fake::new_handle()
{
    return state().next_handle++;
}

void *fake::new_block(uint64_t size, uint64_t align)
{
    void *block = nullptr;
    if (posix_memalign(&block, align < sizeof(void *) ? sizeof(void *) : align, size) != 0)
        abort();
    return memset(block, 0xA5, size);
}

uint64_t fake::objects_create(const pool_facts &facts, const char *op)
{
    if (!facts_are_good(facts)) {
        platform_line(ZYLOG_ERROR, op, "parameters of %s are bad.", facts.name.c_str());
        return 0;
    }

    const guard    held(state_mutex());
    const uint64_t handle = new_handle();
    state().pools[handle].facts = facts;
    return handle;
}

int fake::objects_destroy(uint64_t handle, bool only_when_empty, const char *op)
{
    bool     stale  = false;
    uint64_t out    = 0;
    bool     erased = false;
    {
        const guard        held(state_mutex());
        object_pool *const pool = find_pool(handle, &stale);
        if (pool != nullptr) {
            out    = pool->out.size();
            erased = out == 0 || !only_when_empty;
        }
        if (erased)
            state().pools.erase(handle);
    }
    if (stale)
        stale_line(handle, op);
    if (out != 0)
        platform_line(ZYLOG_WARNING, op, "%lu objects of handle %#lx are out.", out, handle);
    return erased ? 0 : -1;
}

void *fake::object_take(uint64_t handle, const char *op)
{
    bool  stale  = false;
    void *object = nullptr;
    {
        const guard        held(state_mutex());
        object_pool *const pool = find_pool(handle, &stale);
        if (pool != nullptr)
            object = take_locked(pool);
    }
    if (stale)
        stale_line(handle, op);
    return object;
}

int fake::object_give_back(uint64_t handle, void *object, const char *op)
{
    bool     stale  = false;
    returned result = returned::FOREIGN;
    {
        const guard        held(state_mutex());
        object_pool *const pool = find_pool(handle, &stale);
        if (pool != nullptr)
            result = give_back_locked(pool, object);
    }
    if (handle == 0)
        return -1;
    if (stale)
        stale_line(handle, op);
    else if (result == returned::FREE_ALREADY)
        platform_line(ZYLOG_ERROR, op, "object %p is free already.", object);
    else if (result == returned::FOREIGN)
        foreign_line(object, op);
    return result == returned::TAKEN_BACK ? 0 : -1;
}

bool fake::objects_counts(uint64_t handle, pool_counts *counts, const char *op)
{
    bool stale = false;
    {
        const guard              held(state_mutex());
        const object_pool *const pool = find_pool(handle, &stale);
        if (handle != 0 && state().usage_set) {
            *counts = state().usage;
            return true;
        }
        if (pool != nullptr) {
            const uint64_t carved = std::max<uint64_t>(pool->blocks.size(), pool->facts.min_num);
            *counts = {pool->facts.unlimited ? carved : pool->facts.max_num, pool->out.size()};
            return true;
        }
    }
    if (stale)
        stale_line(handle, op);
    return false;
}

bool fake::objects_facts(uint64_t handle, pool_facts *facts, const char *op)
{
    bool stale = false;
    {
        const guard              held(state_mutex());
        const object_pool *const pool = find_pool(handle, &stale);
        if (pool != nullptr) {
            *facts = pool->facts;
            return true;
        }
    }
    if (stale)
        stale_line(handle, op);
    return false;
}

bool fake::object_is_of(uint64_t handle, const void *object, const char *op)
{
    bool stale = false;
    bool found = false;
    {
        const guard              held(state_mutex());
        const object_pool *const pool = find_pool(handle, &stale);
        found = pool != nullptr && pool->known.count(object) != 0;
    }
    if (stale)
        stale_line(handle, op);
    else if (!found && handle != 0)
        foreign_line(object, op);
    return found;
}

bool fake::usage_is_set()
{
    const guard held(state_mutex());
    return state().usage_set;
}

uint64_t fake::slabs_inside(uint64_t enclosing)
{
    uint64_t inside = 0;
    for (const auto &[handle, pool] : state().pools)
        inside += pool.facts.enclosing == enclosing;
    return inside;
}

uint64_t fake_objects_out()
{
    const fake::guard held(fake::state_mutex());
    uint64_t          out = fake::blocks_out();
    for (const auto &[handle, pool] : state().pools)
        out += pool.out.size();
    return out;
}

uint64_t fake_objects_out(uint64_t handle)
{
    const fake::guard held(fake::state_mutex());
    const auto        found = state().pools.find(handle);
    return found == state().pools.end() ? fake::blocks_out(handle) : found->second.out.size();
}

uint64_t fake_handles_alive()
{
    const fake::guard held(fake::state_mutex());
    return state().pools.size() + fake::enclosing_pools_alive();
}

bool fake_handle_alive(uint64_t handle)
{
    const fake::guard held(fake::state_mutex());
    return state().pools.count(handle) != 0 || fake::enclosing_pool_alive(handle);
}

void fake_limit(uint64_t handle, uint64_t max)
{
    const fake::guard held(fake::state_mutex());
    const auto        found = state().pools.find(handle);
    if (found != state().pools.end())
        found->second.limit = max;
}

void fake_set_usage(uint64_t total, uint64_t used)
{
    const fake::guard held(fake::state_mutex());
    state().usage_set = true;
    state().usage     = {total, used};
}
