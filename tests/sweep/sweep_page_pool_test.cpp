/*
 * The page pool with the zero pages before it and the eviction timer behind it.
 *
 * A partial creation leaves in place what was made, and so does a tear-down that stops half-way; a
 * failed eviction timer fails nothing. A block that cannot be had costs its id for good: the stop's
 * audit reports it. The deletion leaves the eviction timer, which lives as long as the process.
 */
#include "sweep_node.h"

namespace
{

constexpr char NO_POOL[] = "0xFFFFFFFF, no pool";
constexpr char ZERO_PAGES[] = "objects+1 pools+1 ids+1";

uint64_t outside_pool;

void sizes()
{
    configure(0, 64);
}

void outside_creator()
{
    sizes();
    zyumm_partition_creator_set(1);
    outside_pool = zymm_pool_create("outside", 1 << 24, 0, 77, "the test");
}

/* As a freshly loaded library finds it. */
void no_pool()
{
    delete_page_mempool();
    zyax_timer_delete(&g_page_async_evict_handler.timer);
    g_page_evict_timer_init = PTHREAD_ONCE_INIT;
}

void pool()
{
    create_page_mempool();
}

void sizes_and_pool()
{
    sizes();
    pool();
}

void no_zero_pages()
{
    if (s_zero_page_partition_id == 0)
        return;
    freeStructure(s_zero_page_address, s_zero_page_partition_id, 386, "the test", 1);
    deleteStructurePartition(s_zero_page_partition_id);
    s_zero_page_partition_id = 0;
}

std::string told_pool(uint32_t status)
{
    return told(status) + (s_page_partition_id != 0 ? ", a pool" : ", no pool");
}

} // namespace

const std::vector<operation> &page_pool_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(create_page_mempool),
            .scene = sizes,
            .ready = no_pool,
            .call = [] { return told_pool(create_page_mempool()); },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops = {goes_on({OP_zymm_slab_param_init, OP_strncpy_s, OP_memset_s}),
                      goes_on({OP_zyax_timer_init, OP_zyax_timer_set_raw, OP_zyax_timer_add}),
                      ends(NO_POOL, {OP_zyumm_mpool_create}),
                      ends(NO_POOL, {OP_ucmm_mpool_alloc_i}).leaving("ids+1"),
                      ends(NO_POOL, {OP_zyax_setmemory_ro, OP_memcpy_s, OP_zymm_create_slab})
                          .leaving(ZERO_PAGES)},
        },
        {
            .name = EXPORTED(zyumm_page_slab_create),
            .scene = outside_creator,
            .ready = no_pool,
            .call =
                [] { return told_pool(zyumm_page_slab_create(outside_pool, 0, 77, "the test")); },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops =
                {goes_on({OP_zymm_slab_param_init, OP_strncpy_s, OP_memset_s}),
                 goes_on({OP_zyax_timer_init, OP_zyax_timer_set_raw, OP_zyax_timer_add}),
                 ends(NO_POOL, {OP_zyumm_mpool_create}),
                 ends(NO_POOL, {OP_ucmm_mpool_alloc_i}).leaving("ids+1"),
                 ends(NO_POOL, {OP_zyax_setmemory_ro, OP_zymm_create_slab}).leaving(ZERO_PAGES)},
        },
        {
            .name = EXPORTED(zyumm_page_slab_create_ex),
            .scene = outside_creator,
            .ready = no_pool,
            .call =
                [] {
                    return told_pool(zyumm_page_slab_create_ex(outside_pool, 0, 77, "the test"));
                },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops =
                {goes_on({OP_zymm_slab_param_init, OP_strncpy_s, OP_memset_s}),
                 goes_on({OP_zyax_timer_init, OP_zyax_timer_set_raw, OP_zyax_timer_add}),
                 ends(NO_POOL, {OP_zyumm_mpool_create}),
                 ends(NO_POOL, {OP_ucmm_mpool_alloc_i}).leaving("ids+1"),
                 ends(NO_POOL, {OP_zyax_setmemory_ro, OP_zymm_create_slab}).leaving(ZERO_PAGES)},
        },
        {
            .name = EXPORTED(delete_page_mempool),
            .scene = sizes,
            .ready = pool,
            .call = [] { return told_pool(delete_page_mempool()); },
            .clean = "0, no pool",
            .undo = no_pool,
            .stops = {ends("0xFFFFFFFF, a pool", {OP_zymm_destory_slab})
                          .leaving("objects+1 pools+2 ids+1 timers+1"),
                      ends(NO_POOL, {OP_zyax_setmemory_rw, OP_zyumm_mpool_free_i})
                          .leaving("objects+1 pools+1 ids+1 timers+1"),
                      ends(NO_POOL, {OP_zyumm_mpool_delete}).leaving("pools+1 ids+1 timers+1")},
        },
        {
            .name = EXPORTED(umm_create_global_zero_pages),
            .scene = sizes,
            .call = [] { return told(umm_create_global_zero_pages()); },
            .clean = "0",
            .undo = no_zero_pages,
            .stops = {goes_on({OP_strncpy_s, OP_memset_s}),
                      ends("0xFFFFFFFF", {OP_zyumm_mpool_create}),
                      ends("0xFFFFFFFF", {OP_ucmm_mpool_alloc_i}).leaving("ids+1"),
                      ends("0xFFFFFFFF", {OP_zyax_setmemory_ro}).leaving(ZERO_PAGES)},
        },
        {
            .name = EXPORTED(getZeroPageCtrlWithoutDif),
            .scene = sizes_and_pool,
            .call = [] { return told(getZeroPageCtrlWithoutDif()); },
            .clean = "there",
        },
        {
            .name = EXPORTED(getZeroPageCtrl),
            .scene = sizes_and_pool,
            .call = [] { return told(getZeroPageCtrl()); },
            .clean = "there",
        },
        {
            .name = EXPORTED(umm_set_global_zero_page_ctrl_without_dif),
            .call =
                [] {
                    umm_set_global_zero_page_ctrl_without_dif(nullptr);
                    return told(getZeroPageCtrlWithoutDif());
                },
            .clean = "null",
        },
        {
            .name = EXPORTED(umm_set_global_zero_page_ctrl_dif),
            .call =
                [] {
                    umm_set_global_zero_page_ctrl_dif(nullptr);
                    return told(getZeroPageCtrl());
                },
            .clean = "null",
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(PagePool, Sweep, ::testing::ValuesIn(page_pool_operations()), row_name);
