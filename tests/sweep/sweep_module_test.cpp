/*
 * Start, stop and the partition-creator mask.
 *
 * A start that fails is remembered by the once-guard, so the call after it fails too; the library's
 * own partition stays. A document that cannot be read, or not wholly, never fails a start. A stop
 * that fails leaves what it had not come to, and where that is a partition's pool, the next stop's
 * audit finds it.
 */
#include "sweep.h"

#include "unit/zyumm_cmm/started_node.h"

namespace
{

constexpr char FAILED[] = "0xFFFFFFFF, users 0";

/* What start and stop leave when they fail: the library's own partition and what lives in it. */
constexpr char PARTITION[] = "partitions+1";
constexpr char AND_ZERO_PAGES[] = "objects+1 pools+1 partitions+1 ids+1";
constexpr char AND_TIMER[] = "partitions+1 timers+1";

void node()
{
    static const started_node directory;
}

void started()
{
    node();
    cmm_module_init();
}

/* The eviction timer lives as long as the process; a step takes it away as a process's end does. */
void forget_eviction_timer()
{
    zyax_timer_delete(&g_page_async_evict_handler.timer);
    g_page_evict_timer_init = PTHREAD_ONCE_INIT;
}

void stop_node()
{
    cmm_module_exit();
    forget_eviction_timer();
}

std::string told_start(uint32_t status)
{
    return told(status) + ", users " + told(int(g_cmm_init_count));
}

/*
 * What a start leaves and answers. The searches of the document never decide; the first of them
 * and the sizes of the memory do decide whether the tree is kept. Of the timers the first is that
 * of eviction, without which a start goes on. Names are copied, and slabs made, for requests, SGLs,
 * pages and the queue, in this order; what the request and queue slabs are asked for has an
 * alignment of 0 when the record was not filled, for which no slab is made.
 */
std::vector<stop> start_stops(const std::string &failed, const std::string &next)
{
    const auto ends_leaving = [&](const char *leaves, std::vector<fake_op> ops) {
        return ends(failed, std::move(ops)).leaving(leaves).then(next);
    };
    return {
        ends_leaving("", {OP_zyumm_partition_create}),
        goes_on({OP_memset_s, OP_strncpy_s, OP_posix_getpid, OP_zymm_numa_coredump_level_set,
                 OP_zymm_pool_cache_num_set, OP_zyax_numam_status_get, OP_zyax_cfg_init,
                 OP_zyax_str_isuint, OP_zyax_str_tou64, OP_zyax_xml_loadfd, OP_zyax_xml_findelement,
                 OP_zyax_xml_getfirstchild, OP_zyax_xml_element_getattr, OP_zyax_time_getnanosec}),
        goes_on({OP_zyax_get_total_mem, OP_zyax_str_tos64, OP_zyax_xml_del}).leaving("trees+1"),
        goes_on({OP_zyax_xml_findelement}).at({1}).leaving("trees+1"),
        ends_leaving(PARTITION, {OP_posix_readlink, OP_snprintf_s}),
        ends_leaving(PARTITION, {OP_zymm_slab_param_init}).at({1}),
        goes_on({OP_zymm_slab_param_init}).at({2, 3}),
        ends_leaving(PARTITION, {OP_memcpy_s, OP_zymm_create_slab}).at({1, 2}),
        ends_leaving(PARTITION, {OP_zyumm_mpool_create}),
        ends_leaving("partitions+1 ids+1", {OP_ucmm_mpool_alloc_i}),
        ends_leaving(AND_ZERO_PAGES, {OP_zyax_setmemory_ro}),
        ends_leaving(AND_ZERO_PAGES, {OP_memcpy_s, OP_zymm_create_slab}).at({3}),
        goes_on({OP_zyax_timer_init, OP_zyax_timer_set_raw, OP_zyax_timer_add}).at({1}),
        ends_leaving(AND_TIMER, {OP_memcpy_s, OP_zymm_create_slab, OP_zymm_slab_param_init})
            .at({4}),
        ends_leaving(AND_TIMER,
                     {OP_zyax_Init, OP_zyax_timer_init, OP_zyax_timer_set_raw, OP_zyax_timer_add}),
    };
}

/* A refused once-guard has not run the start, and the next call does. */
std::vector<stop> guarded_start_stops()
{
    std::vector<stop> stops = start_stops(FAILED, FAILED);
    stops.push_back(ends(FAILED, {OP_zymm_init_once}));
    return stops;
}

operation start(const char *name, std::string (*call)())
{
    return {
        .name = name,
        .scene = node,
        .call = call,
        .clean = "0, users 1",
        .undo = stop_node,
        .stops = guarded_start_stops(),
    };
}

} // namespace

