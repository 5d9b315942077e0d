/*
 * Memory from the system.
 *
 * The kernel aligns a mapping to a page only; a stronger alignment is had by mapping more and
 * giving the two ends back:
 *
 *     |<- head ->|<------- bytes ------->|<- tail ->|
 *      unmapped   aligned, kept            unmapped
 *
 * Backing at once asks the kernel to write-fault the range, which reports a shortage as an error
 * and not, as touching the pages would, as the end of the process. A request for more than the
 * machine has is refused before, since the kernel would first take everything else away.
 *
 * No lock; the counter is the only state.
 */
#include "zymm_system.h"

#include <atomic>
#include <errno.h>
#include <sys/mman.h>

#include "zyax.h"

namespace zymm
{

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

static std::atomic<uint64_t> s_mapped{0};

static void *map_anonymous(uint64_t bytes, int more_flags)
{
    void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | more_flags, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

static char *cut_to_alignment(char *memory, uint64_t bytes, uint64_t align)
{
    const uint64_t head = (align - uint64_t(uintptr_t(memory)) % align) % align;
    const uint64_t tail = align - head;
    if (head != 0)
        munmap(memory, head);
    if (tail != 0)
        munmap(memory + head + bytes, tail);
    return memory + head;
}

void *system_map(uint64_t bytes, uint64_t align)
{
    if (bytes == 0 || bytes > UINT64_MAX / 4)
        return nullptr;
    const uint64_t whole = round_up(bytes, PAGE_BYTES);
    const uint64_t surplus = align > PAGE_BYTES ? align : 0;
    char *memory = static_cast<char *>(map_anonymous(whole + surplus, 0));
    if (memory == nullptr)
        return nullptr;

    s_mapped.fetch_add(whole, std::memory_order_relaxed);
    return surplus != 0 ? cut_to_alignment(memory, whole, align) : memory;
}

void *system_map_huge(uint64_t bytes)
{
    void *reserved = bytes == 0 ? nullptr : map_anonymous(bytes, MAP_HUGETLB);
    if (reserved != nullptr) {
        s_mapped.fetch_add(bytes, std::memory_order_relaxed);
        return reserved;
    }
    void *memory = system_map(bytes, HUGE_BYTES);
    if (memory != nullptr)
        madvise(memory, bytes, MADV_HUGEPAGE); /* a wish: without huge pages small ones serve */
    return memory;
}

void system_unmap(void *memory, uint64_t bytes)
{
    if (memory == nullptr)
        return;
    const uint64_t whole = round_up(bytes, PAGE_BYTES);
    munmap(memory, whole);
    s_mapped.fetch_sub(whole, std::memory_order_relaxed);
}

/* For kernels before 5.14. The pages are fresh, so writing zeroes changes nothing. */
static void touch_pages(char *memory, uint64_t bytes)
{
    for (uint64_t at = 0; at < bytes; at += PAGE_BYTES)
        __atomic_store_n(memory + at, char(0), __ATOMIC_RELAXED);
}

bool system_has(uint64_t bytes)
{
    uint64_t machine = 0;
    const int known = zyax_get_total_mem(&machine);
    return known != 0 || bytes <= machine;
}

bool system_populate(void *memory, uint64_t bytes)
{
    if (bytes == 0)
        return true;
    if (!system_has(bytes))
        return false;

    const uint64_t whole = round_up(bytes, PAGE_BYTES);
    if (madvise(memory, whole, MADV_POPULATE_WRITE) == 0)
        return true;
    if (errno != EINVAL)
        return false;
    touch_pages(static_cast<char *>(memory), whole);
    return true;
}

uint64_t system_mapped_bytes()
{
    return s_mapped.load(std::memory_order_relaxed);
}

} // namespace zymm
