/*
 * Reads the command line: names, bounds and the texts of --help in one place.
 */
#include "options.h"

#include <CLI/CLI.hpp>

#include <map>

#include "zylog.h"

namespace {

constexpr const char *ABOUT =
    "Protects files: copies each into replica images through the pages of a small page pool, with\n"
    "the integrity bytes of every sector, then reads every replica back and compares.";

constexpr const char *MORE =
    "An image is <replica dir>/replica-<k>/<index>-<name>.img: sectors of 520 bytes, 512 of the\n"
    "file and 8 integrity bytes; the last sector is filled up with zeros.\n"
    "\n"
    "SIGUSR1 shows the requests that wait for pages, and a page. SIGINT and SIGTERM finish the\n"
    "requests under way and end the run; a second one ends it at once.\n"
    "\n"
    "Exit status: 0 all protected and verified, 1 failure, 2 wrong usage, 128 and the signal's\n"
    "number when a signal ended the run.";

constexpr const char *LEVEL_HELP =
    "What the library logs: fatal, error, warning or info. Default error: a dry pool, which is "
    "normal here, is a warning";

const std::map<std::string, uint32_t> LEVELS = {{"fatal", ZYLOG_FATAL},
                                                {"error", ZYLOG_ERROR},
                                                {"warning", ZYLOG_WARNING},
                                                {"info", ZYLOG_INFO}};

void add_options(CLI::App &app, node_options *options)
{
    app.add_option("files", options->files, "Files to protect")->required()->option_text("FILE...");
    app.add_option("--replicas", options->replicas, "Images of each file [2]")
        ->check(CLI::Range(1u, 16u))->option_text("N");
    app.add_option("--replica-dir", options->replica_dir,
                   "Where the images lie [a temporary folder]")
        ->option_text("DIR");
    app.add_option("--threads", options->threads, "Worker threads [8]")
        ->check(CLI::Range(1u, 256u))->option_text("N");
    app.add_option("--timeout", options->timeout, "How long a request waits for pages [30]")
        ->check(CLI::Range(0u, 86400u))->option_text("SECONDS");
    app.add_option("--config", options->config_dir,
                   "Folder of config/node_config.xml or node_config.xml [the sample]")
        ->option_text("DIR");
    app.add_option("--log-level", options->log_level, LEVEL_HELP)
        ->transform(CLI::CheckedTransformer(LEVELS))->option_text("LEVEL");
    app.add_option("--log-file", options->log_file,
                   "Log there instead of to standard error; three files of 10 MiB at most")
        ->option_text("FILE");
    app.add_option("--console", options->console,
                   "Serve the debug console on this Unix socket while the library runs")
        ->option_text("PATH");
    app.add_flag("--verify-only", options->verify_only,
                 "Only compare the images of an earlier run");
    app.add_flag("--keep", options->keep,
                 "Keep the images; otherwise they are removed at the end,\n"
                 "unless one is found damaged");
    app.add_flag("--show", options->show,
                 "Show waiting requests and a page half way through each phase,\n"
                 "as SIGUSR1 does at any time");
    app.add_flag("--quiet", options->quiet, "Say nothing but failures");
    app.set_version_flag("--version", std::string("cmm_node ") + CMM_NODE_VERSION);
}

} // namespace

std::optional<int> parse_options(int argc, char **argv, node_options *options)
{
    CLI::App app(ABOUT, "cmm_node");

    app.footer(MORE);
    add_options(app, options);
    try {
        app.parse(argc, argv);
        if (options->verify_only && options->replica_dir.empty())
            throw CLI::RequiredError("--verify-only: --replica-dir");
    } catch (const CLI::ParseError &said) {
        return app.exit(said) == 0 ? NODE_OK : NODE_USAGE;
    }
    return std::nullopt;
}