const std::vector<operation> &module_operations()
{
    static const std::vector<operation> rows = {
        start(EXPORTED(cmm_module_init), [] { return told_start(cmm_module_init()); }),
        start(EXPORTED(cmm_module_init_ext), [] { return told_start(cmm_module_init_ext("")); }),
        start(EXPORTED(zyumm_cmm_module_init), [] { return told_start(zyumm_cmm_module_init()); }),
        {
            .name = EXPORTED(cmm_module_init_inner),
            .scene = node,
            .call = [] { return told(cmm_module_init_inner()); },
            .clean = "0",
            .undo =
                [] {
                    g_cmm_init_count = 1;
                    stop_node();
                },
            .stops = start_stops("0xFFFFFFFF", ""),
        },
        {
            .name = EXPORTED(cmm_module_exit),
            .scene = node,
            .ready = [] { cmm_module_init(); },
            .call = [] { return told(cmm_module_exit()); },
            .clean = "0",
            .undo = forget_eviction_timer,
            .stops =
                {
                    goes_on({OP_zyax_timer_delete}).leaving("timers+1"),
                    goes_on({OP_zymm_destory_slab}).at({1, 2, 3}).leaving("pools+1"),
                    ends("0xFFFFFFFF", {OP_zymm_destory_slab})
                        .at({4})
                        .leaving("objects+1 pools+2 partitions+1 ids+1 timers+1"),
                    ends("0xFFFFFFFF", {OP_zyax_setmemory_rw, OP_zyumm_mpool_free_i})
                        .leaving("objects+1 pools+1 partitions+1 ids+1 timers+1")
                        .then("0xFFFFFFFF"),
                    ends("0xFFFFFFFF", {OP_zyumm_mpool_delete})
                        .leaving("pools+1 partitions+1 ids+1 timers+1")
                        .then("0xFFFFFFFF"),
                    ends("0xFFFFFFFF", {OP_zyumm_partition_delete}).leaving(AND_TIMER),
                },
        },
        {
            .name = EXPORTED(cmm_module_exit),
            .when = "others_remain",
            .scene = started,
            .ready = [] { cmm_module_init(); },
            .call = [] { return told(cmm_module_exit()); },
            .clean = "0",
        },
        {
            .name = EXPORTED(zyumm_attr_conver_zymm_attr),
            .call = [] { return told(zyumm_attr_conver_zymm_attr(0x10)); },
            .clean = "2",
        },
        {
            .name = EXPORTED(zyumm_partition_creator_set),
            .call =
                [] {
                    zyumm_partition_creator_set(5);
                    return told(g_cmm_part_creator);
                },
            .clean = "5",
        },
        {
            .name = EXPORTED(zyumm_partition_creator_add),
            .call =
                [] {
                    zyumm_partition_creator_add(4);
                    return told(g_cmm_part_creator);
                },
            .clean = "4",
        },
        {
            .name = EXPORTED(zyumm_is_partition_creator),
            .call = [] { return told(zyumm_is_partition_creator(1)); },
            .clean = "0",
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Module, Sweep, ::testing::ValuesIn(module_operations()), row_name);
