/*
 * How long the slowest page pairs take: each pair timed by itself, the median, the 99th and the
 * 99.9th percentile as counters p50, p99, p999 in nanoseconds.
 *
 * Pairs are taken out of a set of 64 pages that are live, so that caches are refilled and emptied
 * on the way: a burst of 64 pages comes and goes, and each page's two halves are timed as one.
 */
#include "harness.h"
#include "tick_clock.h"

namespace bench
{

template <class SOURCE>
static void page_pair_tail(state &run)
{
    constexpr uint32_t BURST = 64;
    const typename SOURCE::thread_scope scope(BURST);
    page_ctrl *pages[BURST];
    uint64_t taking[BURST];
    const auto burst = [&](histogram &times) {
        for (uint32_t i = 0; i < BURST; ++i) {
            const uint64_t begin = tick();
            pages[i] = SOURCE::take();
            taking[i] = net_ticks(begin);
        }
        for (uint32_t i = 0; i < BURST; ++i) {
            const uint64_t begin = tick();
            SOURCE::give(pages[i]);
            times.add(net_ticks(begin) + taking[i]);
        }
    };
    histogram first_uses;
    for (int i = 0; i < 100; ++i)
        burst(first_uses);

    histogram times;
    for (auto _ : run)
        burst(times);
    report_figure(run, "p50", times.percentile(0.5));
    report_figure(run, "p99", times.percentile(0.99));
    report_figure(run, "p999", times.percentile(0.999));
}

void add_page_tail(void)
{
    all_pages::each([]<class SOURCE>(std::type_identity<SOURCE>) {
        add("page_pair_tail", SOURCE::NAME, 1, page_pair_tail<SOURCE>)->Setup(prepare<SOURCE, 64>);
    });
}

} // namespace bench
