/*
 * Pages out and back on one thread or on two that have nothing to do with each other.
 *
 *     page_pair_hot   one page, again and again: the allocator's shortest way
 *     page_ws_N       N pages in all taken, then given back in the order in which they came; a
 *                     thread has its share of them. They do not fit the caches, so taking waits for
 *                     the 17 lines that initialisation writes, and giving for the record's line
 *     run_20x64       64 runs of 20 pages live; the oldest goes and a new one comes
 *     run_256         one run of 256 pages, again and again
 *
 * The packet pool without a cache is left out where two threads move many pages an iteration: a
 * thread that loses its processor in the middle of a ring operation makes the other one spin until
 * it is back, and on a machine that is not quite idle one iteration can take a minute. The pair
 * on two threads shows that too, at a price that can be paid.
 */
#include "harness.h"

#include <memory>
#include <vector>

namespace bench
{

template <class SOURCE, uint32_t PAGES>
static void page_working_set(state &run)
{
    const uint32_t share = PAGES / uint32_t(run.threads());
    const typename SOURCE::thread_scope scope(share);
    std::vector<page_ctrl *> pages(share);
    const auto cycle = [&pages] {
        for (page_ctrl *&page : pages) {
            page = SOURCE::take();
            if (page == nullptr)
                fail("a source is out of pages");
        }
        benchmark::ClobberMemory();
        for (page_ctrl *page : pages)
            SOURCE::give(page);
    };
    cycle(); /* what is mapped on first use is mapped now */
    for (auto _ : run)
        cycle();
    count_per_iteration(run, share);
}

template <class SOURCE>
static void run_20x64(state &run)
{
    constexpr uint32_t PAGES = 20;
    constexpr uint32_t LIVE = 64;
    const typename SOURCE::thread_scope scope(PAGES * LIVE);
    const auto spares = std::make_unique<spare_chain[]>(LIVE);
    SGL *chains[LIVE];
    for (uint32_t i = 0; i < LIVE; ++i)
        chains[i] = SOURCE::take_run(PAGES, &spares[i]);

    uint32_t oldest = 0;
    for (auto _ : run) {
        SOURCE::give_run(chains[oldest]);
        chains[oldest] = SOURCE::take_run(PAGES, &spares[oldest]);
        benchmark::ClobberMemory();
        oldest = (oldest + 1) % LIVE;
    }
    for (SGL *chain : chains)
        SOURCE::give_run(chain);
    count_per_iteration(run, PAGES);
}

template <class SOURCE>
static void run_256(state &run)
{
    constexpr uint32_t PAGES = 256;
    const typename SOURCE::thread_scope scope(PAGES);
    const auto spare = std::make_unique<spare_chain>();
    SOURCE::give_run(SOURCE::take_run(PAGES, spare.get()));
    for (auto _ : run) {
        SGL *chain = SOURCE::take_run(PAGES, spare.get());
        benchmark::DoNotOptimize(chain);
        SOURCE::give_run(chain);
    }
    count_per_iteration(run, PAGES);
}

template <class SOURCE>
static bool may_spin_for_ever(int threads)
{
    return threads > 1 && std::is_same_v<SOURCE, peer_pages<packet_nocache>>;
}

template <class SOURCE>
static void add_runs(void)
{
    add("run_20x64", SOURCE::NAME, 1, run_20x64<SOURCE>)->Setup(prepare<SOURCE, 1280>);
    for (int threads : {1, 2}) {
        if (!may_spin_for_ever<SOURCE>(threads))
            add("run_256", SOURCE::NAME, threads, run_256<SOURCE>)->Setup(prepare<SOURCE, 512>);
    }
}

void add_page_alloc(void)
{
    all_pages::each([]<class SOURCE>(std::type_identity<SOURCE>) {
        for (int threads : {1, 2}) {
            add("page_pair_hot", SOURCE::NAME, threads, page_pair_hot<SOURCE>)
                ->Setup(prepare<SOURCE, 2>);
            if (may_spin_for_ever<SOURCE>(threads))
                continue;
            add("page_ws_4096", SOURCE::NAME, threads, page_working_set<SOURCE, 4096>)
                ->Setup(prepare<SOURCE, 4096>);
            add("page_ws_16384", SOURCE::NAME, threads, page_working_set<SOURCE, 16384>)
                ->Setup(prepare<SOURCE, 16384>);
        }
        add_runs<SOURCE>();
    });
    add_runs<packet_bulk>();
}

} // namespace bench
