/*
 * A slab's records and the operations that its sources share.
 *
 *     thread's cache: loaded | previous      zymm_cache.h: a thread alone, no lock
 *                        ^ |
 *                        | v
 *     slab -- depot (one a node) -- full magazines, by shard    lock-free stacks
 *                       |        -- loose objects               a lock-free stack
 *                       |
 *                       +-- piece -- piece -- ...               under the depot's lock
 *                             |
 *                             +-- memory: | object 0 |tag| object 1 |tag| ... | uncarved |
 *                             +-- links:  | 0 | 1 | ...   of loose objects
 *
 * Objects are carved one after another, and never more than max_num of them: that, and not a count
 * of what is out, is what makes max_num exact, and no counter is shared on the way out and back.
 * What is out is the difference between what each thread took and gave, which each counts alone.
 *
 * A piece is memory in whole units of 64 KiB. Behind each object lies its tag (zymm_tag.h); its
 * link and, where a tag behind the object would cost too much, the tag lie in mappings of their
 * own. No pointer that a caller hands in is followed before the address map has said whose it is.
 */
#pragma once

#include <atomic>
#include <pthread.h>
#include <stdint.h>

#include "zymm_guard.h"
#include "zymm_magazine.h"
#include "zymm_node.h"
#include "zymm_quarantine.h"
#include "zymm_tag.h"

namespace zymm
{

struct pool;
struct slab;
struct thread_cache;

/*
 * Descriptor of a piece; its memory stays readable for ever (zymm_store.h).
 *
 * Threads: `owner` and `carved` by anyone; the rest is fixed while the piece has an owner, but for
 *          `next` and what an enclosing pool may cut off (`bytes`, `capacity`): depot's lock.
 */
struct piece {
    void                  *store_link;
    std::atomic<slab *>    owner; /* null while the descriptor is not in use */
    piece                 *next;  /* in its depot */
    std::atomic<uint32_t> *links; /* of each object: the loose object below it */
    object_tag            *tags;  /* null when each lies behind its object */
    char                  *base;
    uint64_t               bytes;
    uint64_t               side_bytes;   /* mapped for links and tags */
    uint32_t               first_number; /* of its object 0 in the slab */
    uint32_t               room;         /* objects when it was made; numbers it uses up */
    uint32_t               capacity;     /* objects it has room for now */
    std::atomic<uint32_t>  carved;       /* objects below this index exist; at most capacity */
    uint32_t               keep;         /* of capacity: backed for min_num, never cut off */
    uint32_t               node;
};

/* Objects of this size are the pages of the memory manager above: 16 sectors and a record. */
enum : uint64_t { PAGE_OBJECT_BYTES = 8376 };

enum : uint32_t { MOST_SHARDS = 8 };

struct alignas(64) shard {
    magazine_stack full;
};

/* A slab's free objects and uncarved memory on one node. */
struct alignas(64) depot {
    pthread_mutex_t       lock; /* of the pieces and what is carved from them */
    piece                *first; /* all pieces, oldest first */
    piece                *last;
    piece                *carving; /* no piece before this one has uncarved room */
    std::atomic<uint64_t> carved;
    alignas(64) std::atomic<uint64_t> loose; /* tag << 32 | number + 1 of the top one; 0 = none */
    shard shards[MOST_SHARDS];
};

/*
 * How an object's address, index and tag belong together; copied to where it is used often.
 *
 * The stride is an odd number times a power of two. Multiplied by the inverse of the odd one and
 * turned right by the power, an offset that is a multiple of the stride becomes its index, and any
 * other offset a number beyond every index.
 */
struct object_shape {
    uint64_t stride;
    uint64_t inverse;
    uint32_t turn;
    uint32_t tag_offset; /* from the object to its tag; 0 = the piece has an array of tags */

    uint64_t index(uint64_t offset) const
    {
        const uint64_t product = offset * inverse;
        return product >> turn | product << (-turn & 63);
    }
};

enum : uint32_t { LEVELS = 20, FIRST_LEVEL_PIECES = 8 };

/*
 * A slab. Fixed after creation but for the counters, the table of pieces, the growth lock and the
 * depots; the caches belong to the registry's lock, the enclosing pool's links to that pool's.
 */
struct slab {
    void           *store_link;
    char            name[32];
    uint64_t        handle;
    uint64_t        attr; /* ZYMM_SLAB_* and ZYMM_EXTRA_* */
    uint64_t        obj_size;
    object_shape    shape;
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
    uint32_t        cache_limit; /* objects that a magazine of it takes; 0 = no thread caches */
    bool            unlimited;
    bool            is_lost; /* in a forked child that did not get the memory */
    pthread_mutex_t growth; /* one thread at a time takes a new piece */
    std::atomic<uint64_t> carved;   /* objects that exist; never above max_num */
    std::atomic<uint64_t> capacity; /* objects that the pieces have room for */
    std::atomic<piece **> levels[LEVELS]; /* table of pieces: level n has 8 << n of them */
    std::atomic<uint32_t> pieces;
    piece                *first_pieces[FIRST_LEVEL_PIECES];

