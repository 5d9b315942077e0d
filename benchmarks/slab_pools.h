/*
 * Bare objects of 8,376 bytes from pools that a measurement makes for itself, of exactly so many
 * objects: make_pool(objects), drop_pool(), get, put.
 *
 *     slab<L>        our slab allocator, without the page layer above it
 *     packet_own<C>  a packet pool of its own; its cache is as large as the pool allows, up to C
 */
#pragma once

#include "harness.h"

namespace bench
{

template <class L>
struct slab {
    static constexpr const char *NAME = L::NAME;
    using thread_scope = no_scope;
    static inline uint64_t s_slab = 0;
    static void make_pool(uint32_t objects)
    {
        zymm_slab_param param;
        L::zymm_slab_param_init(&param);
        param.obj_size = PAGE_OBJECT_SIZE;
        param.align = 64;
        param.attr = ZYMM_SLAB_CACHED;
        param.max_num = objects;
        param.module_id = MODULE;
        s_slab = L::zymm_create_slab(&param, MODULE, __func__);
        if (s_slab == 0)
            fail("a slab cannot be made");
    }
    static void drop_pool()
    {
        L::zymm_destory_slab(s_slab, MODULE, __func__);
    }
    static void *get()
    {
        return L::zymm_slab_malloc(s_slab, MODULE, __func__, __LINE__);
    }
    static void put(void *object)
    {
        L::zymm_slab_free(s_slab, object, MODULE, __func__);
    }
};

template <uint32_t CACHE>
struct packet_own : packet_peer<CACHE> {
    static void make_pool(uint32_t objects)
    {
        const uint32_t largest = objects * 2 / 3;
        packet_own::s_pool = packet_pool_create(objects, CACHE < largest ? CACHE : largest);
    }
    static void drop_pool()
    {
        rte_mempool_free(packet_own::s_pool);
    }
};

using bounded_pools =
    sources<slab<ours_static>, slab<ours_shared>, packet_own<PACKET_CACHE>, packet_own<0>>;

template <class RAW, uint32_t OBJECTS>
void make_pool(const state &)
{
    RAW::make_pool(OBJECTS);
}

template <class RAW>
void drop_pool(const state &)
{
    RAW::drop_pool();
}

} // namespace bench
