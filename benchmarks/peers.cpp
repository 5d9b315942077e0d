/*
 * Loading the allocators and starting the packet library.
 *
 * The packet library runs without huge pages, devices and shared state: plain memory of this
 * process, as everybody else here has it.
 */
#include "peers.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_lcore.h>

#include "bench_error.h"

namespace bench
{

template <class PEER>
static void load(const char *file, const char *malloc_name, const char *free_name)
{
    void *library = dlopen(file, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (library == nullptr)
        fail(dlerror());
    PEER::s_malloc = reinterpret_cast<void *(*)(size_t)>(dlsym(library, malloc_name));
    PEER::s_free = reinterpret_cast<void (*)(void *)>(dlsym(library, free_name));
    if (PEER::s_malloc == nullptr || PEER::s_free == nullptr || PEER::s_malloc == &malloc)
        fail("an allocator lacks its operations or has replaced malloc");
}

static void start_packet_library(void)
{
    /* The memory is what all packet pools of this program take; it is backed as it is used. */
    static const char *const ARGUMENTS[] = {
        "cmm_bench",   "--no-huge", "--no-pci", "--iova-mode=va", "--no-telemetry",
        "--no-shconf", "-m",        "1536",     "--lcores=0",     "--log-level=3",
    };
    char *arguments[std::size(ARGUMENTS)];
    for (size_t i = 0; i < std::size(ARGUMENTS); ++i)
        arguments[i] = const_cast<char *>(ARGUMENTS[i]);

    /* The start binds the calling thread to one core; a measuring thread is the scheduler's. */
    cpu_set_t cores;
    sched_getaffinity(0, sizeof cores, &cores);
    const int started = rte_eal_init(int(std::size(arguments)), arguments);
    if (started < 0)
        fail(rte_strerror(rte_errno));
    sched_setaffinity(0, sizeof cores, &cores);
}

void start_peers(void)
{
    load<jemalloc>("libjemalloc.so.2", "malloc", "free");
    load<tcmalloc>("libtcmalloc_minimal.so.4", "tc_malloc", "tc_free");
    load<mimalloc>("libmimalloc.so.2", "mi_malloc", "mi_free");
    start_packet_library();
}

packet_thread::packet_thread(uint32_t) : registered_here_(false)
{
    if (rte_lcore_id() != LCORE_ID_ANY)
        return;
    if (rte_thread_register() != 0)
        fail("the packet library refuses a second thread");
    registered_here_ = true;
}

packet_thread::~packet_thread()
{
    if (registered_here_)
        rte_thread_unregister();
}

rte_mempool *packet_pool_create(uint32_t objects, uint32_t cache)
{
    static unsigned s_serial;
    char name[RTE_MEMPOOL_NAMESIZE];
    snprintf(name, sizeof name, "pages%u", s_serial++);

    rte_mempool *pool = rte_mempool_create(name, objects, PAGE_OBJECT_SIZE, cache, 0, nullptr,
                                           nullptr, nullptr, nullptr, SOCKET_ID_ANY, 0);
    if (pool == nullptr)
        fail(rte_strerror(rte_errno));
    return pool;
}

/* Each object written once: a pool without a cache would else meet fresh memory for a long time. */
static void touch(rte_mempool *, void *, void *object, unsigned)
{
    memset(object, 0, PAGE_OBJECT_SIZE);
}

rte_mempool *packet_pool_for(uint32_t pages, uint32_t cache)
{
    constexpr uint32_t SMALL = 4096;
    constexpr uint32_t LARGE = 16384;
    constexpr uint32_t KEPT_BY_TWO_CACHES = 2 * (PACKET_CACHE + PACKET_CACHE / 2);
    static rte_mempool *s_pools[2][2];

    if (pages > LARGE)
        fail("no packet pool is that large");
    rte_mempool *&pool = s_pools[pages > SMALL][cache != 0];
    if (pool == nullptr) {
        pool = packet_pool_create((pages > SMALL ? LARGE : SMALL) + KEPT_BY_TWO_CACHES, cache);
        rte_mempool_obj_iter(pool, touch, nullptr);
    }
    return pool;
}

} // namespace bench
