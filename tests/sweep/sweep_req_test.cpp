/*
 * The request pool, and requests to and from generic I/O records.
 *
 * A parameter record that was not filled has an alignment of 0, for which no slab is made.
 */
#include "sweep.h"

#include "zyumm_cmm.h"
#include "zyumm_cmm_req.h"

namespace
{

cmm_req *req;
uint64_t enclosing_pool;
zyumm_partition_info info;

void configured()
{
    g_ucmm_config.req_max = 8;
}

void no_pool()
{
    cmm_destory_req_mempool();
}

void pool()
{
    configured();
    cmm_create_req_mempool();
}

void one_request()
{
    pool();
    allocReq(&req, 77, "the test", 1);
}

std::string told_status(uint32_t status)
{
    return told(status) + (g_req_partition_id != 0 ? ", a pool" : ", no pool");
}

} // namespace

const std::vector<operation> &req_operations()
{
    static const std::vector<operation> rows = {
        {
            .name = EXPORTED(cmm_create_req_mempool),
            .scene = configured,
            .ready = no_pool,
            .call = [] { return told_status(cmm_create_req_mempool()); },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops = {ends("0xFFFFFFFF, no pool",
                           {OP_zymm_slab_param_init, OP_memcpy_s, OP_zymm_create_slab})},
        },
        {
            /* The handle goes whatever the slab layer says. */
            .name = EXPORTED(cmm_destory_req_mempool),
            .ready = pool,
            .call =
                [] {
                    cmm_destory_req_mempool();
                    return told_status(0u);
                },
            .clean = "0, no pool",
            .stops = {goes_on({OP_zymm_destory_slab}).leaving("pools+1")},
        },
        {
            .name = EXPORTED(zyumm_req_slab_create),
            .scene =
                [] {
                    configured();
                    zyumm_partition_creator_set(4);
                    enclosing_pool = zymm_pool_create("outside", 1 << 20, 0, 77, "the test");
                },
            .ready = no_pool,
            .call =
                [] {
                    return told_status(zyumm_req_slab_create(enclosing_pool, 0, 77, "the test"));
                },
            .clean = "0, a pool",
            .undo = no_pool,
            .stops = {goes_on({OP_strncpy_s}),
                      ends("0xFFFFFFFF, no pool", {OP_zymm_slab_param_init, OP_zymm_create_slab})},
        },
        {
            .name = EXPORTED(allocReq),
            .scene = pool,
            .call =
                [] {
                    allocReq(&req, 77, "the test", 1);
                    return told(req);
                },
            .clean = "there",
            .undo = [] { freeReq(req, 77, "the test", 1); },
            .stops = {ends("null", {OP_zymm_slab_malloc})},
        },
        {
            .name = EXPORTED(freeReq),
            .scene = pool,
            .ready = [] { allocReq(&req, 77, "the test", 1); },
            .call =
                [] {
                    freeReq(req, 77, "the test", 1);
                    return std::string("back");
                },
            .clean = "back",
            .stops = {goes_on({OP_zymm_slab_free}).leaving("objects+1")},
        },
        {
            .name = EXPORTED(copyReq2Genio),
            .scene = one_request,
            .call =
                [] {
                    cmm_genio genio = {};
                    copyReq2Genio(&genio, req);
                    return std::string("copied");
                },
            .clean = "copied",
        },
        {
            .name = EXPORTED(copyGenio2Req),
            .scene = one_request,
            .call =
                [] {
                    const cmm_genio genio = {};
                    copyGenio2Req(req, &genio);
                    return std::string("copied");
                },
            .clean = "copied",
        },
        {
            .name = EXPORTED(printReqInfo),
            .scene = one_request,
            .call =
                [] {
                    printReqInfo(req);
                    return fake_console();
                },
            .clean = "",
        },
        {
            .name = EXPORTED(zyumm_req_info_get),
            .scene = pool,
            .call = [] { return told(zyumm_req_info_get(&info)); },
            .clean = "0",
            .stops = {ends("-1", {OP_zyumm_partition_info_get})},
        },
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Req, Sweep, ::testing::ValuesIn(req_operations()), row_name);
