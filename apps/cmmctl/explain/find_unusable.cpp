/*
 * Why the process gets nothing from the file, or does not start at all.
 *
 * One finding at most for the document, the first thing in the reader's way, and one for the start:
 * a file that cannot be read does not fail a start, and a start may fail on a file that is read.
 */
#include "description.h"
#include "reading.h"

#include "zylog.h"

static void refuse(description *out, const char *code, const std::string &text)
{
    out->findings.push_back({FINDING_UNUSABLE, code, text});
}

/* What the library and its platform say about it, the errors only. */
static std::string error_lines(const reading &read)
{
    std::string text;
    for (const log_line &line : read.trace.lines) {
        if (line.level <= ZYLOG_ERROR)
            text += (text.empty() ? "" : " | ") + line.text;
    }
    return text;
}

static bool has_memcfg(const reading &read)
{
    mxml_node_t *tree = read.trace.tree;
    return zyax_xml_findelement(tree, tree, "memcfg", nullptr, nullptr, MXML_DESCEND) != nullptr;
}

static std::string why_no_size(const reading &read, const memory_facts &memory)
{
    if (!has_memcfg(read))
        return "The document has no <memcfg>.";
    if (memory.listed_mib.size() > MAX_SIZES)
        return "The file lists more than 16 sizes, which makes all of it useless.";
    if (memory.bytes == 0)
        return "Nobody knows how much memory the node has.";
    if (memory.used_bytes == 0)
        return "The node's " + grouped(memory.bytes) +
               " bytes are a multiple of 4 GiB, which counts as no memory at all; one byte less is "
               "4,095 MiB.";
    return "The size comes out as 0 MiB.";
}

static void find_in_document(const reading &read, description *out)
{
    if (read.trace.tree == nullptr)
        refuse(out, "no_document", "The document cannot be read: " + error_lines(read));
    else if (read.size == 0)
        refuse(out, "no_size", why_no_size(read, out->memory));
    else if (all_sections(read).empty())
        refuse(out, "no_section", "The document has no <config> with a <node>.");
    else if (read.umm == nullptr)
        refuse(out, "no_section",
               "No section serves a node of " + grouped(read.size) + " MiB. " + out->section.said);
    else if (read.process == nullptr)
        refuse(out, "no_entry",
               "The section has neither an entry \"" + out->process +
                   "\" nor one named \"default\".");
    else if (zyax_xml_getfirstchild(read.process) == nullptr)
        refuse(out, "empty_entry", "The entry has nothing in it: all values are 0.");
}

void find_unusable(const reading &read, description *out)
{
    /* A start that fails before it opens the document says nothing about the document. */
    if (read.status == 0 || read.trace.tree != nullptr)
        find_in_document(read, out);
    if (read.status != 0)
        refuse(out, "start_fails", "The start of the process fails: " + error_lines(read));
}
