/*
 * A request record out and back. The limit is a bare slab pair of the same size with the stores
 * that reset a record's header: all that allocReq and freeReq must do.
 */
#include "harness.h"

namespace bench
{

/* The words of a record's header; the tables of zyumm_cmm_req.h say what they hold. */
static void reset_header(uint8_t *req)
{
    const auto store = [req](size_t offset, auto value) {
        memcpy(req + offset, &value, sizeof value);
    };
    store(26, uint16_t(0xFFFF));
    store(28, uint8_t(0xFF));
    store(29, uint8_t(CMM_REQ_NOT_QUEUED));
    store(30, uint8_t(0));
    store(40, ~uint64_t(0));
    store(48, uint64_t(0xFFFFFFFF));
    for (size_t offset = 56; offset < 96; offset += 8)
        store(offset, uint64_t(0));
    store(96, uint32_t(0));
    store(100, uint16_t(5));
    store(104, uint64_t(0));
    store(112, uint64_t(0));
}

template <class L>
static void bare_pair(state &run)
{
    zymm_slab_param param;
    L::zymm_slab_param_init(&param);
    param.obj_size = CMM_REQ_OBJECT_SIZE;
    param.attr = ZYMM_SLAB_CACHED;
    param.max_num = 1024;
    const uint64_t slab = L::zymm_create_slab(&param, MODULE, __func__);
    if (slab == 0)
        fail("a slab cannot be made");

    for (auto _ : run) {
        void *object = L::zymm_slab_malloc(slab, MODULE, __func__, __LINE__);
        reset_header(static_cast<uint8_t *>(object));
        benchmark::DoNotOptimize(object);
        L::zymm_slab_free(slab, object, MODULE, __func__);
    }
    L::zymm_destory_slab(slab, MODULE, __func__);
}

template <class L>
static void req_pair(state &run)
{
    for (auto _ : run) {
        cmm_req *req = nullptr;
        L::allocReq(&req, MODULE, __func__, __LINE__);
        benchmark::DoNotOptimize(req);
        L::freeReq(req, MODULE, __func__, __LINE__);
    }
}

void add_req_pool(void)
{
    add("req_pair", "limit", 1, bare_pair<ours_static>);
    our_forms::each(
        []<class L>(std::type_identity<L>) { add("req_pair", L::NAME, 1, req_pair<L>); });
}

} // namespace bench
