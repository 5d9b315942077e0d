/*
 * The seam's slab operations: handles and arguments are checked here, the work is done in
 * zymm_slab.cpp. Handle 0 is quiet; a stale handle, a null pointer and bad parameters fail with a
 * line. Also the two ways in which the unified memory manager creates and destroys slabs.
 */
#include <string.h>

#include "bounded.h"
#include "zymm_cache.h"
#include "zymm_handle.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"

using namespace zymm;

enum : uint64_t {
    SLAB_ATTRIBUTES = ZYMM_SLAB_CACHED | ZYMM_SLAB_NODUMP | ZYMM_SLAB_NOFORK,
    EXTRA_ATTRIBUTES =
        ZYMM_EXTRA_CLEARED | ZYMM_EXTRA_LOCKED | ZYMM_EXTRA_ONE_BLOCK | ZYMM_EXTRA_HUGE,
    DEFAULT_OBJECT_BYTES = 768,
    DEFAULT_ALIGN = 8,
};

static slab *slab_behind(uint64_t handle, const char *operation, const char *caller)
{
    return static_cast<slab *>(handle_expect(handle, HANDLE_SLAB, operation, caller));
}

int zymm_slab_param_init(zymm_slab_param *param)
{
    if (param == nullptr) {
        ZYMM_ERROR(__func__, "param is null.");
        return -1;
    }
    memset(param, 0, sizeof *param);
    param->align = DEFAULT_ALIGN;
    param->obj_size = DEFAULT_OBJECT_BYTES;
    return 0;
}

uint64_t zymm_create_slab_ex(const zymm_slab_param *param, const zymm_slab_extra *extra,
                             uint32_t, const char *operation)
{
    if (param == nullptr || extra == nullptr) {
        ZYMM_ERROR(operation, "param is null.");
        return 0;
    }
    char name[sizeof param->name] = "";
    memcpy(name, param->name, sizeof name - 1); /* a name without a terminator is cut */

    slab_spec spec = {};
    spec.name = name;
    spec.attr = (param->attr & SLAB_ATTRIBUTES) | (extra->attr & EXTRA_ATTRIBUTES);
    spec.obj_size = param->obj_size;
    spec.min_num = param->min_num;
    spec.max_num = extra->unlimited != 0 ? UINT64_MAX : param->max_num;
    spec.pool_id = param->pool_id;
    spec.module_id = param->module_id;
    spec.align = param->align;
    spec.cache_num = extra->cache_num;
    spec.cache_size = extra->cache_size;
    spec.unlimited = extra->unlimited != 0;
    const slab *s = slab_create(&spec, operation);
    return s != nullptr ? s->handle : 0;
}

uint64_t zymm_create_slab(const zymm_slab_param *param, uint32_t module_id, const char *func)
{
    const zymm_slab_extra none = {};
    if (param == nullptr) {
        ZYMM_ERROR(__func__, "param is null, caller %u %s.", module_id, text_of(func));
        return 0;
    }
    return zymm_create_slab_ex(param, &none, module_id, __func__);
}

int zymm_destory_slab(uint64_t handle, uint32_t, const char *func)
{
    if (handle == 0)
        return 0;
    slab *s = slab_behind(handle, __func__, func);
    if (s == nullptr)
        return -1;
    slab_destroy(s, __func__, func);
    return 0;
}

int zymm_slab_destroy_empty(uint64_t handle, const char *operation)
{
    slab *s = slab_behind(handle, operation, "");
    if (s == nullptr)
        return -1;
    const uint64_t used = slab_used(s);
    if (used != 0) {
        ZYMM_ERROR(operation, "pool %s still has %lu objects out.", s->name, used);
        return -1;
    }
    slab_destroy(s, operation, "");
    return 0;
}

/* Apart, so that the way through the cache saves no register and makes no call. */
[[gnu::noinline]] static void *malloc_slowly(uint64_t handle, uint32_t module_id, const char *func,
                                             uint32_t line)
{
    void *next = nullptr;
    void *object = nullptr;
    const bool ready =
        cache_turn_to_take(handle) || cache_learn_taker(handle, {func, module_id, line});
    if (ready && cache_take_fast(handle, module_id, func, line, &object, &next))
        return object;
    slab *s = slab_behind(handle, "zymm_slab_malloc", func);
    return s != nullptr ? slab_alloc(s, module_id, func, line) : nullptr;
}

[[gnu::noinline]] static void *with_next_page_prefetched(void *object, void *next)
{
    prefetch_page(next);
    return object;
}

void *zymm_slab_malloc(uint64_t handle, uint32_t module_id, const char *func, uint32_t line)
{
    void *next = nullptr;
    void *object = nullptr;
    if (__builtin_expect(!cache_take_fast(handle, module_id, func, line, &object, &next), 0))
        return malloc_slowly(handle, module_id, func, line);
    return __builtin_expect(next != nullptr, 0) ? with_next_page_prefetched(object, next) : object;
}

void *zymm_slab_malloc_for(uint64_t handle, uint32_t module_id, const char *caller,
                           const char *operation)
{
    slab *s = slab_behind(handle, operation, caller);
    return s != nullptr ? slab_alloc(s, module_id, caller, 0) : nullptr;
}

int zymm_slab_free_for(uint64_t handle, void *object, uint32_t module_id, const char *caller,
                       const char *operation)
{
    slab *s = slab_behind(handle, operation, caller);
    return s != nullptr ? slab_free(s, object, module_id, caller, operation) : -1;
}

[[gnu::noinline]] static int free_slowly(uint64_t handle, void *object, uint32_t module_id,
                                         const char *func)
{
    const bool ready =
        cache_turn_to_give(handle) || cache_learn_giver(handle, {func, module_id, 0});
    if (ready && cache_give_fast(handle, object, module_id, func))
        return 0;
    return zymm_slab_free_for(handle, object, module_id, func, "zymm_slab_free");
}

int zymm_slab_free(uint64_t handle, void *object, uint32_t module_id, const char *func)
{
    return __builtin_expect(cache_give_fast(handle, object, module_id, func), 1)
               ? 0
               : free_slowly(handle, object, module_id, func);
}
