/*
 * How a measurement gets its name, its threads and its sources.
 *
 * A benchmark is called ROW/SOURCE: the row is a line of the table in the report, the source one of
 * its columns. Its time is that of one iteration; when an iteration does a thing many times over,
 * the counter "per" says how often, and the report divides. Rows whose figure is not a time of an
 * iteration leave it in a counter of its own.
 *
 * With several threads the times reported are wall time divided by all threads' iterations; the
 * report multiplies by the threads, which gives a thread's time.
 */
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <type_traits>

#include "page_sources.h"

namespace bench
{

using state = benchmark::State;
using measured = void (*)(state &);
using setup = void (*)(const state &);

/* How often each measurement turns, where instructions are counted and not times; 0: until the time
 * that is asked for has passed. Set before anything is added. */
inline int64_t g_turns = 0;

inline benchmark::internal::Benchmark *add(const char *row, const char *source, int threads,
                                           measured function)
{
    const std::string name = std::string(row) + "/" + source;
    auto *const added = benchmark::RegisterBenchmark(name.c_str(), function);
    if (g_turns != 0)
        added->Iterations(g_turns);
    return added->Threads(threads)->UseRealTime();
}

/* `per` things are done in each iteration, by each thread. */
inline void count_per_iteration(state &run, double per)
{
    run.counters["per"] = benchmark::Counter(per, benchmark::Counter::kAvgThreads);
}

inline void report_figure(state &run, const char *name, double value)
{
    run.counters[name] = benchmark::Counter(value, benchmark::Counter::kAvgThreads);
}

template <class... SOURCES>
struct sources {
    /* Calls use(std::type_identity<SOURCE>) for each of them. */
    template <class USE>
    static void each(USE use)
    {
        (use(std::type_identity<SOURCES>{}), ...);
    }
};

using general_allocators =
    sources<peer_pages<glibc>, peer_pages<mimalloc>, peer_pages<jemalloc>, peer_pages<tcmalloc>>;

using all_pages = sources<limit_pages, ours_pages<ours_static>, ours_pages<ours_shared>,
                          peer_pages<packet>, peer_pages<packet_nocache>, peer_pages<glibc>,
                          peer_pages<mimalloc>, peer_pages<jemalloc>, peer_pages<tcmalloc>>;

using our_forms = sources<ours_static, ours_shared>;

template <class SOURCE, uint32_t PAGES>
void prepare(const state &)
{
    SOURCE::prepare(PAGES);
}

/* One page out and back, again and again. */
template <class SOURCE>
void page_pair_hot(state &run)
{
    const typename SOURCE::thread_scope scope(1);
    for (auto _ : run) {
        page_ctrl *page = SOURCE::take();
        benchmark::DoNotOptimize(page);
        SOURCE::give(page);
    }
}

/* Each file of measurements adds its own. */
void add_page_alloc(void);
void add_page_free(void);
void add_page_tail(void);
void add_page_timeout(void);
void add_page_console(void);
void add_slab(void);
void add_slab_limits(void);
void add_memory(void);
void add_sgl_copy(void);
void add_sgl_seek(void);
void add_sgl_clone(void);
void add_req_pool(void);

/* Measures the memory that one source spends on pages, in a process of its own; for main. */
int print_memory_of(const char *source);

} // namespace bench
