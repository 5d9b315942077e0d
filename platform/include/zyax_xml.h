/*
 * XML trees of the base layer: thin operations over Mini-XML, whose own complaints go to zylog.
 *
 * Threads: a tree belongs to the thread that loaded it until zyax_xml_del.
 */
#ifndef ZYAX_XML_H
#define ZYAX_XML_H

#include <mxml.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The tree, to be released with zyax_xml_del; null on failure with errno set, EINVAL for bad XML. */
mxml_node_t *zyax_xml_loadfd(mxml_node_t *parent, int fd, mxml_load_cb_t callback);

/*
 * The next element after `element` (never `element` itself) that stays below `top` and matches
 * every name, attribute and value that is not null. `descend` is Mini-XML's switch: MXML_DESCEND,
 * MXML_DESCEND_FIRST or MXML_NO_DESCEND.
 */
mxml_node_t *zyax_xml_findelement(mxml_node_t *element, mxml_node_t *top, const char *name,
                                  const char *attr, const char *value, int descend);

mxml_node_t *zyax_xml_getfirstchild(mxml_node_t *element);

/* The attribute's text, owned by the tree; null when there is none. */
const char *zyax_xml_element_getattr(mxml_node_t *element, const char *name);

void zyax_xml_del(mxml_node_t *tree);

#ifdef __cplusplus
}
#endif

#endif
