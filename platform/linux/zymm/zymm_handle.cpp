/*
 * Handle table.
 *
 * A lookup is two loads: the slot's current handle, which must be equal to the one that is asked
 * for, and the body. The table is all zero at load, and a slot with handle 0 has no object. Taking
 * and dropping a slot happen under the table's lock.
 *
 * The body is stored before the handle (release), and read after it (acquire). A thread that still
 * uses a handle while another destroys its object breaks the seam's rule; what it reads then is
 * nevertheless a record of the right kind, since control records are never unmapped.
 */
#include "zymm_handle.h"

#include <algorithm>
#include <atomic>

#include "zymm_lock.h"
#include "zymm_seam.h"

namespace zymm
{

enum : uint32_t { SLOTS = 65536, KIND_SHIFT = 16, GENERATION_SHIFT = 24 };

struct handle_slot {
    std::atomic<uint64_t> handle;
    std::atomic<void *>   body;
};

static handle_slot     s_slots[SLOTS];
static pthread_mutex_t s_table_lock = PTHREAD_MUTEX_INITIALIZER;
static uint32_t        s_lowest_free; /* no slot below it is free */
static std::atomic<uint32_t> s_slots_used; /* no slot from here on ever had a handle */
static uint64_t        s_generation;
static std::atomic<uint64_t> s_alive{0};

/* The lowest one: threads keep a table by slot, which stays as short as there are slabs at once. */
static handle_slot *find_free_slot()
{
    while (s_lowest_free < SLOTS) {
        handle_slot *slot = &s_slots[s_lowest_free++];
        if (slot->handle.load(std::memory_order_relaxed) == 0)
            return slot;
    }
    return nullptr;
}

uint64_t handle_make(handle_kind kind, void *body)
{
    scoped_lock held(&s_table_lock);
    handle_slot *slot = find_free_slot();
    if (slot == nullptr)
        return 0;

    const uint64_t generation = ++s_generation;
    const uint64_t handle = generation << GENERATION_SHIFT | uint64_t(kind) << KIND_SHIFT |
                            uint64_t(slot - s_slots);
    slot->body.store(body, std::memory_order_relaxed);
    slot->handle.store(handle, std::memory_order_release);
    if (s_lowest_free > s_slots_used.load(std::memory_order_relaxed))
        s_slots_used.store(s_lowest_free, std::memory_order_relaxed);
    s_alive.fetch_add(1, std::memory_order_relaxed);
    return handle;
}

static bool is_kind(uint64_t handle, handle_kind kind)
{
    return handle != 0 && (handle >> KIND_SHIFT & 0xFF) == uint64_t(kind);
}

void *handle_body(uint64_t handle, handle_kind kind)
{
    const handle_slot *slot = &s_slots[handle % SLOTS];
    if (!is_kind(handle, kind) || slot->handle.load(std::memory_order_acquire) != handle)
        return nullptr;
    return slot->body.load(std::memory_order_relaxed);
}

void *handle_drop(uint64_t handle, handle_kind kind)
{
    scoped_lock held(&s_table_lock);
    handle_slot *slot = &s_slots[handle % SLOTS];
    if (!is_kind(handle, kind) || slot->handle.load(std::memory_order_relaxed) != handle)
        return nullptr;

    void *body = slot->body.load(std::memory_order_relaxed);
    slot->handle.store(0, std::memory_order_release);
    const uint32_t number = uint32_t(slot - s_slots);
    if (number < s_lowest_free)
        s_lowest_free = number;
    s_alive.fetch_sub(1, std::memory_order_relaxed);
    return body;
}

static const char *kind_text(handle_kind kind)
{
    switch (kind) {
    case HANDLE_SLAB:
        return "slab or memory pool";
    case HANDLE_POOL:
        return "enclosing pool";
    case HANDLE_PUBLIC:
        return "public pool";
    }
    return "(unknown)";
}

void *handle_expect(uint64_t handle, handle_kind kind, const char *operation, const char *caller)
{
    void *body = handle_body(handle, kind);
    if (body == nullptr && handle != 0)
        ZYMM_ERROR(operation, "handle 0x%lx is no %s (stale or never made), caller %s.", handle,
                   kind_text(kind), text_of(caller));
    return body;
}

uint64_t handles_alive()
{
    return s_alive.load(std::memory_order_relaxed);
}

/* The generation is a handle's upper part, so that handles sort by age. */
uint64_t handles_list(handle_kind kind, uint64_t *handles, uint64_t room)
{
    const uint32_t end = s_slots_used.load(std::memory_order_relaxed);
    uint64_t found = 0;
    for (const handle_slot *slot = s_slots; slot != s_slots + end; slot++) {
        const uint64_t handle = slot->handle.load(std::memory_order_acquire);
        if (!is_kind(handle, kind))
            continue;
        if (found < room)
            handles[found] = handle;
        found++;
    }
    std::sort(handles, handles + std::min(found, room));
    return found;
}

} // namespace zymm
