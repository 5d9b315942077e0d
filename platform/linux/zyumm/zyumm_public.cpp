/*
 * Public pools: an enclosing pool with an allocator in it.
 *
 *     classes: 64, 96, 128, 192, 256, ... (each power of two, and one and a half times it), 16 MiB
 *
 * The record of a pool is mapped when it is made and unmapped when it is deleted.
 *
 * Threads: allocation and free need no lock of this layer, the record is fixed while the pool
 * lives.
 */
#include <sys/mman.h>

#include "zyumm_seam.h"

using namespace zyumm;

enum : uint32_t { CLASSES = 37 };
enum : uint64_t { SMALLEST_CLASS = 64, NO_LIMIT = UINT64_MAX, CACHED_CLASS = 3, CLASS_ALIGN = 16 };

struct public_pool {
    zymm_allocator allocator;
    uint64_t       enclosing;
    uint32_t       module_id;
    zymm_slab_item table[CLASSES];
};

static uint64_t class_bytes(uint32_t number)
{
    const uint64_t power = SMALLEST_CLASS << number / 2;
    return number % 2 == 0 ? power : power + power / 2;
}

static void fill_table(public_pool *p)
{
    for (uint32_t number = 0; number < CLASSES; number++)
        p->table[number] = {class_bytes(number), 0, NO_LIMIT, CACHED_CLASS, CLASS_ALIGN, 0};
}

/* Undoes what is there of the pool, in the reverse order of its making. */
static void unmake(public_pool *p, const char *operation)
{
    if (p->allocator.instance != nullptr)
        p->allocator.destroy(&p->allocator, p->module_id, operation);
    zymm_pool_destory(p->enclosing, p->module_id, operation);
    munmap(p, sizeof *p);
}

static public_pool *make(const char *name, uint64_t size, uint64_t extension, uint32_t module_id)
{
    static const char operation[] = "zyumm_pub_mpool_create";
    void *memory =
        mmap(nullptr, sizeof(public_pool), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
             0);
    if (memory == MAP_FAILED)
        return nullptr;
    public_pool *p = static_cast<public_pool *>(memory);
    p->module_id = module_id;
    fill_table(p);
    zymm_allocator_init(&p->allocator);
    p->enclosing = zymm_pool_create(name, size, extension, module_id, operation);
    const int failed = p->enclosing == 0 ||
                       p->allocator.create(&p->allocator, name, p->table, CLASSES, p->enclosing,
                                           module_id, operation) != 0;
    if (!failed)
        return p;
    unmake(p, operation);
    return nullptr;
}

uint64_t zyumm_pub_mpool_create(const char *name, uint64_t size, uint64_t extension,
                                uint32_t module_id)
{
    static_assert(sizeof(zymm_slab_item) == 40);
    public_pool *p = make(name, size, extension, module_id);
    const uint64_t handle = p != nullptr ? zymm_public_handle_make(p) : 0;
    if (handle != 0)
        return handle;
    if (p != nullptr)
        unmake(p, __func__);
    ZYUMM_ERROR(__func__, "public pool %s of module %u cannot be made.", text_of(name), module_id);
    return 0;
}

static public_pool *pool_behind(uint64_t handle, const char *operation, const char *caller)
{
    return static_cast<public_pool *>(zymm_public_handle_expect(handle, operation, caller));
}

int zyumm_pub_mpool_delete(uint64_t pool)
{
    public_pool *p = pool_behind(pool, __func__, "");
    if (p == nullptr)
        return -1;
    const uint64_t used = zymm_allocator_used(&p->allocator);
    if (used != 0) {
        ZYUMM_ERROR(__func__, "public pool 0x%lx still has %lu objects out.", pool, used);
        return -1;
    }
    if (zymm_public_handle_drop(pool) == nullptr)
        return -1;
    unmake(p, __func__);
    return 0;
}

void *pub_mpool_alloc_i(uint64_t pool, uint32_t size, uint32_t module_id, const char *caller)
{
    public_pool *p = pool_behind(pool, __func__, caller);
    return p != nullptr ? p->allocator.alloc(&p->allocator, size, module_id, caller, 0) : nullptr;
}

int pub_mpool_free_i(uint64_t pool, void *object, uint32_t module_id, const char *caller)
{
    public_pool *p = pool_behind(pool, __func__, caller);
    return p != nullptr ? p->allocator.free(&p->allocator, object, module_id, caller) : -1;
}
