/*
 * What bites in the entry: which one it is, elements that are not seen, numbers that are not what
 * they look like, elements that are refused as a whole.
 */
#include "description.h"
#include "reading.h"

#include <algorithm>

static bool is_real_element(mxml_node_t *node)
{
    return node != nullptr && mxmlGetType(node) == MXML_ELEMENT;
}

/* The names that the reader looked for behind `first`. */
static bool is_looked_for(const reading &read, mxml_node_t *first)
{
    const std::string name = mxmlGetElement(first);
    return std::any_of(
        read.trace.searches.begin(), read.trace.searches.end(),
        [&](const element_search &search) { return search.start == first && search.name == name; });
}

static void find_first_child(const reading &read, mxml_node_t *parent, description *out)
{
    mxml_node_t *first = zyax_xml_getfirstchild(parent);
    if (!is_real_element(first) || !is_looked_for(read, first))
        return;

    const char *name = zyax_xml_element_getattr(first, "name");
    warn(out, "first_child_not_seen",
         "<" + std::string(mxmlGetElement(first)) +
             (name != nullptr ? " name=\"" + std::string(name) + "\"" : std::string()) +
             "> is the first child of <" + mxmlGetElement(parent) +
             "> without white space before it, and is not seen.");
}

/* Whether the reader took the element for nothing, so that its numbers are of no account. */
static bool is_refused(const description &told, const std::string &element)
{
    return std::any_of(told.values.begin(), told.values.end(), [&](const value_line &line) {
        return line.element == element && line.origin == ORIGIN_UNCHANGED;
    });
}

static void find_in_number(const attribute_reading &number, description *out)
{
    const std::string element = mxmlGetElement(number.element);
    const std::string place = number.name + " of <" + element + ">";

    if (number.number && *number.number > UINT32_MAX)
        warn(out, "value_beyond_32_bits",
             place + " is " + grouped(*number.number) + ", beyond 32 bits: it counts as " +
                 grouped(uint32_t(*number.number)) + ".");
    if (number.text && !number.number && !is_refused(*out, element))
        warn(out, "number_ignored",
             place + " is no number and counts as absent: \"" + *number.text + "\".");
}

/* Everything that was asked of the entry's elements is a number, but the path. */
static void find_in_numbers(const reading &read, description *out)
{
    for (const attribute_reading &asked : read.trace.attributes) {
        if (mxmlGetParent(asked.element) == read.process && asked.name != "path" &&
            asked.name != "name")
            find_in_number(asked, out);
    }
}

static void find_refused(description *out)
{
    std::string last;
    for (const value_line &line : out->values) {
        if (line.origin == ORIGIN_UNCHANGED && line.element != last)
            warn(out, "element_refused",
                 "<" + line.element + "> is refused: its values are " + line.said + ".");
        if (line.origin == ORIGIN_UNCHANGED)
            last = line.element;
        if (line.origin == ORIGIN_ADJUSTED)
            warn(out, "value_adjusted",
                 line.attribute + " of <" + line.element + "> is " + grouped(*line.number) +
                     " and is brought to " + grouped(line.value) + ".");
    }
}

static void find_cfg_path(const reading &read, description *out)
{
    for (const element_search &search : read.trace.searches) {
        if (search.name == "cfg_path" && search.found != nullptr && read.cfg_path.empty())
            warn(out, "element_refused", "<cfg_path> is refused: " + out->cfg_path_said + ".");
    }
}

void find_in_entry(const reading &read, description *out)
{
    if (read.umm == nullptr)
        return;

    find_first_child(read, read.umm, out);
    if (read.process == nullptr)
        return;
    if (out->entry.is_default)
        warn(out, "default_entry",
             "The section has no entry \"" + out->process +
                 "\"; the process falls to the entry \"default\".");
    find_first_child(read, read.process, out);
    find_refused(out);
    find_in_numbers(read, out);
    find_cfg_path(read, out);
}
