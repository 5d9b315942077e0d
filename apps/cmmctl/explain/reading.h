/*
 * One start of the library, and the choices that it made on its way.
 */
#pragma once

#include "explain.h"
#include "recording.h"

#include "zyumm_cmm.h"

#include <vector>

static constexpr int64_t LARGEST_MEASURED = 4095; /* MiB in 32 bits of bytes */
static constexpr size_t MAX_SIZES = 16;           /* that a document may list */

/*
 * What a process would find after its start.
 *
 * Owner: whoever made it with read_as_library; released with recording_release(&trace).
 * Valid: all nodes as long as the trace is not released.
 */
struct reading {
    node_facts facts;
    std::string file; /* as the library opens it */

    recording trace; /* of the whole start */
    uint32_t status; /* of the start */
    cmm_config config;
    cmm_config_info report; /* the configuration in bytes */
    std::string cfg_path;   /* absolute; empty when the entry has none */

    recording found;      /* of the question for the node's memory alone */
    recording sizes;      /* of the one for the size that it counts as */
    uint64_t memory;      /* bytes; 0 = nobody knows */
    uint32_t size;        /* listed size that was chosen, MiB; 0 = none */
    mxml_node_t *section; /* its <node>, or null */
    mxml_node_t *umm;     /* the <umm> that was taken, or null */
    mxml_node_t *process; /* the <uprocess> that was taken, or null */
    uint32_t numa_nodes;  /* that a count is multiplied with; 0 = counts are not corrected */
};

/* Starts and stops the library with the request's file; the reading is empty before. */
void read_as_library(const explain_request &request, reading *out);

/* What the library takes for a size: its section, and the <umm> behind it; null = there is none. */
struct asked_section {
    mxml_node_t *section, *umm;
};
asked_section ask_section(const reading &read, uint32_t size);

/* The <node> elements that some size of node leads to, found by asking the library for each size
 * at which its answer can change. Only for a document whose sizes could be read. */
struct reachable {
    std::vector<uint32_t> sizes;         /* that the library can answer with, ascending */
    std::vector<mxml_node_t *> sections; /* that it takes for them, in the order of the sizes */
};
reachable find_reachable(const reading &read);

/* All <node> elements behind <config>, in document order. */
std::vector<mxml_node_t *> all_sections(const reading &read);

/* The section's size as the library reads it; empty when it is none. */
std::optional<uint32_t> section_size(mxml_node_t *section);
