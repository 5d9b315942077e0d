/*
 * One-way traffic: some threads only allocate, others only free, so that every object is freed by
 * another thread than its allocator and caches fill on one side and run empty on the other.
 *
 * What is out at most: a batch in the hands of each thread and those in the box between them.
 */
#include "mailbox.h"
#include "stamped_slab.h"

namespace
{

enum : unsigned { BATCH = 16, BOXED_BATCHES = 6, BATCHES = 400 };

using batch = std::vector<item>;

void allocate_batches(stamped_slab *slab, mailbox<batch> *box, unsigned count)
{
    hand self;
    for (unsigned number = 0; number < count; number++) {
        batch filled;
        for (unsigned place = 0; place < BATCH; place++) {
            const item taken = slab->take(&self);
            if (taken.object != nullptr)
                filled.push_back(taken);
        }
        box->put(std::move(filled));
    }
}

void free_batches(stamped_slab *slab, mailbox<batch> *box)
{
    hand self;
    for (batch received; box->get(&received);)
        for (const item &taken : received)
            slab->give(&self, taken);
}

/* The last allocator that is through closes the box. */
void run_traffic(const slab_kind &kind, unsigned allocators, unsigned freers)
{
    stamped_slab          slab(kind, (allocators + freers + BOXED_BATCHES) * BATCH);
    mailbox<batch>        box(BOXED_BATCHES);
    std::atomic<unsigned> at_work{allocators};
    in_threads(allocators + freers, [&](unsigned number) {
        if (number >= allocators) {
            free_batches(&slab, &box);
            return;
        }
        allocate_batches(&slab, &box, operations(BATCHES) / allocators);
        if (--at_work == 0)
            box.close();
    });
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

} // namespace

class SlabTraffic : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabTraffic, from_three_threads_to_three_is_lossless)
{
    run_traffic(GetParam(), 3, 3);
}

TEST_P(SlabTraffic, from_all_threads_to_one_is_lossless)
{
    run_traffic(GetParam(), 5, 1);
}

TEST_P(SlabTraffic, from_one_thread_to_all_is_lossless)
{
    run_traffic(GetParam(), 1, 5);
}

INSTANTIATE_TEST_SUITE_P(, SlabTraffic, testing::ValuesIn(STRESS_KINDS), kind_name);
