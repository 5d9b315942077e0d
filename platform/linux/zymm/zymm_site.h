/*
 * Call sites: every (module, function, line) that ever allocated or freed has a small number, so
 * that an object's tag can name who holds it in 20 bits.
 *
 *     0        nobody: the object was never handed out
 *     1        all the call sites for which no number was left
 *     2 ...    one each, for the life of the process
 *
 * The function's text is copied when a site gets its number: a plugin that is unloaded takes its
 * strings along, not our report.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

enum : uint32_t { SITE_NOBODY = 0, SITE_OTHERS = 1, MOST_SITES = 65536, SITE_BITS = 20 };

/* A call site as its caller names it; `func` is a constant string and may be null. */
struct call_site {
    const char *func;
    uint32_t    module_id;
    uint32_t    line;
};

/* The site's number. Takes a lock, and signals must be blocked, only when the site is new. */
uint32_t site_number(const call_site &site);

/* A fork must find the table finished and its lock free: nothing is entered between these two. */
void sites_close();
void sites_open();

/* The site behind a number; the text lives for ever. */
call_site site_of(uint32_t number);

/*
 * One thread's memory of the numbers that it used last: a plain table that the thread reads and
 * writes alone. A signal handler may interrupt an update, so an entry is made unrecognisable before
 * and recognisable only after it was filled.
 */
struct site_memory {
    enum : uint32_t { ENTRIES = 64 };
    enum : uint64_t { UNUSED = ~uint64_t(0) }; /* as module and line: no caller has these two */
    struct alignas(32) entry {
        const char *func;
        uint64_t    module_line;
        uint64_t    number;
    } entries[ENTRIES];

    void clear();

    /* The entry of the site; null when it is not remembered. */
    const entry *recall(const char *func, uint32_t module_id, uint32_t line) const
    {
        const uint64_t module_line = uint64_t(module_id) << 32 | line;
        const entry *e = &entries[(reinterpret_cast<uintptr_t>(func) / 8 ^ line) % ENTRIES];
        return e->func == func && e->module_line == module_line ? e : nullptr;
    }

    void remember(const call_site &site, uint32_t number);
};

} // namespace zymm
