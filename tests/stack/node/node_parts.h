/*
 * Parts of cmm_node in a started library with 16 pages, so with two records in the queue, unless a
 * fixture wants more.
 */
#pragma once

#include <future>
#include <memory>
#include <thread>

#include "io_context.h"
#include "leak_audit.h"
#include "library_use.h"
#include "node_error.h"
#include "node_program.h"
#include "zyax_log.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

class NodeParts : public NodeProgram
{
protected:
    explicit NodeParts(uint32_t pages = 16)
    {
        zyax_log_set_level(2); /* a dry pool is what these tests are about */
        library_ = std::make_unique<library_use>(make_config(node_config(pages, 8, 4)));
    }

    /* What a test leaves running or holding goes before the library does. */
    ~NodeParts() override
    {
        io_.cache.clear();
        io_.poller.stop();
    }

    /* Another thread that takes one page, by which time all 16 are taken. */
    std::future<void> wait_for_a_page(page_waiter &waiter, uint32_t timeout)
    {
        return std::async(std::launch::async, [&waiter, timeout] { waiter.take(1, timeout); });
    }

    void wait_until_queued(uint64_t length)
    {
        while (__atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED) != length)
            std::this_thread::yield();
    }

    /* All SGLs that are left, as one chain. */
    SGL *take_all_sgls() const
    {
        SGL *chain = nullptr;
        for (uint32_t sgls = 8; chain == nullptr && sgls > 0; --sgls)
            allocSglChain(&chain, sgls * SGL_MAX_ENTRY_NUM, NODE_MODULE_ID, __func__, __LINE__);
        return chain;
    }

    /* The walk frees an expired record only after its call-back, so whoever was told may look too
     * early. */
    static void wait_until_clean()
    {
        while (!audit_objects().clean())
            std::this_thread::yield();
    }

    uint64_t pages_out() const { return audit_objects().pages; }

    io_context                   io_{2, 30};
    page_waiter                  first_{io_.pages, io_.poller};
    page_waiter                  second_{io_.pages, io_.poller};
    page_waiter                  third_{io_.pages, io_.poller};
    page_waiter                  fourth_{io_.pages, io_.poller};
    std::unique_ptr<library_use> library_; /* stopped first */
};
