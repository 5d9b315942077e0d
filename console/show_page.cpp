/*
 * "umm show page <addr>": the memory manager's own handler, behind a check that keeps it from
 * reading where nothing is.
 *
 *     typed number --> object of the page slab that begins there?    yes --> its record may be read
 *                 \--> start of a zero page whose block is there?   /
 *                  \-> neither: refused in the handler's own words
 *
 * The slab layer answers from its tables, whatever the number is, and keeps the memory while the
 * record is read: a pool that is destroyed at this moment waits. Nothing may be sent to a client
 * meanwhile, so the handler's text is caught and printed afterwards.
 *
 * A page that is free is shown as well, with what its last holder left in the record.
 */
#include "commands.h"

#include <string.h>

#include "dbg_console.h"
#include "json_line.h"
#include "pool_list.h"
#include "text_form.h"
#include "zyax.h"
#include "zyax_console.h"
#include "zymm_host.h"
#include "zyumm_cmm_page.h"

namespace console
{

/* ------------------------------------------------------------------ where to look */

static uint64_t page_slab()
{
    return __atomic_load_n(&s_page_partition_id, __ATOMIC_ACQUIRE);
}

static uint64_t start_of(const page_ctrl *ctrl)
{
    return ctrl != nullptr ? reinterpret_cast<uint64_t>(ctrl) - PAGE_SIZE_WITH_DIF : 0;
}

/* The record with DIF is an address that may outlive its page; whether the page is there is asked
 * by its block. */
static bool is_zero_page(uint64_t address)
{
    return address != 0 && (address == start_of(getZeroPageCtrlWithoutDif()) ||
                            address == start_of(getZeroPageCtrl()));
}

using look_fn = void (*)(void *ctx, const zymm_object_record *object);

/* Calls `look` while the page's memory is held; false when there is no page at the address. */
static bool hold_page(uint64_t address, look_fn look, void *ctx)
{
    if (zymm_object_look(page_slab(), reinterpret_cast<const void *>(address), look, ctx) == 0)
        return true;
    return is_zero_page(address) &&
           zymm_object_look(zero_page_pool(), s_zero_page_address, look, ctx) == 0;
}

/* The page may be free, when its memory is poisoned under AddressSanitizer, and its next owner may
 * be filling the record: one atomic load, and not watched. */
template <typename T>
__attribute__((no_sanitize("address"))) static T peek(const T *field)
{
    return __atomic_load_n(field, __ATOMIC_RELAXED);
}

/* The record names the page that it lies behind: it has been handed out at least once. */
static bool is_confirmed(uint64_t address)
{
    const page_ctrl *ctrl = reinterpret_cast<const page_ctrl *>(address + PAGE_SIZE_WITH_DIF);
    return reinterpret_cast<uint64_t>(peek(&ctrl->page_addr)) == address;
}

/* ------------------------------------------------------------------ text */

/* The handler's text is 8 lines of 62 characters and a function's name. */
struct caught_text {
    char chars[4096];
    size_t used;
};

static void catch_text(void *ctx, const char *text, size_t length)
{
    caught_text *caught = static_cast<caught_text *>(ctx);
    const size_t room = sizeof caught->chars - caught->used;
    const size_t taken = length < room ? length : room;
    memcpy(caught->chars + caught->used, text, taken);
    caught->used += taken;
}

struct typed_line {
    int32_t count;
    char **words;
    uint64_t address;
    bool is_page; /* else the handler's text is a refusal */
    caught_text caught;
};

static void run_handler(void *ctx, const zymm_object_record *)
{
    typed_line *line = static_cast<typed_line *>(ctx);
    line->is_page = is_confirmed(line->address);
    zyax_console_begin(catch_text, &line->caught);
    umm_cmm_diagnose_show_page_info(line->count, line->words);
    zyax_console_end();
}

/* In the words of the handler for an address that it does not believe. */
static void refuse_address(const char *typed)
{
    DBG_PrintBuf("---------------------------\n");
    DBG_PrintBuf("input error!!!\n");
    DBG_PrintBuf("invalid page addr %s\n", typed);
    DBG_PrintBuf("---------------------------\n");
    zyax_console_fail();
}

void show_page_text(int32_t count, char **words)
{
    if (count != 4) {
        umm_cmm_diagnose_show_page_info(count, words);
        zyax_console_fail();
        return;
    }
    typed_line line;
    line.count = count;
    line.words = words;
    line.address = zyax_str_tou64(words[3]);
    line.caught.used = 0;
    if (!hold_page(line.address, run_handler, &line)) {
        refuse_address(words[3]);
        return;
    }
    DBG_PrintBuf("%.*s", int(line.caught.used), line.caught.chars);
    if (!line.is_page)
        zyax_console_fail();
}

/* ------------------------------------------------------------------ JSON */

struct seen_page {
    uint64_t address;
    bool is_page;
    int32_t ref;
    uint32_t flags, valid_bitmap, zero_flags, module_id;
    const char *func;
    zymm_object_record object;
};

static void copy_record(void *ctx, const zymm_object_record *object)
{
    seen_page *seen = static_cast<seen_page *>(ctx);
    const page_ctrl *ctrl = reinterpret_cast<const page_ctrl *>(seen->address + PAGE_SIZE_WITH_DIF);
    seen->object = *object;
    seen->is_page = is_confirmed(seen->address);
    seen->ref = peek(&ctrl->ref);
    seen->flags = peek(&ctrl->flags);
    seen->valid_bitmap = peek(&ctrl->valid_bitmap);
    seen->zero_flags = peek(&ctrl->zero_flags);
    seen->module_id = peek(&ctrl->owner_modid);
    seen->func = peek(&ctrl->owner_func);
}

/* What the slab layer knows about the holder belongs to a page of its slab that is out. */
static void write_holder(json_line *line, const seen_page &seen, bool is_zero)
{
    if (is_zero || seen.object.is_out == 0) {
        line->none("line");
        line->none("out_age_s");
        return;
    }
    line->number("line", seen.object.line);
    line->number("out_age_s", seen.object.age_s);
}

static void write_page(const seen_page &seen)
{
    const bool is_zero = is_zero_page(seen.address);
    json_line line("umm show page");
    line.address("page", seen.address);
    line.claim("is_zero_page", is_zero);
    line.claim("is_out", seen.flags == PAGE_IN_USE);
    line.number("node", seen.object.node);
    line.number("ref", uint32_t(seen.ref));
    line.number("valid_bitmap", seen.valid_bitmap);
    line.number("zero_flags", seen.zero_flags);
    line.module(seen.module_id);
    line.text("function", seen.func);
    write_holder(&line, seen, is_zero);
}

void show_page_json(int32_t count, char **words)
{
    if (count != 4) {
        show_page_text(count, words);
        return;
    }
    seen_page seen = {};
    seen.address = zyax_str_tou64(words[3]);
    if (hold_page(seen.address, copy_record, &seen) && seen.is_page)
        write_page(seen);
    else
        refuse_address(words[3]);
}

} // namespace console
