/*
 * The settings of an entry that are one value each.
 *
 *     <rdma_flag flag="1"/>                 transport, config record and log line by its setter
 *     <cfg_path path="sub/x.cfg"/>          made absolute from node_config.xml's own directory
 *     <mem_coredump dump_level="2"/>        handed to the slab layer by the module's start
 *
 * An element that is absent is no error: RDMA, no path, level 0.
 */
#include "config_local.h"

#include "zyumm_cmm_buffer.h"

#include "bounded.h"
#include "zyax_xml.h"

#include "common/cmm_log.h"

#include <libgen.h>

static constexpr uint32_t TRANSPORT_RDMA = 1;

uint32_t umm_parse_rdma_flag_quota(mxml_node_t *first_child, mxml_node_t *)
{
    uint32_t flag = 0;

    mxml_node_t *element = config_find_sibling(first_child, "rdma_flag");
    if (element == nullptr) {
        cvx_usr_rdma_flag_set(TRANSPORT_RDMA);
        CMM_LOG(ZYLOG_WARNING, "CMM can not get rdma flag in config file, set flag[%u] by default.",
                TRANSPORT_RDMA);
        return CMM_OK;
    }
    if (umm_xml_get_element_attr(element, "flag", &flag) != CMM_OK) {
        CMM_LOG(ZYLOG_ERROR,
                "CMM parse rdma flag quota failed, can not find 'flag' in config file.");
        return CMM_FAILURE;
    }
    if (flag > 1) {
        CMM_LOG(ZYLOG_ERROR, "CMM parse rdma flag quota failed, flag is[%u], need 0 ro 1.", flag);
        return CMM_FAILURE;
    }
    cvx_usr_rdma_flag_set(flag);
    return CMM_OK;
}

uint32_t umm_parse_cfg_path(mxml_node_t *first_child, mxml_node_t *)
{
    char config_path[CMM_PATH_SIZE] = {};

    mxml_node_t *element = config_find_sibling(first_child, "cfg_path");
    if (element == nullptr)
        return CMM_OK;

    const char *path = zyax_xml_element_getattr(element, "path");
    if (path == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "CMM cfg path get failed, param error in node_config.xml.");
        return CMM_FAILURE;
    }

    /* A copy, because dirname cuts it. */
    memcpy_s(config_path, sizeof config_path, g_config_path, sizeof config_path);
    /* sic: a path that is absolute already is joined as well; files in use write "/x.cfg" and mean
     * the configuration's directory. */
    const int formatted = snprintf_s(g_cfg_path_absolute, CMM_PATH_SIZE, CMM_PATH_SIZE - 1,
                                     "%s/%s", dirname(config_path), path);
    if (formatted < 0) {
        CMM_LOG(ZYLOG_ERROR, "CMM cfg absolute path get failed, relative path is: %s.", path);
        return CMM_FAILURE;
    }
    CMM_LOG(ZYLOG_INFO, "CMM cfg path get success, relative path: %s, absolute path: %s.", path,
            g_cfg_path_absolute);
    return CMM_OK;
}

uint32_t umm_parse_coredump_level(mxml_node_t *first_child, mxml_node_t *)
{
    uint32_t level = 0;

    mxml_node_t *element = config_find_sibling(first_child, "mem_coredump");
    if (element != nullptr && umm_xml_get_element_attr(element, "dump_level", &level) != CMM_OK)
        CMM_LOG(ZYLOG_WARNING, "Get dump_level failed.");
    g_ucmm_config.coredump_level = level;
    CMM_LOG(ZYLOG_INFO, "Get mem coredump_level(%u).", level);
    return CMM_OK;
}
