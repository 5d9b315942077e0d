/*
 * Quotas of the buffer pools, and the threads' caches of the slab layer.
 *
 *     <normal_pool reserve_size="1024" max_size="4096" extand_size="512"/>            sizes in KiB
 *     <io_pool     reserve_size="0" max_size="0" extand_size="0" leak_rate="30"/>
 *     <pool_threadcache cache_size="256"/>                                                     KiB
 *     <pool_cachenum page="32" page_maxcachethreadnum="16" 64K_inner="8" 64K_outer="4"/>   objects
 *
 * The three sizes of a pool are required, its other attributes have defaults. A pool element that
 * is absent gives a record of all zeros, leak rate included: the default of 30 belongs to an
 * element that is there. The counts of pool_cachenum go straight to the slab layer and are kept
 * nowhere else.
 */
#include "config_local.h"

#include "zymm.h"

#include "common/cmm_log.h"

static constexpr uint32_t DEFAULT_LEAK_RATE = 30; /* percent */
static constexpr uint64_t MAX_LEAK_RATE     = 100;

/* A pool element as it was read, before adjustment. */
struct pool_values {
    uint32_t reserve, max, extand; /* KiB */
    uint32_t max_limit;
    uint32_t leak_rate; /* percent */
    uint32_t dontfork;
};

static uint32_t read_or(struct _mxml_node_s *element, const char *name, uint32_t fallback)
{
    uint32_t value = fallback;

    umm_xml_get_element_attr(element, name, &value);
    return value;
}

/* Fails at the first of the three required sizes that is missing or no number. */
static uint32_t read_pool(struct _mxml_node_s *element, pool_values *values)
{
    if (umm_xml_get_element_attr(element, "reserve_size", &values->reserve) != CMM_OK ||
        umm_xml_get_element_attr(element, "max_size", &values->max) != CMM_OK ||
        umm_xml_get_element_attr(element, "extand_size", &values->extand) != CMM_OK)
        return CMM_FAILURE;
    values->max_limit = read_or(element, "max_limit", 0);
    values->leak_rate = read_or(element, "leak_rate", DEFAULT_LEAK_RATE);
    values->dontfork  = read_or(element, "dontfork_flag", 0);
    return CMM_OK;
}

void umm_adjust_pool_config_info(cmm_pool_quota *quota)
{
    if (quota == nullptr)
        return;

    if (quota->max_limit > 1) {
        CMM_LOG(ZYLOG_INFO, "Pool set max limit(%d), adjust to 1.", int(quota->max_limit));
        quota->max_limit = 1;
    }
    if (quota->leak_rate > MAX_LEAK_RATE) {
        CMM_LOG(ZYLOG_INFO, "Pool set leak rate(%d), adjust to 100.", int(quota->leak_rate));
        quota->leak_rate = MAX_LEAK_RATE;
    }
    if (quota->dontfork_flag > 1) {
        CMM_LOG(ZYLOG_INFO, "Pool set dont fork flag(%d), adjust to 1.",
                int(quota->dontfork_flag));
        quota->dontfork_flag = 1;
    }
}

uint32_t umm_parse_pool_quota_for_each(struct _mxml_node_s *first_child, struct _mxml_node_s *,
                                       const char *pool_name, cmm_pool_quota *quota)
{
    pool_values values = {};

    if (quota == nullptr)
        return CMM_FAILURE;

    struct _mxml_node_s *element = config_find_sibling(first_child, pool_name);
    if (element != nullptr && read_pool(element, &values) != CMM_OK)
        return CMM_FAILURE;

    /* sic: the last word is where io_pool keeps the buffer pool's handle, and a document that is
     * read while that pool exists forgets it; the pool's creator takes the 0 for "no pool yet". */
    *quota = {values.reserve,   values.max,       values.extand,   0,
              values.max_limit, values.leak_rate, values.dontfork, 0};
    umm_adjust_pool_config_info(quota);
    /* sic: five values as they were read and one as it was adjusted; tools that read this line
     * expect the mix. */
    CMM_LOG(ZYLOG_INFO, "Pool(%s), reserve(%u), max(%u), extand(%u), max_limit(%u), leak_rate(%u), dontfork_flag(%lu).",
            cmm_text(pool_name), values.reserve, values.max, values.extand, values.max_limit,
            values.leak_rate, quota->dontfork_flag);
    return CMM_OK;
}

uint32_t umm_parse_pool_quota(struct _mxml_node_s *first_child, struct _mxml_node_s *doc)
{
    uint32_t read = umm_parse_pool_quota_for_each(first_child, doc, "normal_pool",
                                                  &g_ucmm_config.normal_pool);
    if (read != CMM_OK) {
        CMM_LOG(ZYLOG_ERROR, "CMM obtain normal_pool info failed.");
        return CMM_FAILURE;
    }
    read = umm_parse_pool_quota_for_each(first_child, doc, "io_pool", &g_ucmm_config.io_pool);
    if (read != CMM_OK) {
        CMM_LOG(ZYLOG_ERROR, "CMM obtain io_pool info failed.");
        return CMM_FAILURE;
    }
    return CMM_OK;
}

uint32_t umm_parse_pool_cachesize(struct _mxml_node_s *first_child, struct _mxml_node_s *)
{
    uint32_t cache_size = 0;

    struct _mxml_node_s *element = config_find_sibling(first_child, "pool_threadcache");
    if (element != nullptr &&
        umm_xml_get_element_attr(element, "cache_size", &cache_size) != CMM_OK)
        CMM_LOG(ZYLOG_WARNING, "Get mem_size_64G cache_size failed.");
    g_ucmm_config.cache_size = cache_size;
    CMM_LOG(ZYLOG_INFO, "Get pool cache_size(%uK).", cache_size);
    return CMM_OK;
}

uint32_t umm_parse_pool_cachenum(struct _mxml_node_s *first_child, struct _mxml_node_s *)
{
    struct _mxml_node_s *element = config_find_sibling(first_child, "pool_cachenum");
    if (element == nullptr)
        CMM_LOG(ZYLOG_WARNING, "Get pool_cachenum failed.");

    const uint32_t page         = read_or(element, "page", 0);
    const uint32_t page_threads = read_or(element, "page_maxcachethreadnum", 0);
    const uint32_t inner_64k    = read_or(element, "64K_inner", 0);
    const uint32_t outer_64k    = read_or(element, "64K_outer", 0);
    zymm_pool_cache_num_set(page, inner_64k, outer_64k, page_threads);
    return CMM_OK;
}
