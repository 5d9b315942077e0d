/*
 * The request pool: one slab of 768-byte request records for the whole process, and the way a
 * record leaves it and comes back.
 *
 *     at the start        cmm_create_req_mempool    creator bit 0x4 clear, and req_max not 0
 *     from the outside    zyumm_req_slab_create     creator bit 0x4 set
 *
 * A record leaves with its header reset and the queue mark on "in no queue". It must come back so:
 * a queued record that is freed would be handed out again while the queue still points to it, and
 * no later check could tell, so the process ends here, where the culprit is on the stack.
 *
 * Locking: none; the slab allocator serves threads. The handle changes at start and stop only.
 * Nobody asks whether a pool exists: the allocator answers null for handle 0.
 */
#include "req_local.h"

#include "bounded.h"
#include "common/cmm_identity.h"
#include "common/cmm_log.h"
#include "common/cmm_probe.h"
#include "zyumm_cmm.h"

uint64_t g_req_partition_id;

static constexpr char     POOL_NAME[]      = "REQ PARTITION";
static constexpr size_t   POOL_NAME_LENGTH = sizeof POOL_NAME - 1;
static constexpr uint16_t FRESH_HALF_100   = 5;

static void reset_header(req_view *req)
{
    req->half_26    = 0xFFFF;
    req->byte_28    = 0xFF;
    req->queue_mark = CMM_REQ_NOT_QUEUED;
    req->byte_30    = 0;
    req->word_40    = 0xFFFFFFFFFFFFFFFF;
    req->word_48    = 0x00000000FFFFFFFF;
    req->word_56    = 0;
    req->word_64    = 0;
    req->word_68    = 0;
    req->word_72    = 0;
    req->word_80    = 0;
    req->word_88    = 0;
    req->word_96    = 0;
    req->half_100   = FRESH_HALF_100;
    req->word_104   = 0;
    req->word_112   = 0;
}

/* Sizes both creators give the slab; what else a parameter record needs is theirs. */
static void set_quota(zymm_slab_param *param)
{
    param->obj_size = CMM_REQ_OBJECT_SIZE;
    param->min_num  = g_ucmm_config.req_min;
    param->max_num  = g_ucmm_config.req_max;
}

/* sic: also for a pool that is not the outside's to create; its creators know one line for both. */
static void say_has_been_created(const char *self, uint32_t module_id, const char *func)
{
    CMM_LOG_AS(self, ZYLOG_ERROR,
        "Zyumm req pool has been created, req_partition_id(0x%llx), module_id(%u), function(%s).",
        static_cast<unsigned long long>(g_req_partition_id), module_id, func);
}

uint32_t cmm_create_req_mempool(void)
{
    if (g_ucmm_config.req_max == 0 || zyumm_is_partition_creator(CMM_CREATOR_REQ))
        return CMM_OK;

    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    const int result = memcpy_s(param.name, sizeof param.name - 1, POOL_NAME, POOL_NAME_LENGTH);
    if (result != 0) {
        CMM_LOG(ZYLOG_ERROR, "memcpy_s error %d.", result);
        return CMM_FAILURE;
    }
    param.module_id = CMM_MODULE_ID;
    param.attr      = ZYMM_SLAB_CACHED;
    set_quota(&param);

    g_req_partition_id = zymm_create_slab(&param, CMM_SELF);
    if (g_req_partition_id == 0) {
        CMM_LOG_LIMITED(ZYLOG_ERROR, "REQ PARTITION create failed.");
        return CMM_FAILURE;
    }
    return CMM_OK;
}

void cmm_destory_req_mempool(void)
{
    if (g_req_partition_id == 0)
        return;

    zymm_destory_slab(g_req_partition_id, CMM_SELF);
    g_req_partition_id = 0;
}

uint32_t zyumm_req_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                               const char *func)
{
    if (func == nullptr) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm req pool create failed, pool_id(0x%lx), module_id(%u), function(%p).",
                pool_id, module_id, static_cast<const void *>(func));
        return CMM_FAILURE;
    }
    if (pool_id == 0) {
        CMM_LOG(ZYLOG_ERROR,
                "Zyumm req pool create failed, pool_id(0x%lx), module_id(%u), function(%s).",
                pool_id, module_id, func);
        return CMM_FAILURE;
    }
    if (!zyumm_is_partition_creator(CMM_CREATOR_REQ) || g_req_partition_id != 0) {
        say_has_been_created(__func__, module_id, func);
        return CMM_FAILURE;
    }

    zymm_slab_param param = {};
    zymm_slab_param_init(&param);
    strncpy_s(param.name, sizeof param.name, POOL_NAME, POOL_NAME_LENGTH);
    param.module_id = module_id;
    param.attr      = zyumm_attr_conver_zymm_attr(attr);
    param.pool_id   = pool_id;
    set_quota(&param);

    g_req_partition_id = zymm_create_slab(&param, module_id, func);
    if (g_req_partition_id == 0) {
        CMM_LOG(ZYLOG_ERROR,
                "Req partition create failed, pool_id(0x%lx), module_id(%u), function_name(%s).",
                pool_id, module_id, func);
        return CMM_FAILURE;
    }
    return CMM_OK;
}

void allocReq(cmm_req **out, uint32_t module_id, const char *func, uint32_t line)
{
    if (out == nullptr) {
        CMM_LOG_LIMITED(ZYLOG_ERROR,
                        "The param req is NULL. ModuleID: %u funcName: %s fileLine: %d", module_id,
                        cmm_text(func), int(line));
        return;
    }

    auto *req = static_cast<cmm_req *>(
        zymm_slab_malloc(g_req_partition_id, module_id, func, line));
    if (req != nullptr)
        reset_header(view_of(req));
    else
        CMM_PROBE_ALLOC_REFUSED("req", 1, module_id, func, line);
    *out = req;
}

void freeReq(cmm_req *req, uint32_t module_id, const char *func, uint32_t line)
{
    if (req == nullptr) {
        /* sic: says pid and prints the module id; log searches for a module rely on it. */
        CMM_LOG_LIMITED(ZYLOG_ERROR, "Req is NULL, pid: %d funcName: %s line: %d.",
                        int(module_id), cmm_text(func), int(line));
        return;
    }

    const uint8_t mark = view_of(req)->queue_mark;
    if (mark != CMM_REQ_NOT_QUEUED) {
        CMM_LOG_RAW(ZYLOG_FATAL, "Req(%p) is in queue(%x).", static_cast<void *>(req),
                    unsigned{mark});
        cmm_die();
    }
    zymm_slab_free(g_req_partition_id, req, module_id, func);
}

void printReqInfo(const cmm_req * /*req*/)
{
}

int zyumm_req_info_get(zyumm_partition_info *info)
{
    return zyumm_partition_info_get(g_req_partition_id, info);
}
