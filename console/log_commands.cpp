/*
 * "log level <module> <level>" and "log sinks".
 *
 * A module is typed by its name or its number; a name of digits alone goes before the number.
 */
#include "commands.h"

#include <string.h>

#include "block.h"
#include "dbg_console.h"
#include "json_line.h"
#include "text_form.h"
#include "zyax.h"
#include "zyax_console.h"
#include "zyax_log.h"

namespace console
{

/* ------------------------------------------------------------------ level */

static bool find_module(const char *typed, uint32_t *module_id)
{
    if (zyax_module_id_get(typed, module_id) == 0)
        return true;
    const uint64_t number = zyax_str_tou64(typed);
    if (zyax_str_isuint(typed) != 0 || number > UINT32_MAX)
        return false;
    *module_id = uint32_t(number);
    return true;
}

void set_log_level(int32_t, char **words)
{
    uint32_t module_id = 0;
    uint32_t level = 0;
    if (!find_module(words[2], &module_id)) {
        fail_with("There is no module ", words[2]);
        return;
    }
    if (strcmp(words[3], "default") == 0) {
        zyax_log_clear_module_level(module_id);
        DBG_PrintBuf("%s (%u) logs up to %s, as all others.\n", zyax_pid_get_name(module_id),
                     module_id, zyax_log_level_name(zyax_log_get_level()));
        return;
    }
    if (zyax_log_level_parse(words[3], &level) != 0) {
        fail_with("A level is fatal, error, warning, notice, info, debug or default, and not ",
                  words[3]);
        return;
    }
    zyax_log_set_module_level(module_id, level);
    DBG_PrintBuf("%s (%u) logs up to %s.\n", zyax_pid_get_name(module_id), module_id,
                 zyax_log_level_name(level));
}

/* ------------------------------------------------------------------ sinks */

enum : uint32_t { SPARE = 16 };

struct log_state {
    block<zyax_log_sink> sinks;
    block<zyax_log_module> modules;
    uint32_t sink_count = 0;
    uint32_t module_count = 0;

    log_state()
        : sinks(zyax_log_list_sinks(nullptr, 0) + SPARE),
          modules(zyax_log_list_modules(nullptr, 0) + SPARE)
    {
        if (!is_made())
            return;
        sink_count =
            listed(zyax_log_list_sinks(sinks.items(), uint32_t(sinks.count())), sinks.count());
        module_count = listed(zyax_log_list_modules(modules.items(), uint32_t(modules.count())),
                              modules.count());
    }
    bool is_made() const
    {
        return sinks.is_made() && modules.is_made();
    }
    static uint32_t listed(uint32_t all, uint64_t room)
    {
        return all < room ? all : uint32_t(room);
    }
};

static void print_modules(log_state *log)
{
    for (uint32_t at = 0; at < log->module_count; at++) {
        const zyax_log_module &module = log->modules[at];
        if (module.has_own_level != 0)
            DBG_PrintBuf("%-31s %-10u %s\n", module.name, module.module_id,
                         zyax_log_level_name(module.level));
    }
}

void show_log_sinks_text(int32_t, char **)
{
    log_state log;
    if (!log.is_made()) {
        fail_without_memory();
        return;
    }
    DBG_PrintBuf("%-7s %10s %10s  %s\n", "sink", "written", "refused", "target");
    for (uint32_t at = 0; at < log.sink_count; at++) {
        const zyax_log_sink &sink = log.sinks[at];
        DBG_PrintBuf("%-7s %10lu %10lu  %s\n", zyax_log_sink_kind_name(sink.kind), sink.written,
                     sink.refused, sink.target);
    }
    DBG_PrintBuf("%s not written.\n\n", count_text(zyax_log_dropped(), "line").chars);
    DBG_PrintBuf("%-31s %-10s %s\n", "module", "id", "level");
    DBG_PrintBuf("%-31s %-10s %s\n", "(all others)", "", zyax_log_level_name(zyax_log_get_level()));
    print_modules(&log);
}

static void write_sink(json_line *line, const zyax_log_sink &sink)
{
    line->open_object(nullptr);
    line->text("kind", zyax_log_sink_kind_name(sink.kind));
    line->text("target", sink.target);
    line->number("written", sink.written);
    line->number("refused", sink.refused);
    line->claim("is_coloured", sink.is_coloured != 0);
    line->number("max_bytes", sink.max_bytes);
    line->number("files", sink.files);
    line->close_object();
}

static void write_module(json_line *line, const zyax_log_module &module)
{
    line->open_object(nullptr);
    line->number("module_id", module.module_id);
    line->text("module", module.name);
    line->text("level", zyax_log_level_name(module.level));
    line->claim("has_own_level", module.has_own_level != 0);
    line->close_object();
}

void show_log_sinks_json(int32_t, char **)
{
    log_state log;
    if (!log.is_made()) {
        fail_without_memory();
        return;
    }
    json_line line("log sinks");
    line.number("dropped", zyax_log_dropped());
    line.text("level", zyax_log_level_name(zyax_log_get_level()));
    line.open_array("sinks");
    for (uint32_t at = 0; at < log.sink_count; at++)
        write_sink(&line, log.sinks[at]);
    line.close_array();
    line.open_array("modules");
    for (uint32_t at = 0; at < log.module_count; at++)
        write_module(&line, log.modules[at]);
    line.close_array();
}

} // namespace console
