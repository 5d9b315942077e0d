/*
 * The retry queue: requests that wait, its runs and walks, its timers, its start and stop.
 *
 * No request is ever lost without a call-back. A clock that reads 0 counts as a budget used up.
 */
#include "sweep_node.h"

using namespace sweep_node;

namespace
{

void fresh_queue()
{
    page_exit_retry();
    page_init_retry();
    no_events();
}

void one_waits()
{
    fresh_queue();
    dry_pool();
    ask_page(1);
    leave_pages(100);
}

void one_waits_too_long()
{
    one_waits();
    fake_advance_nanosec(6000000000);
}

void dry_and_fresh()
{
    fresh_queue();
    dry_pool();
}

void free_delivered_page()
{
    page = static_cast<page_ctrl *>(results.back());
    free_page();
}

void free_delivered_chain()
{
    chain = static_cast<SGL *>(results.back());
    free_chain();
}

void sizes()
{
    configure(0, 64);
}

std::string told_queue(uint32_t status)
{
    return told(status) + (s_page_request_id != 0 ? ", a queue" : ", no queue");
}

std::string told_kick(uint32_t status)
{
    return told(status) + ", " + told(s_enter_retry_cnt) + " pending";
}

std::string ask_one()
{
    ask_page(1);
    return told_events();
}

std::string ask_three()
{
    ask_run(1, 3);
    return told_events();
}

constexpr char SERVED[] = "end 1 0x0, 0 queued";
constexpr char REFUSED[] = "fail 1, end 1 0xffffffff, 0 queued";

} // namespace

