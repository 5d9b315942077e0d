/*
 * Damage inside a slab that no caller can do: planted through the layer's own records, found by the
 * check, taken back.
 *
 * Linked with the static library, whose insides a test can reach.
 */
#include "contract/real/zymm_real_helpers.h"
#include "zymm_cache.h"
#include "zymm_handle.h"

using namespace zymm;

namespace
{

/* So few that no thread keeps any to itself, and enough to fill caches. */
enum : uint64_t { FEW = 10, MANY = 400 };

/* A slab of which every object exists, the first is out and the rest is free. */
class ZymmCheckInside : public testing::Test
{
protected:
    void SetUp() override
    {
        make(0, FEW);
    }

    void make(uint64_t attr, uint64_t objects)
    {
        if (handle_ != 0)
            unmake();
        zymm_slab_param param = slab_param(64, objects);
        param.attr            = attr;
        handle_               = zymm_create_slab(&param, 386, "test");
        s_                    = static_cast<slab *>(handle_body(handle_, HANDLE_SLAB));
        all_                  = take_all(handle_);
        ASSERT_EQ(all_.size(), objects);
        for (unsigned at = 1; at < objects; at++)
            give(handle_, all_[at]);
        quarantine_empty(s_);
        expect_nothing();
    }

    void TearDown() override
    {
        expect_nothing();
        unmake();
    }

    void unmake()
    {
        give(handle_, all_[0]);
        destroy(handle_);
    }

    void expect_nothing()
    {
        EXPECT_EQ(log_of([&] { EXPECT_EQ(zymm_slab_check(handle_), 0); }), "");
    }

    void expect_found(const char *what)
    {
        const std::string log = log_of([&] { EXPECT_EQ(zymm_slab_check(handle_), -1); });
        EXPECT_GE(::count_of(log, what), 1u) << log;
    }

    object_tag *tag_of(unsigned at)
    {
        return place_of(s_, all_[at]).tag();
    }

    uint64_t            handle_ = 0;
    slab               *s_      = nullptr;
    std::vector<void *> all_;
};

} // namespace

TEST_F(ZymmCheckInside, finds_an_object_that_was_pushed_twice)
{
    depot *const       d      = depot_of(s_, place_of(s_, all_[1]).in->node);
    const object_place place  = place_of(s_, all_[1]);
    const uint32_t     link   = place.in->links[place.index].load();
    const uint64_t     before = d->loose.load();
    loose_push(place);
    expect_found("a free object lies in two places");
    place.in->links[place.index].store(link);
    d->loose.store(before);
}

TEST_F(ZymmCheckInside, finds_an_object_that_is_out_and_in_a_list)
{
    const uint64_t before = tag_of(3)->load();
    tag_of(3)->store(tag_of(0)->load());
    expect_found("an object is out and lies in a list of free ones");
    tag_of(3)->store(before);
}

TEST_F(ZymmCheckInside, finds_an_object_that_was_lost)
{
    depot *const d = depot_of(s_, place_of(s_, all_[1]).in->node);
    void *const  object = loose_pop(s_, d);
    expect_found("a free object lies nowhere");
    loose_push(place_of(s_, object));
}

TEST_F(ZymmCheckInside, finds_a_link_that_leads_astray)
{
    const object_place place  = place_of(s_, all_[5]);
    const uint32_t     before = place.in->links[place.index].load();
    place.in->links[place.index].store(4000000000u);
    expect_found("a link of loose objects leads astray");
    place.in->links[place.index].store(before);
}

TEST_F(ZymmCheckInside, finds_a_count_of_frees_that_is_wrong)
{
    s_->gone_frees.fetch_sub(1);
    expect_found("objects counted as out");
    s_->gone_frees.fetch_add(1);
}

TEST_F(ZymmCheckInside, finds_a_number_of_objects_that_is_wrong)
{
    s_->carved.fetch_add(1);
    expect_found("more objects than max_num");
    s_->carved.fetch_sub(1);
}

TEST_F(ZymmCheckInside, finds_a_room_that_is_wrong)
{
    s_->capacity.fetch_sub(1);
    expect_found("room for objects");
    s_->capacity.fetch_add(1);
}

TEST_F(ZymmCheckInside, finds_a_piece_that_is_another_slabs)
{
    piece *const p = place_of(s_, all_[0]).in;
    p->owner.store(nullptr);
    EXPECT_EQ(place_of(s_, all_[0]).in, nullptr);
    p->owner.store(s_);

    const uint32_t room = p->room;
    p->room             = 1;
    expect_found("a piece has more room than memory");
    p->room = room;
}

TEST_F(ZymmCheckInside, finds_a_count_of_open_caches_that_is_wrong)
{
    s_->open.fetch_add(1);
    expect_found("open caches");
    s_->open.fetch_sub(1);
}

TEST_F(ZymmCheckInside, finds_a_foreign_address_and_a_second_copy_in_a_magazine)
{
#if defined(ZYMM_CHECKING)
    GTEST_SKIP() << "in the checking build no thread caches objects";
#endif
    make(ZYMM_SLAB_CACHED, MANY);
    thread_cache *const c = cache_of(s_);
    magazine *const     m = c->previous; /* the loaded one's count is made anew by a stop */
    ASSERT_GT(zymm::count_of(m), 1u);
    void *const before = m->objects[0];
    m->objects[0]      = m->objects[1];
    expect_found("a free object lies in two places");
    m->objects[0] = &all_;
    expect_found("a list has what is no object");
    m->objects[0] = before;

    const uint32_t count = zymm::count_of(m);
    set_count(m, MAGAZINE_OBJECTS + 1);
    expect_found("a magazine has more objects than room");
    set_count(m, count);
}

TEST_F(ZymmCheckInside, ends_in_a_stack_of_magazines_that_goes_round_in_a_circle)
{
#if defined(ZYMM_CHECKING)
    GTEST_SKIP() << "in the checking build no thread caches objects";
#endif
    make(ZYMM_SLAB_CACHED, MANY);
    magazine_stack *const stack = &depot_of(s_, 0)->shards[0].full;
    magazine *const       m     = magazine_get();
    m->node                     = 0;
    stack_push(stack, m);
    expect_nothing();
    const uint32_t before = m->below.load();
    m->below.store(m->number);
    expect_found("a stack of magazines is damaged");
    m->below.store(before);
}
