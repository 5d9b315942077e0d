/*
 * Document and number operations: what was looked for, and which text became which number.
 */
#include "recording.h"

#include "zyax.h"

extern "C" {

mxml_node_t *__real_zyax_xml_loadfd(mxml_node_t *parent, int fd, mxml_load_cb_t callback);
mxml_node_t *__real_zyax_xml_findelement(mxml_node_t *element, mxml_node_t *top, const char *name,
                                         const char *attr, const char *value, int descend);
const char *__real_zyax_xml_element_getattr(mxml_node_t *element, const char *name);
void __real_zyax_xml_del(mxml_node_t *tree);
int __real_zyax_str_isuint(const char *text);
int64_t __real_zyax_str_tos64(const char *text);

mxml_node_t *__wrap_zyax_xml_loadfd(mxml_node_t *parent, int fd, mxml_load_cb_t callback);
mxml_node_t *__wrap_zyax_xml_findelement(mxml_node_t *element, mxml_node_t *top, const char *name,
                                         const char *attr, const char *value, int descend);
const char *__wrap_zyax_xml_element_getattr(mxml_node_t *element, const char *name);
void __wrap_zyax_xml_del(mxml_node_t *tree);
int __wrap_zyax_str_isuint(const char *text);
int64_t __wrap_zyax_str_tos64(const char *text);

mxml_node_t *__wrap_zyax_xml_loadfd(mxml_node_t *parent, int fd, mxml_load_cb_t callback)
{
    mxml_node_t *tree = __real_zyax_xml_loadfd(parent, fd, callback);
    if (recording *current = current_recording())
        current->tree = tree;
    return tree;
}

void __wrap_zyax_xml_del(mxml_node_t *tree)
{
    if (current_recording() == nullptr)
        __real_zyax_xml_del(tree);
}

mxml_node_t *__wrap_zyax_xml_findelement(mxml_node_t *element, mxml_node_t *top, const char *name,
                                         const char *attr, const char *value, int descend)
{
    mxml_node_t *found = __real_zyax_xml_findelement(element, top, name, attr, value, descend);
    if (recording *current = current_recording())
        current->searches.push_back({element, name != nullptr ? name : "", found});
    return found;
}

const char *__wrap_zyax_xml_element_getattr(mxml_node_t *element, const char *name)
{
    const char *text = __real_zyax_xml_element_getattr(element, name);
    if (recording *current = current_recording()) {
        attribute_reading reading = {element, name != nullptr ? name : "", {}, {}};
        if (text != nullptr)
            reading.text = text;
        current->attributes.push_back(reading);
    }
    return text;
}

int __wrap_zyax_str_isuint(const char *text)
{
    const int result = __real_zyax_str_isuint(text);
    recording *current = current_recording();
    /* The library asks this of the attribute that it has just fetched, and of nothing else. */
    if (current != nullptr && result == 0 && !current->attributes.empty())
        current->attributes.back().number = zyax_str_tou64(text);
    return result;
}

int64_t __wrap_zyax_str_tos64(const char *text)
{
    const int64_t value = __real_zyax_str_tos64(text);
    if (recording *current = current_recording())
        current->sizes.push_back(value);
    return value;
}
}
