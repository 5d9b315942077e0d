/*
 * Pages taken, shared and given back.
 *
 * A run is all there or not there at all. A page that the slab layer does not take back is lost,
 * and neither its giver nor the queue's kick is told: results of frees are not looked at.
 */
#include "sweep_node.h"

using namespace sweep_node;

namespace
{

/* A run that the pool is too small for waits in the queue, so that a free kicks the queue. */
void a_waiting_request()
{
    pages_and_queue();
    leave_pages(200);
    ask_run(1, 300);
}

void no_kick()
{
    s_enter_retry_cnt = 0;
}

void a_page_and_no_kick()
{
    no_kick();
    new_page();
}

void a_chain_and_no_kick()
{
    no_kick();
    new_chain();
}

void two_holders()
{
    pages_and_a_page();
    incAndRetPageReference(page, OWNER, 1);
}

std::string count_of_page(uint32_t result)
{
    return told(result) + ", ref " + told(int(page->ref));
}

void one_holder()
{
    page->ref = 1;
}

} // namespace

const std::vector<operation> &page_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(allocOnePageSync),
            .scene = pages_and_queue,
            .call =
                [] {
                    new_page();
                    return told_page();
                },
            .clean = "there",
            .undo = free_page,
            .stops = {ends("null", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(allocMultiPagesSync),
            .scene = pages_and_queue,
            .call =
                [] {
                    new_chain();
                    return told_chain();
                },
            .clean = "67 pages",
            .undo = free_chain,
            .stops = {ends("null", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(alloc_multi_page),
            .scene = pages_and_queue,
            .ready = [] { allocSglChain(&chain, 3, MODULE, OWNER, 1); },
            .call =
                [] {
                    const uint32_t laid = alloc_multi_page(3, MODULE, chain, OWNER, 1);
                    return told(laid) + " laid, " + told_chain();
                },
            .clean = "3 laid, 3 pages",
            .undo = free_chain,
            .stops = {ends("0 laid, 0 pages", {OP_zymm_slab_malloc}).at({1}).leaving("objects+1"),
                      ends("1 laid, 1 pages", {OP_zymm_slab_malloc}).at({2}).leaving("objects+2"),
                      ends("2 laid, 2 pages", {OP_zymm_slab_malloc}).at({3}).leaving("objects+3")},
        },
        {
            .name = EXPORTED(add_one_page_to_sgl),
            .scene = pages_and_a_page,
            .ready = [] { allocSglChain(&chain, 3, MODULE, OWNER, 1); },
            .call =
                [] {
                    SGL *current = chain;
                    uint32_t index = 0;
                    add_one_page_to_sgl(chain, &current, &index, page);
                    return told_chain();
                },
            .clean = "1 pages",
            .undo = [] { freeSglChain(chain, MODULE, OWNER, 1); },
        },
        {
            .name = EXPORTED(freeOnePage),
            .scene = a_waiting_request,
            .ready = a_page_and_no_kick,
            .call =
                [] {
                    free_page();
                    return std::string("back");
                },
            .clean = "back",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1"),
                      goes_on({OP_zyax_timer_modify})},
        },
        {
            .name = EXPORTED(freeMultiPages),
            .scene = a_waiting_request,
            .ready = a_chain_and_no_kick,
            .call =
                [] {
                    free_chain();
                    return std::string("back");
                },
            .clean = "back",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1"),
                      goes_on({OP_zyax_timer_modify})},
        },
        {
            .name = EXPORTED(free_multi_page),
            .scene = a_waiting_request,
            .ready = a_chain_and_no_kick,
            .call = [] { return told(free_multi_page(chain, MODULE, OWNER, 1)); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1"),
                      ends("0xFFFFFFFF", {OP_zyax_timer_modify})},
        },
        {
            .name = EXPORTED(try_free_one_page),
            .scene = pages_and_queue,
            .ready = new_page,
            .call = [] { return told(try_free_one_page(page, MODULE, OWNER, 1)); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(set_page_ctrl_free),
            .scene = pages_and_a_page,
            .call =
                [] {
                    set_page_ctrl_free(page);
                    return told(int(page->flags));
                },
            .clean = "0",
        },
        {
            .name = EXPORTED(free_one_page),
            .scene = pages_and_queue,
            .ready = new_page,
            .call = [] { return told(free_one_page(page, MODULE, OWNER, 1)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(incAndRetPageReferenceInner),
            .scene = pages_and_a_page,
            .ready = one_holder,
            .call = [] { return told(incAndRetPageReferenceInner(page, MODULE, OWNER, 1)); },
            .clean = "2",
        },
        {
            .name = EXPORTED(incAndRetPageReference),
            .scene = pages_and_a_page,
            .ready = one_holder,
            .call = [] { return told(incAndRetPageReference(page, OWNER, 1)); },
            .clean = "2",
        },
        {
            .name = EXPORTED(incPageRefByFunc),
            .scene = pages_and_a_page,
            .ready = one_holder,
            .call = [] { return told(incPageRefByFunc(page, MODULE, OWNER)); },
            .clean = "2",
        },
        {
            .name = EXPORTED(decAndRetPageReference),
            .scene = pages_and_queue,
            .ready = new_page,
            .call = [] { return told(decAndRetPageReference(page, MODULE, OWNER, 1)); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(decPageRefByFunc),
            .scene = pages_and_queue,
            .ready = new_page,
            .call = [] { return told(decPageRefByFunc(page, MODULE, OWNER)); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(getPageReference),
            .scene = two_holders,
            .call = [] { return count_of_page(getPageReference(page, OWNER)); },
            .clean = "2, ref 2",
        },
        {
            .name = EXPORTED(getPageAddrByPageCtrl),
            .scene = pages_and_a_page,
            .call = [] { return told(getPageAddrByPageCtrl(page)); },
            .clean = "there",
        },
        {
            .name = EXPORTED(getPageZeroFlags),
            .scene = pages_and_a_page,
            .call =
                [] {
                    uint8_t is_zero = 9;
                    getPageZeroFlags(page, &is_zero);
                    return told(int(is_zero));
                },
            .clean = "0",
        },
        {
            .name = EXPORTED(setPageZeroFlags),
            .scene = pages_and_a_page,
            .call =
                [] {
                    setPageZeroFlags(page, 1);
                    return told(int(page->zero_flags));
                },
            .clean = "32",
        },
        {
            .name = EXPORTED(addPageValidBitMap),
            .scene = pages_and_a_page,
            .call =
                [] {
                    addPageValidBitMap(page, 5);
                    return told(int(page->valid_bitmap));
                },
            .clean = "5",
        },
        {
            .name = EXPORTED(getPageValidBitMap),
            .scene = pages_and_a_page,
            .call = [] { return told(int(getPageValidBitMap(page))); },
            .clean = "0",
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Page, Sweep, ::testing::ValuesIn(page_operations()), row_name);
