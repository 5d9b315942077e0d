/*
 * The scenes of pages and chains: a page pool, an SGL pool and a retry queue as a start makes them,
 * and what the calls are given, one of each.
 */
#pragma once

#include "sweep.h"

#include "unit/zyumm_cmm_page/page_fixture.h"

namespace sweep_node
{

inline page_ctrl *page;
inline SGL *chain;

inline void pages_and_queue()
{
    start_pages();
    start_queue();
}

inline void new_page()
{
    page = take_page();
}

inline void free_page()
{
    freeOnePage(page, MODULE, OWNER, 12);
}

/* Three pages more than one SGL holds, so that a chain has two SGLs. */
inline void new_chain()
{
    chain = nullptr;
    allocMultiPagesSync(67, &chain, MODULE, OWNER, 13);
}

inline void free_chain()
{
    freeMultiPages(chain, MODULE, OWNER, 14);
}

inline void pages_and_a_page()
{
    pages_and_queue();
    new_page();
}

inline void pages_and_a_chain()
{
    pages_and_queue();
    new_chain();
}

inline std::string told_page()
{
    return told(page);
}

inline std::string told_chain()
{
    return chain == nullptr ? "null" : told(int(chain->entrySumInChain)) + " pages";
}

/* What the call-backs of a request were told since `ready`, with how it was queued. */
inline void no_events()
{
    events.clear();
    results.clear();
}

inline std::string told_events()
{
    std::string text;
    for (const std::string &event : events)
        text += event + ", ";
    return text + told(s_retry_req_list.sum) + " queued";
}

} // namespace sweep_node
