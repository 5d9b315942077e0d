/*
 * Settings and statistics of the layer. Settings are relaxed atomics: each stands for itself, and
 * whoever acts on one reads it when it is needed. The cache numbers and the core-dump level are
 * kept for that; no slab caches objects by thread.
 */
#include "zymm_settings.h"

#include <atomic>

#include "zymm_handle.h"
#include "zymm_seam.h"
#include "zymm_store.h"
#include "zymm_system.h"

using namespace zymm;

enum : uint64_t { DEFAULT_LEAK_AGE_SECONDS = 600, NS_A_SECOND = 1000000000 };

static std::atomic<uint64_t> s_leak_age{DEFAULT_LEAK_AGE_SECONDS};
static std::atomic<uint32_t> s_coredump_level{0};
static std::atomic<uint32_t> s_cache_page{0};
static std::atomic<uint32_t> s_cache_inner_64k{0};
static std::atomic<uint32_t> s_cache_outer_64k{0};
static std::atomic<uint32_t> s_page_max_cache_threads{0};

void zymm_numa_coredump_level_set(uint32_t level)
{
    s_coredump_level.store(level, std::memory_order_relaxed);
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
