/*
 * Settings and statistics of the layer. Settings are relaxed atomics: each stands for itself, and
 * whoever acts on one reads it when it is needed. The cache numbers count for slabs made after they
 * were set, as the switch for huge pages does; the core dump level for pieces taken afterwards.
 */
#include "zymm_settings.h"

#include <atomic>

#include "zymm_guard.h"
#include "zymm_handle.h"
#include "zymm_seam.h"
#include "zymm_slab.h"
#include "zymm_store.h"
#include "zymm_system.h"

using namespace zymm;

enum : uint64_t { DEFAULT_LEAK_AGE_SECONDS = 600, NS_A_SECOND = 1000000000 };

static std::atomic<uint64_t> s_leak_age{DEFAULT_LEAK_AGE_SECONDS};
static std::atomic<uint32_t> s_coredump_level{0};
static std::atomic<int>      s_huge_pages{0};
static std::atomic<uint32_t> s_cache_page{0};
static std::atomic<uint32_t> s_cache_inner_64k{0};
static std::atomic<uint32_t> s_cache_outer_64k{0};
static std::atomic<uint32_t> s_page_max_cache_threads{0};

void zymm_numa_coredump_level_set(uint32_t level)
{
    s_coredump_level.store(level, std::memory_order_relaxed);
}

bool zymm::is_kept_from_dumps(uint64_t obj_size)
{
    enum : uint64_t { LARGE_BYTES = 4096 };
    const uint32_t level = s_coredump_level.load(std::memory_order_relaxed);
    return level >= 2 || (level == 1 && obj_size >= LARGE_BYTES);
}

void zymm_huge_pages_set(int on)
{
    s_huge_pages.store(on, std::memory_order_relaxed);
}

bool zymm::huge_pages_are_on()
{
    return s_huge_pages.load(std::memory_order_relaxed) != 0;
}

void zymm_pool_cache_num_set(uint32_t page, uint32_t inner_64k, uint32_t outer_64k,
                             uint32_t page_max_cache_threads)
{
    s_cache_page.store(page, std::memory_order_relaxed);
    s_cache_inner_64k.store(inner_64k, std::memory_order_relaxed);
    s_cache_outer_64k.store(outer_64k, std::memory_order_relaxed);
    s_page_max_cache_threads.store(page_max_cache_threads, std::memory_order_relaxed);
}

void zymm_leak_age_set(uint64_t seconds)
{
    s_leak_age.store(seconds, std::memory_order_relaxed);
}

uint64_t zymm_leak_age_get(void)
{
    return s_leak_age.load(std::memory_order_relaxed);
}

uint64_t zymm::leak_age_ns()
{
    const uint64_t seconds = zymm_leak_age_get();
    return seconds < UINT64_MAX / NS_A_SECOND ? seconds * NS_A_SECOND : UINT64_MAX;
}

uint64_t zymm::cache_objects_for(uint64_t obj_size)
{
    enum : uint64_t { INNER_BYTES = 65536, DEFAULT_INNER = 128, DEFAULT_OUTER = 16 };
    const bool is_inner = obj_size <= INNER_BYTES;
    const std::atomic<uint32_t> *setting = &s_cache_outer_64k;
    if (obj_size == PAGE_OBJECT_BYTES)
        setting = &s_cache_page;
    else if (is_inner)
        setting = &s_cache_inner_64k;
    const uint64_t wanted = setting->load(std::memory_order_relaxed);
    if (wanted != 0)
        return wanted;
    return is_inner ? DEFAULT_INNER : DEFAULT_OUTER;
}

uint32_t zymm::page_cache_threads()
{
    return s_page_max_cache_threads.load(std::memory_order_relaxed);
}

bool zymm::caches_are_off()
{
    return GUARD_CHECKS_EACH_OBJECT || guard_is_valgrind();
}

int zymm_settings_get(zymm_settings *settings)
{
    if (settings == nullptr) {
        ZYMM_ERROR(__func__, "settings is null.");
        return -1;
    }
    settings->coredump_level = s_coredump_level.load(std::memory_order_relaxed);
    settings->cache_page = s_cache_page.load(std::memory_order_relaxed);
    settings->cache_inner_64k = s_cache_inner_64k.load(std::memory_order_relaxed);
    settings->cache_outer_64k = s_cache_outer_64k.load(std::memory_order_relaxed);
    settings->page_max_cache_threads = s_page_max_cache_threads.load(std::memory_order_relaxed);
    return 0;
}

int zymm_stats_get(zymm_stats *stats)
{
    if (stats == nullptr) {
        ZYMM_ERROR(__func__, "stats is null.");
        return -1;
    }
    stats->mapped = system_mapped_bytes();
    stats->control = store_mapped_bytes();
    stats->handles = handles_alive();
    return 0;
}
