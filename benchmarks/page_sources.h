/*
 * Sources of pages, all with one face, so that each measurement is written once.
 *
 *     prepare(pages)           one thread, before the measuring threads start
 *     thread_scope(pages)      in each measuring thread, around its work
 *     take() give(page)        one page, initialised; the last reference dropped
 *     take_run(n, spare) give_run(chain)
 *                              n pages in an SGL chain. Peers lay theirs into `spare`, SGLs that
 *                              the caller hands over for free; the library takes its own
 *
 *     limit_pages     the mandatory stores and the locked drop, on pages that cost nothing
 *     ours_pages<L>   the library's exported operations
 *     peer_pages<RAW> a peer's memory with the work of page_work.h
 *     packet_bulk     the packet pool, runs taken and given in one call
 */
#pragma once

#include <sys/mman.h>

#include "bench_error.h"
#include "ours.h"
#include "page_work.h"
#include "peers.h"

namespace bench
{

constexpr uint32_t LONGEST_RUN = 256;

/* ------------------------------------------------------------------------------- chains */

/* SGLs for one run, linked as allocSglChain links them. */
struct spare_chain {
    SGL sgls[LONGEST_RUN / SGL_MAX_ENTRY_NUM];
};

inline SGL *reset_chain(spare_chain *spare, uint32_t pages)
{
    const uint32_t count = (pages + SGL_MAX_ENTRY_NUM - 1) / SGL_MAX_ENTRY_NUM;
    for (uint32_t i = 0; i < count; ++i) {
        SGL *sgl = &spare->sgls[i];
        sgl->nextSgl = i + 1 < count ? sgl + 1 : nullptr;
        sgl->entrySumInChain = 0;
        sgl->entryNum = 0;
        sgl->userFlag = 0;
        sgl->userTag = 0;
    }
    return spare->sgls;
}

template <class GIVE>
inline void each_page(SGL *chain, GIVE give)
{
    for (SGL *sgl = chain; sgl != nullptr; sgl = sgl->nextSgl) {
        for (uint32_t i = 0; i < sgl->entryNum; ++i)
            give(sgl->entries[i].pageCtrl);
    }
}

/* A run page by page, for whoever has no better way. */
template <class SOURCE>
inline SGL *take_run_singly(uint32_t pages, spare_chain *spare)
{
    SGL *head = reset_chain(spare, pages);
    SGL *sgl = head;
    for (uint32_t i = 0; i < pages; ++i) {
        if (sgl->entryNum == SGL_MAX_ENTRY_NUM)
            sgl = sgl->nextSgl;
        page_ctrl *page = SOURCE::take();
        if (page == nullptr)
            fail("a peer is out of pages");
        lay_page(head, sgl, page);
    }
    return head;
}

/* ---------------------------------------------------------------------------- the limit */

/* Each thread goes round and round over as many pages as it holds at most: which page is next is
 * one addition. Nothing is asked for ahead but what the processor guesses itself. */
class limit_pages
{
public:
    static constexpr char NAME[] = "limit";

    class thread_scope
    {
    public:
        explicit thread_scope(uint32_t pages) : bytes_(pages * PAGE_STRIDE)
        {
            void *block = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
            if (block == MAP_FAILED)
                fail("no memory for the limit's pages");
            s_first = s_next = static_cast<uint8_t *>(block);
            s_end = s_first + bytes_;
        }
        ~thread_scope()
        {
            munmap(s_first, bytes_);
        }
        thread_scope(const thread_scope &) = delete;
        thread_scope &operator=(const thread_scope &) = delete;

    private:
        size_t bytes_;
    };

    static void prepare(uint32_t)
    {
    }
    static page_ctrl *take()
    {
        uint8_t *page = s_next;
        s_next = page + PAGE_STRIDE == s_end ? s_first : page + PAGE_STRIDE;
        return page_init(page, MODULE, __func__);
    }
    static void give(page_ctrl *page)
    {
        page_drop(page);
    }
    static SGL *take_run(uint32_t pages, spare_chain *spare)
    {
        return take_run_singly<limit_pages>(pages, spare);
    }
    static void give_run(SGL *chain)
    {
        each_page(chain, give);
    }

private:
    static inline thread_local uint8_t *s_first;
    static inline thread_local uint8_t *s_next;
    static inline thread_local uint8_t *s_end;
};

/* ----------------------------------------------------------------------------- the rest */

template <class L>
struct ours_pages {
    static constexpr const char *NAME = L::NAME;
    using thread_scope = no_scope;
    static void prepare(uint32_t)
    {
    }
    static page_ctrl *take()
    {
        return L::allocOnePageSync(MODULE, __func__, __LINE__);
    }
    static void give(page_ctrl *page)
    {
        L::freeOnePage(page, MODULE, __func__, __LINE__);
    }
    static SGL *take_run(uint32_t pages, spare_chain *)
    {
        SGL *chain = nullptr;
        L::allocMultiPagesSync(pages, &chain, MODULE, __func__, __LINE__);
        if (chain == nullptr)
            fail("the library is out of pages");
        return chain;
    }
    static void give_run(SGL *chain)
    {
        L::freeMultiPages(chain, MODULE, __func__, __LINE__);
    }
};

template <class RAW>
struct peer_pages {
    static constexpr const char *NAME = RAW::NAME;
    using thread_scope = typename RAW::thread_scope;
    static void prepare(uint32_t pages)
    {
        RAW::prepare(pages);
    }
    static page_ctrl *take()
    {
        void *memory = RAW::get();
        return memory != nullptr ? page_init(memory, MODULE, __func__) : nullptr;
    }
    static void give(page_ctrl *page)
    {
        if (page_drop(page))
            RAW::put(page->page_addr);
    }
    static SGL *take_run(uint32_t pages, spare_chain *spare)
    {
        return take_run_singly<peer_pages>(pages, spare);
    }
    static void give_run(SGL *chain)
    {
        each_page(chain, give);
    }
};

struct packet_bulk : peer_pages<packet> {
    static constexpr char NAME[] = "packet_bulk";
    static SGL *take_run(uint32_t pages, spare_chain *spare)
    {
        void *objects[LONGEST_RUN];
        if (rte_mempool_get_bulk(packet::s_pool, objects, pages) != 0)
            fail("the packet pool is out of pages");

        SGL *head = reset_chain(spare, pages);
        SGL *sgl = head;
        for (uint32_t i = 0; i < pages; ++i) {
            if (sgl->entryNum == SGL_MAX_ENTRY_NUM)
                sgl = sgl->nextSgl;
            lay_page(head, sgl, page_init(objects[i], MODULE, __func__));
        }
        return head;
    }
    static void give_run(SGL *chain)
    {
        void *objects[LONGEST_RUN];
        unsigned count = 0;
        each_page(chain, [&](page_ctrl *page) {
            if (page_drop(page))
                objects[count++] = page->page_addr;
        });
        rte_mempool_put_bulk(packet::s_pool, objects, count);
    }
};

} // namespace bench
