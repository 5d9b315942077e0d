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
 * A signal handler may find its own thread busy, with this cache or with another slab's. It must
 * not wait for a stopper then, who may be waiting for its thread: it works on the depot, too, and
 * leaves the cache alone.
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

/* What `word` of a cache says beside a handle; no handle is as small. */
enum : uint64_t { CACHE_IDLE = 1, CACHE_BUSY = 2 };

/* A call site that a cache met last, and what it adds to a tag. */
struct met_site {
    const char *func;
    uint32_t    module_id;
    uint32_t    line;
    uint64_t    tag_bits;
};

struct alignas(64) thread_cache {
    /*
     * Busy while the owner is inside. Else the slab's handle if the fast path may serve: the cache
     * is open, the kernel has the barrier, tags lie behind the objects, objects need no clearing,
     * and the loaded magazine is of the node that the thread was last seen on. Else idle.
     */
    std::atomic<uint64_t> word;
    std::atomic<uint64_t> frozen;
    void                **top; /* of the loaded magazine's objects; the magazine's own count is */
    void                **bottom; /* right while the owner is in a slow path or stopped */
    void                **end;
    std::atomic<uint64_t> allocs; /* both counted by the owner alone, outside of handlers */
    std::atomic<uint64_t> frees;

    met_site     taker, giver;
    uint64_t     asks_ahead; /* the lines of the object that comes next are asked for */

    /* What the owner remembers of the last piece of its own node that it gave an object back to. */
    alignas(64) char *memo_base;
    uint64_t     memo_carved; /* objects of it that are known to exist */
    object_shape shape;