const std::vector<operation> &retry_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(allocOnePageForPagePoolTimeOut),
            .when = "at_once",
            .scene = pages_and_queue,
            .ready = fresh_queue,
            .call = ask_one,
            .clean = SERVED,
            .undo = free_delivered_page,
            .stops = {ends("1 queued", {OP_zymm_slab_malloc}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(allocOnePageForPagePoolTimeOut),
            .when = "queued",
            .scene = pages_and_queue,
            .ready = dry_and_fresh,
            .call = ask_one,
            .clean = "1 queued",
            .undo = fresh_queue,
            .stops = {goes_on({OP_zymm_slab_malloc}).at({1}),
                      ends(REFUSED, {OP_zymm_slab_malloc}).at({2}),
                      goes_on({OP_zyax_time_getnanosec})},
        },
        {
            /* Two attempts: the second serves what the first could not. */
            .name = EXPORTED(allocMultiPagesForPagePoolTimeOut),
            .when = "at_once",
            .scene = pages_and_queue,
            .ready = fresh_queue,
            .call = ask_three,
            .clean = SERVED,
            .undo = free_delivered_chain,
            .stops = {goes_on({OP_zymm_slab_malloc})},
        },
        {
            /* Calls of either attempt: an SGL, a page that is not to be had. */
            .name = EXPORTED(allocMultiPagesForPagePoolTimeOut),
            .when = "queued",
            .scene = pages_and_queue,
            .ready = dry_and_fresh,
            .call = ask_three,
            .clean = "1 queued",
            .undo = fresh_queue,
            .stops = {goes_on({OP_zymm_slab_malloc}).at({1, 2, 3, 4}),
                      ends(REFUSED, {OP_zymm_slab_malloc}).at({5}),
                      goes_on({OP_zymm_slab_free}).leaving("objects+1"),
                      goes_on({OP_zyax_time_getnanosec})},
        },
        {
            .name = EXPORTED(page_do_retry),
            .scene = pages_and_queue,
            .ready = one_waits,
            .call =
                [] {
                    page_do_retry();
                    return told_events();
                },
            .clean = SERVED,
            .undo = free_delivered_page,
            .stops = {goes_on({OP_zymm_slab_malloc, OP_zyax_time_getnanosec}),
                      goes_on({OP_zymm_slab_free}).leaving("objects+1"),
                      ends("1 queued", {OP_do_zyax_spinlock_trylock}).at({1}).leaving("objects+1"),
                      goes_on({OP_do_zyax_spinlock_trylock}).at({2})},
        },
        {
            .name = EXPORTED(page_start_retry),
            .scene = pages_and_queue,
            .ready = one_waits,
            .call = [] { return told_kick(page_start_retry()); },
            .clean = "0, 1 pending",
            .undo = fresh_queue,
            .stops = {ends("0xFFFFFFFF, 1 pending", {OP_zyax_timer_modify}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(umm_hung_page_timeout_detect),
            .scene = pages_and_queue,
            .ready = one_waits_too_long,
            .call =
                [] {
                    umm_hung_page_timeout_detect();
                    return told_events();
                },
            .clean = "fail 1, end 1 0x80009301, 0 queued",
            .stops = {goes_on({OP_zyax_timer_modify}),
                      goes_on({OP_zymm_slab_free}).leaving("objects+1"),
                      ends("1 queued", {OP_zyax_time_getnanosec}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(page_init_retry),
            .scene = sizes,
            .ready = page_exit_retry,
            .call = [] { return told_queue(page_init_retry()); },
            .clean = "0, a queue",
            .undo = page_exit_retry,
            .stops = {goes_on({OP_zyax_time_getnanosec}),
                      ends("0xFFFFFFFF, no queue",
                           {OP_zymm_slab_param_init, OP_memcpy_s, OP_zymm_create_slab, OP_zyax_Init,
                            OP_zyax_timer_init, OP_zyax_timer_set_raw, OP_zyax_timer_add})},
        },
        {
            .name = EXPORTED(page_exit_retry),
            .scene = sizes,
            .ready = [] { page_init_retry(); },
            .call =
                [] {
                    page_exit_retry();
                    return told_queue(0);
                },
            .clean = "0, no queue",
            .stops = {goes_on({OP_zyax_timer_delete}).leaving("timers+1"),
                      goes_on({OP_zymm_destory_slab}).leaving("pools+1")},
        },
        {
            .name = EXPORTED(page_init_retry_timeout_timer),
            .ready = [] { umm_delete_retry_timer(); },
            .call = [] { return told(page_init_retry_timeout_timer()); },
            .clean = "0",
            .undo = [] { umm_delete_retry_timer(); },
            .stops = {ends("0xFFFFFFFF", {OP_zyax_timer_init}),
                      ends("0xFFFFFFFF", {OP_zyax_timer_set_raw, OP_zyax_timer_add})
                          .leaving("timers+1")},
        },
        {
            .name = EXPORTED(page_init_hung_page_timeout_timer),
            .ready = [] { umm_delete_hung_page_timer(); },
            .call = [] { return told(page_init_hung_page_timeout_timer()); },
            .clean = "0",
            .undo = [] { umm_delete_hung_page_timer(); },
            .stops = {goes_on({OP_zyax_time_getnanosec}),
                      ends("0xFFFFFFFF", {OP_zyax_Init, OP_zyax_timer_init}),
                      ends("0xFFFFFFFF", {OP_zyax_timer_set_raw, OP_zyax_timer_add})
                          .leaving("timers+1")},
        },
        {
            .name = EXPORTED(umm_delete_retry_timer),
            .ready = [] { page_init_retry_timeout_timer(); },
            .call = [] { return told(umm_delete_retry_timer()); },
            .clean = "0",
            .stops = {ends("22", {OP_zyax_timer_delete}).leaving("timers+1")},
        },
        {
            .name = EXPORTED(umm_delete_hung_page_timer),
            .ready = [] { page_init_hung_page_timeout_timer(); },
            .call = [] { return told(umm_delete_hung_page_timer()); },
            .clean = "0",
            .stops = {ends("22", {OP_zyax_timer_delete}).leaving("timers+1")},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Retry, Sweep, ::testing::ValuesIn(retry_operations()), row_name);
