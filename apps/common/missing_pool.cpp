/*
 * Goes through the configuration once more, with the library's own readers, and stops at the step
 * that leads nowhere.
 *
 *     memory size -> document -> section of the size -> entry of the process -> the pool's numbers
 */
#include "missing_pool.h"

#include <fcntl.h>

#include "file_io.h"
#include "zyax_xml.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

namespace {

/* A loaded document; released at the end. */
class document
{
public:
    explicit document(const std::string &path)
    {
        const unique_fd fd = open_file(path, O_RDONLY);
        tree_ = zyax_xml_loadfd(nullptr, fd.get(), mxml_opaque_cb);
    }
    document(const document &) = delete;
    ~document()
    {
        if (tree_ != nullptr)
            zyax_xml_del(tree_);
    }
    mxml_node_t *tree() const { return tree_; }

private:
    mxml_node_t *tree_ = nullptr;
};

std::string quoted(const std::string &text)
{
    return "\"" + text + "\"";
}

/* What is wrong on the way to the process's entry; empty when the entry is there. */
std::string why_no_entry(const std::string &path)
{
    const document config(path);
    if (config.tree() == nullptr)
        return "it is not well-formed XML";

    const uint32_t size = umm_get_node_mem_size(config.tree());
    if (size == 0)
        return "it has no usable list of memory sizes (memcfg with up to 16 mem)";

    const std::string section = "the section for memory size " + std::to_string(size);
    mxml_node_t *umm = umm_get_quota_xml(config.tree(), size);
    if (umm == nullptr)
        return section + " is missing or broken";
    if (umm_get_process_xml(umm, config.tree(), g_proc_name) == nullptr)
        return section + " has no uprocess " + quoted(g_proc_name) + " and none " +
               quoted("default");
    return "";
}

std::string why_no_numbers(const char *element, uint32_t maximum, uint32_t creator)
{
    if (maximum == 0)
        return std::string("the process's entry gives no ") + element;
    if (zyumm_is_partition_creator(creator) != 0)
        return "another component of this process was named as its creator";
    if (creator == CMM_CREATOR_PAGE && g_ucmm_config.io_pool.reserve_size != 0)
        return "the process's entry reserves an io_pool, which leaves the page pool to its owner";
    return "the library could not make it; --log-level info tells more";
}

std::string why(const char *pool, const char *element, uint32_t maximum, uint32_t creator)
{
    if (uint32_t(umm_get_total_mem()) == 0)
        return "this node's memory size has no value: the low 32 bits of its byte count are zero, "
               "so no section of the configuration can be chosen";

    const std::string entry = why_no_entry(g_config_path);
    return std::string("no ") + pool + " pool: " + g_config_path + ": " +
           (entry.empty() ? why_no_numbers(element, maximum, creator) : entry);
}

} // namespace

std::string why_a_pool_is_missing()
{
    if (s_page_partition_id == 0)
        return why("page", "page_num", g_ucmm_config.page_max, CMM_CREATOR_PAGE);
    if (g_sgl_partition_id == 0)
        return why("SGL", "sgl_num", g_ucmm_config.sgl_max, CMM_CREATOR_SGL);
    if (g_req_partition_id == 0)
        return why("request", "req_num", g_ucmm_config.req_max, CMM_CREATOR_REQ);
    return "";
}
