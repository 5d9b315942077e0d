/*
 * Quarantine of the checking build: freed objects wait in a queue before they go out again, and
 * whoever writes into one meanwhile is found.
 *
 *     free --> | oldest ... 256 objects ... newest | --> loose objects of the depot
 *               looked at when it leaves             filled when it comes
 *
 * A waiting object is filled with a pattern and compared when it leaves. A page's record, which the
 * manager above still looks at after the free, keeps its content; of it a sum is kept.
 *
 * Nothing that waits is lost to anybody: an allocation that found nothing else empties the queue
 * before it answers null, and a slab that goes has its queue looked at. In other builds the queue
 * has no room and nothing here is called.
 */
#pragma once

#include <atomic>
#include <pthread.h>
#include <stdint.h>

#include "zymm_guard.h"

namespace zymm
{

struct object_place;
struct slab;

enum : uint32_t { QUARANTINED = GUARD_CHECKS_EACH_OBJECT ? 256 : 1 };

struct quarantine {
    pthread_mutex_t       lock; /* with signals blocked: handlers free and allocate, too */
    std::atomic<uint32_t> count; /* kept above 0 until the last object is loose */
    uint32_t              oldest;
    struct {
        void    *object;
        uint64_t sum; /* of what was not filled */
    } waiting[QUARANTINED];
};

/* Takes over an object whose tag says already that it is free. */
void quarantine_put(slab *s, const object_place &place);

/* Makes everything that waits loose. */
void quarantine_empty(slab *s);

/* Calls `visit` with each waiting object; the slab's threads are stopped. */
void quarantine_visit(slab *s, void (*visit)(void *context, void *object), void *context);

} // namespace zymm
