/*
 * Clones: a second chain over the same pages, and its release.
 *
 *     clone_64, clone_256   cloneSgl and the clone's release, one thread, on two also of one chain
 *     borrow_256            cloneSglChain and freeCloneSgl: no references
 *
 *     limit    a bare loop: a 24-byte entry copied, one locked increment and one locked decrement
 *              a page. For borrow_256: the used entries copied twice
 *     packet   the packet library's clone of a chain of as many buffers of a page each
 *     rados    librados' buffer list of as many buffers of a page each: copied and cleared
 *
 * The chain's records lie where the page pool put them, a page apart, as they do in a process.
 */
#include "harness.h"
#include "rados_list.h"

#include <memory>

#include <rte_mbuf.h>

namespace bench
{

/* One chain for all threads of a run; made by the run's set-up. */
template <class L>
struct our_chain {
    static inline SGL *s_chain = nullptr;
    template <uint32_t PAGES>
    static void make(const state &)
    {
        s_chain = ours_pages<L>::take_run(PAGES, nullptr);
    }
    static void drop(const state &)
    {
        ours_pages<L>::give_run(s_chain);
    }
};

template <class L, uint32_t PAGES>
static void clone_ours(state &run)
{
    for (auto _ : run) {
        SGL *clone = nullptr;
        L::cloneSgl(our_chain<L>::s_chain, 0, &clone, MODULE, __func__, __LINE__);
        benchmark::DoNotOptimize(clone);
        if (clone == nullptr)
            fail("a clone was refused");
        L::freeMultiPages(clone, MODULE, __func__, __LINE__);
    }
    count_per_iteration(run, PAGES);
}

/* What any clone has to do, on the same chain, whose SGLs are followed as they are linked. */
static void clone_bare(state &run)
{
    const SGL *chain = our_chain<ours_static>::s_chain;
    const auto copies = std::make_unique<spare_chain>();
    for (auto _ : run) {
        SGL *copy = copies->sgls;
        for (const SGL *sgl = chain; sgl != nullptr; sgl = sgl->nextSgl, ++copy) {
            for (uint32_t i = 0; i < sgl->entryNum; ++i) {
                copy->entries[i] = sgl->entries[i];
                __atomic_add_fetch(&sgl->entries[i].pageCtrl->ref, 1, __ATOMIC_SEQ_CST);
            }
            copy->entryNum = sgl->entryNum;
        }
        benchmark::ClobberMemory();
        copy = copies->sgls;
        for (const SGL *sgl = chain; sgl != nullptr; sgl = sgl->nextSgl, ++copy) {
            for (uint32_t i = 0; i < copy->entryNum; ++i) {
                if (__atomic_sub_fetch(&copy->entries[i].pageCtrl->ref, 1, __ATOMIC_SEQ_CST) == 0)
                    fail("a clone held the last reference");
            }
        }
    }
    count_per_iteration(run, chain->entrySumInChain);
}

/* ------------------------------------------------------------------ the packet library's */

struct packet_chain {
    static inline rte_mempool *s_pages = nullptr;
    static inline rte_mempool *s_clones = nullptr;
    static inline rte_mbuf *s_chain = nullptr;
    static inline rte_mbuf *s_held = nullptr;

