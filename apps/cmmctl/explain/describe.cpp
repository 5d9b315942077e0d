/*
 * A request's explanation from its parts, and its result.
 */
#include "description.h"
#include "reading.h"

#include <algorithm>
#include <iostream>

#include "zylog.h"

void warn(description *out, const char *code, const std::string &text)
{
    out->findings.push_back({FINDING_WARNING, code, text});
}

const char *result_name(explain_result result)
{
    switch (result) {
    case EXPLAIN_CLEAN:
        return "clean";
    case EXPLAIN_WARNINGS:
        return "warnings";
    default:
        return "unusable";
    }
}

static const char *level_name(uint32_t level)
{
    switch (level) {
    case ZYLOG_FATAL:
        return "fatal";
    case ZYLOG_ERROR:
        return "error";
    case ZYLOG_WARNING:
        return "warning";
    default:
        return "info";
    }
}

/* All that is said while the document is read. What is said while the pools are made tells of this
 * run only, its timers and how long they took, unless something is wrong. */
static void describe_log(const reading &read, description *out)
{
    const recording &trace = read.trace;
    for (size_t i = 0; i < trace.lines.size(); ++i) {
        const log_line &line = trace.lines[i];
        if (i < trace.lines_of_reading || line.level <= ZYLOG_WARNING)
            out->log.push_back({line.module_id, level_name(line.level), line.text});
    }
}

/* An error that no finding accounts for is one itself: an explanation is never clean when the log
 * is not. */
static void find_errors(description *out)
{
    if (!out->findings.empty())
        return;
    for (const logged_line &line : out->log) {
        if (line.level == "error" || line.level == "fatal")
            warn(out, "logged_error", "The start logs an error: " + line.text);
    }
}

void describe_findings(const reading &read, description *out)
{
    find_unusable(read, out);
    find_in_choices(read, out);
    find_in_entry(read, out);
    find_in_pools(read, out);
    find_errors(out);
}

static explain_result result_of(const std::vector<finding> &findings)
{
    const bool is_unusable = std::any_of(findings.begin(), findings.end(), [](const finding &f) {
        return f.severity == FINDING_UNUSABLE;
    });
    if (is_unusable)
        return EXPLAIN_UNUSABLE;
    return findings.empty() ? EXPLAIN_CLEAN : EXPLAIN_WARNINGS;
}

description describe(const explain_request &request)
{
    reading read = {};
    description told = {};

    read_as_library(request, &read);
    told.file = read.file;
    told.process = read.facts.process;
    told.start_status = read.status;
    describe_choices(read, &told);
    describe_values(read, &told);
    describe_pools(read, &told);
    describe_log(read, &told);
    describe_findings(read, &told);
    told.result = result_of(told.findings);
    recording_release(&read.trace);
    return told;
}

int run_explain(const explain_request &request, std::ostream &out)
{
    const description told = describe(request);
    if (request.json)
        print_json(told, out);
    else
        print_text(told, out);
    return told.result;
}

int run_explain(const explain_request &request)
{
    return run_explain(request, std::cout);
}
