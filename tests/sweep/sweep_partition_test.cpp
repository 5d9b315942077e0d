/*
 * Structure partitions: ids, pools, objects, queries, and continuous partitions.
 *
 * A name that cannot be copied gives an unnamed pool. The lower layer's refusals of allocations and
 * of queries are handed through as they are.
 */
#include "sweep.h"

#include "zyumm_cmm.h"

namespace
{

uint32_t id;
void *object;
uint64_t public_pool;
structure_mempool_para para;

void own_partition()
{
    g_cmm_umm_partition = zyumm_partition_create(1, 0, 0, "cmm_moduleInit");
}

void new_partition()
{
    createStructurePartition(4, "objects", 77, 0, 64, &id, nullptr, nullptr, 0);
}

void one_partition()
{
    own_partition();
    new_partition();
}

void forget_id()
{
    id = 0;
}

void delete_partition()
{
    deleteStructurePartition(id);
}

std::string told_id(uint32_t status)
{
    return told(status) + ", id " + told(id);
}

std::string told_object()
{
    return told(object);
}

} // namespace

const std::vector<operation> &partition_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(get_cmm_partition_byid),
            .call = [] { return told(get_cmm_partition_byid(7)); },
            .clean = "there",
        },
        {
            .name = EXPORTED(cmm_alloc_part_id),
            .call =
                [] {
                    id = cmm_alloc_part_id();
                    return told(id);
                },
            .clean = "1",
            .undo =
                [] {
                    g_cmm_part_s[id].part_id = 0;
                    g_cmm_part_sum = 0;
                },
        },
        {
            .name = EXPORTED(initStructureMempoolPara),
            .call =
                [] {
                    initStructureMempoolPara(&para);
                    return told(para.magic);
                },
            .clean = "11258556",
            .stops = {goes_on(
                {OP_memset_s, OP_getLocalCacheDefaultNum, OP_getLocalCacheDefaultSize})},
        },
        {
            .name = EXPORTED(mm_mempool_para_init_by_pool_param),
            .ready =
                [] {
                    initStructureMempoolPara(&para);
                    para.name = "structures";
                },
            .call =
                [] {
                    zyumm_mpool_param record = {};
                    return told(mm_mempool_para_init_by_pool_param(&record, &para)) + " \"" +
                           record.name + "\"";
                },
            .clean = "0 \"structures\"",
            .stops = {ends("22 \"\"", {OP_strncpy_s})},
        },
        {
            .name = EXPORTED(mm_mempool_para_init_by_param),
            .call =
                [] {
                    zyumm_mpool_param record = {};
                    return told(
                               mm_mempool_para_init_by_param(&record, 1, 2, "objects", 77, 0, 64)) +
                           " \"" + record.name + "\"";
                },
            .clean = "0 \"objects\"",
            .stops = {ends("22 \"\"", {OP_strncpy_s})},
        },
        {
            .name = EXPORTED(createStructureMempool),
            .scene = own_partition,
            .ready =
                [] {
                    id = 0;
                    initStructureMempoolPara(&para);
                    para.max_num = 9;
                    para.name = "structures";
                    para.obj_size = 200;
                },
            .call = [] { return told_id(createStructureMempool(&para, &id)); },
            .clean = "0, id 1",
            .undo = delete_partition,
            .stops = {goes_on({OP_strncpy_s}), ends("0xFFFFFFFF, id 0", {OP_zyumm_mpool_create})},
        },
        {
            .name = EXPORTED(createExpStructurePartition),
            .scene = own_partition,
            .ready = forget_id,
            .call =
                [] {
                    return told_id(createExpStructurePartition(1, 4, "objects", 77, 0, 64, &id,
                                                               nullptr, nullptr));
                },
            .clean = "0, id 1",
            .undo = delete_partition,
            .stops = {goes_on({OP_strncpy_s}), ends("0xFFFFFFFF, id 0", {OP_zyumm_mpool_create})},
        },
        {
            .name = EXPORTED(createStructurePartition),
            .scene = own_partition,
            .ready = forget_id,
            .call =
                [] {
                    return told_id(createStructurePartition(4, "objects", 77, 0, 64, &id, nullptr,
                                                            nullptr, 0));
                },
            .clean = "0, id 1",
            .undo = delete_partition,
            .stops = {goes_on({OP_strncpy_s}), ends("0xFFFFFFFF, id 0", {OP_zyumm_mpool_create})},
        },
        {
            /* A block that cannot be had costs the id for good: the stop's audit reports it. */
            .name = EXPORTED(createContinuousPartition),
            .scene = own_partition,
            .ready =
                [] {
                    id = 0;
                    object = nullptr;
                },
            .call =
                [] {
                    const uint32_t status =
                        createContinuousPartition(64, "block", 77, 0, &id, &object, "the test");
                    return told(status) + (id == 0 ? ", no id, " : ", an id, ") + told_object();
                },
            .clean = "0, an id, there",
            .undo =
                [] {
                    freeStructure(object, id, 77, "the test", 1);
                    delete_partition();
                },
            .stops = {goes_on({OP_strncpy_s}),
                      ends("0xFFFFFFFF, no id, null", {OP_zyumm_mpool_create}),
                      ends("0xFFFFFFFF, no id, null", {OP_ucmm_mpool_alloc_i}).leaving("ids+1")},
        },
        {
            .name = EXPORTED(deleteStructurePartition),
            .scene = own_partition,
            .ready = new_partition,
            .call = [] { return told(deleteStructurePartition(id)); },
            .clean = "0",
            .stops = {ends("0xFFFFFFFF", {OP_zyumm_mpool_delete}).leaving("pools+1 ids+1")},
        },
        {
            .name = EXPORTED(deletePartitionByID),
            .scene = own_partition,
            .ready = new_partition,
            .call = [] { return told(deletePartitionByID(id)); },
            .clean = "0",
            .stops = {ends("0xFFFFFFFF", {OP_zyumm_mpool_delete}).leaving("pools+1 ids+1")},
        },
        {
            .name = EXPORTED(allocStructure),
            .scene = one_partition,
            .call =
                [] {
                    allocStructure(77, id, &object, "the test");
                    return told_object();
                },
            .clean = "there",
            .undo = [] { freeStructure(object, id, 77, "the test", 1); },
            .stops = {ends("null", {OP_zyumm_mpool_alloc_i})},
        },
        {
            .name = EXPORTED(freeStructure),
            .scene = one_partition,
            .ready = [] { allocStructure(77, id, &object, "the test"); },
            .call = [] { return told(freeStructure(object, id, 77, "the test", 1)); },
            .clean = "0",
            .stops = {goes_on({OP_zyumm_mpool_free_i}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(allocStructureFromPubPool),
            .scene = [] { public_pool = fake_make_public_pool(); },
            .call =
                [] {
                    const uint32_t status =
                        allocStructureFromPubPool(public_pool, &object, 77, "the test", 64);
                    return told(status) + ", " + told_object();
                },
            .clean = "0, there",
            .undo = [] { freeStructureToPubPool(public_pool, object, 77, "the test"); },
            .stops = {ends("0xFFFFFFFF, null", {OP_pub_mpool_alloc_i})},
        },
        {
            .name = EXPORTED(freeStructureToPubPool),
            .scene = [] { public_pool = fake_make_public_pool(); },
            .ready = [] { allocStructureFromPubPool(public_pool, &object, 77, "the test", 64); },
            .call =
                [] { return told(freeStructureToPubPool(public_pool, object, 77, "the test")); },
            .clean = "0",
            .stops = {ends("-1", {OP_pub_mpool_free_i}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(getPartitionAllocInfo),
            .scene = one_partition,
            .call =
                [] {
                    uint32_t total = 7, used = 7;
                    const uint32_t status = getPartitionAllocInfo(id, &total, &used);
                    return told(status) + ", " + told(total) + " " + told(used);
                },
            .clean = "0, 4 0",
            .stops = {ends("0xFFFFFFFF, 7 7", {OP_get_mpool_alloc_info})},
        },
        {
            .name = EXPORTED(getObjectSum),
            .scene = one_partition,
            .call = [] { return told(getObjectSum(id)); },
            .clean = "4",
            .stops = {ends("0", {OP_mmGetObjectSum})},
        },
        {
            .name = EXPORTED(getBusyObjectSum),
            .scene =
                [] {
                    one_partition();
                    allocStructure(77, id, &object, "the test");
                },
            .call = [] { return told(getBusyObjectSum(id)); },
            .clean = "1",
            .stops = {ends("0", {OP_mmGetBusyObjectSum})},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Partition, Sweep, ::testing::ValuesIn(partition_operations()), row_name);
