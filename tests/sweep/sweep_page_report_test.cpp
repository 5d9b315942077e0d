/*
 * What the page pool tells: usage, eviction, and the console's commands.
 *
 * The lower layer's answers are handed on. A console text that is lost leaves the rest as it is.
 */
#include "sweep_node.h"

using namespace sweep_node;

namespace
{

uint64_t total, used, unused;
uint64_t handler_calls;
zymm_numa_usage numa_usage;
zyumm_partition_info info;
char page_address[32];

zyax_timer *eviction_timer()
{
    return &g_page_async_evict_handler.timer;
}

void delete_eviction_timer()
{
    zyax_timer_delete(eviction_timer());
}

void count_call(uint64_t)
{
    ++handler_calls;
}

/* 64 pages at most, one of them out. */
void small_pool()
{
    start_pages(64);
    new_page();
}

void almost_all_used()
{
    start_pages(64);
    zyumm_page_evict_handler_reg(0, count_call, 0, MODULE, OWNER);
    fake_set_usage(64, 62);
}

void one_waits()
{
    pages_and_queue();
    dry_pool();
    ask_page(1);
}

void type_page_address()
{
    pages_and_a_page();
    snprintf(page_address, sizeof page_address, "%llu",
             static_cast<unsigned long long>(reinterpret_cast<uint64_t>(page->page_addr)));
}

bool console_says(const char *text)
{
    return fake_console().find(text) != std::string::npos;
}

std::string told_row()
{
    return console_says(OWNER) ? "a row" : "no row";
}

std::string told_usage(int status)
{
    return told(status) + ", " + told(total) + " " + told(used);
}

std::string told_counts()
{
    return told(total) + " " + told(used) + " " + told(unused);
}

void no_usage()
{
    total = used = unused = 7;
}

} // namespace

const std::vector<operation> &page_report_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(zyumm_page_get_usage_info),
            .scene = small_pool,
            .ready = no_usage,
            .call = [] { return told_usage(zyumm_page_get_usage_info(&total, &used)); },
            .clean = "0, 64 1",
            .stops = {ends("-1, 7 7", {OP_zymm_slab_get_usage_info})},
        },
        {
            .name = EXPORTED(zyumm_page_get_usage_by_numa),
            .scene = small_pool,
            .call = [] { return told(zyumm_page_get_usage_by_numa(0, &numa_usage)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zymm_slab_get_usage_by_numa})},
        },
        {
            .name = EXPORTED(zyumm_page_info_get),
            .scene = small_pool,
            .call = [] { return told(zyumm_page_info_get(&info)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zyumm_partition_info_get})},
        },
        {
            .name = EXPORTED(zyumm_page_evict_handler_init),
            .call =
                [] {
                    zyumm_page_evict_handler_init();
                    return told(g_page_async_evict_handler.count);
                },
            .clean = "0",
            .stops = {goes_on({OP_memset_s})},
        },
        {
            .name = EXPORTED(zyumm_page_evict_handler_reg),
            .call =
                [] { return told(zyumm_page_evict_handler_reg(0, count_call, 0, MODULE, OWNER)); },
            .clean = "0",
            .stops = {goes_on({OP_memset_s})},
        },
        {
            .name = EXPORTED(zyumm_page_evict_timer_create),
            .ready = delete_eviction_timer,
            .call =
                [] {
                    zyumm_page_evict_timer_create();
                    return std::string(fake_timer(eviction_timer()).armed ? "armed" : "not armed");
                },
            .clean = "armed",
            .undo = delete_eviction_timer,
            .stops =
                {goes_on({OP_memset_s}), ends("not armed", {OP_zyax_timer_init}),
                 ends("not armed", {OP_zyax_timer_set_raw, OP_zyax_timer_add}).leaving("timers+1")},
        },
        {
            .name = EXPORTED(zyumm_page_evict_timer_hendler),
            .scene = almost_all_used,
            .ready = [] { handler_calls = 0; },
            .call =
                [] {
                    zyumm_page_evict_timer_hendler();
                    return told(handler_calls) + " called";
                },
            .clean = "1 called",
            .stops = {goes_on({OP_zyax_timer_modify}), ends("0 called", {OP_mmGetUesdInfo})},
        },
        {
            .name = EXPORTED(get_page_count),
            .scene = small_pool,
            .ready = no_usage,
            .call =
                [] {
                    get_page_count(&total, &used, &unused);
                    return told_counts();
                },
            .clean = "64 1 63",
            .stops = {ends("64 0 64", {OP_mmGetUesdInfo})},
        },
        {
            .name = EXPORTED(zyumm_page_useinfo_get),
            .scene = small_pool,
            .ready = no_usage,
            .call =
                [] {
                    zyumm_page_useinfo_get(&total, &used, &unused);
                    return told_counts();
                },
            .clean = "64 1 63",
            .stops = {ends("64 0 64", {OP_mmGetUesdInfo})},
        },
        {
            .name = EXPORTED(zyumm_page_leak_size_get),
            .scene = small_pool,
            .call = [] { return told(zyumm_page_leak_size_get()); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_slab_get_leak_number})},
        },
        {
            .name = EXPORTED(zyumm_page_usage_dump),
            .scene = small_pool,
            .call = [] { return told(zyumm_page_usage_dump()); },
            .clean = "0",
            .stops = {goes_on({OP_zymm_slab_dump_usageinfo}),
                      ends("-1", {OP_zymm_slab_dump_detailinfo})},
        },
        {
            .name = EXPORTED(updateSglPageOwner),
            .call =
                [] {
                    updateSglPageOwner(nullptr, MODULE, OWNER, 1);
                    return std::string("nothing");
                },
            .clean = "nothing",
        },
        {
            .name = EXPORTED(umm_cmm_show_request_list),
            .scene = one_waits,
            .ready = fake_forget_console,
            .call =
                [] {
                    umm_cmm_show_request_list(3, nullptr);
                    return told_row();
                },
            .clean = "a row",
            .stops = {goes_on({OP_DBG_Print, OP_zyax_pid_get_name}),
                      ends("no row", {OP_DBG_PrintBuf, OP_do_zyax_spinlock_trylock})},
        },
        {
            .name = EXPORTED(umm_cmm_show_page_request_list),
            .scene = one_waits,
            .ready = fake_forget_console,
            .call =
                [] {
                    umm_cmm_show_page_request_list(0);
                    return told_row();
                },
            .clean = "a row",
            .stops = {goes_on({OP_DBG_Print, OP_zyax_pid_get_name}),
                      ends("no row", {OP_DBG_PrintBuf, OP_do_zyax_spinlock_trylock})},
        },
        {
            .name = EXPORTED(umm_cmm_diagnose_show_page_info),
            .scene = type_page_address,
            .ready = fake_forget_console,
            .call =
                [] {
                    char words[][8] = {"umm", "show", "page"};
                    char *typed[] = {words[0], words[1], words[2], page_address};
                    umm_cmm_diagnose_show_page_info(4, typed);
                    return std::string(console_says("input error") ? "refused" : "shown");
                },
            .clean = "shown",
            .stops = {goes_on({OP_DBG_Print}), ends("refused", {OP_zyax_str_tou64})},
        },
        {
            .name = EXPORTED(zyumm_page_get_numaid),
            .scene = small_pool,
            .call = [] { return told(zyumm_page_get_numaid(page)); },
            .clean = "0",
            .stops = {ends("0xFFFFFFFF", {OP_zymm_object_get_numaid})},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(PageReport, Sweep, ::testing::ValuesIn(page_report_operations()),
                         row_name);
