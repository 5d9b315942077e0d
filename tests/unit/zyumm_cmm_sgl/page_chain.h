/*
 * Chains over real pages for the clone and walk tests: SGLs and pages from the pools of the
 * programmable platform.
 *
 *     SGL *chain = page_chain_of({2, 0, 1});     // 2 entries, a gap, 1 entry; 3 pages
 *
 * Each page belongs to the chain with one reference. New pool objects hold a pattern that is no
 * address, so whoever touches an entry behind the used ones ends the test.
 */
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

#include "fake/expect_log.h"

using shape = std::vector<uint32_t>;

/* Pools of at most so many SGLs and pages. */
inline void start_page_chains(uint32_t sgl_max = 100, uint32_t page_max = 1000)
{
    g_cmm_umm_partition    = zyumm_partition_create(1, 0, 0, "cmm_moduleInit");
    g_ucmm_config.page_max = page_max;
    g_ucmm_config.sgl_max  = sgl_max;
    ASSERT_EQ(cmm_create_sgl_mempool(), 0);
    ASSERT_EQ(create_page_mempool(), 0u);
    fake_forget_calls();
    fake_forget_log();
}

/* Entries get lengths of their own: 520, 521 and so on, from the head on. */
inline SGL *page_chain_of(const shape &counts)
{
    SGL  *head = nullptr;
    SGL **link = &head;
    for (const uint32_t count : counts) {
        allocOneSgl(link, 77, "the test", 1);
        SGL *sgl = *link;
        for (; sgl->entryNum < count; ++sgl->entryNum) {
            page_ctrl *page = allocOnePageSync(77, "the test", 2);
            sgl->entries[sgl->entryNum] = {page->page_addr, page, 520u + head->entrySumInChain};
            ++head->entrySumInChain;
        }
        link = &sgl->nextSgl;
    }
    fake_forget_calls();
    return head;
}

inline uint64_t pages_out()
{
    return fake_objects_out(s_page_partition_id);
}

inline uint64_t sgls_out()
{
    return fake_objects_out(g_sgl_partition_id);
}

/* Used entries of each SGL. */
inline shape shape_of(const SGL *chain)
{
    shape counts;
    for (; chain != nullptr; chain = chain->nextSgl)
        counts.push_back(chain->entryNum);
    return counts;
}

/* Used entries front to back. */
inline std::vector<SGL_ENTRY> entries_of(const SGL *chain)
{
    std::vector<SGL_ENTRY> all;
    for (; chain != nullptr; chain = chain->nextSgl)
        all.insert(all.end(), chain->entries, chain->entries + chain->entryNum);
    return all;
}

inline bool same_entry(const SGL_ENTRY &a, const SGL_ENTRY &b)
{
    return a.buf == b.buf && a.pageCtrl == b.pageCtrl && a.len == b.len;
}

inline bool same_entries(const SGL *a, const SGL *b)
{
    const std::vector<SGL_ENTRY> of_a = entries_of(a);
    const std::vector<SGL_ENTRY> of_b = entries_of(b);
    if (of_a.size() != of_b.size())
        return false;
    for (size_t i = 0; i < of_a.size(); ++i) {
        if (!same_entry(of_a[i], of_b[i]))
            return false;
    }
    return true;
}

/* Reference counts of the pages, front to back. */
inline std::vector<int32_t> refs_of(const SGL *chain)
{
    std::vector<int32_t> refs;
    for (const SGL_ENTRY &entry : entries_of(chain))
        refs.push_back(entry.pageCtrl->ref);
    return refs;
}

/* Gives a chain and one reference of each of its pages back. */
inline void give_back(SGL *chain)
{
    EXPECT_EQ(decPageReferenceBySgl(chain, 77, "the test"), 0);
    freeSglChain(chain, 77, "the test", 3);
}
