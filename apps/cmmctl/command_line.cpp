/*
 * Names, bounds and the texts of --help in one place.
 *
 * Words that are no subcommand end the options: everything from there on is the command for the
 * process. "--json" alone may stand among them, too.
 */
#include "command_line.h"

#include <CLI/CLI.hpp>

#include "exit_codes.h"
#include "top_rows.h"

namespace {

constexpr const char *ABOUT =
    "Asks a running process about its memory, over the socket of its debug console.\n"
    "\n"
    "  cmmctl -s SOCKET umm show pools      one command; \"help\" lists the process's commands\n"
    "  cmmctl -s SOCKET                     a prompt, with history and completion (Tab)\n"
    "  cmmctl -s SOCKET < FILE              one command a line\n"
    "  cmmctl -s SOCKET top                 the pools, who waits and who holds, on a screen\n"
    "  cmmctl -s SOCKET metrics             everything as OpenMetrics text\n"
    "  cmmctl explain FILE --process NAME   what a configuration means; needs no process";

constexpr const char *MORE =
    "Environment:\n"
    "  CMM_CONSOLE   the socket, when -s does not name it\n"
    "  HOME          the prompt's history is .cmmctl_history there\n"
    "\n"
    "Exit status: 0 the process answered; 1 it answered with an error, or with what is no answer;\n"
    "2 wrong usage; 3 no process at the socket, or it went away or did not answer in time.\n"
    "Lines from a file: the greatest of them. explain: 0 clean, 1 warnings, 2 unusable.";

constexpr const char *TOP_MORE =
    "Keys: q quits, h tells the others. Without a process at the start it ends; one that goes\n"
    "away later is waited for.\n"
    "--once takes two looks, an interval apart, as rates need two, and prints one frame.";

constexpr const char *METRICS_MORE =
    "Nothing is written when the process cannot be asked. A wrapper for a collector of files:\n"
    "  cmmctl -s SOCKET metrics --output /var/lib/collector/cmm.prom";

void add_top(CLI::App &app, command_line *line)
{
    CLI::App *top =
        app.add_subcommand("top", "Pools, waiting requests and holders, again and again");

    top->footer(TOP_MORE);
    top->add_option("--interval", line->top.interval, "Time between two looks [1]")
        ->check(CLI::Range(0.05, 3600.0))->option_text("SECONDS");
    top->add_option("--sort", line->top.sort, "Order of the pools [use]")
        ->check(CLI::IsMember(sort_keys(top_panel::POOLS)));
    top->add_option("--filter", line->top.filter, "Only rows that contain it, in any case")
        ->option_text("TEXT");
    top->add_flag("--once", line->top.once, "Print one frame as text");
    top->add_option("--columns", line->top.columns, "Of that frame [80]")
        ->check(CLI::Range(10u, 1000u))->option_text("N");
    top->add_option("--lines", line->top.lines, "Of that frame [as many as it takes]")
        ->check(CLI::Range(1u, 10000u))->option_text("N");
    top->final_callback([line] { line->action = ctl_action::TOP; });
}

void add_metrics(CLI::App &app, command_line *line)
{
    CLI::App *metrics = app.add_subcommand("metrics", "Everything as OpenMetrics text");

    metrics->footer(METRICS_MORE);
    metrics->add_option("--output", line->metrics.output,
                        "Replace this file in one go instead of printing")
        ->option_text("FILE");
    metrics->final_callback([line] { line->action = ctl_action::METRICS; });
}

void add_explain(CLI::App &app, command_line *line)
{
    CLI::App *explain =
        app.add_subcommand("explain", "What a configuration file means for a process; offline");

    explain->footer("Exit status: 0 clean, 1 warnings, 2 unusable or wrong usage.");
    explain->add_option("file", line->explain.file, "The node_config.xml")
        ->required()->option_text("FILE");
    explain->add_option("--process", line->explain.process, "Name that the process is listed under")
        ->required()->option_text("NAME");
    explain->add_option("--memory", line->explain.memory,
                        "The node's memory, as if its control group gave it [as found]")
        ->option_text("BYTES");
    explain->add_option("--root", line->explain.root,
                        "Folder below which the ini files are looked for [/]")
        ->option_text("DIR");
    explain->add_option("--numa-nodes", line->explain.numa_nodes, "NUMA nodes [this machine's]")
        ->option_text("N");
    explain->add_option("--numa-mask", line->explain.numa_mask,
                        "Nodes that the process may run on, as bits [all]")
        ->option_text("MASK");
    explain->final_callback([line] { line->action = ctl_action::EXPLAIN; });
}

void add_options(CLI::App &app, command_line *line)
{
    app.add_option("-s,--socket", line->socket, "Socket of the process's console")
        ->envname("CMM_CONSOLE")->option_text("SOCKET");
    app.add_flag("--json", line->json, "Answers in JSON");
    app.add_option("--timeout", line->timeout, "Longest wait for one answer [5]")
        ->check(CLI::Range(0.01, 86400.0))->option_text("SECONDS");
    app.set_version_flag("--version", std::string("cmmctl ") + CMMCTL_VERSION);
    app.prefix_command();
    app.require_subcommand(0, 1);
    app.fallthrough();
}

void check(const CLI::App &app, command_line *line)
{
    line->words = app.remaining();
    if (!line->words.empty() && line->action != ctl_action::PROMPT)
        throw CLI::ExtrasError(line->words);
    if (!line->words.empty() && line->words.front().rfind("-", 0) == 0 &&
        line->words.front() != "--json")
        throw CLI::ExtrasError(line->words);
    if (!line->words.empty())
        line->action = ctl_action::COMMAND;
    if (line->socket.empty() && line->action != ctl_action::EXPLAIN)
        throw CLI::RequiredError("-s SOCKET, or CMM_CONSOLE in the environment,");
}

void hand_down(command_line *line)
{
    line->top.socket = line->metrics.socket = line->socket;
    line->top.timeout = line->metrics.timeout = line->timeout;
    line->explain.json = line->json;
}

} // namespace

std::optional<int> parse_command_line(int argc, const char *const *argv, command_line *line)
{
    CLI::App app(ABOUT, "cmmctl");

    app.footer(MORE);
    add_options(app, line);
    add_top(app, line);
    add_metrics(app, line);
    add_explain(app, line);
    for (CLI::App *one : app.get_subcommands({}))
        one->prefix_command(false)->fallthrough();
    try {
        app.parse(argc, argv);
        check(app, line);
    } catch (const CLI::ParseError &said) {
        return app.exit(said) == 0 ? CTL_OK : CTL_USAGE;
    }
    hand_down(line);
    return std::nullopt;
}
