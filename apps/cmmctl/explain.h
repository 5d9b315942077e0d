/*
 * `cmmctl explain FILE --process NAME`: what a start of the library makes of a node_config.xml,
 * told before a process is started with it.
 *
 *     FILE, NAME --> the library's own start, on a platform that records --> reading
 *     reading    --> description: each value and its origin, pools, findings --> text, JSON
 *
 * Nothing is read a second time by a reader of this program: the static library is linked in, the
 * operations that it calls below itself are wrapped, and what it asks for and is given is what the
 * explanation tells. No memory is reserved for the pools, no timer armed.
 *
 * Threads: one at a time; the library's configuration record and paths are its globals.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

/* What the process exits with. */
enum explain_result {
    EXPLAIN_CLEAN = 0,    /* the file serves the process, nothing to say */
    EXPLAIN_WARNINGS = 1, /* it serves the process, and something in it bites silently */
    EXPLAIN_UNUSABLE = 2, /* the process gets no values from it, or its start fails */
};

struct explain_request {
    std::string file;    /* node_config.xml, under any name */
    std::string process; /* the name to be listed under: the executable's; a folder is dropped */

    /* The node's memory in bytes, as if the machine had that much and no ini file; else it is found
     * as a process on this machine finds it: both ini files, then the machine's memory. */
    std::optional<uint64_t> memory;

    /* The folder below which the two ini files are looked for, a copy of another node's files, say;
     * empty for this machine's. */
    std::string root;

    /* NUMA nodes of the machine, fewer than two for a machine without; else those of this one. */
    std::optional<uint32_t> numa_nodes;
    /* Bit i: the process may run on node i; else all nodes when their number is given, and the
     * nodes of the calling process when it is not. */
    std::optional<uint64_t> numa_mask;

    bool json = false; /* JSON instead of text; the README of explain/ has its schema */
};

/* Prints the explanation; an explain_result. */
int run_explain(const explain_request &request, std::ostream &out);

/* The same, to standard output. */
int run_explain(const explain_request &request);
