/*
 * The registry: every thread's block and every cache, when threads come and go, and how their
 * owners are stopped.
 *
 *     thread 1's block -- cache of slab a -- cache of slab b
 *                             |                  |
 *     thread 2's block -- cache of slab a -------+---------- ...
 *                             |                  |
 *                           slab a             slab b
 *
 * A block is made by a thread's first allocation or free and given up by its exit, which empties
 * its caches into the depots; the next thread gets the same memory. A thread that allocates after
 * its clean-up works without caches, under the registry's lock.
 *
 * Before a fork all owners are stopped, so that the child finds every object either in a hand or
 * where it can be found. The child empties the caches of the threads that it did not get.
 *
 * One lock, with signals blocked. Outer: the gate of structural operations (zymm_slab.cpp). Inner:
 * what a stopped owner may still hold on its way to a standstill.
 */
#include <linux/membarrier.h>
#include <sched.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "zymm_cache.h"
#include "zymm_lock.h"
#include "zymm_node.h"
#include "zymm_private.h"
#include "zymm_settings.h"
#include "zymm_store.h"
#include "zymm_system.h"

namespace zymm
{

thread_block g_new_thread, g_gone_thread; /* never written: unbacked zero pages */
__thread thread_block *t_thread __attribute__((tls_model("initial-exec"))) = &g_new_thread;
static bool s_asymmetric;

static pthread_mutex_t s_registry_lock = PTHREAD_MUTEX_INITIALIZER;
static thread_block   *s_threads;      /* those alive */
static thread_block   *s_spare_blocks; /* linked by next */
static uint32_t        s_thread_numbers;
static control_store   s_cache_records = {PTHREAD_MUTEX_INITIALIZER, nullptr, nullptr, nullptr};
static pthread_key_t   s_exit_key;
static pthread_once_t  s_prepared = PTHREAD_ONCE_INIT;

registry_guard::registry_guard()
{
    pthread_mutex_lock(&s_registry_lock);
}

registry_guard::~registry_guard()
{
    pthread_mutex_unlock(&s_registry_lock);
}

bool is_asymmetric()
{
    return s_asymmetric;
}

/* Where the kernel has no barrier for others' sake, the owner's store is one. */
static void mark_busy(thread_cache *c)
{
    if (s_asymmetric) {
        c->word.store(CACHE_BUSY, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        c->word.exchange(CACHE_BUSY, std::memory_order_seq_cst);
    }
}

bool thread_is_busy()
{
    for (const thread_cache *c = t_thread->first; c != nullptr; c = c->next_of_thread) {
        if (cache_is_busy(c))
            return true;
    }
    return false;
}

bool cache_enter(thread_cache *c)
{
    for (;;) {
        const uint64_t before = c->word.load(std::memory_order_relaxed);
        if (before == CACHE_BUSY)
            return false;
        mark_busy(c);
        if (c->frozen.load(std::memory_order_acquire) == 0)
            break;
        c->word.store(before, std::memory_order_release);
        if (thread_is_busy())
            return false;
        registry_guard until_it_is_resumed;
    }
    cache_settle(c);
    return true;
}

void cache_leave(thread_cache *c)
{
    cache_arm(c);
}

uint32_t site_for(const call_site &site)
{
    const uint32_t number = site_number(site);
    if (t_thread != &g_new_thread && t_thread != &g_gone_thread)
        t_thread->sites.remember(site, number);
    return number;
}

/* ------------------------------------------------------------------ stopping owners */

static bool use_membarrier()
{
    return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

static void pass_barrier()
{
    if (s_asymmetric)
        syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
}

static void wait_until_idle(const thread_cache *c)
{
    for (uint32_t turn = 0; cache_is_busy(c); turn++) {
        if (turn % 64 == 63)
            sched_yield();
        else
            __builtin_ia32_pause();
    }
}

static void freeze(slab *s, const thread_cache *own)
{
    for (thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab) {
        if (c != own)
            c->frozen.exchange(1, std::memory_order_seq_cst);
    }
}

void caches_stop(slab *s, const thread_cache *own)
{
    freeze(s, own);
    pass_barrier();
    for (thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab) {
        if (c != own)
            wait_until_idle(c);
        cache_settle(c);
    }
}

static void resume(thread_cache *c)
{
    if (c->s != nullptr)
        cache_arm(c);
    c->frozen.store(0, std::memory_order_release);
}

void caches_resume(slab *s)
{
    for (thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        resume(c);
}

/* ------------------------------------------------------------------ caches of a slab */

static void link_to_slab(thread_cache *c, slab *s)
{
    c->s = s;
    c->prev_of_slab = nullptr;
    c->next_of_slab = s->caches;
    if (s->caches != nullptr)
        s->caches->prev_of_slab = c;
    s->caches = c;
}

static void unlink_from_slab(thread_cache *c)
{
    slab *s = c->s;
    if (c->prev_of_slab != nullptr)
        c->prev_of_slab->next_of_slab = c->next_of_slab;
    else
        s->caches = c->next_of_slab;
    if (c->next_of_slab != nullptr)
        c->next_of_slab->prev_of_slab = c->prev_of_slab;
    c->s = nullptr;
}

/* Adds what the cache counted to the slab's own sums. */
static void settle_counts(thread_cache *c)
{
    slab *s = c->s;
    s->gone_allocs.fetch_add(c->allocs.load(std::memory_order_relaxed), std::memory_order_relaxed);
    s->gone_frees.fetch_add(c->frees.load(std::memory_order_relaxed), std::memory_order_relaxed);
    for (uint32_t node = 0; node < c->nodes; node++)
        s->gone_out[node].fetch_add(cache_out(c, node), std::memory_order_relaxed);
}

/* The cache's owner is gone, or its slab is about to. */
static void retire(thread_cache *c)
{
    cache_settle(c);
    cache_surrender(c);
    cache_close(c);
    c->word.store(CACHE_IDLE, std::memory_order_relaxed);
    settle_counts(c);
    unlink_from_slab(c);
}

void caches_dissolve(slab *s)
{
    registry_guard held;
    while (s->caches != nullptr)
        retire(s->caches);
}

static thread_cache *make_record(thread_block *t)
{
    const uint32_t nodes = node_count() == 1 ? 0 : node_count();
    const uint64_t each = sizeof(magazine *) + sizeof(std::atomic<int64_t>);
    const uint64_t bytes = sizeof(thread_cache) + nodes * each;
    thread_cache *c = static_cast<thread_cache *>(store_get(&s_cache_records, bytes));
    if (c == nullptr)
        return nullptr;
    memset(static_cast<void *>(c), 0, bytes);
    c->nodes = nodes;
    c->remote = reinterpret_cast<magazine **>(c + 1);
    c->out = reinterpret_cast<std::atomic<int64_t> *>(c->remote + nodes);
    c->thread = t;
    c->next_of_thread = t->first;
    t->first = c;
    return c;
}

static void serve(thread_cache *c, slab *s)
{
    c->loaded = &g_no_magazine;
    c->previous = &g_no_magazine;
    for (uint32_t node = 0; node < c->nodes; node++) {
        c->remote[node] = &g_no_magazine;
        c->out[node].store(0, std::memory_order_relaxed);
    }
    c->frozen.store(0, std::memory_order_relaxed); /* the last owner may have gone with a fork */
    c->limit = 0;
    c->taker = {};
    c->giver = {};
    c->balance = 0;
    c->allocs.store(0, std::memory_order_relaxed);
    c->frees.store(0, std::memory_order_relaxed);
    c->memo_carved = 0;
    c->shape = s->shape;
    c->asks_ahead = 0;
    c->streak = 0;
    c->holds_pages = s->obj_size == PAGE_OBJECT_BYTES;
    c->node.store(node_here(), std::memory_order_relaxed);
    c->shard = c->thread->number % MOST_SHARDS;
    link_to_slab(c, s);
}

/* ------------------------------------------------------------------ threads */

static void link_block(thread_block *t)
{
    t->prev = nullptr;
    t->next = s_threads;
    if (s_threads != nullptr)
        s_threads->prev = t;
    s_threads = t;
}

static void give_up_block(thread_block *t)
{
    for (thread_cache *c = t->first; c != nullptr; c = c->next_of_thread) {
        if (c->s != nullptr)
            retire(c);
    }
    if (t->prev != nullptr)
        t->prev->next = t->next;
    else
        s_threads = t->next;
    if (t->next != nullptr)
        t->next->prev = t->prev;
    t->next = s_spare_blocks;
    s_spare_blocks = t;
}

static void on_thread_exit(void *block)
{
    registry_guard held;
    t_thread = &g_gone_thread;
    give_up_block(static_cast<thread_block *>(block));
}

/* Under the registry's lock. */
static thread_block *make_block()
{
    thread_block *t = s_spare_blocks;
    if (t != nullptr)
        s_spare_blocks = t->next;
    else
        t = static_cast<thread_block *>(store_map(sizeof(thread_block)));
    if (t == nullptr)
        return nullptr;
    if (pthread_setspecific(s_exit_key, t) != 0) {
        t->next = s_spare_blocks;
        s_spare_blocks = t;
        return nullptr;
    }
    t->number = s_thread_numbers++;
    t->sites.clear();
    link_block(t);
    return t;
}

static thread_cache *make_cache(slab *s)
{
    registry_guard held;
    if (t_thread == &g_new_thread) {
        thread_block *made = make_block();
        if (made == nullptr)
            return nullptr;
        t_thread = made;
    }
    thread_block *t = t_thread;
    thread_cache **place = &t->caches[s->handle % HANDLE_SLOTS];
    if (*place == nullptr)
        *place = make_record(t);
    thread_cache *c = *place;
    if (c == nullptr || c->s == s) /* a signal handler may have made it */
        return c;
    serve(c, s);
    cache_open(c);
    cache_arm(c);
    return c;
}

thread_cache *cache_of(slab *s)
{
    const thread_block *t = t_thread;
    if (t == &g_gone_thread)
        return nullptr;
    thread_cache *c = t->caches[s->handle % HANDLE_SLOTS];
    if (c != nullptr && c->s == s)
        return c;
    return thread_is_busy() ? nullptr : make_cache(s);
}

/* ------------------------------------------------------------------ fork */

static sigset_t s_signals_before_fork;

static void before_fork()
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    gate_close();
    pthread_mutex_lock(&s_registry_lock);
    s_signals_before_fork = before;
    for (thread_block *t = s_threads; t != nullptr; t = t->next) {
        for (thread_cache *c = t->first; t != t_thread && c != nullptr; c = c->next_of_thread)
            c->frozen.exchange(1, std::memory_order_seq_cst);
    }
    pass_barrier();
    for (thread_block *t = s_threads; t != nullptr; t = t->next) {
        for (thread_cache *c = t->first; t != t_thread && c != nullptr; c = c->next_of_thread)
            wait_until_idle(c);
    }
    sites_close(); /* which owners enter before they are busy */
}

static void resume_all()
{
    sites_open();
    for (thread_block *t = s_threads; t != nullptr; t = t->next) {
        for (thread_cache *c = t->first; c != nullptr; c = c->next_of_thread)
            c->frozen.store(0, std::memory_order_release);
    }
}

static void after_fork()
{
    resume_all();
    const sigset_t before = s_signals_before_fork;
    pthread_mutex_unlock(&s_registry_lock);
    gate_open();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/* Slabs whose memory stayed with the parent have nothing to give, take or look at. */
static void after_fork_in_child()
{
    gate_reset();
    s_asymmetric = use_membarrier();
    for (thread_cache *c = t_thread->first; c != nullptr && !s_asymmetric; c = c->next_of_thread)
        c->word.store(CACHE_IDLE, std::memory_order_relaxed);
    slabs_lose_unforked();
    thread_block *next = nullptr;
    for (thread_block *t = s_threads; t != nullptr; t = next) {
        next = t->next;
        if (t != t_thread)
            give_up_block(t);
    }
    resume_all();
    pthread_mutex_unlock(&s_registry_lock);
    pthread_sigmask(SIG_SETMASK, &s_signals_before_fork, nullptr);
}

static void prepare()
{
    s_asymmetric = use_membarrier();
    pthread_key_create(&s_exit_key, on_thread_exit);
    pthread_atfork(before_fork, after_fork, after_fork_in_child);
    tick_start();
}

void caches_prepare()
{
    pthread_once(&s_prepared, prepare);
}

/* ------------------------------------------------------------------ sizes and sums */

/* Objects that a thread may cache: what the pool itself says, else the process's setting for its
 * size, else the default. */
static uint64_t cached_objects(const slab *s)
{
    if (s->cache_num != 0)
        return s->cache_num;
    if (s->cache_size != 0)
        return s->cache_size / s->obj_size;
    return cache_objects_for(s->obj_size);
}

uint32_t cache_limit_for(const slab *s)
{
    if ((s->attr & ZYMM_SLAB_CACHED) == 0 || caches_are_off())
        return 0;
    const uint64_t magazine_objects = cached_objects(s) / 2;
    return magazine_objects < MAGAZINE_OBJECTS ? uint32_t(magazine_objects)
                                               : uint32_t(MAGAZINE_OBJECTS);
}

static uint64_t cached_in(const magazine *m, uint32_t node)
{
    return node == ALL_NODES || m->node == node ? count_of(m) : 0;
}

uint64_t slab_cached(slab *s, uint32_t node)
{
    registry_guard held;
    uint64_t sum = 0;
    caches_stop(s, nullptr);
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab) {
        sum += cached_in(c->loaded, node) + cached_in(c->previous, node);
        for (uint32_t at = 0; at < c->nodes; at++)
            sum += cached_in(c->remote[at], node);
    }
    caches_resume(s);
    return sum;
}

/* Under the registry's lock. */
static uint64_t count_frees(const slab *s)
{
    uint64_t frees = s->gone_frees.load(std::memory_order_relaxed);
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        frees += c->frees.load(std::memory_order_relaxed);
    return frees;
}

/* Under the registry's lock. Acquire: frees that are read behind it are not older. */
static uint64_t count_allocs(const slab *s)
{
    uint64_t allocs = s->gone_allocs.load(std::memory_order_acquire);
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        allocs += c->allocs.load(std::memory_order_acquire);
    return allocs;
}

/* Frees are read behind the allocations here: an object that goes out and back meanwhile counts as
 * back, so that as many as this were certainly out when the last allocation was counted. */
static void note_high_water(slab *s, uint64_t allocs)
{
    const int64_t certain = int64_t(allocs - count_frees(s));
    if (certain > int64_t(s->most_seen.load(std::memory_order_relaxed)))
        s->most_seen.store(uint64_t(certain), std::memory_order_relaxed);
}

slab_counts slab_counts_of(slab *s)
{
    registry_guard held;
    const uint64_t frees = count_frees(s);
    return {count_allocs(s), frees};
}

uint64_t slab_used(slab *s)
{
    registry_guard held;
    /* Frees first: an object that goes out and back meanwhile counts as out, never as minus one. */
    const uint64_t frees = count_frees(s);
    const uint64_t allocs = count_allocs(s);
    note_high_water(s, allocs);
    const uint64_t most = s->carved.load(std::memory_order_relaxed);
    const int64_t out = int64_t(allocs - frees);
    return out < 0 ? 0 : uint64_t(out) < most ? uint64_t(out) : most;
}

uint64_t slab_used_on(slab *s, uint32_t node)
{
    if (s->depots == 1)
        return slab_used(s);
    registry_guard held;
    int64_t out = s->gone_out[node].load(std::memory_order_relaxed);
    for (const thread_cache *c = s->caches; c != nullptr; c = c->next_of_slab)
        out += cache_out(c, node);
    return out > 0 ? uint64_t(out) : 0;
}

} // namespace zymm
