/*
 * Processes forked while threads allocate.
 *
 * The child has one thread and the whole slab: whatever lock, cache or half-finished operation the
 * other threads had at that moment, nobody is left to finish it. What those threads held stays out
 * in the child for ever; everything else can be had.
 *
 * A child answers by its exit status: 0, or the number of the check that failed. It dies with its
 * parent, so that one that hangs leaves no process behind.
 */
#include <algorithm>
#include <latch>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "contract/slab_stress/stamped_slab.h"

namespace
{

enum : unsigned { WORKERS = 4, WORKER_HOLDS = 8, FORKS = 40 };
enum : uint64_t { OBJECTS = 256, OUT_AT_MOST = WORKERS * WORKER_HOLDS };

/* Exit status of a child that runs `body`; -1 when it was killed. */
int status_of_child(const std::function<int()> &body)
{
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/* Takes all there is, marks each, finds all marks unharmed, gives all back; how many there were. */
uint64_t obtainable(uint64_t slab)
{
    const std::vector<void *> all   = take_all(slab);
    uint64_t                  mark  = 0;
    uint64_t                  wrong = 0;
    for (void *object : all)
        *static_cast<uint64_t *>(object) = mark++;
    mark = 0;
    for (void *object : all)
        wrong += *static_cast<uint64_t *>(object) != mark++;
    for (void *object : all)
        wrong += give(slab, object) != 0;
    return wrong == 0 ? all.size() : 0;
}

/* 0, or which check failed in a child of a process whose threads held at most OUT_AT_MOST. */
int use_in_child(uint64_t slab)
{
    if (used_of(slab) > OBJECTS)
        return 1;
    const uint64_t count = obtainable(slab);
    if (count < OBJECTS - OUT_AT_MOST || count > OBJECTS)
        return 2;
    if (obtainable(slab) != count)
        return 3;
    if (used_of(slab) > OUT_AT_MOST)
        return 4;
    const uint64_t own = make_slab(64, 10);
    if (obtainable(own) != 10 || zymm_destory_slab(own, 386, "test") != 0)
        return 5;
    return 0;
}

void churn_until(stamped_slab *slab, const std::atomic<bool> *done)
{
    hand              self;
    std::vector<item> held;
    while (!done->load(std::memory_order_relaxed)) {
        if (held.empty() || (held.size() < WORKER_HOLDS && self.pick(2) == 0)) {
            held.push_back(slab->take(&self));
        } else {
            slab->give(&self, held.back());
            held.pop_back();
        }
    }
    for (const item &taken : held)
        slab->give(&self, taken);
}

const slab_kind FORK_KINDS[] = {
    {"cached_small", ZYMM_SLAB_CACHED, 64, 1},
    {"cached_pages", ZYMM_SLAB_CACHED, 8376, 1},
    {"plain_pages", 0, 8376, 1},
};

} // namespace

class SlabFork : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabFork, of_a_process_whose_threads_allocate_leaves_the_child_a_slab_that_works)
{
    stamped_slab      slab(GetParam(), OBJECTS);
    std::atomic<bool> done{false};
    std::thread       workers([&] {
        in_threads(WORKERS, [&](unsigned) { churn_until(&slab, &done); });
    });
    const unsigned forks = operations(FORKS);
    for (unsigned number = 0; number < forks; number++)
        EXPECT_EQ(status_of_child([&] { return use_in_child(slab.handle()); }), 0);
    done = true;
    workers.join();
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabFork, leaves_the_child_all_objects_that_its_own_thread_had_freed)
{
    stamped_slab slab(GetParam(), OBJECTS);
    EXPECT_EQ(obtainable(slab.handle()), 256u);
    EXPECT_EQ(status_of_child([&] { return obtainable(slab.handle()) == 256 ? 0 : 1; }), 0);
    slab.expect_exact();
}

