/*
 * The library's start, run on the platform that records, from the state of a process at load.
 *
 * Whatever the start does it does here: the ladder of its steps, the rollback and the stop are its
 * own. Only two things are set by hand that a process has from its environment: where the document
 * lies, which zyumm_set_config_path would find only under its usual name, and, through the wrapped
 * readlink, the name of the executable.
 *
 * The start keeps its choices to itself, so the functions that made them are asked once more, one
 * by one, on the same tree and the same facts.
 */
#include "reading.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "zyumm_cmm_buffer.h"
#include "zyumm_cmm_page.h"

#include "zyax.h"

/* With the folder's links resolved, as the library names its files. */
static std::string absolute_path(const std::string &file)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(file, error);
    const std::filesystem::path folder = std::filesystem::canonical(path.parent_path(), error);
    return error ? file : (folder / path.filename()).string();
}

/* The library does the same with the executable's path. */
static std::string without_folder(const std::string &process)
{
    return process.substr(process.rfind('/') + 1);
}

/* As a process finds the library at load. */
static void reset_library(const std::string &file)
{
    static const pthread_once_t not_yet = PTHREAD_ONCE_INIT;

    g_cmm_init_magic = 0;
    g_ucmm_config = {};
    g_page_evict_timer_init = not_yet;
    memset(g_cfg_path_absolute, 0, sizeof g_cfg_path_absolute);
    memset(g_config_path, 0, sizeof g_config_path);
    memcpy(g_config_path, file.data(), std::min(file.size(), sizeof g_config_path - 1));
}

static void run_start(reading *out)
{
    const recording_scope scope(&out->trace);
    reset_library(out->file);
    out->status = cmm_module_init();
    out->config = g_ucmm_config;
    out->cfg_path = g_cfg_path_absolute;
    zyumm_cmm_config_info_get(&out->report);
    if (out->status != 0)
        return;

    recording stop = {.facts = &out->facts};
    const recording_scope own(&stop); /* the stop's lines are no part of the explanation */
    cmm_module_exit();
}

/* The section for a size, found or not, is the last <node> that was looked for before the <umm>. */
asked_section ask_section(const reading &read, uint32_t size)
{
    recording asked = {.facts = &read.facts};
    const recording_scope scope(&asked);
    asked_section result = {};
    mxml_node_t *last = nullptr;

    result.umm = umm_get_quota_xml(read.trace.tree, size);
    for (const element_search &search : asked.searches) {
        if (search.name == "node")
            last = search.found;
        if (search.name == "umm")
            result.section = last;
    }
    return result;
}

static void ask_choices(reading *out)
{
    {
        const recording_scope scope(&out->found);
        out->memory = umm_get_total_mem();
    }
    if (out->trace.tree != nullptr) {
        const recording_scope scope(&out->sizes);
        out->size = umm_get_node_mem_size(out->trace.tree);
    }
    if (out->size == 0)
        return;

    const asked_section asked_for = ask_section(*out, out->size);
    out->section = asked_for.section;
    out->umm = asked_for.umm;
    if (out->umm == nullptr)
        return;
    recording asked = {.facts = &out->facts};
    const recording_scope scope(&asked);
    out->process = umm_get_process_xml(out->umm, out->trace.tree, out->facts.process.c_str());
}

/* A count of 100 at 1 percent a node comes out as the number of nodes. */
static void ask_numa_nodes(reading *out)
{
    recording asked = {.facts = &out->facts};
    const recording_scope scope(&asked);
    uint32_t min = 100;
    uint32_t max = 100;

    if (zyax_numam_status_get() == 0)
        return;
    umm_fix_cmm_quota(&min, &max, 1, 1);
    out->numa_nodes = asked.lines.empty() ? min : 0;
}

void read_as_library(const explain_request &request, reading *out)
{
    out->facts = {without_folder(request.process), request.memory, request.root, request.numa_nodes,
                  request.numa_mask};
    out->file = absolute_path(request.file);
    out->trace.facts = &out->facts;
    out->found.facts = &out->facts;
    out->sizes.facts = &out->facts;

    run_start(out);
    ask_choices(out);
    ask_numa_nodes(out);
}

std::optional<uint32_t> section_size(mxml_node_t *section)
{
    uint32_t size = 0;
    if (umm_xml_get_element_attr(section, "memory", &size) != CMM_OK)
        return {};
    return size;
}

std::vector<mxml_node_t *> all_sections(const reading &read)
{
    std::vector<mxml_node_t *> sections;
    mxml_node_t *tree = read.trace.tree;
    mxml_node_t *config =
        zyax_xml_findelement(tree, tree, "config", nullptr, nullptr, MXML_DESCEND);
    if (config == nullptr)
        return sections;

    for (mxml_node_t *node = config;;) {
        node = zyax_xml_findelement(node, tree, "node", nullptr, nullptr, MXML_DESCEND);
        if (node == nullptr)
            return sections;
        sections.push_back(node);
    }
}