    static void make_pools()
    {
        if (s_pages != nullptr)
            return;
        s_pages = rte_pktmbuf_pool_create("clone_pages", 1023, 256, 0,
                                          PAGE_SIZE_WITH_DIF + RTE_PKTMBUF_HEADROOM, SOCKET_ID_ANY);
        s_clones = rte_pktmbuf_pool_create("clones", 8191, PACKET_CACHE, 0, 0, SOCKET_ID_ANY);
        if (s_pages == nullptr || s_clones == nullptr)
            fail("the packet library has no room for clones");
    }
    /* A buffer's count is changed without a lock while it is 1, so several threads may clone a
     * chain only if somebody else holds it besides: then one more clone is kept for the time of the
     * run. */
    template <uint32_t PAGES>
    static void make(const state &run)
    {
        make_pools();
        s_chain = rte_pktmbuf_alloc(s_pages);
        rte_pktmbuf_append(s_chain, PAGE_SIZE_WITH_DIF);
        for (uint32_t i = 1; i < PAGES; ++i) {
            rte_mbuf *next = rte_pktmbuf_alloc(s_pages);
            if (next == nullptr || rte_pktmbuf_append(next, PAGE_SIZE_WITH_DIF) == nullptr ||
                rte_pktmbuf_chain(s_chain, next) != 0)
                fail("the packet library makes no chain of pages");
        }
        s_held = run.threads() > 1 ? rte_pktmbuf_clone(s_chain, s_clones) : nullptr;
    }
    static void drop(const state &)
    {
        rte_pktmbuf_free(s_held);
        rte_pktmbuf_free(s_chain);
    }
};

template <uint32_t PAGES>
static void clone_packet(state &run)
{
    const packet_thread scope;
    for (auto _ : run) {
        rte_mbuf *clone = rte_pktmbuf_clone(packet_chain::s_chain, packet_chain::s_clones);
        benchmark::DoNotOptimize(clone);
        if (clone == nullptr)
            fail("the packet library refuses a clone");
        rte_pktmbuf_free(clone);
    }
    count_per_iteration(run, PAGES);
}

/* ------------------------------------------------------------------- librados' buffer list */

template <uint32_t PAGES>
static void make_list(const state &)
{
    rados_list_make(PAGES, PAGE_SIZE_WITH_DIF, PAGE_STRIDE);
}

static void drop_list(const state &)
{
    rados_list_drop();
}

template <uint32_t PAGES>
static void clone_rados(state &run)
{
    for (auto _ : run)
        rados_list_clone();
    count_per_iteration(run, PAGES);
}

/* ---------------------------------------------------------------------- borrowed copies */

template <class L>
static void borrow_ours(state &run)
{
    for (auto _ : run) {
        SGL *copy = nullptr;
        const int32_t copied = L::cloneSglChain(our_chain<L>::s_chain, &copy);
        benchmark::DoNotOptimize(copy);
        if (copied != 0)
            fail("a copy was refused");
        L::freeCloneSgl(copy);
    }
    count_per_iteration(run, our_chain<L>::s_chain->entrySumInChain);
}

static void borrow_bare(state &run)
{
    const SGL *chain = our_chain<ours_static>::s_chain;
    const auto copies = std::make_unique<spare_chain>();
    for (auto _ : run) {
        for (int twice = 0; twice < 2; ++twice) {
            SGL *copy = copies->sgls;
            for (const SGL *sgl = chain; sgl != nullptr; sgl = sgl->nextSgl, ++copy)
                memcpy(copy->entries, sgl->entries, sgl->entryNum * sizeof(SGL_ENTRY));
            benchmark::ClobberMemory();
        }
    }
    count_per_iteration(run, chain->entrySumInChain);
}

template <uint32_t PAGES>
static void add_clones(const char *row, int threads)
{
    using bare = our_chain<ours_static>;
    add(row, "limit", threads, clone_bare)->Setup(bare::make<PAGES>)->Teardown(bare::drop);
    our_forms::each([row, threads]<class L>(std::type_identity<L>) {
        add(row, L::NAME, threads, clone_ours<L, PAGES>)
            ->Setup(our_chain<L>::template make<PAGES>)
            ->Teardown(our_chain<L>::drop);
    });
    add(row, "packet", threads, clone_packet<PAGES>)
        ->Setup(packet_chain::make<PAGES>)
        ->Teardown(packet_chain::drop);
    add(row, "rados", threads, clone_rados<PAGES>)->Setup(make_list<PAGES>)->Teardown(drop_list);
}

void add_sgl_clone(void)
{
    add_clones<64>("clone_64", 1);
    for (int threads : {1, 2})
        add_clones<256>("clone_256", threads);

    using bare = our_chain<ours_static>;
    add("borrow_256", "limit", 1, borrow_bare)->Setup(bare::make<256>)->Teardown(bare::drop);
    our_forms::each([]<class L>(std::type_identity<L>) {
        add("borrow_256", L::NAME, 1, borrow_ours<L>)
            ->Setup(our_chain<L>::template make<256>)
            ->Teardown(our_chain<L>::drop);
    });
}

} // namespace bench
