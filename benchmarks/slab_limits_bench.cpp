/*
 * A pool at its end: dry, nearly dry, and free but in other threads' hands.
 *
 *     dry_known_empty    all objects out, taken by the thread that asks in vain
 *     dry_drained        all objects out, and before each question their holder puts one back and
 *                        takes it again: each refusal has to find out that its cache is empty.
 *                        Counters: p50, p99 of a refusal
 *     last_of_64         62 of 64 objects parked, two threads turn over the last two: whenever one
 *                        holds its page, 63 are out. An exact pool never refuses here. Counters:
 *                        p50, p99, p999 of a page pair, refused for each million attempts
 *     obtainable_other   of 1,023 objects, all free, another thread has held 700, freed them and is
 *                        still alive. Counter: how many this thread gets
 *     obtainable_exited  the same after that thread has ended
 */
#include "slab_pools.h"

#include <atomic>
#include <thread>
#include <vector>

#include "tick_clock.h"

namespace bench
{

template <class RAW>
static std::vector<void *> take_all(size_t at_most = SIZE_MAX)
{
    std::vector<void *> objects;
    while (objects.size() < at_most) {
        void *object = RAW::get();
        if (object == nullptr)
            break;
        objects.push_back(object);
    }
    return objects;
}

template <class RAW>
static void put_all(const std::vector<void *> &objects)
{
    for (void *object : objects)
        RAW::put(object);
}

/* ---------------------------------------------------------------------------------- dry */

template <class RAW>
static void dry_known_empty(state &run)
{
    const typename RAW::thread_scope scope(64);
    const std::vector<void *> objects = take_all<RAW>();
    for (auto _ : run) {
        void *object = RAW::get();
        benchmark::DoNotOptimize(object);
        if (object != nullptr)
            fail("a pool that was empty had an object");
    }
    put_all<RAW>(objects);
}

/* Whose turn it is: the two threads of dry_drained go one after the other. */
enum class turn { OTHER, ASKING, OVER };
static std::atomic<turn> s_turn;

static turn await(turn awaited)
{
    for (uint32_t spins = 1;; ++spins) {
        const turn now = s_turn.load(std::memory_order_acquire);
        if (now == awaited || now == turn::OVER)
            return now;
        if (spins % 1024 == 0)
            std::this_thread::yield();
        else
            __builtin_ia32_pause();
    }
}

template <class RAW>
static void prepare_dry(const state &)
{
    RAW::make_pool(64);
    s_turn = turn::OTHER;
}

/* Holds all objects, and before each question puts one back and takes it out again: its cache is
 * empty then, but nobody else can know. */
template <class RAW>
static void hold_everything(void)
{
    std::vector<void *> objects = take_all<RAW>();
    if (objects.size() != 64)
        fail("a pool of 64 objects has another number");
    while (await(turn::OTHER) != turn::OVER) {
        RAW::put(objects.back());
        objects.back() = RAW::get();
        s_turn.store(turn::ASKING, std::memory_order_release);
    }
    put_all<RAW>(objects);
}

template <class RAW>
static void dry_drained(state &run)
{
    const typename RAW::thread_scope scope(64);
    if (run.thread_index() != 0) {
        bool has_held = false;
        for (auto _ : run) {
            if (!has_held)
                hold_everything<RAW>();
            has_held = true;
        }
        return;
    }

    histogram refusals;
    benchmark::IterationCount left = run.max_iterations;
    for (auto _ : run) {
        await(turn::ASKING);
        const uint64_t begin = tick();
        void *object = RAW::get();
        refusals.add(net_ticks(begin));
        if (object != nullptr)
            fail("a pool whose objects are all out had one");
        --left;
        s_turn.store(left == 0 ? turn::OVER : turn::OTHER, std::memory_order_release);
    }
    run.counters["p50"] = refusals.percentile(0.5);
    run.counters["p99"] = refusals.percentile(0.99);
}

/* -------------------------------------------------------------------------- nearly dry */

static std::vector<void *> s_parked;

template <class RAW>
static void park_62(const state &)
{
    RAW::make_pool(64);
    s_parked.clear();
    for (int i = 0; i < 62; ++i)
        s_parked.push_back(RAW::get());
}

template <class RAW>
static void unpark(const state &)
{
    put_all<RAW>(s_parked);
    RAW::drop_pool();
}

template <class RAW>
static void last_of_64(state &run)
{
    using pages = peer_pages<RAW>;
    const typename RAW::thread_scope scope(64);
    histogram times;
    uint64_t refused = 0;
    for (auto _ : run) {
        const uint64_t begin = tick();
        page_ctrl *page = pages::take();
        if (page != nullptr)
            pages::give(page);
        const uint64_t passed = net_ticks(begin);
        if (page != nullptr)
            times.add(passed);
        else
            ++refused;
    }
    report_figure(run, "p50", times.percentile(0.5));
    report_figure(run, "p99", times.percentile(0.99));
    report_figure(run, "p999", times.percentile(0.999));
    report_figure(run, "refused", 1e6 * double(refused) / double(run.max_iterations));
}

/* --------------------------------------------------------------------------- stranded */

template <class RAW, bool HAS_EXITED>
static void obtainable(state &run)
{
    uint64_t got = 0;
    for (auto _ : run) {
        RAW::make_pool(1023);
        std::atomic<bool> is_freed = false;
        std::atomic<bool> may_exit = false;
        std::thread other([&] {
            const typename RAW::thread_scope scope(1023);
            put_all<RAW>(take_all<RAW>(700));
            is_freed = true;
            while (!may_exit)
                std::this_thread::yield();
        });
        while (!is_freed)
            std::this_thread::yield();
        if (HAS_EXITED) {
            may_exit = true;
            other.join();
        }

        const std::vector<void *> objects = take_all<RAW>();
        got = objects.size();
        put_all<RAW>(objects);
        may_exit = true;
        if (other.joinable())
            other.join();
        RAW::drop_pool();
    }
    run.counters["objects"] = double(got);
}

void add_slab_limits(void)
{
    bounded_pools::each([]<class RAW>(std::type_identity<RAW>) {
        add("dry_known_empty", RAW::NAME, 1, dry_known_empty<RAW>)
            ->Setup(make_pool<RAW, 64>)
            ->Teardown(drop_pool<RAW>);
        add("dry_drained", RAW::NAME, 2, dry_drained<RAW>)
            ->Setup(prepare_dry<RAW>)
            ->Teardown(drop_pool<RAW>);
        add("last_of_64", RAW::NAME, 2, last_of_64<RAW>)
            ->Setup(park_62<RAW>)
            ->Teardown(unpark<RAW>);
        add("obtainable_other", RAW::NAME, 1, obtainable<RAW, false>)->Iterations(1);
        add("obtainable_exited", RAW::NAME, 1, obtainable<RAW, true>)->Iterations(1);
    });
}

} // namespace bench
