/*
 * Signal handlers that use another slab than the thread that they interrupt.
 *
 * The thread may be busy with slab A, and somebody be waiting for it to stop: a handler that now
 * waited for the same somebody, because slab B is new to its thread, dry, or being emptied, would
 * wait for ever. Such a mistake is a test that does not end.
 */
#include <cerrno>

#include <pthread.h>
#include <signal.h>

#include "contract/slab_stress/stamped_slab.h"

namespace
{

enum : unsigned { SLABS = 200, SIGNALS = 800 };

std::atomic<uint64_t> s_used_by_handler{0};
std::atomic<unsigned> s_handled{0};
std::atomic<unsigned> s_taken{0};

void use_other_slab(int)
{
    const int      before = errno;
    const uint64_t slab   = s_used_by_handler.load();
    void *const    object = take(slab);
    if (object != nullptr) {
        s_taken.fetch_add(1);
        give(slab, object);
    }
    s_handled.fetch_add(1);
    errno = before;
}

uint64_t make_cached(uint64_t obj_size, uint64_t max_num)
{
    zymm_slab_param param = slab_param(obj_size, max_num);
    param.attr            = ZYMM_SLAB_CACHED;
    return zymm_create_slab(&param, 386, "test");
}

void use_handler()
{
    struct sigaction action = {};
    action.sa_handler       = use_other_slab;
    action.sa_flags         = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
}

void take_and_give_all(uint64_t slab)
{
    for (void *object : take_all(slab)) /* its last refusal stops all other threads */
        give(slab, object);
}

/*
 * Thread 1 works on the small slab and is interrupted, thread 2 makes the small slab dry again and
 * again, and so stops thread 1. `before_signal` and `meanwhile` are this thread's part.
 */
void interrupt(const std::function<void(unsigned)> &before_signal,
               const std::function<void(unsigned)> &meanwhile, unsigned signals)
{
    use_handler();
    s_handled = 0;
    s_taken   = 0;
    const uint64_t         small = make_cached(64, 8);
    std::atomic<bool>      done{false};
    std::atomic<pthread_t> target{};
    std::atomic<unsigned>  ready{0};
    in_threads(3, [&](unsigned number) {
        if (number == 1)
            target = pthread_self();
        ready++;
        while (ready.load() < 3)
            std::this_thread::yield();
        if (number != 0) {
            while (!done.load())
                take_and_give_all(small);
            return;
        }
        for (unsigned count = 0; count < signals; count++) {
            before_signal(count);
            pthread_kill(target.load(), SIGUSR1);
            meanwhile(count);
            while (s_handled.load() <= count)
                std::this_thread::yield();
        }
        done = true;
    });
    EXPECT_EQ(zymm_slab_check(small), 0);
    EXPECT_EQ(used_of(small), 0u);
    destroy(small);
}

} // namespace

TEST(SlabSignalOther, a_handler_may_be_its_threads_first_use_of_a_slab)
{
    std::vector<uint64_t> slabs;
    for (unsigned count = 0; count < SLABS; count++)
        slabs.push_back(make_cached(64, 4));
    interrupt([&](unsigned number) { s_used_by_handler = slabs[number]; }, [](unsigned) {}, SLABS);
    EXPECT_EQ(s_taken.load(), unsigned(SLABS));
    for (uint64_t slab : slabs) {
        EXPECT_EQ(zymm_slab_check(slab), 0);
        EXPECT_EQ(used_of(slab), 0u);
        destroy(slab);
    }
}

TEST(SlabSignalOther, a_handler_may_ask_a_slab_whose_objects_lie_in_another_threads_cache)
{
    const uint64_t slab = make_cached(64, 16);
    s_used_by_handler   = slab;
    interrupt([&](unsigned) { take_and_give_all(slab); },
              [&](unsigned) { take_and_give_all(slab); }, SIGNALS);
    EXPECT_EQ(zymm_slab_check(slab), 0);
    take_and_give_all(slab);
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}

TEST(SlabSignalOther, a_handler_may_use_a_slab_while_it_is_being_checked)
{
    const uint64_t slab = make_cached(64, 100);
    s_used_by_handler   = slab;
    interrupt([](unsigned) {}, [&](unsigned) { EXPECT_EQ(zymm_slab_check(slab), 0); }, SIGNALS);
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}
