/*
 * The SGL pool, chains and steps, lookups, clones and walks.
 *
 * A chain is all there or not there at all; a record that the slab layer does not take back is lost
 * and the rest of its chain goes back all the same. The start sets the slab's alignment itself; an
 * outside creator's record that was not filled has 0 there, for which no slab is made.
 */
#include "sweep_node.h"

using namespace sweep_node;

namespace
{

SGL *other;
SGL *current;
uint32_t entry_index, entry_offset;
uint64_t outside_pool, total, used;
zymm_numa_usage numa_usage;
zyumm_partition_info info;

void sizes()
{
    g_ucmm_config.sgl_max = 64;
}

void no_pool()
{
    cmm_destory_sgl_mempool();
}

void pool()
{
    sizes();
    cmm_create_sgl_mempool();
}

void take_two_sgls()
{
    allocSglChain(&other, 65, MODULE, OWNER, 1);
}

void free_other()
{
    freeSglChain(other, MODULE, OWNER, 2);
}

void at_the_front()
{
    current = chain;
    entry_index = 0;
}

std::string told_pool(int32_t status)
{
    return told(status) + (g_sgl_partition_id != 0 ? ", a pool" : ", no pool");
}

std::string told_other()
{
    return told(other);
}

std::string told_position(int32_t status)
{
    return told(status) + (current == chain ? ", first " : ", other ") + told(entry_index);
}

std::string ref_of_first()
{
    return told(int(chain->entries[0].pageCtrl->ref));
}

uint32_t count_visit(page_ctrl *, uint32_t, const char *)
{
    ++used;
    return 0;
}

} // namespace

