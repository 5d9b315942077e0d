/*
 * Signal handlers that allocate and free from the slab that the interrupted thread may be working
 * on at that very moment.
 *
 * A handler must not wait for what its own thread has to finish, nor two handlers for each other's
 * threads: a mistake here is a test that does not end. What a handler may see is a null although an
 * object is free: those in the cache that its own thread has half opened are out of its reach. The
 * threads themselves are refused nothing that is theirs.
 *
 * The sender waits until each signal has been handled, so their number is known and none is merged
 * with another.
 */
#include <barrier>
#include <cerrno>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "contract/slab_stress/stamped_slab.h"

namespace
{

enum : unsigned { WORKERS = 3, WORKER_HOLDS = 8, VOLLEYS = 800, SINGLES = 1500, LIVES = 300 };

/* What a worker and the handlers that interrupt it share. */
struct worker_state {
    item                  pocket; /* of the handler; kept from one signal to the next */
    std::atomic<unsigned> handled{0};
};

stamped_slab            *s_slab = nullptr;
std::atomic<uint64_t>    s_refused_handlers{0};
std::atomic<unsigned>    s_handled{0};
thread_local worker_state *t_worker = nullptr;

item take_in_handler(hand *self)
{
    const item taken = s_slab->take(self);
    if (taken.object == nullptr)
        s_refused_handlers.fetch_add(1, std::memory_order_relaxed);
    return taken;
}

/* Frees what the last signal's handler took and takes another one for the next. */
void turn_pocket_over(int)
{
    const int before = errno;
    hand      self;
    if (t_worker->pocket.object != nullptr)
        s_slab->give(&self, t_worker->pocket);
    t_worker->pocket = take_in_handler(&self);
    t_worker->handled.fetch_add(1);
    errno = before;
}

void take_and_give(int)
{
    const int  before = errno;
    hand       self;
    const item taken = take_in_handler(&self);
    if (taken.object != nullptr)
        s_slab->give(&self, taken);
    s_handled.fetch_add(1);
    errno = before;
}

void install(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler       = handler;
    action.sa_flags         = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
}

void block_signal(int how)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(how, &set, nullptr);
}

/*
 * ThreadSanitizer's runtime puts a signal off until the thread's next call that may block, and loses
 * it, or hangs, when the thread ends before. Under it, a life therefore ends without signals; in
 * every other build they also meet its clean-up.
 */
void end_of_life()
{
#ifdef __SANITIZE_THREAD__
    block_signal(SIG_BLOCK);
    usleep(1);
#endif
}

void churn(hand *self, std::vector<item> *held)
{
    const bool takes = held->empty() || (held->size() < WORKER_HOLDS && self->pick(2) == 0);
    if (takes) {
        const item taken = s_slab->take(self);
        if (taken.object != nullptr)
            held->push_back(taken);
    } else {
        std::swap((*held)[self->pick(static_cast<unsigned>(held->size()))], held->back());
        s_slab->give(self, held->back());
        held->pop_back();
    }
}

void work(worker_state *state, std::atomic<bool> *done)
{
    hand              self;
    std::vector<item> held;
    held.reserve(WORKER_HOLDS);
    t_worker = state;
    block_signal(SIG_UNBLOCK);
    while (!done->load(std::memory_order_relaxed)) {
        churn(&self, &held);
        if (self.pick(50) == 0)
            std::this_thread::yield(); /* or the next volley waits for whole time slices */
    }
    block_signal(SIG_BLOCK);
    for (const item &taken : held)
        s_slab->give(&self, taken);
    if (state->pocket.object != nullptr)
        s_slab->give(&self, state->pocket);
}

/* One signal to each worker at once, and the next volley when all are handled. */
void fire(const std::vector<pthread_t> &targets, worker_state *states)
{
    const unsigned volleys = operations(VOLLEYS);
    for (unsigned volley = 1; volley <= volleys; volley++) {
        for (pthread_t target : targets)
            pthread_kill(target, SIGUSR1);
        for (unsigned number = 0; number < WORKERS; number++)
            while (states[number].handled.load() < volley)
                std::this_thread::yield();
    }
}

/* Runs the workers under fire; answers how many takes of theirs, not of handlers, were refused. */
uint64_t refused_under_fire(stamped_slab *slab)
{
    s_slab = slab;
    install(turn_pocket_over);
    block_signal(SIG_BLOCK);
    worker_state           states[WORKERS];
    std::vector<pthread_t> targets(WORKERS);
    std::atomic<bool>      done{false};
    std::barrier           all_known(2);
    std::thread            workers([&] {
        std::atomic<unsigned> known{0};
        in_threads(WORKERS, [&](unsigned number) {
            targets[number] = pthread_self();
            if (++known == WORKERS)
                all_known.arrive_and_wait();
            work(&states[number], &done);
        });
    });
    all_known.arrive_and_wait();
    fire(targets, states);
    done = true;
    workers.join();
    return slab->refused() - s_refused_handlers.load();
}

/* What all threads and handlers may hold, and what each may be about to take or free. */
enum : uint64_t { WANTED = WORKERS * (WORKER_HOLDS + 1) };

const slab_kind SIGNAL_KINDS[] = {
    {"cached_small", ZYMM_SLAB_CACHED, 64, 1},
    {"cached_pages", ZYMM_SLAB_CACHED, 8376, 1},
    {"plain_pages", 0, 8376, 1},
};

} // namespace

class SlabSignal : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabSignal, handlers_that_take_and_free_lose_nothing_in_a_slab_with_room)
{
    stamped_slab slab(GetParam(), WANTED * 30);
    EXPECT_EQ(refused_under_fire(&slab), 0u);
    EXPECT_EQ(s_refused_handlers.load(), 0u);
    slab.expect_exact();
}

TEST_P(SlabSignal, handlers_that_take_and_free_lose_nothing_in_a_slab_that_is_nearly_dry)
{
    stamped_slab slab(GetParam(), WANTED);
    EXPECT_EQ(refused_under_fire(&slab), 0u);
    slab.expect_exact();
}

/* Sent to the process, a signal also meets threads in their first operation and their clean-up. */
TEST_P(SlabSignal, handlers_on_threads_that_are_born_and_die_lose_nothing)
{
    stamped_slab slab(GetParam(), 200);
    s_slab = &slab;
    install(take_and_give);
    block_signal(SIG_BLOCK);
    std::atomic<bool> done{false};
    std::thread       sender([&] {
        const unsigned signals = operations(SINGLES);
        for (unsigned number = 1; number <= signals; number++) {
            kill(getpid(), SIGUSR1);
            while (s_handled.load() < number)
                std::this_thread::yield();
        }
        done = true;
    });
    for (unsigned life = 0; life < LIVES || !done.load(); life++) {
        std::thread([&] {
            block_signal(SIG_UNBLOCK);
            hand              self;
            std::vector<item> held;
            for (unsigned number = 0; number < 100; number++)
                churn(&self, &held);
            for (const item &taken : held)
                slab.give(&self, taken);
            end_of_life();
        }).join();
    }
    sender.join();
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabSignal, testing::ValuesIn(SIGNAL_KINDS), kind_name);
