/*
 * What bites on the way to the entry: the node's size, the list of sizes, the sections.
 */
#include "description.h"
#include "reading.h"

#include <algorithm>

static void find_in_size(const memory_facts &memory, description *out)
{
    if (memory.bytes > UINT32_MAX && memory.used_bytes != 0)
        warn(out, "size_truncated",
             "The node's " + grouped(memory.bytes) +
                 " bytes do not fit 32 bits: it counts as a "
                 "node of " +
                 grouped(memory.measured_mib) + " MiB.");
}

static void find_in_list(const reading &read, description *out)
{
    const std::vector<int64_t> &list = out->memory.listed_mib;

    for (size_t i = 1; i < list.size(); ++i) {
        if (list[i] < list[i - 1])
            warn(out, "list_not_ascending",
                 "The listed sizes do not ascend: " + grouped_signed(list[i]) + " follows " +
                     grouped_signed(list[i - 1]) +
                     ". The list is left at the first size above "
                     "the measured one, and what comes behind that is not seen.");
    }
    for (size_t i = 0; i < list.size(); ++i) {
        const std::string place = "Listed size number " + grouped(i + 1);
        if (list[i] <= 0)
            warn(out, "size_not_positive",
                 place + " counts as " + grouped_signed(list[i]) + " MiB.");
        if (list[i] > LARGEST_MEASURED)
            warn(out, "size_never_measured",
                 place + ", " + grouped_signed(list[i]) +
                     " MiB, is never reached: the most that 32 bits of bytes measure is 4,095 "
                     "MiB.");
    }

    /* A list that is too long ends at a <mem> as well, but is not cut: it is useless. */
    const std::vector<element_search> &searches = read.sizes.searches;
    const bool ends_at_mem = searches.back().name == "mem" && searches.back().found != nullptr;
    if (ends_at_mem && list.size() <= MAX_SIZES)
        warn(out, "list_cut",
             "An empty <mem> ends the list behind " + grouped(list.size()) + " sizes.");
}

static std::string section_name(const std::vector<mxml_node_t *> &all, size_t place)
{
    const char *memory = zyax_xml_element_getattr(all[place], "memory");
    return "<node" +
           (memory != nullptr ? " memory=\"" + std::string(memory) + "\"" : std::string()) +
           ">, number " + grouped(place + 1) + " of " + grouped(all.size()) + ",";
}

static std::string why_never(mxml_node_t *section, const reachable &reached)
{
    const std::optional<uint32_t> size = section_size(section);
    if (!size)
        return " its memory is no number. The search ends at it.";
    if (std::find(reached.sizes.begin(), reached.sizes.end(), *size) == reached.sizes.end())
        return " no node comes out at " + grouped(*size) + " MiB.";
    return " one for the same size, or one whose memory is no number, stands before it.";
}

static bool is_taken(mxml_node_t *section, const reachable &reached)
{
    const std::vector<mxml_node_t *> &taken = reached.sections;
    return std::find(taken.begin(), taken.end(), section) != taken.end();
}

static void find_in_sections(const reading &read, description *out)
{
    const std::vector<mxml_node_t *> all = all_sections(read);
    const reachable reached = find_reachable(read);

    for (size_t i = 0; i < all.size(); ++i) {
        const std::optional<uint32_t> size = section_size(all[i]);
        const char *text = zyax_xml_element_getattr(all[i], "memory");
        if (size && zyax_str_tou64(text) > UINT32_MAX)
            warn(out, "value_beyond_32_bits",
                 section_name(all, i) + " is one for " + grouped(*size) +
                     " MiB: of larger numbers the low 32 bits count.");
        if (!is_taken(all[i], reached))
            warn(out, "section_never_matches",
                 section_name(all, i) + " can never be taken:" + why_never(all[i], reached));
    }
    for (const uint32_t size : reached.sizes) {
        const std::vector<int64_t> &list = out->memory.listed_mib;
        const bool is_listed = std::find(list.begin(), list.end(), int64_t(size)) != list.end();
        if (is_listed && size != read.size && ask_section(read, size).section == nullptr)
            warn(out, "size_without_section",
                 "No section serves the listed size " + grouped(size) + " MiB.");
    }
}

static bool is_inside(mxml_node_t *node, mxml_node_t *outer)
{
    while (node != nullptr && node != outer)
        node = mxmlGetParent(node);
    return node != nullptr;
}

void find_in_choices(const reading &read, description *out)
{
    if (read.trace.tree == nullptr)
        return;

    find_in_size(out->memory, out);
    find_in_list(read, out);
    if (read.size != 0)
        find_in_sections(read, out);
    if (read.umm != nullptr && !is_inside(read.umm, read.section))
        warn(out, "umm_of_other_section",
             "The section has no <umm>; the next one in the file is taken, that of another "
             "section.");
}
