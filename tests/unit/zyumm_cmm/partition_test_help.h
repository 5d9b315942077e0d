/*
 * What the tests of structure partitions share: a partition of the memory manager to make pools
 * in, and partitions with few arguments.
 */
#pragma once

#include "expect_log.h"
#include "zyumm_cmm.h"

/* Stands in for the library's start: without it the memory manager refuses every pool. */
inline void enter_library()
{
    g_cmm_umm_partition = zyumm_partition_create(1, 0, 0, "cmm_moduleInit");
}

/* A partition of `count` objects of 64 bytes; 0 when there is none. */
inline uint32_t new_partition(uint32_t count = 4, cmm_object_init_fn init_cb = nullptr,
                              cmm_object_free_fn free_cb = nullptr)
{
    uint32_t id = 0;
    createStructurePartition(count, "objects", 77, 0, 64, &id, init_cb, free_cb, 0);
    return id;
}

/* A complete parameter record for 4 to 9 objects of 200 bytes. */
inline structure_mempool_para new_para()
{
    structure_mempool_para para;
    initStructureMempoolPara(&para);
    para.reserved_num = 4;
    para.max_num      = 9;
    para.name         = "structures";
    para.module_id    = 77;
    para.obj_size     = 200;
    return para;
}

/* Takes all ids but `left`, without any pools. */
inline void reserve_ids(uint32_t left)
{
    for (uint32_t i = 0; i < 2047 - left; ++i)
        cmm_alloc_part_id();
}

inline std::string pointer_text(const void *pointer)
{
    char text[32];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}
