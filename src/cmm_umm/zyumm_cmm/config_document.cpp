/*
 * The node configuration document: which of its entries is this process's.
 *
 *     <?xml ...?>
 *       <memcfg>  <mem>64</mem> <mem>128</mem> ...      sizes of node that the file knows (MiB)
 *       <config>
 *         <node memory="128">                           the section of one size
 *           <umm>
 *             <uprocess name="io_process">              the process's own entry, or
 *             <uprocess name="default">                 the one of all that have none
 *
 * umm_parse_xml walks from top to bottom and hands the entry's parameters to umm_parse_param.
 * Sections are searched in document order over everything that follows, entries only among the
 * children of the section's <umm>. No search returns the node that it starts from.
 *
 * Locking: none; one thread reads the document, at module start. Nothing points into the tree
 * afterwards: whatever is kept has been copied to g_ucmm_config.
 *
 * Deliberately absent: a schema check. Attribute names such as 64K_inner are no legal XML; the
 * reader accepts them, a stricter one would refuse files that work.
 */
#include "config_local.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "zyumm_cmm_buffer.h"

#include "zyax_xml.h"

#include "common/cmm_log.h"

static constexpr char     DEFAULT_PROCESS[] = "default";
static constexpr uint32_t TRANSPORT_RDMA    = 1;

/* The next element of that name behind `start`, anywhere in the document. */
static mxml_node_t *find_behind(mxml_node_t *start, mxml_node_t *doc, const char *name)
{
    return zyax_xml_findelement(start, doc, name, nullptr, nullptr, MXML_DESCEND);
}

/* The section for that size; null when a broken one comes first or none is left. */
static mxml_node_t *find_section(mxml_node_t *config, mxml_node_t *doc, uint32_t mem_size)
{
    uint32_t     memory  = 0;
    mxml_node_t *section = config;

    do {
        section = find_behind(section, doc, "node");
        if (umm_xml_get_element_attr(section, "memory", &memory) != CMM_OK)
            return nullptr;
    } while (memory != mem_size);
    return section;
}

mxml_node_t *umm_get_quota_xml(mxml_node_t *doc, uint32_t mem_size)
{
    mxml_node_t *config = find_behind(doc, doc, "config");
    if (config == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "xml format error. can't find the node");
        return nullptr;
    }

    mxml_node_t *section = find_section(config, doc, mem_size);
    if (section == nullptr) {
        CMM_LOG(ZYLOG_ERROR,
                "xml format error. can't find the node, node config need mem size(%u).", mem_size);
        return nullptr;
    }
    CMM_LOG(ZYLOG_INFO, "Read node config mem size(%u).", mem_size);

    mxml_node_t *umm = find_behind(section, doc, "umm");
    if (umm == nullptr)
        CMM_LOG(ZYLOG_ERROR, "xml parse:umm_quota can not find!");
    return umm;
}

mxml_node_t *get_process_xml_by_name(mxml_node_t *umm_element, mxml_node_t *, const char *name)
{
    if (name == nullptr)
        return nullptr;

    mxml_node_t *process = zyax_xml_getfirstchild(umm_element);
    while ((process = config_find_sibling(process, "uprocess")) != nullptr) {
        const char *listed = zyax_xml_element_getattr(process, "name");
        if (listed != nullptr && strcmp(listed, name) == 0)
            return process;
    }
    return nullptr;
}

mxml_node_t *umm_get_process_xml(mxml_node_t *umm_element, mxml_node_t *doc, const char *proc_name)
{
    CMM_LOG(ZYLOG_INFO, "umm process name is %s", cmm_text(proc_name));

    mxml_node_t *process = get_process_xml_by_name(umm_element, doc, proc_name);
    if (process == nullptr)
        process = get_process_xml_by_name(umm_element, doc, DEFAULT_PROCESS);
    return process;
}

/* Reads the process's entry in the section for `mem_size`; lines carry the name of `func`. */
static uint32_t read_section(mxml_node_t *doc, uint32_t mem_size, const char *path,
                             const char *proc_name, const char *func)
{
    mxml_node_t *umm = umm_get_quota_xml(doc, mem_size);
    if (umm == nullptr) {
        CMM_LOG_AS(func, ZYLOG_ERROR, "'%s' xml format error.", path);
        return CMM_FAILURE;
    }

    mxml_node_t *process = umm_get_process_xml(umm, doc, proc_name);
    if (process == nullptr) {
        cvx_usr_rdma_flag_set(TRANSPORT_RDMA);
        CMM_LOG_AS(func, ZYLOG_ERROR, "'%s' xml format error. can't find the corresponding process",
                   path);
        return CMM_FAILURE;
    }

    if (umm_parse_param(process, doc) != CMM_OK)
        CMM_LOG_AS(func, ZYLOG_ERROR, "parse xml[%s] format error. quota format not correct",
                   path);
    return CMM_OK;
}

uint32_t umm_parse_xml(const char *path, const char *proc_name)
{
    const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) {
        CMM_LOG(ZYLOG_ERROR, "failed to open config file[%s]", cmm_text(path));
        return CMM_FAILURE;
    }

    mxml_node_t *doc = zyax_xml_loadfd(nullptr, fd, mxml_opaque_cb);
    if (doc == nullptr) {
        const int error = errno;
        CMM_LOG(ZYLOG_ERROR, "failed to load xml tree from file[%s] err(%d)", path, error);
        close(fd);
        return CMM_FAILURE;
    }

    const uint32_t mem_size = umm_get_node_mem_size(doc);
    if (mem_size == 0) {
        /* sic: the tree stays behind; leak checks of the node's processes list it by this
         * function's name, and a start reads one document only. */
        CMM_LOG(ZYLOG_ERROR, "Get node mem size(%u) failed.", mem_size);
        close(fd);
        return CMM_FAILURE;
    }

    const uint32_t result = read_section(doc, mem_size, path, proc_name, __func__);
    zyax_xml_del(doc);
    close(fd);
    return result;
}
