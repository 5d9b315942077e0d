/*
 * Giving pages back in the two situations that are harder than a thread's own pair.
 *
 *     page_pair_waiter   as page_pair_hot, while a request waits in the retry queue: every free
 *                        then kicks the queue. The request asks for more pages than a run can have,
 *                        so nothing ever serves it
 *     cross_free         one thread takes pages and hands them over, another gives them back; the
 *                        way of an I/O through a node. A page passes through a ring of 256 places,
 *                        whose two ends look at each other's position only when they have to
 */
#include "harness.h"

#include <sched.h>

#include <atomic>

namespace bench
{

/* ------------------------------------------------------------------ a waiting request */

static void on_pages(void *, uint64_t, uint32_t)
{
}

static void on_failure(uint64_t)
{
}

template <class L>
static void queue_a_request(const state &)
{
    constexpr uint32_t MORE_THAN_A_RUN = 65536;
    L::allocMultiPagesForPagePoolTimeOut(MORE_THAN_A_RUN, nullptr, PAGE_TIMEOUT_NEVER, on_pages, 0,
                                         on_failure, 0, MODULE, __func__, __LINE__);
}

/* A request that waits for ever goes with the queue. */
template <class L>
static void renew_the_queue(const state &)
{
    L::page_exit_retry();
    if (L::page_init_retry() != 0)
        fail("the retry queue cannot be made again");
}

template <class L>
static void page_pair_waiter(state &run)
{
    for (auto _ : run) {
        page_ctrl *page = ours_pages<L>::take();
        benchmark::DoNotOptimize(page);
        ours_pages<L>::give(page);
    }
}

/* -------------------------------------------------------------------- two threads' way */

struct alignas(64) end_of_ring {
    std::atomic<uint32_t> position;
    uint32_t seen_of_other;
};

class page_ring
{
public:
    void reset()
    {
        head_.position = tail_.position = 0;
        head_.seen_of_other = tail_.seen_of_other = 0;
    }
    void push(page_ctrl *page)
    {
        const uint32_t at = head_.position.load(std::memory_order_relaxed);
        wait_until(head_, tail_, [at](uint32_t other) { return at - other < PLACES; });
        pages_[at % PLACES] = page;
        head_.position.store(at + 1, std::memory_order_release);
    }
    page_ctrl *pop()
    {
        const uint32_t at = tail_.position.load(std::memory_order_relaxed);
        wait_until(tail_, head_, [at](uint32_t other) { return other != at; });
        page_ctrl *page = pages_[at % PLACES];
        tail_.position.store(at + 1, std::memory_order_release);
        return page;
    }

private:
    static constexpr uint32_t PLACES = 256;

    template <class CONDITION>
    static void wait_until(end_of_ring &own, const end_of_ring &other, CONDITION is_met)
    {
        for (uint32_t spins = 1; !is_met(own.seen_of_other); ++spins) {
            own.seen_of_other = other.position.load(std::memory_order_acquire);
            if (spins % 1024 == 0)
                sched_yield();
            else
                __builtin_ia32_pause();
        }
    }

    end_of_ring head_;
    end_of_ring tail_;
    alignas(64) page_ctrl *pages_[PLACES];
};

static page_ring s_ring;

template <class SOURCE>
static void prepare_ring(const state &)
{
    SOURCE::prepare(512);
    s_ring.reset();
}

template <class SOURCE>
static void cross_free(state &run)
{
    const typename SOURCE::thread_scope scope(512);
    if (run.thread_index() == 0) {
        for (auto _ : run) {
            page_ctrl *page = SOURCE::take();
            if (page == nullptr)
                fail("a source is out of pages");
            s_ring.push(page);
        }
    } else {
        for (auto _ : run)
            SOURCE::give(s_ring.pop());
    }
}

void add_page_free(void)
{
    add(
        "page_pair_waiter", limit_pages::NAME, 1, +[](state &run) {
            const limit_pages::thread_scope scope(1);
            for (auto _ : run) {
                page_ctrl *page = limit_pages::take();
                benchmark::DoNotOptimize(page);
                limit_pages::give(page);
            }
        });
    our_forms::each([]<class L>(std::type_identity<L>) {
        add("page_pair_waiter", L::NAME, 1, page_pair_waiter<L>)
            ->Setup(queue_a_request<L>)
            ->Teardown(renew_the_queue<L>);
    });
    all_pages::each([]<class SOURCE>(std::type_identity<SOURCE>) {
        add("cross_free", SOURCE::NAME, 2, cross_free<SOURCE>)->Setup(prepare_ring<SOURCE>);
    });
}

} // namespace bench
