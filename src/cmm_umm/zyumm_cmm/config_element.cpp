/*
 * One element of the configuration document: how it is found and how its numbers are read.
 *
 * All parameters of an entry are children of one parent, and a reader is handed the parent's first
 * child, which in an indented file is the white space before the first element:
 *
 *     <uprocess name="p">"\n  "  <rdma_flag/>  "\n  "  <page_num/>  "\n"</uprocess>
 *                         ^ first child; the search looks at what comes behind it
 *
 * A search that does not descend but has the whole document as its top would climb: behind the
 * last child it goes on with the siblings of the parent. The parent is therefore the top of every
 * such search, asked from the start node itself, so that no caller can widen it by mistake.
 *
 * Nothing is logged here: what a missing number means is known to the reader of the element only.
 */
#include "config_local.h"

#include "zyax_xml.h"

mxml_node_t *config_find_sibling(mxml_node_t *first_child, const char *name)
{
    if (first_child == nullptr || name == nullptr)
        return nullptr;

    /* sic: the start node itself never matches, so an element that is its parent's very first
     * child, with no white space before it, is not seen; the node's other readers of the shared
     * file pass over it too, and all must come to the same sizes. */
    mxml_node_t *parent = mxmlGetParent(first_child);
    return zyax_xml_findelement(first_child, parent, name, nullptr, nullptr, MXML_NO_DESCEND);
}

uint32_t umm_xml_get_element_attr(mxml_node_t *element, const char *name, uint32_t *out)
{
    if (element == nullptr || name == nullptr || out == nullptr)
        return CMM_FAILURE;

    const char *text = zyax_xml_element_getattr(element, name);
    if (text == nullptr || zyax_str_isuint(text) != 0)
        return CMM_FAILURE;
    *out = uint32_t(zyax_str_tou64(text));
    return CMM_OK;
}