TEST_P(SlabFork, leaves_the_child_all_objects_that_a_thread_which_it_lacks_had_freed)
{
    stamped_slab slab(GetParam(), OBJECTS);
    std::latch   caches_are_full(1);
    std::latch   may_end(1);
    std::thread  other([&] {
        obtainable(slab.handle());
        caches_are_full.count_down();
        may_end.wait();
    });
    caches_are_full.wait();
    EXPECT_EQ(status_of_child([&] { return obtainable(slab.handle()) == 256 ? 0 : 1; }), 0);
    may_end.count_down();
    other.join();
    slab.expect_exact();
}

TEST_P(SlabFork, leaves_a_grandchild_a_slab_that_works)
{
    stamped_slab      slab(GetParam(), OBJECTS);
    std::atomic<bool> done{false};
    std::thread       workers([&] {
        in_threads(WORKERS, [&](unsigned) { churn_until(&slab, &done); });
    });
    EXPECT_EQ(status_of_child([&] {
        const int own = use_in_child(slab.handle());
        return own != 0 ? own : status_of_child([&] { return use_in_child(slab.handle()); });
    }), 0);
    done = true;
    workers.join();
    slab.expect_exact();
}

TEST_P(SlabFork, leaves_the_child_a_slab_for_threads_of_its_own)
{
    if (SANITIZED)
        GTEST_SKIP() << "ThreadSanitizer forbids threads in a forked child";
    stamped_slab slab(GetParam(), OBJECTS);
    EXPECT_EQ(obtainable(slab.handle()), 256u);
    EXPECT_EQ(status_of_child([&] {
        uint64_t in_thread = 0;
        std::thread([&] { in_thread = obtainable(slab.handle()); }).join();
        return in_thread == 256 && obtainable(slab.handle()) == 256 ? 0 : 1;
    }), 0);
    slab.expect_exact();
}

TEST_P(SlabFork, leaves_the_parent_as_it_was_whatever_the_child_does)
{
    stamped_slab slab(GetParam(), OBJECTS);
    void *const  kept = take(slab.handle());
    EXPECT_EQ(status_of_child([&] {
        give(slab.handle(), kept);
        return take_all(slab.handle()).size() == 256 ? 0 : 1;
    }), 0);
    EXPECT_EQ(used_of(slab.handle()), 1u);
    EXPECT_EQ(give(slab.handle(), kept), 0);
    slab.expect_exact();
}

INSTANTIATE_TEST_SUITE_P(, SlabFork, testing::ValuesIn(FORK_KINDS), kind_name);

/* The objects' memory is missing in the child; the slab's own records are not. */
TEST(SlabNoFork, can_be_asked_in_the_child_although_its_objects_are_gone)
{
    const slab_kind   kind = {"nofork", ZYMM_SLAB_CACHED | ZYMM_SLAB_NOFORK, 8376, 1};
    stamped_slab      slab(kind, OBJECTS);
    std::atomic<bool> done{false};
    void *const       kept = take(slab.handle());
    std::thread       workers([&] {
        in_threads(2, [&](unsigned) { churn_until(&slab, &done); });
    });
    const auto ask = [&] {
        zymm_numa_usage usage = {};
        uint64_t        total = 0;
        uint64_t        used  = 0;
        if (zymm_slab_get_usage_info(slab.handle(), &total, &used) != 0 || total != OBJECTS)
            return 1;
        if (zymm_slab_get_usage_by_numa(slab.handle(), 0, &usage) != 0)
            return 2;
        if (zymm_slab_get_leak_number(slab.handle()) != 0)
            return 3;
        if (zymm_object_get_numaid(slab.handle(), kept) == 0xFFFFFFFF)
            return 4;
        if (zymm_slab_dump_usageinfo(slab.handle(), 386, "test") != 0)
            return 5;
        return zymm_slab_dump_detailinfo(slab.handle(), 386, "test") == 0 ? 0 : 6;
    };
    testing::internal::CaptureStdout();
    for (unsigned number = 0; number < 10; number++)
        EXPECT_EQ(status_of_child(ask), 0);
    testing::internal::GetCapturedStdout();
    done = true;
    workers.join();
    give(slab.handle(), kept);
    slab.expect_exact();
}