const std::vector<operation> &sgl_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(cmm_create_sgl_mempool),
            .scene = sizes,
            .ready = no_pool,
            .call = [] { return told_pool(cmm_create_sgl_mempool()); },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops = {goes_on({OP_zymm_slab_param_init}),
                      ends("-1, no pool", {OP_memcpy_s, OP_zymm_create_slab})},
        },
        {
            .name = EXPORTED(zyumm_sgl_slab_create),
            .scene =
                [] {
                    sizes();
                    zyumm_partition_creator_set(2);
                    outside_pool = zymm_pool_create("outside", 1 << 20, 0, 77, "the test");
                },
            .ready = no_pool,
            .call =
                [] { return told_pool(zyumm_sgl_slab_create(outside_pool, 0, 77, "the test")); },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops = {goes_on({OP_strncpy_s}),
                      ends("-1, no pool", {OP_zymm_slab_param_init, OP_zymm_create_slab})},
        },
        {
            .name = EXPORTED(zyumm_sgl_get_usage_info),
            .scene = pool,
            .call = [] { return told(zyumm_sgl_get_usage_info(&total, &used)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zymm_slab_get_usage_info})},
        },
        {
            .name = EXPORTED(zyumm_sgl_get_usage_by_numa),
            .scene = pool,
            .call = [] { return told(zyumm_sgl_get_usage_by_numa(0, &numa_usage)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zymm_slab_get_usage_by_numa})},
        },
        {
            .name = EXPORTED(zyumm_sgl_info_get),
            .scene = pool,
            .call = [] { return told(zyumm_sgl_info_get(&info)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zyumm_partition_info_get})},
        },
        {
            .name = EXPORTED(cmm_destory_sgl_mempool),
            .ready = pool,
            .call =
                [] {
                    cmm_destory_sgl_mempool();
                    return told_pool(0);
                },
            .clean = "0, no pool",
            .stops = {goes_on({OP_zymm_destory_slab}).leaving("pools+1")},
        },
        {
            .name = EXPORTED(allocOneSgl),
            .scene = pool,
            .call =
                [] {
                    allocOneSgl(&other, MODULE, OWNER, 1);
                    return told_other();
                },
            .clean = "there",
            .undo = free_other,
            .stops = {ends("null", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(allocSglChain),
            .scene = pool,
            .call =
                [] {
                    take_two_sgls();
                    return told_other();
                },
            .clean = "there",
            .undo = free_other,
            .stops = {ends("null", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(freeSglChain),
            .scene = pool,
            .ready = take_two_sgls,
            .call =
                [] {
                    free_other();
                    return std::string("back");
                },
            .clean = "back",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(move2NextEntryAndIncEntrySum),
            .scene = pool,
            .ready = take_two_sgls,
            .call =
                [] {
                    current = other;
                    entry_index = 63;
                    move2NextEntryAndIncEntrySum(&current, &entry_index, other);
                    return std::string(current == other->nextSgl ? "second " : "first ") +
                           told(entry_index);
                },
            .clean = "second 0",
            .undo = free_other,
        },
        {
            .name = EXPORTED(move2NextEntryAndModifyPSgl),
            .scene = pages_and_a_chain,
            .ready = at_the_front,
            .call =
                [] {
                    move2NextEntryAndModifyPSgl(&current, &entry_index);
                    return told_position(0);
                },
            .clean = "0, first 1",
        },
        {
            .name = EXPORTED(cpmm_print_sgl_detail),
            .scene = pages_and_a_chain,
            .call =
                [] {
                    cpmm_print_sgl_detail(chain);
                    return std::string("shown");
                },
            .clean = "shown",
        },
        {
            .name = EXPORTED(getCurrentSglByOffset),
            .scene = pages_and_a_chain,
            .call =
                [] {
                    return told_position(
                        getCurrentSglByOffset(chain, 8320, &current, &entry_index, &entry_offset));
                },
            .clean = "0, first 1",
        },
        {
            .name = EXPORTED(getCurrentSglByOffsetIgnoreDif),
            .scene = pages_and_a_chain,
            .call =
                [] {
                    return told_position(getCurrentSglByOffsetIgnoreDif(
                        chain, 8192, &current, &entry_index, &entry_offset));
                },
            .clean = "0, first 1",
        },
        {
            .name = EXPORTED(getLastSgl),
            .scene = pages_and_a_chain,
            .call =
                [] {
                    getLastSgl(chain, &current, &entry_index);
                    return told_position(0);
                },
            .clean = "0, other 2",
        },
        {
            .name = EXPORTED(sglAndEntryOffsetPages),
            .scene = pages_and_a_chain,
            .ready = at_the_front,
            .call =
                [] {
                    sglAndEntryOffsetPages(&current, &entry_index, 65);
                    return told_position(0);
                },
            .clean = "0, other 1",
        },
        {
            .name = EXPORTED(getValidSglPageNum),
            .scene = pages_and_a_chain,
            .call = [] { return told(getValidSglPageNum(chain, 8000, 400)); },
            .clean = "2",
        },
        {
            .name = EXPORTED(cloneSgl),
            .scene = pages_and_a_chain,
            .call =
                [] {
                    cloneSgl(chain, 0, &other, MODULE, OWNER, 1);
                    return told_other() + ", ref " + ref_of_first();
                },
            .clean = "there, ref 2",
            .undo = [] { freeMultiPages(other, MODULE, OWNER, 2); },
            .stops = {ends("null, ref 1", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(cloneSglChain),
            .scene = pages_and_a_chain,
            .call =
                [] {
                    const int32_t status = cloneSglChain(chain, &other);
                    return told(status) + ", " + told_other();
                },
            .clean = "0, there",
            .undo = [] { freeCloneSgl(other); },
            .stops = {ends("-1, null", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(freeCloneSgl),
            .scene = pages_and_a_chain,
            .ready = [] { cloneSglChain(chain, &other); },
            .call =
                [] {
                    freeCloneSgl(other);
                    return std::string("back");
                },
            .clean = "back",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(traversePageInSgl),
            .scene = pages_and_a_chain,
            .ready = [] { used = 0; },
            .call =
                [] {
                    const int32_t status = traversePageInSgl(chain, count_visit, 0, "");
                    return told(status) + ", " + told(used) + " visited";
                },
            .clean = "0, 67 visited",
        },
        {
            .name = EXPORTED(incPageReferenceBySgl),
            .scene = pages_and_a_chain,
            .call = [] { return told(incPageReferenceBySgl(chain, MODULE, OWNER)); },
            .clean = "0",
        },
        {
            /* Drops the pages; the chain's two records go back on their own. */
            .name = EXPORTED(decPageReferenceBySgl),
            .scene = pages_and_queue,
            .ready = new_chain,
            .call = [] { return told(decPageReferenceBySgl(chain, MODULE, OWNER)); },
            .clean = "0",
            .undo = [] { freeSglChain(chain, MODULE, OWNER, 3); },
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Sgl, Sweep, ::testing::ValuesIn(sgl_operations()), row_name);
