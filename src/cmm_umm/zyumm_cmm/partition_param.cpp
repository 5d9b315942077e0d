/*
 * From what a client asks for to the creation record that the unified memory manager takes.
 *
 *     structure_mempool_para --mm_mempool_para_init_by_pool_param--+
 *     loose values           --mm_mempool_para_init_by_param-------+--> zyumm_mpool_param
 *     a block's size         --fill_pool_record--------------------+
 *
 * The attribute flags of both ways in look alike and are mapped differently, each as its clients
 * have always had it:
 *
 *                          flag  0x02   0x04   0x10            0x20    0x40    none
 *     from a parameter record    0x80   0x40   0x4 (0x6)       0x100   0x400   0x2
 *     from loose values          0x80   0x40   0x4             -       0x400   0
 *
 * Functions of this file only fill records: they create nothing and keep nothing.
 */
#include "partition_local.h"

#include "bounded.h"
#include "common/cmm_log.h"

static constexpr uint32_t EXTRA_WORD = 7;

static constexpr uint64_t ATTR_CACHED    = 0x2;
static constexpr uint64_t ATTR_CLEARED   = 0x4;
static constexpr uint64_t ATTR_NODUMP    = 0x40;
static constexpr uint64_t ATTR_NOFORK    = 0x80;
static constexpr uint64_t ATTR_LOCKED    = 0x100;
static constexpr uint64_t ATTR_HUGEPAGES = 0x400;

struct flag_mapping {
    uint32_t flag;
    uint64_t attr;
};

/* The cleared flag alone gives the attributes 0x6, which is the base 0x2 with 0x4. */
static constexpr flag_mapping PARAMETER_RECORD_FLAGS[] = {
    {STRUCTURE_FLAG_CLEARED, ATTR_CACHED | ATTR_CLEARED},
    {STRUCTURE_FLAG_NODUMP, ATTR_NODUMP},
    {STRUCTURE_FLAG_NOFORK, ATTR_NOFORK},
    {STRUCTURE_FLAG_HUGEPAGES, ATTR_HUGEPAGES},
    {STRUCTURE_FLAG_LOCKED, ATTR_LOCKED},
};

/* sic: no caches and no locked memory; clients' pools are sized for what these flags give them. */
static constexpr flag_mapping LOOSE_VALUE_FLAGS[] = {
    {STRUCTURE_FLAG_NODUMP, ATTR_NODUMP},
    {STRUCTURE_FLAG_NOFORK, ATTR_NOFORK},
    {STRUCTURE_FLAG_CLEARED, ATTR_CLEARED},
    {STRUCTURE_FLAG_HUGEPAGES, ATTR_HUGEPAGES},
};

template <size_t N>
static uint64_t map_flags(uint64_t attr, uint32_t flags, const flag_mapping (&table)[N])
{
    for (const flag_mapping &mapping : table)
        attr |= (flags & mapping.flag) != 0 ? mapping.attr : 0;
    return attr;
}

int fill_pool_record(zyumm_mpool_param *record, uint64_t obj_size, uint64_t reserved_num,
                     uint64_t max_num, const char *name, uint32_t module_id, uint64_t attr)
{
    *record              = {};
    record->partition    = g_cmm_umm_partition;
    record->obj_size     = obj_size;
    record->reserved_num = reserved_num;
    record->max_num      = max_num;
    record->module_id    = module_id;
    record->attr         = attr;
    return strncpy_s(record->name, sizeof record->name, name, sizeof record->name - 1);
}

void initStructureMempoolPara(structure_mempool_para *para)
{
    if (para == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "createPara is NULL.");
        return;
    }

    memset_s(para, sizeof *para, 0, sizeof *para);
    para->magic      = STRUCTURE_MEMPOOL_MAGIC;
    para->cache_num  = getLocalCacheDefaultNum();
    para->cache_size = getLocalCacheDefaultSize();
    para->extra      = EXTRA_WORD;
}

int mm_mempool_para_init_by_pool_param(zyumm_mpool_param *record,
                                       const structure_mempool_para *para)
{
    if (record == nullptr || para == nullptr)
        return -1;

    const uint64_t attr = map_flags(ATTR_CACHED, para->flags, PARAMETER_RECORD_FLAGS);
    const int result    = fill_pool_record(record, para->obj_size, para->reserved_num,
                                           para->max_num, para->name, para->module_id, attr);
    record->cache_num   = para->cache_num;
    record->cache_size  = para->cache_size;
    return result;
}

int mm_mempool_para_init_by_param(zyumm_mpool_param *record, uint32_t reserved_num,
                                  uint32_t max_num, const char *name, uint32_t module_id,
                                  uint32_t flags, uint32_t obj_size)
{
    if (record == nullptr)
        return -1;

    const uint64_t attr = map_flags(0, flags, LOOSE_VALUE_FLAGS);
    return fill_pool_record(record, obj_size, reserved_num, max_num, name, module_id, attr);
}
