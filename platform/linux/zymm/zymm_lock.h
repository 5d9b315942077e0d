/*
 * Scoped mutex over pthread_mutex_t. An all-zero mutex is a valid unlocked one, so records that are
 * born as zero pages need no constructor and, being used again and again, no destructor.
 *
 * Order of the layer's locks, outermost first; a thread that holds one takes only later ones:
 *
 *     the gate (shared by whoever makes, destroys or looks at slabs and pools; alone by a fork,
 *               and while a slab's handle is dropped; readers go first and may enter twice)
 *     raw blocks' creation
 *     the registry
 *     a slab's growth lock
 *     an enclosing pool's lock
 *     a depot's lock (several of one slab: in the order of their nodes)
 *     each the innermost but for control stores: call sites, supply of magazines, address map,
 *               handle table, list of slabs, quarantine, topology
 *     control stores
 *
 * Stopping a slab's threads is waiting, too: whoever holds the registry's lock waits for owners
 * that are busy with their caches, and these may hold the growth lock or wait for it and all that
 * follows. So an owner that is busy, and a signal handler above it, never takes the gate or the
 * registry, and whoever stops the threads holds nothing from the growth lock on until they stand.
 *
 * What an allocation or a free may need is held with signals blocked: a handler that allocates
 * would wait for the thread that it interrupted. A fork takes the gate, the registry and, once all
 * owners stand, the call sites: whatever else is held, is held by a busy owner or inside the gate.
 */
#pragma once

#include <pthread.h>
#include <signal.h>

namespace zymm
{

/*
 * Keeps this thread's signal handlers out while it holds a lock that an allocation or a free may
 * need: a handler that allocates would wait for the thread that it interrupted.
 */
class signal_guard {
public:
    signal_guard()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~signal_guard()
    {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    signal_guard(const signal_guard &) = delete;
    signal_guard &operator=(const signal_guard &) = delete;

private:
    sigset_t before_;
};

class scoped_lock {
public:
    explicit scoped_lock(pthread_mutex_t *mutex) : mutex_(mutex)
    {
        pthread_mutex_lock(mutex_);
    }
    ~scoped_lock()
    {
        pthread_mutex_unlock(mutex_);
    }
    scoped_lock(const scoped_lock &) = delete;
    scoped_lock &operator=(const scoped_lock &) = delete;

private:
    pthread_mutex_t *mutex_;
};

} // namespace zymm
