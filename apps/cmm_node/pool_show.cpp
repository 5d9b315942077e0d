/*
 * Runs the two commands as a console would, with the words of a typed line, and gathers their text.
 *
 * The page command reads at whatever address it is given, so it only ever gets that of a page which
 * is held here meanwhile.
 */
#include "pool_show.h"

#include <cstdio>

#include "page_cache.h"
#include "zyax_console.h"
#include "zyumm_cmm_page.h"

namespace {

void append(void *text, const char *piece, size_t length)
{
    static_cast<std::string *>(text)->append(piece, length);
}

void show_requests()
{
    char umm[] = "umm", show[] = "show", requests[] = "requests";
    char *words[] = {umm, show, requests};

    umm_cmm_show_request_list(3, words);
}

void show_page(page_ctrl *page)
{
    char umm[] = "umm", show[] = "show", what[] = "page", address[32];
    char *words[] = {umm, show, what, address};

    snprintf(address, sizeof address, "0x%lx",
             reinterpret_cast<unsigned long>(getPageAddrByPageCtrl(page)));
    umm_cmm_diagnose_show_page_info(4, words);
}

} // namespace

std::string show_pools(page_cache &cache)
{
    const page_hold cached = cache.newest();
    std::string requests, page;

    zyax_console_begin(append, &requests);
    show_requests();
    zyax_console_end();

    zyax_console_begin(append, &page);
    show_page(cached.page() != nullptr ? cached.page() : getZeroPageCtrl());
    zyax_console_end();
    return "umm show requests\n" + requests + "umm show page\n" + page;
}
