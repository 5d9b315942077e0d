/*
 * What the library asked its platform for while it started, and what it was told.
 *
 *     library --> wrapper of an operation --> the operation itself
 *                      |
 *                      +--> the recording of this thread, if there is one
 *
 * A wrapper does two things and nothing else: it answers with the facts of the node that is
 * explained where this machine's are not wanted, and it notes the question with its answer.
 *
 * Nodes point into the recording's tree, which the library has released by then: the wrapper of
 * zyax_xml_del leaves it to the recording.
 *
 * Threads: a recording is made on one thread; calls of all others pass the wrappers untouched.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zyax_xml.h"

/* The node that is explained; see explain_request. */
struct node_facts {
    std::string process;
    std::optional<uint64_t> memory;
    std::string root;
    std::optional<uint32_t> numa_nodes;
    std::optional<uint64_t> numa_mask;
};

struct log_line {
    uint32_t module_id;
    uint32_t level;
    std::string text; /* without the library's prefix */
};

struct element_search {
    mxml_node_t *start;
    std::string name;
    mxml_node_t *found; /* or null */
};

/* One attribute that was asked for. */
struct attribute_reading {
    mxml_node_t *element;
    std::string name;
    std::optional<std::string> text; /* empty: the element has no such attribute */
    std::optional<uint64_t> number;  /* empty: it is no unsigned number; before truncation */
};

/* One ini file that was asked for; a file that cannot be opened has neither section nor key. */
struct ini_reading {
    std::string path;
    bool is_open;
    std::string section, key;
    std::optional<std::string> value;
};

/* One slab that the library wanted. */
struct slab_wish {
    std::string name;
    uint64_t obj_size, min_num, max_num;
    uint32_t align;
    bool is_made;
};

/* What the slab layer was told about its caches. */
struct cache_numbers {
    uint32_t page, inner_64k, outer_64k, page_threads;
};

struct recording {
    const node_facts *facts = nullptr;

    std::vector<log_line> lines = {};
    std::vector<element_search> searches = {};
    std::vector<attribute_reading> attributes = {};
    std::vector<ini_reading> ini_files = {};
    std::vector<int64_t> sizes = {}; /* listed, MiB */
    std::vector<slab_wish> slabs = {};
    std::optional<cache_numbers> caches = {};
    size_t lines_of_reading = 0; /* the first ones: up to the last value */
    bool asked_machine = false;  /* for its memory */
    mxml_node_t *tree = nullptr;
};

/* This thread's recording; null while nothing is explained. */
recording *current_recording();

/* Makes a recording this thread's, for as long as the object lives. */
class recording_scope
{
public:
    explicit recording_scope(recording *current);
    ~recording_scope();
    recording_scope(const recording_scope &) = delete;
    recording_scope &operator=(const recording_scope &) = delete;

private:
    recording *before_;
};

/* Releases the tree, which is the recording's own. */
void recording_release(recording *done);
