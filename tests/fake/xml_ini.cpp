/*
 * XML trees straight on Mini-XML, and ini files that a test writes line by line.
 */
#include <atomic>
#include <cerrno>
#include <map>

#include "fake_local.h"

struct zyax_cfg {
    std::string path;
};

namespace
{

struct ini_key {
    std::string section, key;

    auto operator<=>(const ini_key &) const = default;
};

using ini_file = std::map<ini_key, std::string>;

/* Trees loaded and not deleted, ini files opened and not closed. */
std::atomic<uint64_t> trees_alive;
std::atomic<uint64_t> ini_files_open;

std::map<std::string, ini_file> &ini_files()
{
    static std::map<std::string, ini_file> *const files = new std::map<std::string, ini_file>;
    return *files;
}

void complaint_to_log(const char *text)
{
    const int kept_errno = errno;
    fake::platform_line(ZYLOG_ERROR, "zyax_xml_loadfd", "%s", text);
    errno = kept_errno;
}

bool find_value(const zyax_cfg *cfg, const ini_key &key, std::string *value)
{
    const fake::guard held(fake::state_mutex());
    const auto        file = ini_files().find(cfg->path);
    if (file == ini_files().end())
        return false;
    const auto found = file->second.find(key);
    if (found == file->second.end())
        return false;
    *value = found->second;
    return true;
}

} // namespace

mxml_node_t *zyax_xml_loadfd(mxml_node_t *parent, int fd, mxml_load_cb_t callback)
{
    fake::call c(OP_zyax_xml_loadfd, parent, fd, callback);
    if (c.failed())
        errno = EINVAL;
    return c.answer<mxml_node_t *>([&]() -> mxml_node_t * {
        mxmlSetErrorCallback(complaint_to_log);
        errno             = 0;
        mxml_node_t *tree = mxmlLoadFd(parent, fd, callback);
        if (tree == nullptr && errno == 0)
            errno = EINVAL;
        trees_alive += tree != nullptr ? 1 : 0;
        return tree;
    });
}

mxml_node_t *zyax_xml_findelement(mxml_node_t *element, mxml_node_t *top, const char *name,
                                  const char *attr, const char *value, int descend)
{
    fake::call c(OP_zyax_xml_findelement, element, top, name, attr, value, descend);
    return c.answer<mxml_node_t *>(
        [&] { return mxmlFindElement(element, top, name, attr, value, descend); });
}

mxml_node_t *zyax_xml_getfirstchild(mxml_node_t *element)
{
    fake::call c(OP_zyax_xml_getfirstchild, element);
    return c.answer<mxml_node_t *>([&] { return mxmlGetFirstChild(element); });
}

const char *zyax_xml_element_getattr(mxml_node_t *element, const char *name)
{
    fake::call c(OP_zyax_xml_element_getattr, element, name);
    return c.answer<const char *>([&] { return mxmlElementGetAttr(element, name); });
}

void zyax_xml_del(mxml_node_t *tree)
{
    fake::call c(OP_zyax_xml_del, tree);
    c.run([&] {
        trees_alive -= tree != nullptr ? 1 : 0;
        mxmlDelete(tree);
    });
}

int zyax_cfg_init(const char *path, zyax_cfg **cfg)
{
    fake::call c(OP_zyax_cfg_init, path, cfg);
    return c.answer<int>([&] {
        if (path == nullptr || cfg == nullptr)
            return -1;
        const fake::guard held(fake::state_mutex());
        if (ini_files().count(path) == 0)
            return -1;
        *cfg = new zyax_cfg{path};
        ++ini_files_open;
        return 0;
    });
}

int zyax_cfg_getItemValue(zyax_cfg *cfg, const char *section, const char *key, char *value,
                          uint32_t size)
{
    fake::call c(OP_zyax_cfg_getItemValue, cfg, section, key, value, size);
    return c.answer<int>([&] {
        std::string found;
        if (cfg == nullptr || section == nullptr || key == nullptr || value == nullptr ||
            !find_value(cfg, {section, key}, &found) || found.size() >= size)
            return -1;
        memcpy(value, found.c_str(), found.size() + 1);
        return 0;
    });
}

/* A file that is never closed is the library's leak: the record is the heap's, not the fake's. */
void zyax_cfg_destroy_ex(zyax_cfg *cfg)
{
    fake::call c(OP_zyax_cfg_destroy_ex, cfg);
    c.run([&] {
        ini_files_open -= cfg != nullptr ? 1 : 0;
        delete cfg;
    });
}

uint64_t fake_trees_alive()
{
    return trees_alive;
}

uint64_t fake_ini_files_open()
{
    return ini_files_open;
}

void fake_set_ini(const std::string &path, const std::string &section, const std::string &key,
                  const std::string &value)
{
    const fake::guard held(fake::state_mutex());
    ini_file         &file = ini_files()[path];
    if (!section.empty())
        file[{section, key}] = value;
}
