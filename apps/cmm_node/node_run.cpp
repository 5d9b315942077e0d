/*
 * The order of a run:
 *
 *     signals - log - sources - library - console - limits - folders - poller, writers - protect -
 *     verify - writers off - cache emptied - poller off - audit - console off - stop
 *
 * A failure inside a phase is kept in the failure list and ends up in the report; one before the
 * first phase is thrown. A stop signal ends the phases early and nothing else: what follows them is
 * the same. Either way the library is stopped after its last user; the workers and the cache, which
 * its call-backs may still be leaving, go only after that.
 */
#include "node_run.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "console_use.h"
#include "leak_audit.h"
#include "library_use.h"
#include "node_error.h"
#include "phase_run.h"
#include "pool_limits.h"
#include "zyax_log.h"
#include "zymm_host.h"
#include "zyumm_pub.h"

namespace {

constexpr uint64_t LOG_FILE_BYTES = 10u << 20;
constexpr uint32_t LOG_FILES = 2; /* full ones, besides the current */

/* Where the build, and a package, put the sample: beside the program's folder. */
std::string config_dir(const node_options &options)
{
    if (!options.config_dir.empty())
        return options.config_dir;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    return (program.parent_path().parent_path() / "etc" / "cmm_node").string();
}

void set_up_log(const node_options &options)
{
    zyax_log_set_level(options.log_level);
    zyax_module_name_set(NODE_MODULE_ID, "cmm_node");
    zyax_module_name_set(CMM_MODULE_ID, "cmm");
    zyax_module_name_set(ZYMM_MODULE_ID, "zymm");
    zyax_module_name_set(ZYUMM_MODULE_ID, "zyumm");
    if (options.log_file.empty())
        return;
    if (zyax_log_add_file(options.log_file.c_str(), LOG_FILE_BYTES, LOG_FILES) != 0)
        throw node_error(options.log_file + ": cannot be used as log file");
    zyax_log_remove_stderr();
}

/* The threads that serve the workers; gone before the library stops, whatever happens. */
class serving_threads
{
public:
    explicit serving_threads(io_context &io) : io_(io) {}
    serving_threads(const serving_threads &) = delete;
    ~serving_threads() { stop(); }

    void start()
    {
        io_.poller.start();
        for (replica_writer &writer : io_.writers)
            writer.start();
    }

    /* Whoever holds pages gives them back before the poller goes. */
    void stop()
    {
        for (replica_writer &writer : io_.writers)
            writer.stop();
        io_.cache.clear();
        io_.poller.stop();
    }

private:
    io_context &io_;
};

/* All phases that were asked for, until a stop signal. */
void run_phases(const node_options &options, const std::vector<source_file> &sources,
                const replica_store &store, const pool_limits &limits, std::deque<worker> &workers,
                io_context &io, signal_inbox &signals, report &result)
{
    const uint64_t total = total_size(sources);
    onlooker look = {signals, io.cache, options.show, options.quiet};

    if (!options.verify_only) {
        work_list list(phase::PROTECT, sources, store, limits.chunk_bytes(), io.failures);
        result.protect = run_phase("protect", phase::PROTECT, list, workers, total, look);
    }
    if (io.failures.empty() && signals.stop_signal() == 0) {
        work_list list(phase::VERIFY, sources, store, limits.chunk_bytes(), io.failures);
        result.verify = run_phase("verify", phase::VERIFY, list, workers, total, look);
        result.verified = true;
        result.damage = !io.failures.empty();
    }
    result.stop_signal = signals.stop_signal();
}

/* Images are worth keeping when they were asked for, were there before, or show damage. */
void clear_away(const node_options &options, const std::vector<source_file> &sources,
                replica_store &store, failure_list &failures, report &result)
{
    result.images_kept = options.keep || options.verify_only || result.damage;
    if (!result.images_kept)
        store.remove_images(sources, failures);
}

} // namespace

int run_node(const node_options &options)
{
    signal(SIGXFSZ, SIG_IGN); /* a file-size limit then is a failed write like any other */
    signal_inbox signals;
    set_up_log(options);

    const std::vector<source_file> sources = find_sources(options.files);
    io_context io(options.replicas, options.timeout);
    std::deque<worker> workers;
    library_use library(config_dir(options));
    console_use console(options.console);
    serving_threads serving(io);
    const pool_limits limits = find_limits(options.replicas);
    replica_store store(options.replica_dir, options.replicas);
    report result(options, sources, store, io);

    for (uint32_t i = 0; i < std::min(options.threads, limits.threads); ++i)
        workers.emplace_back(io, limits.chunk_bytes());
    result.threads = workers.size();
    io.cache.open(limits.cache_pages);
    serving.start();
    run_phases(options, sources, store, limits, workers, io, signals, result);
    serving.stop();

    result.read_pools();
    result.audit = audit_at_the_end();
    print_holders(result.audit);
    console.stop();
    result.stopped_clean = library.stop();
    clear_away(options, sources, store, io.failures, result);
    result.failures = io.failures.lines();
    result.failure_count = io.failures.count();
    result.print();
    return result.exit_code();
}
