/*
 * Each kind of chain goes back by its own counterpart: a run and its clones by freeMultiPages, which
 * drops the references too, a borrowed chain by freeCloneSgl, which drops none.
 */
#include "page_run.h"

#include "node_error.h"
#include "retry_poller.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

page_run page_run::clone() const
{
    SGL *copy = nullptr;

    cloneSgl(chain_, chain_->userTag, &copy, NODE_MODULE_ID, __func__, __LINE__);
    if (copy == nullptr)
        throw node_error("no scatter-gather lists are left for a clone");
    return page_run(copy, poller_);
}

void page_run::release()
{
    if (chain_ == nullptr)
        return;
    freeMultiPages(detach(), NODE_MODULE_ID, __func__, __LINE__);
    poller_.signal();
}

borrowed_chain::borrowed_chain(const page_run &lender)
{
    if (cloneSglChain(lender.chain(), &chain_) != 0)
        throw node_error("no scatter-gather lists are left for a borrowed copy");
}

borrowed_chain::~borrowed_chain()
{
    freeCloneSgl(chain_);
}
