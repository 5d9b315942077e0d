/*
 * A slab's records and the operations that its sources share.
 *
 *     slab ── depot (one a node) ── piece ── piece ── ...
 *                │                    │
 *                │ free_top           ├─ memory:  | object 0 | object 1 | ... | uncarved |
 *                v                    └─ records: | 0 | 1 | ...
 *             record -> record -> ...        (last in, first out)
 *
 * A piece is memory in whole units of 64 KiB and, in a mapping of its own, one record an object.
 * Nothing of the layer lies in or in front of an object: an attribute of the objects' memory (left
 * out of a dump, of a forked child) never takes the records along, and no pointer that a caller
 * hands in is followed before the address map has said whose it is.
 *
 * Objects are carved one after another, and never more than max_num of them: that, and not a count
 * of what is out, is what makes max_num exact. An object that comes back goes to the depot of the
 * node that its memory belongs to; carved minus free is what callers hold.
 *
 * A depot is the one place where an object changes hands: depot_take and depot_give. Caches of
 * threads come between these two and the seam's operations; nothing else needs to know of them.
 */
#pragma once

#include <atomic>
#include <pthread.h>
#include <stdint.h>

#include "zymm_guard.h"

namespace zymm
{

struct slab;
struct pool;

/* Who holds an object, or, while it is free, who gave it back last. */
struct holder {
    const char *func; /* a constant string; may be null */
    uint32_t    module_id;
    uint32_t    line;
    uint64_t    since; /* monotonic ns */
};

enum record_state : uint32_t { OBJECT_FREE = 0, OBJECT_OUT = 1 };

/*
 * Record of one carved object. Threads: read and written under the lock of its piece's depot.
 * Record 0 has a records_head in front of it.
 */
struct object_record {
    const char *func;
    union {
        uint64_t       since; /* while out */
        object_record *below; /* while free: the next one in the depot */
    };
    uint32_t module_id;
    uint32_t line;
    uint32_t state; /* record_state */
    uint32_t index; /* in its piece; set when carved */
};
static_assert(sizeof(object_record) == 32, "part of what zymm_object_whole_size_get answers");

struct piece;

struct records_head {
    piece   *owner;
    uint64_t pad[3];
};
static_assert(sizeof(records_head) == sizeof(object_record), "keeps records aligned");

/*
 * Descriptor of a piece; its memory stays readable for ever (zymm_store.h).
 *
 * Threads: `owner` by anyone; the rest is fixed while the piece has an owner, but for `next`,
 *          `carved`, and what an enclosing pool may cut off (`bytes`, `capacity`): depot's lock.
 */
struct piece {
    void               *store_link;
    std::atomic<slab *> owner; /* null while the descriptor is not in use */
    piece              *next;  /* in its depot */
    object_record      *records;
    char               *base;
    uint64_t            bytes;
    uint64_t            record_bytes;
    uint32_t            capacity;
    uint32_t            carved; /* objects below this index exist; at most capacity */
    uint32_t            keep;   /* of capacity: backed for min_num, never cut off */
    uint32_t            node;
};

/* A slab's free objects and uncarved memory on one node. `lock` guards all of it. */
struct alignas(64) depot {
    pthread_mutex_t lock;
    object_record  *free_top;
    uint64_t        free_count;
    uint64_t        carved;
    piece          *first; /* all pieces, oldest first */
    piece          *last;
    piece          *carving; /* no piece before this one has uncarved room */
};

/*
 * A slab. Fixed after creation but for the two counters, the growth lock and the depots; the
 * enclosing pool's links belong to that pool's lock.
 */
struct slab {
    void           *store_link;
    char            name[32];
    uint64_t        handle;
    uint64_t        attr; /* ZYMM_SLAB_* and ZYMM_EXTRA_* */
    uint64_t        obj_size;
    uint64_t        stride;  /* bytes from one object to the next */
    uint64_t        min_num;
    uint64_t        max_num; /* UINT64_MAX = no limit but memory */
    const void     *group;   /* the allocator or raw-block set that it is a class of; or null */
    pool           *enclosing;
    slab           *pool_next;
    slab           *pool_prev;
    uint32_t        module_id;
    uint32_t        align;
    uint32_t        depots;
    uint32_t        cache_num;
    uint32_t        cache_size;
    bool            unlimited;
    pthread_mutex_t growth; /* one thread at a time takes a new piece */
    std::atomic<uint64_t> carved;   /* objects that exist; never above max_num */
    std::atomic<uint64_t> capacity; /* objects that the pieces have room for */
};

/* The depots lie behind their slab, one a node. */
depot *depot_of(slab *s, uint32_t node);

/* --------------------------------------------------------------- objects and records */

object_record *piece_records(const piece *p);
piece         *piece_of(const object_record *record);
void          *object_of(const object_record *record);

/* Record of the object that begins at `object`; null when no carved one does. Under the lock. */
object_record *record_at(const piece *p, const void *object);

/* Bytes from one object to the next; 0 when size or alignment cannot be served. */
uint64_t stride_of(uint64_t obj_size, uint64_t align);

/* Bytes of a piece as it is taken when nothing limits it. */
uint64_t standard_piece_bytes(uint64_t stride);

/* --------------------------------------------------------------- depot (lock held) */

/* A free object, or a newly carved one, now out and held by `who`; null when there is neither. */
object_record *depot_take(slab *s, depot *d, const holder *who);

/* Puts an object back that is out. */
void depot_give(depot *d, object_record *record, const holder *who);

/* Appends a piece. */
void depot_add(slab *s, depot *d, piece *p);

/* --------------------------------------------------------------- growth and release */

/* Takes from the node's depot after making it larger; null when that is not possible. */
object_record *slab_grow(slab *s, uint32_t node, const holder *who);

/* Backs min_num objects, and at least one piece of a locked or one-block slab; null, or why not. */
const char *slab_back(slab *s);

/* Gives all pieces back. */
void slab_release(slab *s);

/* --------------------------------------------------------------- whole slabs */

/*
 * Keeps slabs alive for a query. Whoever allocates from a slab knows that it lives; timers and
 * consoles that ask a slab for numbers may do so while another thread destroys it. A handle that is
 * looked up under this guard stays valid until its end.
 */
class query_guard {
public:
    query_guard();
    ~query_guard();
    query_guard(const query_guard &) = delete;
    query_guard &operator=(const query_guard &) = delete;
};

struct slab_spec {
    const char *name;
    uint64_t    attr, obj_size, min_num, max_num, pool_id;
    uint32_t    module_id, align, cache_num, cache_size;
    bool        unlimited;
    const void *group;
};

/* Null, and an error line in the name of `operation`, on failure. */
slab *slab_create(const slab_spec *spec, const char *operation);

/* Reports the objects that are still out, in the name of `operation`, and gives all back. */
void slab_destroy(slab *s, const char *operation, const char *caller);

void *slab_alloc(slab *s, uint32_t module_id, const char *func, uint32_t line);

/* 0; otherwise -1 and an error line in the name of `operation`. */
int slab_free(slab *s, void *object, uint32_t module_id, const char *func, const char *operation);

uint64_t slab_used(slab *s);

/* Calls `visit` for every object that is out; locks are held for some objects at a time only. */
using visit_fn = void (*)(void *context, const object_record *record);
void slab_visit_out(slab *s, visit_fn visit, void *context);

} // namespace zymm
