/*
 * Prints the report: failures first and apart, then one line a fact.
 */
#include "report.h"

#include <cstdio>

#include "progress.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

namespace {

std::string speed(const phase_result &phase, uint64_t bytes)
{
    char text[64];
    const double rate = phase.seconds > 0 ? double(bytes) / phase.seconds : 0;

    snprintf(text, sizeof text, "%s in %.2f s, %s/s", human_size(bytes).c_str(), phase.seconds,
             human_size(uint64_t(rate)).c_str());
    return text;
}

void print_fact(const char *name, const std::string &text)
{
    printf("%-12s %s\n", name, text.c_str());
}

} // namespace

void report::read_pools()
{
    uint64_t used = 0;
    zyumm_page_get_usage_info(&pages_total_, &used);
    zyumm_sgl_get_usage_info(&sgls_total_, &used);
}

int report::exit_code() const
{
    if (!ok())
        return NODE_FAILURE;
    return stop_signal == 0 ? NODE_OK : NODE_STOPPED + stop_signal;
}

void report::print_failures() const
{
    for (const std::string &line : failures)
        fprintf(stderr, "cmm_node: %s\n", line.c_str());
    if (failure_count > failures.size())
        fprintf(stderr, "cmm_node: and %lu failures more\n", failure_count - failures.size());
    if (!audit.clean())
        fprintf(stderr, "cmm_node: leak: %lu pages, %lu SGLs, %lu requests, %lu queued requests\n",
                audit.pages, audit.sgls, audit.requests, audit.queued);
    if (!stopped_clean)
        fprintf(stderr, "cmm_node: the library did not stop clean\n");
}

const char *report::finding() const
{
    if (damage)
        return "and found damage";
    return stop_signal == 0 ? "every replica equals its source" : "all of it equal to its source";
}

const char *report::fate_of_images() const
{
    if (!images_kept)
        return "removed again";
    if (stop_signal == 0 || options_.verify_only || verified)
        return "kept";
    return protect.bytes < total_size(sources_) ? "kept, not complete" : "kept, not verified";
}

void report::print_phases() const
{
    const uint64_t images = store_.replicas();

    print_fact("files", std::to_string(sources_.size()) + ", " + human_size(total_size(sources_)) +
                            ", by " + std::to_string(threads) + " threads");
    print_fact("replicas",
               std::to_string(images) + " in " + store_.dir() + ", " + fate_of_images());
    if (!options_.verify_only)
        print_fact("protected", speed(protect, protect.bytes) + ", " +
                                    std::to_string(protect.requests) + " requests");
    if (verified)
        print_fact("verified", speed(verify, verify.bytes * images) + ", " + finding());
}

void report::print_pools() const
{
    const page_statistics &s = io_.pages;

    print_fact("pages", std::to_string(s.peak_pages) + " of " + std::to_string(pages_total_) +
                            " in use at the peak");
    print_fact("SGLs", std::to_string(s.peak_sgls) + " of " + std::to_string(sgls_total_) +
                           " in use at the peak");
    print_fact("requests", std::to_string(s.requests) + " for pages, " + std::to_string(s.queued) +
                               " queued, " + std::to_string(s.served) + " served, " +
                               std::to_string(s.timed_out) + " timed out, " +
                               std::to_string(s.refused) + " refused, " +
                               std::to_string(io_.poller.runs()) + " retry runs");
}

void report::print_sharing() const
{
    const share_statistics &s = io_.shares;
    const cache_statistics &c = io_.cache.statistics();

    print_fact("clones", std::to_string(s.clones) + " for the replicas' writers, " +
                             std::to_string(s.borrowed) + " borrowed copies for the verifier");
    print_fact("zero pages", std::to_string(s.zero_entries) + " of " + std::to_string(s.pages) +
                                 " pages were the shared zero page");
    print_fact("cache", std::to_string(c.kept) + " pages kept, " + std::to_string(c.found) +
                            " found again, " + std::to_string(c.given_back) + " given back in " +
                            std::to_string(c.evictions) + " evictions");
}

void report::print_end() const
{
    const char *good = stop_signal == 0 ? "ok" : "stopped by a signal";

    print_fact("leak audit", audit.clean() ? "clean" : "objects are still out");
    print_fact("stop", stopped_clean ? "clean" : "failed");
    print_fact("result", ok() ? good : "failed");
}

void report::print() const
{
    if (!options_.quiet) {
        print_phases();
        print_pools();
        print_sharing();
        print_end();
        fflush(stdout);
    }
    print_failures();
}
