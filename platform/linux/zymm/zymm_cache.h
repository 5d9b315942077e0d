/*
 * A thread's cache of one slab's free objects, and the way through it that most allocations take.
 *
 *     objects out --free--> | loaded | previous | --whole magazines--> depot
 *                 <-alloc-- |        |          | <-------------------
 *
 * The owner works on its two magazines without a lock and without an atomic exchange. Whoever has
 * to see them all (a dry slab, a fork) stops the owners first:
 *
 *     owner                               stopper
 *     busy = 1                            frozen = 1
 *     compiler barrier                    membarrier: every running thread passes a barrier
 *     frozen? then busy = 0 and wait      waits until busy is 0
 *     works
 *     busy = 0 (release)                  works; frozen = 0 (release)
 *
 * Of the two stores one is always seen by the other side: either the owner looked before the
 * barrier, and its busy is visible behind it, or it looks later and finds frozen. Where the kernel
 * has no such barrier, the owner's store is an exchange.
 *
 * A cache is open or closed. A closed one holds nothing: its thread works on the depot's loose
 * objects directly. That is how a slab runs while few objects are left, so that threads do not
 * have to be stopped for each one; a thread that gave back a magazine's worth opens its cache.
 *
 * A signal handler may find its own thread busy. It then works on the depot, too, and leaves the
 * cache alone.
 *
 * Owner: the thread's block; a record that once served a slab stays mapped.
 */
#pragma once

#include <atomic>
#include <stdint.h>

#include "zymm_guard.h"
#include "zymm_lock.h"
#include "zymm_magazine.h"
#include "zymm_seam.h"
#include "zymm_site.h"
#include "zymm_slab.h"
#include "zymm_tag.h"
#include "zymm_tick.h"

namespace zymm
{

struct thread_block;

struct alignas(64) thread_cache {
    /* The slab's handle while the fast path may serve: the cache is open, the machine has one node,
     * tags lie behind the objects, objects need no clearing. Otherwise 0. */
    std::atomic<uint64_t> fast_handle;
    std::atomic<uint32_t> busy;
    std::atomic<uint32_t> frozen;
    magazine             *loaded;
    magazine             *previous;
    uint32_t              limit;  /* objects a magazine takes; 0 = closed */
    uint32_t              streak; /* allocations since the last free */
    std::atomic<uint64_t> allocs; /* both counted by the owner alone, outside of handlers */
    std::atomic<uint64_t> frees;

    /* What the owner remembers of the piece that it gave an object back to last. */
    char        *memo_base;
    uint64_t     memo_carved; /* objects of it that are known to exist */
    object_shape shape;
    uint64_t     is_page; /* the objects are pages */

