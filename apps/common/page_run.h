/*
 * Chains of pages and who holds what:
 *
 *     page_run         a chain and one reference of each page in it; drops both
 *     clone()          another page_run over the same pages, for another thread
 *     borrowed_chain   a chain over the pages of a page_run, without references
 *
 * A chain belongs to one user at a time, so every user of the same pages has one of his own. Who may
 * outlive the others needs references; who is gone before the holder is may borrow.
 *
 * Threads: a run may be given to another thread and dropped there: the references are atomic, and
 * whoever drops the last one returns the page.
 */
#pragma once

#include <utility>

#include "node_identity.h"
#include "zyumm_cmm_types.h"

class retry_poller;

class page_run
{
public:
    /* Takes over the chain, null for none, and a reference of each page in it. */
    page_run(SGL *chain, retry_poller &poller) : chain_(chain), poller_(poller) {}
    page_run(page_run &&other) noexcept : chain_(other.detach()), poller_(other.poller_) {}
    ~page_run() { release(); }

    SGL *chain() const { return chain_; }

    /* Throws when there are no SGLs for it. */
    page_run clone() const;

    /* Gives pages and chain back, and tells the poller. */
    void release();

    /* The caller takes over the chain and its references. */
    SGL *detach() { return std::exchange(chain_, nullptr); }

private:
    SGL          *chain_;
    retry_poller &poller_;
};

/* Not to be used any more when the run that lent the pages is gone. */
class borrowed_chain
{
public:
    /* Throws when there are no SGLs for it. */
    explicit borrowed_chain(const page_run &lender);
    borrowed_chain(const borrowed_chain &) = delete;
    ~borrowed_chain();

    SGL *chain() const { return chain_; }

private:
    SGL *chain_ = nullptr;
};
