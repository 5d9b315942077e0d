/*
 * The table of the memory manager's commands, and its way in and out of the console's.
 *
 * Commands whose last argument may be a pool's name look at the number of words themselves, since
 * such names have blanks. "umm show page" does so, too: its handler in the memory manager has a
 * text of its own for a wrong number. No state here: the console's table has it all.
 */
#include "zyumm_console.h"

#include <stddef.h>

#include "commands.h"
#include "zyax_console.h"
#include "zyumm_cmm_page.h"

using namespace console;

static const zyax_console_command s_commands[] = {
    {"umm show page <addr>", "the record of the page that starts at the address", show_page_text,
     show_page_json, ZYAX_CONSOLE_ANY_COUNT},
    {"umm show requests", "the newest requests that wait for pages", umm_cmm_show_request_list,
     show_newest_requests_json, 0},
    {"umm show requests all", "all requests that wait for pages", umm_cmm_show_request_list,
     show_all_requests_json, 0},
    {"umm show pools", "every pool: objects out, high-water mark, leaked", show_pools_text,
     show_pools_json, 0},
    {"umm show pool <name>", "one pool in detail; a name's beginning or a handle does",
     show_pool_text, show_pool_json, ZYAX_CONSOLE_ANY_COUNT},
    {"umm show holders <pool>", "call sites that hold a pool's objects", show_holders_text,
     show_holders_json, ZYAX_CONSOLE_ANY_COUNT},
    {"umm show leaks", "call sites whose objects are out for longer than the leak age",
     show_leaks_text, show_leaks_json, 0},
    {"umm show numa", "what lies on each NUMA node", show_numa_text, show_numa_json, 0},
    {"umm show config", "the configuration that the process runs with", show_config_text,
     show_config_json, 0},
    {"umm show partitions", "structure partitions in use", show_partitions_text,
     show_partitions_json, 0},
    {"log level <module> <level>", "sets a module's level; \"default\" takes its own one away",
     set_log_level, nullptr, 0},
    {"log sinks", "where log lines go, and up to which level", show_log_sinks_text,
     show_log_sinks_json, 0},
};

enum : size_t { COMMANDS = sizeof s_commands / sizeof s_commands[0] };

/* The first `count` commands; false when one of them was not there. */
static bool take_out(size_t count)
{
    bool all = true;
    for (size_t at = count; at > 0; at--)
        all = zyax_console_unregister(s_commands[at - 1].words) == 0 && all;
    return all;
}

int zyumm_console_register(void)
{
    for (size_t at = 0; at < COMMANDS; at++) {
        const int entered = zyax_console_register(&s_commands[at]);
        if (entered != 0) {
            take_out(at);
            return -1;
        }
    }
    return 0;
}

int zyumm_console_unregister(void)
{
    return take_out(COMMANDS) ? 0 : -1;
}
