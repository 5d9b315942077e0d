/*
 * Console commands: the requests that wait for pages, and one page.
 *
 *     words                              shows
 *     --------------------------------   -------------------------------------
 *     3 (whatever the console maps)      the newest 11 requests, or fewer
 *     4                                  all requests
 *     umm show page <addr>               the record of the page at that address
 *
 * The dispatcher hands over the words of the typed line; only their number and the address are
 * read. Everything is printed on the debug console and nothing logged.
 *
 * A command must never hold up the node: the list's lock is only tried, and a page is shown as it
 * is found, without a lock. Rows are gathered and written when the command ends, so that a slow
 * console does not stretch the time for which the lock is held.
 */
#include "page_local.h"

#include "dbg_console.h"

#include "common/cmm_log.h"

static constexpr uint32_t REQUESTS_SHOWN = 10;
static constexpr uint32_t ALL_REQUESTS = 0;

static void print_request(uint32_t seq_id, const page_retry_req *req)
{
    DBG_PrintBuf("%-12u %-12u %-18llu %-32s %-12u %-12u %-18s %-12s\n", seq_id, req->page_cnt,
                 static_cast<unsigned long long>(req->enqueue_time), cmm_text(req->func_name),
                 req->line, req->module_id, zyax_pid_get_name(req->module_id),
                 req->output_type == PAGE_REQ_OUTPUT_SGL ? "SGL" : "PAGE CTRL");
}

/* The caller holds the list lock. */
static void print_requests(uint32_t skip)
{
    if (retry_list_is_empty())
        return;

    list_link *const head = &s_retry_req_list.head;
    uint32_t seq_id = 1;
    for (list_link *link = head->next; link != head; link = link->next, ++seq_id) {
        if (seq_id >= skip)
            print_request(seq_id, retry_record(link));
    }
}

/* sic: the number of the first record shown, although it is called skip: a limited list has one
 * row more than its limit, which scripts that read the console count on. */
static uint32_t first_shown(uint32_t sum, uint32_t limit)
{
    if (limit == ALL_REQUESTS)
        return 0;
    return sum - (limit < sum ? limit : sum);
}

void umm_cmm_show_page_request_list(uint32_t limit)
{
    const uint32_t sum = uint32_t(cmm_load_relaxed(&s_retry_req_list.sum));
    if (sum == 0) {
        DBG_Print(" The page request number is ZERO.\n");
        return;
    }
    DBG_Print(" The page request number is %u.\n", sum);
    if (!CMM_SPINLOCK_TRYLOCK(&s_retry_req_list.lock)) {
        DBG_Print("Try to lock the list failed.\n");
        return;
    }

    DBG_Print("%-12s %-12s %-18s %-32s %-12s %-12s %-18s %-12s\n", "Seq ID", "Page Count",
              "Start Time", "Function Name", "File Line", "Module ID", "Module Name",
              "Output Type");
    print_requests(first_shown(sum, limit));
    CMM_SPINLOCK_UNLOCK(&s_retry_req_list.lock);
}

void umm_cmm_show_request_list(int32_t argc, char **)
{
    if (argc == 3)
        umm_cmm_show_page_request_list(REQUESTS_SHOWN);
    else if (argc == 4)
        umm_cmm_show_page_request_list(ALL_REQUESTS);
}

/*
 * The record of the page at the typed address; null when there is none. A page found free is shown
 * as well: only the address in the record is compared. A record is never misaligned, so an
 * address that would make it so is refused before it is read.
 */
static const page_ctrl *find_page(uint64_t address)
{
    const uint64_t record = address + PAGE_SIZE_WITH_DIF;
    if (address == 0 || record % alignof(page_ctrl) != 0)
        return nullptr;

    const page_ctrl *ctrl = reinterpret_cast<const page_ctrl *>(record);
    const uint8_t *page = page_peek(&ctrl->page_addr);
    return reinterpret_cast<uint64_t>(page) == address ? ctrl : nullptr;
}

static void print_page(const page_ctrl *ctrl)
{
    DBG_Print("%20s:%40s\n", "attr name", "value");
    /* sic: 71 dashes in a field of 61, as wide as the console's other tables. */
    DBG_Print("%61s\n", "-----------------------------------------------------------------------");
    DBG_Print("%20s:%40p\n", "page addr", static_cast<void *>(page_peek(&ctrl->page_addr)));
    DBG_Print("%20s:%40lu\n", "ref counter",
              static_cast<unsigned long>(uint32_t(page_peek(&ctrl->ref))));
    DBG_Print("%20s:%40u\n", "page flags", page_peek(&ctrl->flags));
    DBG_Print("%20s:%40u\n", "page valid_bitmap", page_peek(&ctrl->valid_bitmap));
    DBG_Print("%20s:%40u\n", "page zero_flags", page_peek(&ctrl->zero_flags));
    DBG_Print("%20s:%40s\n", "page owner_func", cmm_text(page_peek(&ctrl->owner_func)));
    DBG_Print("%20s:%40u\n", "page owner_modid", page_peek(&ctrl->owner_modid));
}

void umm_cmm_diagnose_show_page_info(int32_t argc, char **argv)
{
    if (argc != 4) {
        DBG_Print("---------------------------\n");
        DBG_Print("input error!!!\n");
        DBG_Print("usage: umm show page <addr>\n");
        DBG_Print("---------------------------\n");
        return;
    }
    const char *typed = argv[3];
    const page_ctrl *ctrl = find_page(zyax_str_tou64(typed));
    if (ctrl == nullptr) {
        DBG_Print("---------------------------\n");
        DBG_Print("input error!!!\n");
        DBG_Print("invalid page addr %s\n", cmm_text(typed));
        DBG_Print("---------------------------\n");
        return;
    }

    print_page(ctrl);
}

uint32_t zyumm_page_get_numaid(page_ctrl *ctrl)
{
    if (ctrl == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "get page numaid, page_ctrl is NULL.");
        return CMM_FAILURE;
    }
    return zymm_object_get_numaid(page_pool_handle(), ctrl->page_addr);
}
