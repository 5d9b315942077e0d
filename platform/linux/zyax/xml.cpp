/*
 * XML trees: Mini-XML, with three things mended.
 *
 * Loading. Mini-XML loses the nodes of a document whose first element is broken, and takes a
 * document whose outermost element is never closed. So a document without a parent of the caller's
 * is loaded below a node of ours, from which a failure can be released as a whole, and is then
 * given the shape that Mini-XML gives: the first node is the tree, and where that is a declaration,
 * the nodes that follow it are its children.
 *
 *     holder -+- ?xml             ?xml -+- config
 *             +- config    ==>          +- comment
 *             +- comment
 *
 * Searching. A search without descent climbs out of its parent in Mini-XML, as far as `top` allows;
 * that is kept, but what is found is always below `top`.
 *
 * Complaints. Mini-XML prints them to standard error; its call-back, which is per thread, passes
 * them to the log.
 */
#include "zyax_local.h"

#include <errno.h>
#include <string.h>

#pragma GCC visibility push(default)
#include "zyax_xml.h"
#pragma GCC visibility pop

static void log_complaint(const char *text)
{
    zylog(ZYAX_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, "zyax_xml_loadfd", 0, "%s", text);
}

static bool is_element(mxml_node_t *node)
{
    return mxmlGetType(node) == MXML_ELEMENT;
}

/* Declarations, comments and the like are elements to Mini-XML, with the mark in their name. */
static bool is_real_element(mxml_node_t *node)
{
    return is_element(node) && strchr("?!", mxmlGetElement(node)[0]) == nullptr;
}

static bool holds_real_element(mxml_node_t *holder)
{
    mxml_node_t *node = mxmlWalkNext(holder, holder, MXML_DESCEND);
    while (node != nullptr && !is_real_element(node))
        node = mxmlWalkNext(node, holder, MXML_DESCEND);
    return node != nullptr;
}

/* What follows the tree's outermost element: nothing, or text and comments, which are dropped. */
static bool drop_rest(mxml_node_t *rest)
{
    while (rest != nullptr) {
        if (is_real_element(rest))
            return false;
        mxml_node_t *next = mxmlGetNextSibling(rest);
        mxmlDelete(rest);
        rest = next;
    }
    return true;
}

static void adopt_rest(mxml_node_t *tree, mxml_node_t *rest)
{
    while (rest != nullptr) {
        mxml_node_t *next = mxmlGetNextSibling(rest);
        mxmlAdd(tree, MXML_ADD_AFTER, MXML_ADD_TO_PARENT, rest);
        rest = next;
    }
}

/* Takes the document out of its holder; null when it is no document. */
static mxml_node_t *take_document(mxml_node_t *holder)
{
    mxml_node_t *tree = mxmlGetFirstChild(holder);
    if (tree == nullptr || !is_element(tree) || !holds_real_element(holder)) {
        log_complaint("The document has no element, or does not begin with one.");
        return nullptr;
    }

    mxml_node_t *rest = mxmlGetNextSibling(tree);
    if (!is_real_element(tree)) {
        adopt_rest(tree, rest);
    } else if (!drop_rest(rest)) {
        log_complaint("The document has a second outermost element.");
        return nullptr;
    }
    mxmlRemove(tree);
    return tree;
}

static mxml_node_t *load_document(int fd, mxml_load_cb_t callback)
{
    mxml_node_t *holder = mxmlNewElement(MXML_NO_PARENT, "document");
    if (holder == nullptr)
        return nullptr;

    mxml_node_t *tree = nullptr;
    if (mxmlLoadFd(holder, fd, callback) != nullptr)
        tree = take_document(holder);
    mxmlDelete(holder);
    return tree;
}

mxml_node_t *zyax_xml_loadfd(mxml_node_t *parent, int fd, mxml_load_cb_t callback)
{
    mxmlSetErrorCallback(log_complaint);
    errno = 0;
    mxml_node_t *tree = parent != nullptr ? mxmlLoadFd(parent, fd, callback)
                                          : load_document(fd, callback);
    if (tree == nullptr && errno == 0)
        errno = EINVAL;
    return tree;
}

static bool is_below(mxml_node_t *node, mxml_node_t *top)
{
    for (mxml_node_t *up = mxmlGetParent(node); up != nullptr; up = mxmlGetParent(up)) {
        if (up == top)
            return true;
    }
    return false;
}

mxml_node_t *zyax_xml_findelement(mxml_node_t *element, mxml_node_t *top, const char *name,
                                  const char *attr, const char *value, int descend)
{
    if (element == nullptr || top == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "An XML search without an element to start from or a top.");
        return nullptr;
    }

    mxml_node_t *found = mxmlFindElement(element, top, name, attr, value, descend);
    return found != nullptr && is_below(found, top) ? found : nullptr;
}

mxml_node_t *zyax_xml_getfirstchild(mxml_node_t *element)
{
    if (element == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "The first child of a null XML element.");
        return nullptr;
    }

    return mxmlGetFirstChild(element);
}

const char *zyax_xml_element_getattr(mxml_node_t *element, const char *name)
{
    if (element == nullptr || name == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "An attribute of a null XML element, or without a name.");
        return nullptr;
    }

    return mxmlElementGetAttr(element, name);
}

void zyax_xml_del(mxml_node_t *tree)
{
    mxmlDelete(tree);
}