    /* Caches that may hold objects: epoch << 32 | number of them. Each change counts the epoch up,
     * so whoever reads the same word twice knows that nothing was opened in between. */
    alignas(64) std::atomic<uint64_t> open;
    thread_cache *caches; /* under the registry's lock */
    slab         *next_slab, *prev_slab; /* all slabs; under the gate's lock */

    /* Counts of threads that are gone, and of those without a cache or with one that is busy. */
    std::atomic<uint64_t> gone_allocs;
    std::atomic<uint64_t> gone_frees;
    std::atomic<int64_t>  gone_out[MOST_NODES]; /* allocations less frees by node */

    std::atomic<uint64_t> most_seen; /* out at once, of all looks at it; under the registry's lock */

    quarantine waiting; /* of the checking build */
};

/* All objects of the slab exist: looking for room to carve would only cost time. */
inline bool is_carved_out(const slab *s)
{
    return s->carved.load(std::memory_order_relaxed) >= s->max_num;
}

/* The depots lie behind their slab, one a node. */
depot *depot_of(slab *s, uint32_t node);

/* --------------------------------------------------------------- objects */

/* An object with where it lies; `in` is null when there is none. */
struct object_place {
    piece   *in;
    uint32_t index;

    char       *object() const;
    object_tag *tag() const;
};

/* The carved object of the slab that begins at this address. Takes no lock. */
object_place place_of(const slab *s, const void *object);

/* The same for an object that is the slab's for sure. */
inline object_place place_of_own(const slab *s, const void *object)
{
    const object_place place = place_of(s, object);
    if (place.in == nullptr)
        __builtin_unreachable();
    return place;
}

object_shape shape_of(uint64_t obj_size, uint64_t align, bool one_block);

/* Bytes from one object to the next; 0 when size or alignment cannot be served. */
uint64_t stride_of(uint64_t obj_size, uint64_t align, bool one_block);

/* Bytes of a piece as it is taken when nothing limits it. */
uint64_t standard_piece_bytes(uint64_t stride);

/* Enters a piece into the slab's table and gives it its numbers; false when there is no room. */
bool table_enter(slab *s, piece *p);
void table_release(slab *s);

/* Numbers that objects have or will have are below this. */
uint64_t table_numbers(slab *s);

/* The carved object with this number; `in` is null when there is none. */
object_place place_numbered(slab *s, uint64_t number);

/* --------------------------------------------------------------- depot */

/* One loose object of the depot; null when there is none. No lock. */
void *loose_pop(slab *s, depot *d);
void  loose_push(const object_place &place);

/* Empties the magazine into the depots' loose objects. */
void magazine_spill(slab *s, magazine *m);

/* Up to `wanted` new objects, the first one last; their number. Signals must be blocked. */
uint32_t depot_carve(slab *s, depot *d, void **objects, uint32_t wanted);

/* Appends a piece; under the depot's lock. */
void depot_add(slab *s, depot *d, piece *p);

/* --------------------------------------------------------------- growth and release */

/* Makes the node's depot larger; false when that is not possible. Signals must be blocked. */
bool slab_grow(slab *s, uint32_t node);

/* Backs min_num objects, and at least one piece of a locked or one-block slab; null, or why not. */
const char *slab_back(slab *s);

/* Gives all pieces back. */
void slab_release(slab *s);

/* --------------------------------------------------------------- whole slabs */

/*
 * The gate: shared by every operation that changes or looks at the layer's structures, closed by a
 * fork and for the moment in which a slab's handle becomes stale. Whoever allocates from a slab
 * knows that it lives and passes without; timers and consoles that ask a slab for numbers may do so
 * while another thread destroys it. A handle that is looked up inside the gate stays valid until
 * its end.
 */
class gate_guard {
public:
    gate_guard();
    ~gate_guard();
    gate_guard(const gate_guard &) = delete;
    gate_guard &operator=(const gate_guard &) = delete;
};

void gate_close();
void gate_open();
void gate_reset(); /* in a forked child, which holds it and has no other thread */

/* In a forked child: slabs whose memory stayed with the parent. */
void slabs_lose_unforked();

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

/* Objects that are out; each look moves the slab's high-water mark, see zymm_host.h. */
uint64_t slab_used(slab *s);

/* max_num; without a limit, the objects that exist. */
uint64_t total_of(const slab *s);

/* Allocations and frees so far. */
struct slab_counts {
    uint64_t allocs, frees;
};
slab_counts slab_counts_of(slab *s);

/* Objects that are out for at least the leak age. */
uint64_t slab_leaked(slab *s);

/* Calls `visit` with the tag of every object that is out. Takes no lock for longer than a piece. */
using visit_fn = void (*)(void *context, uint64_t tag);
void slab_visit_out(slab *s, visit_fn visit, void *context);

/* Adds up what threads' caches hold, of one node or all (ALL_NODES). */
enum : uint32_t { ALL_NODES = 0xFFFFFFFF };
uint64_t slab_cached(slab *s, uint32_t node);
uint64_t slab_used_on(slab *s, uint32_t node);

} // namespace zymm