    slab         *s; /* null while it serves none; under the registry's lock, as all below */
    thread_block *thread;
    thread_cache *next_of_slab, *prev_of_slab;
    thread_cache *next_of_thread;
    uint32_t      node;    /* that the thread ran on when it last looked */
    uint32_t      shard;   /* of each depot, that it asks first */
    uint32_t      balance; /* frees beyond allocations since it was closed */
    uint32_t      nodes;   /* entries of each of the two arrays; 0 on a machine with one node */
    std::atomic<int64_t> *out; /* by node: allocations less frees; the owner's alone */
    magazine    **remote; /* by node: objects of other nodes on their way home */
};

enum : uint32_t { HANDLE_SLOTS = 65536 };

/* What the layer keeps for a thread; made by its first allocation or free. */
struct thread_block {
    thread_cache *caches[HANDLE_SLOTS]; /* by the handle's slot; lazily backed */
    site_memory   sites;
    thread_cache *first;
    thread_block *next, *prev; /* all threads' blocks */
    uint32_t      number;
};

/* The calling thread's block; null before its first use, GONE_THREAD after its exit's clean-up. */
extern __thread thread_block *t_thread __attribute__((tls_model("initial-exec")));
extern bool g_asymmetric;

inline bool has_block(const thread_block *t)
{
    return reinterpret_cast<uintptr_t>(t) > 1;
}

/* False when the cache is frozen, or busy below this signal handler. */
inline bool cache_enter(thread_cache *c)
{
    if (c->busy.load(std::memory_order_relaxed) != 0)
        return false;
    if (__builtin_expect(g_asymmetric, 1)) {
        c->busy.store(1, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        c->busy.exchange(1, std::memory_order_seq_cst);
    }
    if (__builtin_expect(c->frozen.load(std::memory_order_acquire) == 0, 1))
        return true;
    c->busy.store(0, std::memory_order_release);
    return false;
}

inline void cache_leave(thread_cache *c)
{
    c->busy.store(0, std::memory_order_release);
}

inline void count_one(std::atomic<uint64_t> *counter)
{
    counter->store(counter->load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

/* Swaps the magazines if only the other one has objects. */
inline uint32_t cache_count(thread_cache *c)
{
    const uint32_t count = count_of(c->loaded);
    if (__builtin_expect(count != 0, 1))
        return count;
    magazine *empty = c->loaded;
    c->loaded = c->previous;
    c->previous = empty;
    return count_of(c->loaded);
}

/*
 * A page is 16 sectors of 520 bytes, of which the last 8 are stamped when it goes out, and a record;
 * these are the lines that its first holder writes and waits for. An object of another kind gets
 * its first line and its tag's.
 */
enum : uint32_t { SECTORS = 16, SECTOR_BYTES = 520, STAMP_AT = 512 };

inline void prefetch_object(const thread_cache *c, void *object)
{
    char *base = static_cast<char *>(object);
    __builtin_prefetch(base + c->shape.tag_offset, 1);
    if (c->is_page == 0) {
        __builtin_prefetch(base, 1);
        return;
    }
    for (uint32_t sector = 0; sector < SECTORS; sector++)
        __builtin_prefetch(base + STAMP_AT + sector * SECTOR_BYTES, 1);
}

inline object_tag *tag_behind(const thread_cache *c, void *object)
{
    return reinterpret_cast<object_tag *>(static_cast<char *>(object) + c->shape.tag_offset);
}

/* An object of the thread's open cache; null when the slow path has to find one. */
inline void *cache_take_fast(uint64_t handle, uint32_t module_id, const char *func, uint32_t line)
{
    thread_block *t = t_thread;
    if (!has_block(t))
        return nullptr;
    thread_cache *c = t->caches[handle % HANDLE_SLOTS];
    if (c == nullptr || c->fast_handle.load(std::memory_order_relaxed) != handle ||
        !cache_enter(c))
        return nullptr;

    void *object = nullptr;
    const uint32_t count = cache_count(c);
    if (__builtin_expect(count != 0, 1)) {
        object = c->loaded->objects[count - 1];
        object_tag *tag = tag_behind(c, object);
        if (__builtin_expect(!is_free(tag->load(std::memory_order_relaxed)), 0)) {
            cache_leave(c);
            return nullptr;
        }
        set_count(c->loaded, count - 1);
        const uint32_t site = t->sites.number(func, module_id, line);
        tag->store(tag_out(site, tick_now()), std::memory_order_relaxed);
        guard_open(object, c->s->obj_size);
        count_one(&c->allocs);
        /* Whoever takes several in a row will want the next one: its lines are on their way while
         * this one is written. */
        if (c->streak++ != 0 && count > 1)
            prefetch_object(c, c->loaded->objects[count - 2]);
    }
    cache_leave(c);
    return object;
}

/* True when the object went into the thread's open cache; otherwise nothing was changed. */
inline bool cache_give_fast(uint64_t handle, void *object, uint32_t module_id, const char *func)
{
    thread_block *t = t_thread;
    if (!has_block(t))
        return false;
    thread_cache *c = t->caches[handle % HANDLE_SLOTS];
    if (c == nullptr || c->fast_handle.load(std::memory_order_relaxed) != handle ||
        !cache_enter(c))
        return false;

    bool done = false;
    const uint64_t offset = reinterpret_cast<uintptr_t>(object) -
                            reinterpret_cast<uintptr_t>(c->memo_base);
    const uint32_t count = count_of(c->loaded);
    if (__builtin_expect(c->shape.index(offset) < c->memo_carved && count < c->limit, 1)) {
        object_tag *tag = tag_behind(c, object);
        const uint64_t out = tag->load(std::memory_order_relaxed);
        if (__builtin_expect(is_out(out), 1)) {
            const uint32_t site = t->sites.number(func, module_id, 0);
            tag->store(tag_free(out, site), std::memory_order_relaxed);
            c->loaded->objects[count] = object;
            set_count(c->loaded, count + 1);
            count_one(&c->frees);
            c->streak = 0;
            done = true;
        }
    }
    cache_leave(c);
    return done;
}

/* ------------------------------------------------------------------ slow paths */

/* The calling thread's cache of the slab, made if need be; null when it can have none: there is no
 * memory for it, or the thread's clean-up has run. */
thread_cache *cache_of(slab *s);

/* Waits until whoever froze the cache is through. */
void cache_wait(void);

/* A free object out of the cache or the depots, null when there is none but in other threads'
 * caches. Within cache_enter, or with all other threads stopped. */
void *cache_take(thread_cache *c);

/* Puts an object, whose tag says already that it is free, into the cache or the depot. */
void cache_give(thread_cache *c, const object_place &place);

/* Takes an object without a cache: by a signal handler whose thread is busy, or under the
 * registry's lock by a thread that has none. */
void *depot_take_one(slab *s);

/* Empties the cache into the depots: magazines as they are, or all objects as loose ones. Its owner
 * is stopped, gone, or the caller. */
void cache_surrender(thread_cache *c);
void cache_spill(thread_cache *c);

/* Objects in the cache; its owner is stopped. */
uint64_t cache_objects(const thread_cache *c);

/* Opens and closes; `s->open` is kept. By the owner when busy, or with the owner stopped. */
bool cache_open(thread_cache *c);
void cache_close(thread_cache *c);

/* ------------------------------------------------------------------ registry */

/* Lock over all caches and threads' blocks, with signals blocked. */
class registry_guard {
public:
    registry_guard();
    ~registry_guard();
    registry_guard(const registry_guard &) = delete;
    registry_guard &operator=(const registry_guard &) = delete;

private:
    signal_guard quiet_; /* before the lock, and longer */
};

/* Stops all owners of the slab's caches but `own`, which may be null; and lets them go on. Under
 * the registry's lock. */
void caches_stop(slab *s, const thread_cache *own);
void caches_resume(slab *s);

/* Takes the caches off a slab that goes; what they hold goes with it. */
void caches_dissolve(slab *s);

/* For a new slab: the size of its caches' magazines, and the once-only preparations. */
uint32_t cache_limit_for(const slab *s);
void     caches_prepare();

} // namespace zymm
