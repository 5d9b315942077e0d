/*
 * A process that may not use membarrier, as in many containers: the caches' owners pay for an
 * exchange instead, and everything is as exact as ever.
 *
 * The filter is put on before the process's first slab, so each test runs in a process that is
 * started anew for it.
 */
#include <cerrno>
#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "contract/slab_stress/stamped_slab.h"

namespace
{

enum : unsigned { THREADS = 4, HOLDS = 8, OPERATIONS = 20000 };
enum : int { PASSED = 0, FAILED = 1, NO_FILTER = 2 };

/* From now on membarrier fails with `error` in this process; false when the system refuses. */
bool refuse_membarrier(unsigned error)
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        return false;
    return syscall(SYS_membarrier, 0, 0, 0) == -1 && errno == static_cast<int>(error);
}

void churn(stamped_slab *slab)
{
    hand              self;
    std::vector<item> held;
    for (unsigned count = operations(OPERATIONS); count != 0; count--) {
        if (held.size() < HOLDS && (held.empty() || self.pick(2) == 0)) {
            held.push_back(slab->take(&self));
            continue;
        }
        slab->give(&self, held.back());
        held.pop_back();
    }
    for (const item &taken : held)
        slab->give(&self, taken);
}

/* All threads can hold what they want, so nobody may be refused, however the caches lie. */
void run_exact(uint64_t attr, uint64_t obj_size)
{
    stamped_slab slab({"refused", attr, obj_size, 1}, THREADS * HOLDS);
    in_threads(THREADS, [&](unsigned) { churn(&slab); });
    EXPECT_EQ(slab.refused(), 0u);
    EXPECT_EQ(zymm_slab_check(slab.handle()), 0);
    slab.expect_exact();
}

/* What another thread has in its cache is found while that thread lives. */
void find_what_another_thread_cached()
{
    zymm_slab_param param = slab_param(64, 1023);
    param.attr            = ZYMM_SLAB_CACHED;
    const uint64_t    slab = zymm_create_slab(&param, 386, "test");
    std::atomic<bool> cached{false};
    std::atomic<bool> found{false};
    std::thread       other([&] {
        for (void *object : take_all(slab))
            give(slab, object);
        cached = true;
        while (!found.load()) {
            void *const object = take(slab);
            if (object != nullptr)
                give(slab, object);
        }
    });
    while (!cached.load())
        std::this_thread::yield();
    std::vector<void *> all;
    while (all.size() < 1022) {
        void *const object = take(slab);
        if (object != nullptr)
            all.push_back(object);
    }
    found = true;
    other.join();
    EXPECT_EQ(used_of(slab), 1022u);
    for (void *object : all)
        EXPECT_EQ(give(slab, object), 0);
    EXPECT_EQ(used_of(slab), 0u);
    destroy(slab);
}

[[noreturn]] void leave_after(unsigned error, const std::function<void()> &body)
{
    if (!refuse_membarrier(error))
        _exit(NO_FILTER);
    body();
    _exit(testing::Test::HasFailure() ? FAILED : PASSED);
}

bool may_filter()
{
    return prctl(PR_GET_SECCOMP) >= 0;
}

} // namespace

class RefusedBarrierDeathTest : public testing::TestWithParam<int>
{
protected:
    void SetUp() override
    {
        if (!may_filter())
            GTEST_SKIP() << "the kernel has no seccomp filters";
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
};

TEST_P(RefusedBarrierDeathTest, leaves_cached_slabs_exact)
{
    const unsigned error = static_cast<unsigned>(GetParam());
    EXPECT_EXIT(leave_after(error, [] { run_exact(ZYMM_SLAB_CACHED, 64); }),
                testing::ExitedWithCode(PASSED), "");
}

TEST_P(RefusedBarrierDeathTest, leaves_pages_exact)
{
    const unsigned error = static_cast<unsigned>(GetParam());
    EXPECT_EXIT(leave_after(error, [] { run_exact(ZYMM_SLAB_CACHED, 8376); }),
                testing::ExitedWithCode(PASSED), "");
}

TEST_P(RefusedBarrierDeathTest, hides_nothing_that_another_thread_cached)
{
    const unsigned error = static_cast<unsigned>(GetParam());
    EXPECT_EXIT(leave_after(error, find_what_another_thread_cached),
                testing::ExitedWithCode(PASSED), "");
}

INSTANTIATE_TEST_SUITE_P(Async, RefusedBarrierDeathTest, testing::Values(ENOSYS, EPERM));
