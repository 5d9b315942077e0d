/*
 * Slab operations after a thread's own clean-up has begun or is over.
 *
 * A thread's end runs the destructors of its C++ thread-local objects first, last made first gone,
 * and then, in rounds, those of its keys, in the order of the keys' creation. Wherever the slab
 * layer hangs its own clean-up, code of the process runs before and after it; an object that such
 * code frees, or leaves in a cache, must be there for the other threads all the same.
 */
#include <pthread.h>

#include "stamped_slab.h"

namespace
{

enum : unsigned { LIVES = 40, OBJECTS = 50 };

/* What a dying thread does in each of its clean-ups: frees its last object, turns some over. */
struct last_will {
    stamped_slab *slab = nullptr;
    hand          self;
    item          last;
    unsigned      rounds = 0; /* that the clean-up asks for once more */

    void carry_out()
    {
        if (last.object != nullptr)
            slab->give(&self, last);
        for (unsigned number = 0; number < 20; number++)
            slab->give(&self, slab->take(&self));
        last = slab->take(&self);
        slab->give(&self, last);
        last = rounds > 0 ? slab->take(&self) : item();
    }
};

/* A key whose destructor comes back as often as its value asks for. */
class exit_key
{
public:
    exit_key()
    {
        pthread_key_create(&s_key, destroy_value);
    }

    ~exit_key()
    {
        pthread_key_delete(s_key);
    }

    void set(last_will *will)
    {
        pthread_setspecific(s_key, will);
    }

private:
    static void destroy_value(void *value)
    {
        last_will *const will = static_cast<last_will *>(value);
        will->carry_out();
        if (will->rounds > 0) {
            will->rounds--;
            pthread_setspecific(s_key, will);
        }
    }

    static inline pthread_key_t s_key;
};

/* Works at the end of the thread that made it first. */
struct exit_object {
    last_will *will = nullptr;

    ~exit_object()
    {
        if (will != nullptr)
            will->carry_out();
    }
};

thread_local exit_object t_exit_object;

last_will make_will(stamped_slab *slab, unsigned rounds)
{
    last_will will;
    will.slab   = slab;
    will.rounds = rounds;
    will.last   = slab->take(&will.self);
    return will;
}

/* Threads that live one after another and use the slab before they end with a key's destructor. */
void live_with_key(stamped_slab *slab, exit_key *key, unsigned rounds)
{
    for (unsigned life = 0; life < LIVES; life++) {
        last_will will;
        std::thread([&] {
            will = make_will(slab, rounds);
            key->set(&will);
        }).join();
    }
}

uint64_t control_bytes()
{
    zymm_stats stats = {};
    EXPECT_EQ(zymm_stats_get(&stats), 0);
    return stats.control;
}

const slab_kind EXIT_KINDS[] = {
    {"cached", ZYMM_SLAB_CACHED, 8376, 1},
    {"plain", 0, 8376, 1},
};

} // namespace

class SlabThreadExit : public testing::TestWithParam<slab_kind>
{
};

TEST_P(SlabThreadExit, with_a_key_older_than_the_slab_layers_first_use_loses_nothing)
{
    exit_key     key;
    stamped_slab slab(GetParam(), OBJECTS);
    live_with_key(&slab, &key, 0);
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, with_a_key_younger_than_the_slab_layers_first_use_loses_nothing)
{
    stamped_slab slab(GetParam(), OBJECTS);
    hand         self;
    slab.give(&self, slab.take(&self));
    exit_key key;
    live_with_key(&slab, &key, 0);
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, with_a_key_that_comes_back_in_every_round_loses_nothing)
{
    exit_key     key;
    stamped_slab slab(GetParam(), OBJECTS);
    live_with_key(&slab, &key, 2); /* a C library runs 4 rounds */
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, with_a_thread_local_object_made_before_the_first_use_loses_nothing)
{
    stamped_slab slab(GetParam(), OBJECTS);
    for (unsigned life = 0; life < LIVES; life++) {
        last_will will;
        std::thread([&] {
            t_exit_object.will = &will;
            will               = make_will(&slab, 0);
        }).join();
    }
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, with_a_thread_local_object_made_after_the_first_use_loses_nothing)
{
    stamped_slab slab(GetParam(), OBJECTS);
    for (unsigned life = 0; life < LIVES; life++) {
        last_will will;
        std::thread([&] {
            will               = make_will(&slab, 0);
            t_exit_object.will = &will;
        }).join();
    }
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, with_the_slabs_first_use_in_the_clean_up_loses_nothing)
{
    exit_key     key;
    stamped_slab slab(GetParam(), OBJECTS);
    for (unsigned life = 0; life < LIVES; life++) {
        last_will will;
        will.slab   = &slab;
        will.rounds = 1;
        std::thread([&] { key.set(&will); }).join();
    }
    EXPECT_EQ(slab.refused(), 0u);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, of_many_threads_in_turn_leaves_no_more_records_than_of_a_few)
{
    exit_key     key;
    stamped_slab slab(GetParam(), OBJECTS);
    live_with_key(&slab, &key, 1);
    const uint64_t after_a_few = control_bytes();
    for (unsigned number = 0; number < 10; number++)
        live_with_key(&slab, &key, 1);
    EXPECT_EQ(control_bytes(), after_a_few);
    slab.expect_exact();
}

TEST_P(SlabThreadExit, of_a_slabs_only_user_does_not_outlive_the_slab)
{
    for (unsigned life = 0; life < LIVES; life++) {
        stamped_slab slab(GetParam(), OBJECTS);
        std::thread([&] {
            hand self;
            slab.give(&self, slab.take(&self));
            slab.expect_exact(); /* destroys the slab whose object this thread may have cached */
        }).join();
    }
    stamped_slab next(GetParam(), OBJECTS);
    next.expect_exact();
}

/* The slab's user of the last moment is the process itself, after main has returned. */
TEST(SlabProcessExitDeathTest, may_free_and_allocate_in_exit_handlers)
{
    static uint64_t s_slab   = 0;
    static void    *s_object = nullptr;
    EXPECT_EXIT(
        {
            s_slab   = make_slab(64, 4);
            s_object = take(s_slab);
            atexit([] {
                const bool is_fine = give(s_slab, s_object) == 0 && take(s_slab) != nullptr;
                if (!is_fine)
                    abort();
            });
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(, SlabThreadExit, testing::ValuesIn(EXIT_KINDS), kind_name);
