/*
 * The bare slab pair: one object out and back, without a page's work, on one thread and on two.
 *
 * The limit is a stack of pointers in the thread's own storage: no allocator can do less than take
 * the top and put it back.
 */
#include "slab_pools.h"

namespace bench
{

struct thread_stack {
    static constexpr char NAME[] = "limit";
    using thread_scope = no_scope;
    static void make_pool(uint32_t)
    {
    }
    static void drop_pool()
    {
    }
    static void *get()
    {
        if (s_top == 0)
            return nullptr;
        return s_objects[--s_top];
    }
    static void put(void *object)
    {
        s_objects[s_top++] = object;
    }

private:
    static constexpr uint32_t OBJECTS = 64;
    static inline thread_local void *s_objects[OBJECTS];
    static inline thread_local uint32_t s_top = OBJECTS;
};

template <class RAW>
static void slab_pair_hot(state &run)
{
    const typename RAW::thread_scope scope(1);
    for (auto _ : run) {
        void *object = RAW::get();
        benchmark::DoNotOptimize(object);
        RAW::put(object);
    }
}

void add_slab(void)
{
    using bounded = sources<thread_stack, slab<ours_static>, slab<ours_shared>,
                            packet_own<PACKET_CACHE>, packet_own<0>>;
    bounded::each([]<class RAW>(std::type_identity<RAW>) {
        for (int threads : {1, 2}) {
            add("slab_pair_hot", RAW::NAME, threads, slab_pair_hot<RAW>)
                ->Setup(make_pool<RAW, 4096>)
                ->Teardown(drop_pool<RAW>);
        }
    });
    sources<glibc, mimalloc, jemalloc, tcmalloc>::each([]<class RAW>(std::type_identity<RAW>) {
        for (int threads : {1, 2})
            add("slab_pair_hot", RAW::NAME, threads, slab_pair_hot<RAW>);
    });
}

} // namespace bench
