/*
 * The process's configuration record, and the object counts of the request, SGL and page pools.
 *
 *     <req_num  num="512"/>                                    minimum = maximum = 512
 *     <sgl_num  min_num="64" max_num="1024"/>
 *     <page_num num="1000" numa_factor="1" num_factor="50"/>   corrected for NUMA, config_numa.cpp
 *
 * umm_parse_param runs the readers of all parameters in a fixed order and lets none stop the next:
 * a bad element leaves its fields as they were, zero at load, and a pool without a maximum is not
 * made.
 *
 * Locking: none. The starting thread fills the record before any pool exists; it is only read
 * afterwards, and a stop does not clear it. A second start finds one reader already there: the
 * eviction timer, which outlives a stop and reads page_max, so maxima are stored atomically.
 */
#include "config_local.h"

#include "zyax_xml.h"

#include "common/cmm_atomic.h"
#include "common/cmm_log.h"

cmm_config g_ucmm_config;

uint32_t umm_parse_cmm_quota(mxml_node_t *first_child, mxml_node_t *, const char *element_name,
                             uint32_t *min, uint32_t *max, uint32_t *numa_factor,
                             uint32_t *num_factor)
{
    uint32_t num = 0;

    if (min == nullptr || max == nullptr || numa_factor == nullptr || num_factor == nullptr)
        return CMM_FAILURE;

    mxml_node_t *element = config_find_sibling(first_child, element_name);
    if (element == nullptr) {
        *min = 0;
        *max = 0;
        return CMM_OK;
    }

    *numa_factor = 0;
    umm_xml_get_element_attr(element, "numa_factor", numa_factor);
    *num_factor = 0;
    umm_xml_get_element_attr(element, "num_factor", num_factor);

    if (umm_xml_get_element_attr(element, "min_num", min) == CMM_OK &&
        umm_xml_get_element_attr(element, "max_num", max) == CMM_OK)
        return CMM_OK;
    if (umm_xml_get_element_attr(element, "num", &num) != CMM_OK)
        return CMM_FAILURE;
    *min = num;
    *max = num;
    return CMM_OK;
}

/* One pool's counts: where they are kept, and the factors that the closing line prints. */
struct pool_counts {
    const char *element;
    uint32_t   *min;
    uint32_t   *max;
    uint32_t    numa_factor;
    uint32_t    num_factor;
};

static void read_counts(mxml_node_t *first_child, mxml_node_t *doc, pool_counts *counts)
{
    uint32_t min = 0;
    uint32_t max = 0;

    if (umm_parse_cmm_quota(first_child, doc, counts->element, &min, &max, &counts->numa_factor,
                            &counts->num_factor) != CMM_OK)
        return;
    umm_fix_cmm_quota(&min, &max, counts->numa_factor, counts->num_factor);
    *counts->min = min;
    cmm_store_relaxed(counts->max, max);
}

uint32_t umm_parse_cmm_xml(mxml_node_t *first_child, mxml_node_t *doc)
{
    cmm_config *config = &g_ucmm_config;
    pool_counts req    = {"req_num", &config->req_min, &config->req_max, 0, 0};
    pool_counts sgl    = {"sgl_num", &config->sgl_min, &config->sgl_max, 0, 0};
    pool_counts page   = {"page_num", &config->page_min, &config->page_max, 0, 0};

    read_counts(first_child, doc, &req);
    read_counts(first_child, doc, &sgl);
    read_counts(first_child, doc, &page);
    CMM_LOG(ZYLOG_INFO, "Node config info: page(min:%u, max:%u, numa_factor:%u, num_factor:%u), sgl(min:%u, max:%u, numa_factor:%u, num_factor:%u), req(min:%u, max:%u, numa_factor:%u, num_factor:%u).",
            config->page_min, config->page_max, page.numa_factor, page.num_factor,
            config->sgl_min, config->sgl_max, sgl.numa_factor, sgl.num_factor,
            config->req_min, config->req_max, req.numa_factor, req.num_factor);
    return CMM_OK;
}

uint32_t umm_parse_cmm_page_creator(mxml_node_t *first_child, mxml_node_t *,
                                    const char *element_name, uint32_t *creator)
{
    if (creator == nullptr)
        return CMM_FAILURE;

    mxml_node_t *element = config_find_sibling(first_child, element_name);
    if (element == nullptr) {
        *creator = 0;
        return CMM_OK;
    }
    return umm_xml_get_element_attr(element, "creator", creator);
}

uint32_t umm_parse_param(mxml_node_t *process_element, mxml_node_t *doc)
{
    mxml_node_t *first_child = zyax_xml_getfirstchild(process_element);
    if (first_child == nullptr)
        return CMM_FAILURE;

    umm_parse_rdma_flag_quota(first_child, doc);
    umm_parse_pool_quota(first_child, doc);
    umm_parse_pool_cachesize(first_child, doc);
    umm_parse_pool_cachenum(first_child, doc);
    umm_parse_cmm_xml(first_child, doc);
    umm_parse_cfg_path(first_child, doc);
    umm_parse_coredump_level(first_child, doc);
    return CMM_OK;
}
