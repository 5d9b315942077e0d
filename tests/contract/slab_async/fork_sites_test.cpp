/*
 * Processes forked while another thread makes what the layer has only one table of: call sites,
 * slabs, enclosing pools, raw blocks of a new class. The child must be able to make more of them.
 *
 * A child that waits for a lock of a thread that it has not got is ended by its alarm.
 */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "contract/real/zymm_real_helpers.h"

namespace
{

enum : unsigned { FORKS = 60, CHILD_SECONDS = 60 };

bool child_succeeds(const std::function<bool()> &body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(CHILD_SECONDS);
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/* Forks again and again while another thread runs `busy(n)` for n = 0, 1, ... */
void expect_children_succeed(const std::function<void(unsigned)> &busy,
                             const std::function<bool(unsigned)> &in_child)
{
    destroy(make_slab(64, 1)); /* with the first one the layer prepares for forks */
    std::atomic<bool> done{false};
    std::thread       other([&] {
        for (unsigned count = 0; !done.load(); count++)
            busy(count);
    });
    unsigned failed = 0;
    for (unsigned number = 0; number < FORKS; number++)
        failed += child_succeeds([&] { return in_child(number); }) ? 0 : 1;
    done = true;
    other.join();
    EXPECT_EQ(failed, 0u);
}

bool use_at(uint64_t slab, uint32_t module_id, uint32_t line)
{
    void *const object = zymm_slab_malloc(slab, module_id, "site", line);
    return object != nullptr && give(slab, object) == 0;
}

} // namespace

TEST(SlabForkTables, a_child_can_name_call_sites_that_nobody_named_before)
{
    const uint64_t slab = make_slab(64, 1000);
    expect_children_succeed([&](unsigned count) { use_at(slab, 1, count % 60000); },
                            [&](unsigned number) { return use_at(slab, 2, number); });
    destroy(slab);
}

TEST(SlabForkTables, a_child_can_make_slabs)
{
    const std::function<bool()> make = [] {
        const uint64_t slab = make_slab(64, 10);
        const bool     made = slab != 0 && use_at(slab, 1, 1);
        destroy(slab);
        return made;
    };
    expect_children_succeed([&](unsigned) { make(); }, [&](unsigned) { return make(); });
}

TEST(SlabForkTables, a_child_can_make_enclosing_pools)
{
    const std::function<bool()> make = [] {
        const uint64_t pool = zymm_pool_create("pool", 1048576, 0, 386, "test");
        return pool != 0 && zymm_pool_destory(pool, 386, "test") == 0;
    };
    expect_children_succeed([&](unsigned) { make(); }, [&](unsigned) { return make(); });
}

TEST(SlabForkTables, a_child_can_take_raw_blocks_of_new_classes)
{
    const std::function<bool(uint64_t)> use = [](uint64_t size) {
        void *const memory = zymm_malloc(size, 386, "test");
        zymm_free(memory, 386, "test");
        return memory != nullptr;
    };
    expect_children_succeed([&](unsigned count) { use(64ull << count % 12); },
                            [&](unsigned number) { return use(96ull << number % 12); });
}
