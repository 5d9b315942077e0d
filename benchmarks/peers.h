/*
 * The peers: a packet-buffer pool and four general allocators, each measured as itself.
 *
 *     packet          DPDK's mempool through its inline get and put, per-core cache of 512 objects,
 *                     the most that it offers
 *     packet_nocache  the same without a cache: each get and put goes to the shared ring
 *     glibc           malloc and free as this program has them
 *     mimalloc, jemalloc, tcmalloc
 *                     libraries that would replace malloc; each is loaded into a scope of its own
 *                     (RTLD_LOCAL, RTLD_DEEPBIND), so that it serves the measurements and nobody
 *                     else. A call is one indirect jump, as ours is in the shared form
 *
 * A peer RAW has get and put for 8,376 bytes, and a thread_scope that lives in each measuring
 * thread. The general allocators are asked by malloc, without an alignment, which is their fastest
 * way; the packet pool aligns to cache lines, as we do.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <rte_mempool.h>

#include "page_work.h"

namespace bench
{

/* Loads the allocators and starts the packet library; ends the process, with a line, on failure. */
void start_peers(void);

/* ------------------------------------------------------------------- general allocators */

struct no_scope {
    /* The number of pages that the thread will hold at most; only the limit needs it. */
    explicit no_scope(uint32_t = 0)
    {
    }
    ~no_scope()
    {
    }
};

struct glibc {
    static constexpr char NAME[] = "glibc";
    using thread_scope = no_scope;
    static void prepare(uint32_t)
    {
    }
    static void *get()
    {
        return malloc(PAGE_OBJECT_SIZE);
    }
    static void put(void *memory)
    {
        free(memory);
    }
};

/* The tag is a type with the allocator's name; its two operations are set by start_peers. */
template <class TAG>
struct loaded_allocator {
    static constexpr const char *NAME = TAG::NAME;
    using thread_scope = no_scope;
    static inline void *(*s_malloc)(size_t) = nullptr;
    static inline void (*s_free)(void *) = nullptr;
    static void prepare(uint32_t)
    {
    }
    static void *get()
    {
        return s_malloc(PAGE_OBJECT_SIZE);
    }
    static void put(void *memory)
    {
        s_free(memory);
    }
};

struct mimalloc_tag {
    static constexpr char NAME[] = "mimalloc";
};
struct jemalloc_tag {
    static constexpr char NAME[] = "jemalloc";
};
struct tcmalloc_tag {
    static constexpr char NAME[] = "tcmalloc";
};
using mimalloc = loaded_allocator<mimalloc_tag>;
using jemalloc = loaded_allocator<jemalloc_tag>;
using tcmalloc = loaded_allocator<tcmalloc_tag>;

/* --------------------------------------------------------------------- the packet pool */

constexpr uint32_t PACKET_CACHE = 512;

/* Makes the calling thread one that the packet library knows, which its caches depend on. The
 * thread that started the library is one already. */
class packet_thread
{
public:
    explicit packet_thread(uint32_t = 0);
    ~packet_thread();
    packet_thread(const packet_thread &) = delete;
    packet_thread &operator=(const packet_thread &) = delete;

private:
    bool registered_here_;
};

/* A pool of `objects` objects of 8,376 bytes. */
rte_mempool *packet_pool_create(uint32_t objects, uint32_t cache);

/* The standing pool that has room for `pages` pages out, and besides them for what two threads'
 * caches may keep. There are two sizes, made when they are first asked for. */
rte_mempool *packet_pool_for(uint32_t pages, uint32_t cache);

template <uint32_t CACHE>
struct packet_peer {
    static constexpr const char *NAME = CACHE != 0 ? "packet" : "packet_nocache";
    using thread_scope = packet_thread;
    static inline rte_mempool *s_pool = nullptr;
    static void prepare(uint32_t pages)
    {
        s_pool = packet_pool_for(pages, CACHE);
    }
    static void *get()
    {
        void *object = nullptr;
        return rte_mempool_get(s_pool, &object) == 0 ? object : nullptr;
    }
    static void put(void *object)
    {
        rte_mempool_put(s_pool, object);
    }
};

using packet = packet_peer<PACKET_CACHE>;
using packet_nocache = packet_peer<0>;

} // namespace bench
