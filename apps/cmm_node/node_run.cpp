/*
 * The order of a run:
 *
 *     log - sources - library - folders - poller - protect - verify - poller off - audit - stop
 *
 * A failure inside a phase is kept in the failure list and ends up in the report; one before the
 * first phase is thrown. Either way the library is stopped after its last user, and workers, whose
 * call-backs it may still be leaving, go only after that.
 */
#include "node_run.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <thread>

#include "leak_audit.h"
#include "library_use.h"
#include "node_error.h"
#include "progress.h"
#include "report.h"
#include "retry_poller.h"
#include "worker.h"
#include "zyax_log.h"

namespace {

constexpr uint64_t LOG_FILE_BYTES = 10u << 20;
constexpr uint32_t LOG_FILES = 2; /* full ones, besides the current */
constexpr std::chrono::milliseconds PROGRESS_STEP{100};

void set_up_log(const node_options &options)
{
    zyax_log_set_level(options.log_level);
    zyax_module_name_set(NODE_MODULE_ID, "cmm_node");
    zyax_module_name_set(CMM_MODULE_ID, "cmm");
    if (options.log_file.empty())
        return;
    if (zyax_log_add_file(options.log_file.c_str(), LOG_FILE_BYTES, LOG_FILES) != 0)
        throw node_error(options.log_file + ": cannot be used as log file");
    zyax_log_remove_stderr();
}

/* Counts workers down, so that the main thread can draw while they work. */
class finish_line
{
public:
    explicit finish_line(size_t runners) : running_(runners) {}

    void cross()
    {
        std::lock_guard hold(lock_);
        --running_;
        all_there_.notify_one();
    }

    bool wait_for(std::chrono::milliseconds time)
    {
        std::unique_lock hold(lock_);
        return all_there_.wait_for(hold, time, [this] { return running_ == 0; });
    }

private:
    std::mutex              lock_;
    std::condition_variable all_there_;
    size_t                  running_;
};

/* Runs all workers over the list, drawing the progress meanwhile. */
phase_result run_phase(phase what, const char *name, work_list &list, std::deque<worker> &workers,
                       uint64_t total, bool quiet)
{
    const auto start = std::chrono::steady_clock::now();
    progress shown(name, total, quiet);
    finish_line finish(workers.size());
    std::vector<std::jthread> threads;

    for (worker &one : workers)
        threads.emplace_back([&] {
            one.run(what, list);
            finish.cross();
        });
    while (!finish.wait_for(PROGRESS_STEP))
        shown.show(list.bytes_done());
    threads.clear();
    shown.finish(list.bytes_done());

    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return {list.bytes_done(), list.chunks_done(), took.count()};
}

/* All phases that were asked for. */
void run_phases(const node_options &options, const std::vector<source_file> &sources,
                const replica_store &store, std::deque<worker> &workers, failure_list &failures,
                report &result)
{
    const uint64_t total = total_size(sources);

    if (!options.verify_only) {
        work_list list(phase::PROTECT, sources, store, chunk_limit(), failures);
        result.protect = run_phase(phase::PROTECT, "protect", list, workers, total, options.quiet);
    }
    if (failures.empty()) {
        work_list list(phase::VERIFY, sources, store, chunk_limit(), failures);
        result.verify = run_phase(phase::VERIFY, "verify", list, workers, total, options.quiet);
        result.verified = true;
    }
}

/* Images are worth keeping when they were asked for, were there before, or show damage. */
void clear_away(const node_options &options, const std::vector<source_file> &sources,
                replica_store &store, report &result)
{
    const bool damage_shown = result.verified && !result.failures.empty();

    result.images_kept = options.keep || options.verify_only || damage_shown;
    if (!result.images_kept)
        store.remove_images(sources);
}

} // namespace

int run_node(const node_options &options)
{
    signal(SIGXFSZ, SIG_IGN); /* a file-size limit then is a failed write like any other */
    set_up_log(options);

    const std::vector<source_file> sources = find_sources(options.files);
    page_statistics statistics;
    retry_poller poller(statistics);
    failure_list failures;
    std::deque<worker> workers;
    library_use library(options.config_dir);
    replica_store store(options.replica_dir, options.replicas);
    report result(options, sources, store, statistics);

    for (uint32_t i = 0; i < std::min(options.threads, thread_limit()); ++i)
        workers.emplace_back(chunk_limit(), options.timeout, statistics, poller, failures);
    result.threads = workers.size();
    poller.start();
    run_phases(options, sources, store, workers, failures, result);
    poller.stop();

    result.read_pools();
    result.retry_runs = poller.runs();
    result.audit = audit_objects();
    print_holders(result.audit);
    result.stopped_clean = library.stop();
    result.failures = failures.lines();
    result.failure_count = failures.count();
    clear_away(options, sources, store, result);
    result.print();
    return result.ok() ? NODE_OK : NODE_FAILURE;
}
