/*
 * "umm show requests" and "umm show requests all", as JSON; the texts are the memory manager's own.
 *
 * The list's lock is tried and not waited for, since a time-out walk holds it over its call-backs;
 * under it the records are copied and nothing else. The room for them is made before, so a list
 * that grows meanwhile makes the command begin again. What the records point at, names of
 * functions, lives as long as the process.
 *
 * The list's head links to records through their first field.
 */
#include "commands.h"

#include "block.h"
#include "json_line.h"
#include "text_form.h"
#include "zyax.h"
#include "zyumm_cmm_page.h"

namespace console
{

enum : uint64_t { NEWEST = 11, SPARE_REQUESTS = 64, MOST_TURNS = 8, NS_A_MS = 1000000 };

struct seen_request {
    const char *func;
    uint64_t enqueue_time, timeout;
    uint32_t pages, served;
    uint16_t line, module_id, output_type;
};

enum class look_result { DONE, BUSY, NO_ROOM };

static seen_request copy_of(const list_link *link)
{
    const page_retry_req *req = reinterpret_cast<const page_retry_req *>(link);
    return {req->func_name,
            req->enqueue_time,
            req->timeout,
            req->page_cnt,
            __atomic_load_n(&req->served, __ATOMIC_RELAXED),
            req->line,
            req->module_id,
            req->output_type};
}

/* Copies the newest `wanted` requests, or all, the oldest of them first; *count = all that wait.
 * NO_ROOM: nothing is copied. */
static look_result look(block<seen_request> *seen, uint64_t wanted, uint64_t *count,
                        uint64_t *copied)
{
    if (do_zyax_spinlock_trylock(&s_retry_req_list.lock, __func__, __LINE__) == 0)
        return look_result::BUSY;

    *count = __atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED);
    *copied = *count < wanted ? *count : wanted;
    const bool has_room = *copied <= seen->count();
    const list_link *link = &s_retry_req_list.head;
    for (uint64_t at = has_room ? *copied : 0; at > 0; at--) {
        link = link->prev;
        (*seen)[at - 1] = copy_of(link);
    }
    do_zyax_spinlock_unlock(&s_retry_req_list.lock);
    return has_room ? look_result::DONE : look_result::NO_ROOM;
}

static void write_request(json_line *line, const seen_request &request, uint64_t place,
                          uint64_t now)
{
    const uint64_t age = now > request.enqueue_time ? now - request.enqueue_time : 0;
    line->open_object(nullptr);
    line->number("place", place);
    line->number("age_ms", age / NS_A_MS);
    if (request.timeout == PAGE_TIMEOUT_NEVER)
        line->none("timeout_ms");
    else
        line->number("timeout_ms", request.timeout * 1000);
    line->number("pages_wanted", request.pages);
    line->claim("is_served", request.served != 0);
    line->text("kind", request.output_type == PAGE_REQ_OUTPUT_SGL ? "sgl" : "page");
    line->module(request.module_id);
    line->text("function", request.func);
    line->number("line", request.line);
    line->close_object();
}

static void write_requests(const char *command, bool is_busy, uint64_t count,
                           block<seen_request> *seen, uint64_t copied)
{
    const uint64_t now = zyax_time_getnanosec();
    json_line line(command);
    line.claim("busy", is_busy);
    line.number("count", count);
    line.open_array("requests");
    for (uint64_t at = 0; at < copied; at++)
        write_request(&line, (*seen)[at], count - copied + at + 1, now);
    line.close_array();
}

static void show_requests(const char *command, uint64_t wanted)
{
    for (uint64_t turn = 0; turn < MOST_TURNS; turn++) {
        uint64_t count = __atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED);
        uint64_t copied = 0;
        const uint64_t room = count + SPARE_REQUESTS;
        block<seen_request> seen(room < wanted ? room : wanted);
        if (!seen.is_made()) {
            fail_without_memory();
            return;
        }
        const look_result result = look(&seen, wanted, &count, &copied);
        if (result == look_result::NO_ROOM)
            continue;
        write_requests(command, result == look_result::BUSY, count, &seen, copied);
        return;
    }
    fail_with("The list grows faster than it can be looked at.", "");
}

void show_newest_requests_json(int32_t, char **)
{
    show_requests("umm show requests", NEWEST);
}

void show_all_requests_json(int32_t, char **)
{
    show_requests("umm show requests all", UINT64_MAX);
}

} // namespace console
