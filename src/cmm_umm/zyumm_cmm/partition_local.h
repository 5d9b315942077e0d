/*
 * What the partition sources share: how a pool's creation record is filled, and how a pool gets
 * its place in the registry.
 *
 *     record --zyumm_mpool_create--> pool --cmm_alloc_part_id--> id --> entry in service
 *
 * All three creators (from a parameter record, from loose values, of one continuous block) take
 * this road and differ in their argument checks and messages only, so the road itself is silent.
 */
#pragma once

#include "zyumm_cmm.h"

/* Fills a zeroed creation record for a pool in the library's own partition, with no per-thread
 * cache; answers the result of the name's copy. A null name leaves the pool unnamed. */
int fill_pool_record(zyumm_mpool_param *record, uint64_t obj_size, uint64_t reserved_num,
                     uint64_t max_num, const char *name, uint32_t module_id, uint64_t attr);

struct opened_partition {
    uint64_t pool;    /* 0 = no pool could be created, and no id was reserved */
    uint32_t part_id; /* above CMM_PART_MAX_ID = no id is free; the pool stays */
};

/* Creates the pool, reserves an id and puts the entry in service. */
opened_partition open_partition(const zyumm_mpool_param *record, cmm_object_init_fn init_cb,
                                cmm_object_free_fn free_cb);

/* Releases the id of an entry whose pool is deleted. */
void close_partition(cmm_partition *entry);
