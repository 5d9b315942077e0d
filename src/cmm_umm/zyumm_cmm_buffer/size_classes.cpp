/*
 * The size classes of the buffer allocator, and the allocator made of them.
 *
 *     class       0        6                 14                                        141
 *                 |64 ..2K | 4K .. 32K       | 128K .. 16M - 128K                      |
 *                 | x 2    | + 4K            | + 128K                                  |
 *     class word  |<----------- 3 ---------->|<------------------ 1 ----------------->|
 *     alignment   |<-- 8 ->|<---------------------- 4096 ---------------------------->|
 *
 * The small classes serve headers and descriptors, those of whole 4 KiB blocks the pages that
 * travel, the large ones the transport's own regions. Nothing lies between 32 KiB and 128 KiB: a
 * buffer of 36 KiB takes 128.
 *
 * The table is built in scratch memory and handed over whole; the slab layer copies it, so it is
 * given back at once.
 *
 * Locking: none; one set-up thread creates the allocator.
 */
#include "zyumm_cmm_buffer.h"

#include "bounded.h"
#include "zyumm_cmm.h"

#include "common/cmm_identity.h"
#include "common/cmm_log.h"

static constexpr char TABLE_NAME[] = "buffer_slab_table";

static constexpr uint32_t SMALL_CLASSES = 6;
static constexpr uint64_t SMALL_FIRST   = 64;
static constexpr uint32_t BLOCK_CLASSES = 8;
static constexpr uint64_t BLOCK         = 4096;
static constexpr uint32_t LARGE_CLASSES = 127;
static constexpr uint64_t LARGE_STEP    = 0x20000;
static constexpr uint32_t ALL_CLASSES   = SMALL_CLASSES + BLOCK_CLASSES + LARGE_CLASSES;
static constexpr size_t   TABLE_SIZE    = ALL_CLASSES * sizeof(zymm_slab_item);

/* What these say belongs to the slab layer. */
static constexpr uint64_t NO_LIMIT         = 0xFFFFFFFF;
static constexpr uint64_t CLASS_WORD       = 3;
static constexpr uint64_t CLASS_WORD_LARGE = 1;
static constexpr uint32_t SMALL_ALIGN      = 8;

static_assert(ALL_CLASSES == 141 && TABLE_SIZE == 5640);

static void fill_item(zymm_slab_item *item, uint64_t size)
{
    item->obj_size   = size;
    item->first      = 0;
    item->limit      = NO_LIMIT;
    item->class_word = size <= BLOCK_CLASSES * BLOCK ? CLASS_WORD : CLASS_WORD_LARGE;
    item->align      = size < BLOCK ? SMALL_ALIGN : uint32_t(BLOCK);
}

static void fill_table(zymm_slab_item *item)
{
    for (uint32_t i = 0; i < SMALL_CLASSES; ++i)
        fill_item(item++, SMALL_FIRST << i);
    for (uint64_t i = 1; i <= BLOCK_CLASSES; ++i)
        fill_item(item++, i * BLOCK);
    for (uint64_t i = 1; i <= LARGE_CLASSES; ++i)
        fill_item(item++, i * LARGE_STEP);
}

uint32_t cmm_create_allocator(void)
{
    zymm_allocator *allocator = &g_ucmm_config.buffer_allocator;

    auto *table = static_cast<zymm_slab_item *>(zymm_malloc(TABLE_SIZE, CMM_SELF));
    if (table == nullptr) {
        CMM_LOG(ZYLOG_ERROR, "Malloc slab table item fail.");
        return CMM_FAILURE;
    }
    memset_s(table, TABLE_SIZE, 0, TABLE_SIZE);
    fill_table(table);

    zymm_allocator_init(allocator);
    /* A platform that filled in no operation has no allocators. */
    int result = -1;
    if (allocator->create != nullptr)
        result = allocator->create(allocator, TABLE_NAME, table, ALL_CLASSES,
                                   g_ucmm_config.io_pool.pool_handle, CMM_SELF);
    zymm_free(table, CMM_SELF);
    return result == 0 ? CMM_OK : CMM_FAILURE;
}
