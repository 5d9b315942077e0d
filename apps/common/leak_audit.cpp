/*
 * The audit asks each pool's slab. A usage query that fails counts as no object: the pool is gone.
 */
#include "leak_audit.h"

#include <chrono>
#include <thread>

#include "dbg_console.h"
#include "node_identity.h"
#include "zymm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

namespace {

uint64_t objects_out(uint64_t slab)
{
    uint64_t total = 0, used = 0;
    return zymm_slab_get_usage_info(slab, &total, &used) == 0 ? used : 0;
}

void print_holders_of(const char *what, uint64_t slab, uint64_t out)
{
    if (out == 0)
        return;
    DBG_Print("%lu %s still out, held by:\n", out, what);
    zymm_slab_dump_detailinfo(slab, NODE_MODULE_ID, __func__);
}

} // namespace

leak_audit audit_objects()
{
    return {objects_out(s_page_partition_id), objects_out(g_sgl_partition_id),
            objects_out(g_req_partition_id), objects_out(s_page_request_id)};
}

leak_audit audit_at_the_end()
{
    leak_audit audit = audit_objects();
    for (int look = 0; audit.queued != 0 && look < 1000; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        audit = audit_objects();
    }
    return audit;
}

void print_holders(const leak_audit &audit)
{
    print_holders_of("pages", s_page_partition_id, audit.pages);
    print_holders_of("SGLs", g_sgl_partition_id, audit.sgls);
    print_holders_of("requests", g_req_partition_id, audit.requests);
    print_holders_of("queued requests", s_page_request_id, audit.queued);
}