    magazine     *loaded;
    magazine     *previous;
    uint64_t      limit; /* objects a magazine takes; 0 = closed */
    slab         *s; /* null while it serves none; under the registry's lock, as all below */
    thread_block *thread;
    thread_cache *next_of_slab, *prev_of_slab;
    thread_cache *next_of_thread;
    std::atomic<uint32_t> node; /* that the thread ran on when it last looked; the owner's */
    uint32_t      shard;   /* of each depot, that it asks first */
    uint32_t      balance; /* frees beyond allocations since it was closed */
    uint32_t      streak;  /* magazines loaded from the depots since one went there */
    bool          holds_pages;
    uint32_t      nodes;   /* entries of each of the two arrays; 0 on a machine with one node */
    std::atomic<int64_t> *out; /* by node: allocations less frees but for those of the fast path
                                * since the thread came to `node`, which are that node's */
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

/* The calling thread's block: one of these two, which have no caches, before its first use and
 * after its exit's clean-up. */
extern __thread thread_block *t_thread __attribute__((tls_model("initial-exec")));
extern thread_block g_new_thread, g_gone_thread;

/* The owner begins, if the fast path may serve and the cache is neither frozen nor busy below this
 * signal handler. */
[[gnu::always_inline]] inline bool cache_enter_fast(thread_cache *c, uint64_t handle)
{
    if (c->word.load(std::memory_order_relaxed) != handle)
        return false;
    c->word.store(CACHE_BUSY, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (__builtin_expect(c->frozen.load(std::memory_order_acquire) == 0, 1))
        return true;
    c->word.store(handle, std::memory_order_release);
    return false;
}

inline void cache_leave_fast(thread_cache *c, uint64_t handle)
{
    c->word.store(handle, std::memory_order_release);
}

inline uint64_t count_one(std::atomic<uint64_t> *counter)
{
    const uint64_t count = counter->load(std::memory_order_relaxed) + 1;
    counter->store(count, std::memory_order_relaxed);
    return count;
}

/*
 * A page is 16 sectors of 520 bytes, of which the last 8 are stamped when it goes out, and a
 * record; these are the lines that its first holder writes and waits for.
 *
 * They are asked for once a thread has taken this many magazines and given none back: what it takes
 * next is far away. Measured with 2 x 512 KiB of second and 32 MiB of third cache: of a set of
 * 16,384 pages 5 % of the time is saved so, in smaller ones the asking costs more than the waiting
 * (a quarter at 4,096 pages), since the processor keeps a page's stores under way by itself.
 */
enum : uint32_t { SECTORS = 16, SECTOR_BYTES = 520, STAMP_AT = 512, COLD_STREAK = 64 };

[[gnu::always_inline]] inline void prefetch_page(void *page)
{
    char *base = static_cast<char *>(page);
    /* A function that does nothing but prefetch has no effect in the compiler's eyes: optimised as
     * a whole, the library would lose it. */
    __asm__ volatile("" : : "r"(base));
    for (uint32_t sector = 0; sector < SECTORS; sector++)
        __builtin_prefetch(base + STAMP_AT + sector * SECTOR_BYTES, 1);
    __builtin_prefetch(base + SECTORS * SECTOR_BYTES, 1);
}

inline object_tag *tag_behind(const thread_cache *c, void *object)
{
    return reinterpret_cast<object_tag *>(static_cast<char *>(object) + c->shape.tag_offset);
}

[[gnu::always_inline]] inline bool is_met(const met_site &site, const char *func,
                                          uint32_t module_id, uint32_t line)
{
    return site.func == func && site.module_id == module_id && site.line == line;
}

/* The thread's cache that may serve this handle at once; null otherwise. It is entered. */
[[gnu::always_inline]] inline thread_cache *fast_cache(const thread_block *t, uint64_t handle)
{
    thread_cache *c = t->caches[handle % HANDLE_SLOTS];
    return c != nullptr && cache_enter_fast(c, handle) ? c : nullptr;
}

/*
 * Takes an object of the thread's loaded magazine; false, and nothing changed, when the slow path
 * has to find one. *next is null, or the object that the thread will get next, whose lines should
 * be on their way while this one is written.
 */
[[gnu::always_inline]] inline bool cache_take_fast(uint64_t handle, uint32_t module_id,
                                                   const char *func, uint32_t line, void **object,
                                                   void **next)
{
    thread_cache *c = fast_cache(t_thread, handle);
    if (__builtin_expect(c == nullptr, 0))
        return false;

    void **top = c->top;
    if (__builtin_expect(top == c->bottom || !is_met(c->taker, func, module_id, line), 0)) {
        cache_leave_fast(c, handle);
        return false;
    }
    void *taken = top[-1];
    object_tag *tag = tag_behind(c, taken);
    if (__builtin_expect(!is_free(tag->load(std::memory_order_relaxed)), 0)) {
        cache_leave_fast(c, handle);
        return false;
    }
    *next = nullptr;
    if (__builtin_expect(c->asks_ahead != 0, 0) && top - 1 != c->bottom)
        *next = top[-2];
    tag->store(c->taker.tag_bits | tick_bits_now(), std::memory_order_relaxed);
    c->top = top - 1;
    guard_open(taken, c->s->obj_size);
    count_one(&c->allocs);
    cache_leave_fast(c, handle);
    *object = taken;
    return true;
}

/* True when the object went into the thread's loaded magazine; otherwise nothing was changed. */
[[gnu::always_inline]] inline bool cache_give_fast(uint64_t handle, void *object,
                                                   uint32_t module_id, const char *func)
{
    thread_cache *c = fast_cache(t_thread, handle);
    if (__builtin_expect(c == nullptr, 0))
        return false;

    void **top = c->top;
    const uint64_t offset = reinterpret_cast<uintptr_t>(object) -
                            reinterpret_cast<uintptr_t>(c->memo_base);
    if (__builtin_expect(top == c->end || c->shape.index(offset) >= c->memo_carved ||
                             !is_met(c->giver, func, module_id, 0), 0)) {
        cache_leave_fast(c, handle);
        return false;
    }
    object_tag *tag = tag_behind(c, object);
    const uint64_t out = tag->load(std::memory_order_relaxed);
    if (__builtin_expect(!is_out(out), 0)) {
        cache_leave_fast(c, handle);
        return false;
    }
    tag->store(tag_holder_bits(out) | c->giver.tag_bits, std::memory_order_relaxed);
    guard_close(object, c->shape.stride);
    *top = object;
    c->top = top + 1;
    count_one(&c->frees);
    cache_leave_fast(c, handle);
    return true;
}

/* ------------------------------------------------------------------ slow paths */

/* The calling thread's cache of the slab, made if need be; null when it can have none: there is no
 * memory for it, the thread's clean-up has run, or this is a handler of a busy thread. */
thread_cache *cache_of(slab *s);

/* The owner begins a slow path, waiting for whoever froze the cache. False, without a wait, in a
 * signal handler whose thread is busy with this cache, or with another one while this one is
 * frozen. */
bool cache_enter(thread_cache *c);
void cache_leave(thread_cache *c);

inline bool cache_is_busy(const thread_cache *c)
{
    return c->word.load(std::memory_order_acquire) == CACHE_BUSY;
}

/* What the fast path works on is made out of the loaded magazine, and put back into it. */
void cache_arm(thread_cache *c);
void cache_settle(thread_cache *c);

/* The thread is busy with a cache, and this a signal handler: it must not wait for the registry. */
bool thread_is_busy();

/* Marks the slab while objects are in a hand that nobody sees and nobody stops: whoever finds
 * nothing meanwhile has to stop the threads before it may say so, and whoever checks the slab
 * looks again. */
class in_hand {
public:
    explicit in_hand(slab *s);
    ~in_hand();
    in_hand(const in_hand &) = delete;
    in_hand &operator=(const in_hand &) = delete;

private:
    slab *s_;
};

/* The number of the call site, which the thread remembers from now on. */
uint32_t site_for(const call_site &site);

/* The cache has met this call site; the owner has entered it. */
void cache_meet_taker(thread_cache *c, const call_site &site, uint64_t number);
void cache_meet_giver(thread_cache *c, const call_site &site, uint64_t number);

/* True when the cache of the handle met another call site last and the thread remembers this one:
 * the fast path is worth a second try. */
bool cache_learn_taker(uint64_t handle, const call_site &site);
bool cache_learn_giver(uint64_t handle, const call_site &site);

/* True when the loaded magazine had nothing more, or no room, and the previous one, which has, took
 * its place: the fast path is worth a second try. */
bool cache_turn_to_take(uint64_t handle);
bool cache_turn_to_give(uint64_t handle);

/* Whether the kernel has the barrier. */
bool is_asymmetric();

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

/* Counts an allocation (+1) or a free (-1) beyond the fast path. Only the owner, when busy. */
void cache_count(thread_cache *c, uint32_t node, int64_t change);

/* Allocations less frees of a node's objects by the cache's thread. */
int64_t cache_out(const thread_cache *c, uint32_t node);

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
