/*
 * Raw blocks of any size: zymm_malloc and zymm_free.
 *
 *     up to 1 MiB   an object of one of 29 internal slabs, 64 bytes and then 1.5 and 2 times each
 *                   power of two; a slab is made when its class is first asked for, and stays
 *     above         a slab of its own with one object, destroyed by the free
 *
 * So a raw block is an object like any other: it has an owner, and a block that is freed twice or
 * was never one is refused. These slabs carry a mark of this file, by which a free knows them.
 *
 * Threads: any. A class's slab is published with a release store under a lock that only the first
 * request of a class takes.
 */
#include <atomic>

#include "zymm_address.h"
#include "zymm_lock.h"
#include "zymm_private.h"
#include "zymm_seam.h"
#include "zymm_slab.h"

using namespace zymm;

enum : uint32_t { BLOCK_ALIGN = 16, CLASSES = 29 };
enum : uint64_t { SMALLEST_BLOCK = 64, LARGEST_CLASS = 1048576 };

static const char          s_small_mark = 's';
static const char          s_large_mark = 'l';
static std::atomic<slab *> s_classes[CLASSES];
static pthread_mutex_t     s_classes_lock = PTHREAD_MUTEX_INITIALIZER;

/* 64, 96, 128, 192, 256, ... 1 MiB */
static uint64_t class_bytes(uint32_t number)
{
    const uint64_t power = SMALLEST_BLOCK << number / 2;
    return number % 2 == 0 ? power : power + power / 2;
}

static uint32_t class_for(uint64_t size)
{
    uint32_t number = 0;
    while (class_bytes(number) < size)
        number++;
    return number;
}

static slab *make_slab(const char *name, uint64_t obj_size, uint64_t max_num, const void *mark)
{
    slab_spec spec = {};
    spec.name = name;
    spec.obj_size = obj_size;
    spec.max_num = max_num;
    spec.unlimited = max_num == UINT64_MAX;
    spec.module_id = ZYMM_MODULE_ID;
    spec.align = BLOCK_ALIGN;
    spec.group = mark;
    return slab_create(&spec, "zymm_malloc");
}

static slab *class_slab(uint32_t number)
{
    slab *s = s_classes[number].load(std::memory_order_acquire);
    if (s != nullptr)
        return s;
    const gate_guard no_fork; /* a child must not find the lock held by a thread that it has not */
    scoped_lock held(&s_classes_lock);
    s = s_classes[number].load(std::memory_order_relaxed);
    if (s == nullptr) {
        s = make_slab("raw blocks", class_bytes(number), UINT64_MAX, &s_small_mark);
        s_classes[number].store(s, std::memory_order_release);
    }
    return s;
}

void *zymm_malloc(uint64_t size, uint32_t module_id, const char *func)
{
    const bool is_large = size > LARGEST_CLASS;
    slab *s = is_large ? make_slab("raw block", size, 1, &s_large_mark)
                       : class_slab(class_for(size));
    if (s == nullptr)
        return nullptr;
    void *memory = slab_alloc(s, module_id, func, 0);
    if (memory == nullptr && is_large)
        slab_destroy(s, __func__, func);
    return memory;
}

void zymm_free(void *memory, uint32_t module_id, const char *func)
{
    if (memory == nullptr)
        return;
    const piece *p = address_find(memory);
    slab *s = p != nullptr ? p->owner.load(std::memory_order_acquire) : nullptr;
    const void *mark = s != nullptr ? s->group : nullptr;
    if (mark != &s_small_mark && mark != &s_large_mark) {
        ZYMM_ERROR(__func__, "%p is no block of zymm_malloc, freed by %u %s.", memory, module_id,
                   text_of(func));
        return;
    }
    const int refused = slab_free(s, memory, module_id, func, __func__);
    if (refused == 0 && mark == &s_large_mark)
        slab_destroy(s, __func__, func);
}
