#include "stamped_slab.h"

#include <cstring>
#include <set>

stamped_slab::stamped_slab(const slab_kind &kind, uint64_t wanted)
    : slab_(0), obj_size_(kind.obj_size), max_num_(wanted * kind.room)
{
    zymm_slab_param param = slab_param(kind.obj_size, max_num_);
    param.attr            = kind.attr;
    slab_                 = zymm_create_slab(&param, 386, "test");
    EXPECT_NE(slab_, 0u);
}

void stamped_slab::write_stamp(const item &taken) const
{
    const uint64_t head[] = {taken.stamp, taken.stamp ^ reinterpret_cast<uintptr_t>(taken.object)};
    const uint64_t tail   = ~taken.stamp;
    memcpy(taken.object, head, sizeof head);
    memcpy(taken.object + obj_size_ - sizeof tail, &tail, sizeof tail);
}

bool stamped_slab::has_stamp(const item &taken) const
{
    uint64_t head[2] = {};
    uint64_t tail    = 0;
    memcpy(head, taken.object, sizeof head);
    memcpy(&tail, taken.object + obj_size_ - sizeof tail, sizeof tail);
    return head[0] == taken.stamp && tail == ~taken.stamp &&
           head[1] == (taken.stamp ^ reinterpret_cast<uintptr_t>(taken.object));
}

/* An object counts as out only while it surely is, so that the count is never above the truth. */
void stamped_slab::count_out()
{
    const int64_t out  = out_.fetch_add(1, std::memory_order_relaxed) + 1;
    int64_t       most = most_out_.load(std::memory_order_relaxed);
    while (out > most &&
           !most_out_.compare_exchange_weak(most, out, std::memory_order_relaxed)) {
    }
}

item stamped_slab::take(hand *self)
{
    item taken;
    taken.object = static_cast<char *>(::take(slab_));
    if (taken.object == nullptr) {
        refused_.fetch_add(1, std::memory_order_relaxed);
        return taken;
    }
    count_out();
    taken.stamp = self->next_stamp();
    write_stamp(taken);
    return taken;
}

void stamped_slab::give(hand *self, const item &taken)
{
    if (taken.object == nullptr)
        return; /* counted when it was refused */
    if (!has_stamp(taken))
        wrong_stamps_.fetch_add(1, std::memory_order_relaxed);
    write_stamp({taken.object, self->next_stamp()}); /* nobody may find it valid from here on */
    out_.fetch_sub(1, std::memory_order_relaxed);
    if (::give(slab_, taken.object) != 0)
        failed_frees_.fetch_add(1, std::memory_order_relaxed);
}

void stamped_slab::adopt(hand *self, item *taken)
{
    if (!has_stamp(*taken))
        wrong_stamps_.fetch_add(1, std::memory_order_relaxed);
    taken->stamp = self->next_stamp();
    write_stamp(*taken);
}

/*
 * Nobody wrote into another's object, no object was lost or came twice, all of them can be taken by
 * this one thread although others used them last, and the slab goes without a word.
 */
void stamped_slab::expect_exact()
{
    EXPECT_EQ(wrong_stamps_.load(), 0u);
    EXPECT_EQ(failed_frees_.load(), 0u);
    EXPECT_LE(most_out_.load(), static_cast<int64_t>(max_num_));
    EXPECT_EQ(used_of(slab_), 0u);

    const std::vector<void *> all = take_all(slab_);
    EXPECT_EQ(all.size(), max_num_);
    EXPECT_EQ(std::set<void *>(all.begin(), all.end()).size(), max_num_);
    EXPECT_EQ(used_of(slab_), max_num_);
    uint64_t failed = 0;
    for (void *object : all)
        failed += ::give(slab_, object) != 0;
    EXPECT_EQ(failed, 0u);
    EXPECT_EQ(used_of(slab_), 0u);
    EXPECT_EQ(log_of([&] { destroy(slab_); }), "");
}
