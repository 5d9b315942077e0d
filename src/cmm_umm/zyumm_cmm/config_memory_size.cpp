/*
 * How much memory this node has, and which of the listed node sizes that makes it.
 *
 *     cgroup_info.ini opens? ---- value, or 0 when it lacks one: nobody else is asked
 *     storage_resource_info.ini - the process's own share, when the file lists one
 *     the platform -------------- all memory of the machine
 *                  |
 *                  v  low 32 bits of the bytes, shifted to MiB: 0 to 4095
 *     <mem> 64, 128, 256 -------- the last one before the first that is above the measured size
 *
 * Below the first listed size the answer is 1, which a node that lists no section for 1 MiB
 * refuses later with a line of its own. Without a list the measured size itself is the answer.
 *
 * Deliberately absent: sorting the list, and a check that it ascends. The walk stops at the first
 * value above the measured size, and files rely on the place of their values.
 */
#include "zyumm_cmm.h"

#include "zyax.h"
#include "zyax_xml.h"

#include "common/cmm_log.h"

static constexpr char CGROUP_FILE[]  = "/opt/marrowbay/cgroup_info.ini";
static constexpr char STORAGE_FILE[] = "/opt/marrowbay/storage_resource_info.ini";

static constexpr uint32_t VALUE_SIZE   = 64; /* bytes of a number's text in an ini file */
static constexpr uint32_t MAX_SIZES    = 16; /* sizes a document may list */
static constexpr uint32_t MIB_SHIFT    = 20;
static constexpr uint32_t NO_SIZE_FITS = 1; /* MiB; below the smallest listed size */

/* What the document lists, in its order; MiB. */
struct size_list {
    int64_t  mib[MAX_SIZES];
    uint32_t count;
};

/* False when there is no control group file. One without a value ends the search too: `bytes`
 * stays 0, as the caller has set it. */
static bool ask_cgroup(uint64_t *bytes, const char *func)
{
    zyax_cfg *cfg               = nullptr;
    char      value[VALUE_SIZE] = {};

    if (zyax_cfg_init(CGROUP_FILE, &cfg) != 0)
        return false;

    if (zyax_cfg_getItemValue(cfg, "cgroup_info", "cgroup_mem", value, VALUE_SIZE) != 0) {
        zyax_cfg_destroy_ex(cfg);
        CMM_LOG_AS(func, ZYLOG_WARNING, "Read mem_size from cgroup info failed.");
        return true;
    }
    *bytes = zyax_str_tou64(value);
    zyax_cfg_destroy_ex(cfg);
    CMM_LOG_AS(func, ZYLOG_INFO, "Read mem_size(%lu) from cgroup info.", *bytes);
    return true;
}

/* False when there is no share of this process to be read. */
static bool ask_storage(uint64_t *bytes, const char *func)
{
    zyax_cfg *cfg               = nullptr;
    char      value[VALUE_SIZE] = {};

    if (zyax_cfg_init(STORAGE_FILE, &cfg) != 0)
        return false;

    if (zyax_cfg_getItemValue(cfg, g_proc_name, "mem", value, VALUE_SIZE) != 0) {
        CMM_LOG_AS(func, ZYLOG_WARNING, "Read mem_size from storage resource info failed.");
        zyax_cfg_destroy_ex(cfg);
        return false;
    }
    *bytes = zyax_str_tou64(value);
    zyax_cfg_destroy_ex(cfg);
    CMM_LOG_AS(func, ZYLOG_INFO, "Read mem_size(%lu) from storage resource info.", *bytes);
    return true;
}

uint64_t umm_get_total_mem(void)
{
    uint64_t bytes = 0;

    if (ask_cgroup(&bytes, __func__) || ask_storage(&bytes, __func__))
        return bytes;

    const int asked = zyax_get_total_mem(&bytes);
    if (asked != 0) {
        CMM_LOG(ZYLOG_INFO, "Read mem_size failed.");
        return 0;
    }
    CMM_LOG(ZYLOG_INFO, "Read mem_size(%lu) from zyax.", bytes);
    return bytes;
}

/* False when the document lists more sizes than there is room for. */
static bool collect_sizes(mxml_node_t *memcfg, mxml_node_t *doc, size_list *list, const char *func)
{
    mxml_node_t *mem = memcfg;

    for (;;) {
        mem = zyax_xml_findelement(mem, doc, "mem", nullptr, nullptr, MXML_DESCEND);
        if (mem == nullptr || zyax_xml_getfirstchild(mem) == nullptr)
            return true;

        /* Asked of the element itself, this is its first child's text, and null for a first child
         * that is an element or a comment: such a size counts as 0. */
        const int64_t mib = zyax_str_tos64(mxmlGetOpaque(mem));
        if (list->count == MAX_SIZES) {
            CMM_LOG_AS(func, ZYLOG_ERROR, "Node config mem_size num(%u) error.", MAX_SIZES);
            return false;
        }
        list->mib[list->count++] = mib;
    }
}

static uint32_t choose_size(const size_list *list, uint32_t measured)
{
    int64_t candidate = measured;

    for (uint32_t i = 0; i < list->count && list->mib[i] <= int64_t(measured); ++i)
        candidate = list->mib[i];
    return candidate >= list->mib[0] ? uint32_t(candidate) : NO_SIZE_FITS;
}

uint32_t umm_get_node_mem_size(mxml_node_t *doc)
{
    size_list list = {};

    mxml_node_t *memcfg = zyax_xml_findelement(doc, doc, "memcfg", nullptr, nullptr, MXML_DESCEND);
    if (memcfg == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "xml format error. can't find the node");
        return 0;
    }
    if (!collect_sizes(memcfg, doc, &list, __func__))
        return 0;

    /* sic: only the low 32 bits of the byte count choose the section, and a multiple of 4 GiB has
     * no size at all; files in the field list what is left of their machines' sizes. */
    const uint32_t bytes = uint32_t(umm_get_total_mem());
    if (bytes == 0)
        return 0;
    const uint32_t measured = bytes >> MIB_SHIFT;
    CMM_LOG(ZYLOG_INFO, "Get node mem_size(%u MB).", measured);
    return choose_size(&list, measured);
}
