/*
 * The systematic fault sweep: every exported operation, and under it every seam operation that it
 * calls, refused at its 1st, 2nd, ... call until the operation gets through.
 *
 * A row says how an operation is called and how it ends; which seam operations it calls is not
 * said but found out, by a run that counts them. Each refusal is then held against the row's stops:
 *
 *     one process a step:   ready -> call, one refusal in it -> (went on? undo) -> ready -> call
 *                             ^                            ^                  ^            ^
 *                        holdings before       outcome, locks        holdings: `leaves`   `next`
 *
 * A seam operation that is called and has no stop fails the test, and so does a stop for a call
 * that is not made: the table is complete and nothing in it is stale. What is called on the way
 * back only, after a refusal, is refused too, and must not change the outcome.
 *
 * Steps are processes of their own, so that a start that failed for good, or a process that ended,
 * spoils nothing for the next step; the fake's own loop over faults, for_each_fault, keeps all its
 * steps in one process.
 */
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fake.h"

/* How an operation ends when a seam operation refuses. */
struct stop {
    std::vector<fake_op> ops;
    std::string outcome;     /* as the row's call tells it; empty: as without refusal */
    std::string leaves = ""; /* what is held more or less than before the call */
    std::string next = "";   /* the next, unhindered call; empty: as without refusal */
    std::vector<uint64_t> calls =
        {}; /* which calls are meant; empty: all that no other stop names */

    stop at(std::vector<uint64_t> which) const;
    stop leaving(const std::string &what) const;
    stop then(const std::string &outcome_of_next) const;
};

/* The result is not looked at, or only decides a line: the operation ends as if nothing was. */
stop goes_on(std::vector<fake_op> ops);
stop ends(const std::string &outcome, std::vector<fake_op> ops);

inline void nothing()
{
}

/* One exported operation in one situation. */
struct operation {
    std::string name;
    std::string when = "";     /* tells rows of one operation apart */
    void (*scene)() = nothing; /* once: what the process has set up */
    void (*ready)() = nothing; /* before each call: what the call is given, what it needs gone */
    std::string (*call)() = nullptr; /* the call; answers its outcome */
    std::string clean = "";          /* the outcome of a call that nothing hinders */
    void (*undo)() = nothing;        /* gives back what such a call handed out */
    std::string keeps = "";          /* what it holds even so, by design */
    std::vector<stop> stops = {};
};

/* The name of an exported operation, which must exist to be named. */
#define EXPORTED(function) (static_cast<void>(&(function)), #function)

/* Every row's table, for the one test that compares their names with the export list. */
const std::vector<operation> &module_operations();
const std::vector<operation> &partition_operations();
const std::vector<operation> &config_operations();
const std::vector<operation> &parameter_operations();
const std::vector<operation> &page_pool_operations();
const std::vector<operation> &page_operations();
const std::vector<operation> &retry_operations();
const std::vector<operation> &page_report_operations();
const std::vector<operation> &sgl_operations();
const std::vector<operation> &copy_operations();
const std::vector<operation> &req_operations();
const std::vector<operation> &buffer_operations();

class Sweep : public ::testing::TestWithParam<operation>
{
};

std::string row_name(const ::testing::TestParamInfo<operation> &row);

inline void PrintTo(const operation &row, std::ostream *out)
{
    *out << row.name;
}

/* ------------------------------------------------------------------ outcomes as texts */

std::string told(uint32_t status); /* 0xFFFFFFFF for the failure value, else decimal */
std::string told(uint64_t number);
std::string told(int status);
std::string told(const void *pointer); /* "null" or "there" */
