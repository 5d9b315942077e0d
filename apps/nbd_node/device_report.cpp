/*
 * What the service has to say at its end: one line a fact.
 */
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "device_service.h"
#include "error_text.h"
#include "zyumm_cmm.h"

namespace {

__attribute__((format(printf, 3, 4))) void fact(std::string *text, const char *name,
                                                const char *format, ...)
{
    char line[512];
    va_list arguments;

    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    char begin[32];
    snprintf(begin, sizeof begin, "%-12s ", name);
    *text += begin + std::string(line) + "\n";
}

uint64_t mebibytes(uint64_t bytes)
{
    return bytes >> 20;
}

void device_facts(std::string *text, const device_options &options, const device_files &files)
{
    const file_statistics &s = files.statistics();

    fact(text, "device", "%s, %lu MiB, %s", options.file.c_str(), mebibytes(files.size()),
         options.write_through ? "write-through" : "write-back");
    fact(text, "replicas", "%zu, %zu left behind, %lu made anew, %lu clones", files.replicas(),
         files.replicas() - files.replicas_left(), s.replicas_made, s.clones.load());
    fact(text, "journal", "%lu pages repaired at the start", s.journal_repairs);
    fact(text, "integrity", "%lu sectors damaged for good, %lu mended from a replica",
         s.sectors_damaged.load(), s.sectors_mended.load());
    fact(text, "files", "%lu pages read, %lu written in %lu runs, %lu trimmed",
         s.pages_read.load(), s.pages_written.load(), s.runs_written.load(),
         s.pages_trimmed.load());
}

void request_facts(std::string *text, const request_statistics &r)
{
    fact(text, "requests", "%lu taken, %lu answered, %lu of them with a failure", r.taken.load(),
         r.answered.load(), r.failed.load());
    fact(text, "", "%lu reads, %lu writes, %lu zeros, %lu trims, %lu flushes", r.reads.load(),
         r.writes.load(), r.zeros.load(), r.trims.load(), r.flushes.load());
    fact(text, "moved", "%lu MiB read, %lu MiB written", mebibytes(r.bytes_read),
         mebibytes(r.bytes_written));
}

void cache_facts(std::string *text, const block_device &device)
{
    const cache_statistics &c = device.cache.statistics;
    const page_statistics &p = device.supply.statistics;
    const write_back_statistics &w = device.written;

    fact(text, "cache", "%lu pages found, %lu read from the files, %lu were zeros", c.hits.load(),
         c.misses.load(), c.zeros.load());
    fact(text, "eviction", "%lu pages given back in %lu call-backs, %lu by requests",
         c.given_back.load(), c.evictions.load(), c.made_room.load());
    fact(text, "write-back",
         "%lu pages in %lu runs, %lu filled up, %lu runs by writers, %lu failed",
         w.pages.load(), w.runs.load(), w.completed.load(), w.by_writers.load(),
         w.failures.load());
    fact(text, "pages", "%lu of %u in use at the peak", p.peak_pages.load(),
         g_ucmm_config.page_max);
    fact(text, "queue",
         "%lu requests for pages, %lu queued, %lu served, %lu timed out, %lu refused",
         p.requests.load(), p.queued.load(), p.served.load(), p.timed_out.load(),
         p.refused.load());
}

} // namespace

std::string device_service::text_of_report(int flush_failure, bool clean) const
{
    std::string text;

    device_facts(&text, options, *files_);
    request_facts(&text, requests);
    cache_facts(&text, *device_);
    fact(&text, "last flush", "%s", flush_failure == 0 ? "clean" : error_text(flush_failure));
    if (audit_.clean())
        fact(&text, "leak audit", "clean");
    else
        fact(&text, "leak audit", "%lu pages, %lu SGLs, %lu requests, %lu queued requests",
             audit_.pages, audit_.sgls, audit_.requests, audit_.queued);
    fact(&text, "stop", "%s", clean ? "clean" : "failed");
    return text;
}

void device_service::write_report(int flush_failure, bool clean) const
{
    const std::string text = text_of_report(flush_failure, clean);
    FILE *file = options.report.empty() ? stderr : fopen(options.report.c_str(), "w");

    if (file == nullptr) {
        fprintf(stderr, "nbd_node: %s: %s\n", options.report.c_str(), error_text(errno));
        file = stderr;
    }
    fputs(text.c_str(), file);
    if (file == stderr)
        fflush(file);
    else
        fclose(file);
}
