/*
 * Records and constants shared by the whole interface of the common memory manager.
 *
 * Every record is plain data with fixed offsets: other components of the node, and programs built
 * with other compilers, read and write these fields directly. The asserts behind each record nail
 * the layout down for C and C++ alike.
 */
#ifndef ZYUMM_CMM_TYPES_H
#define ZYUMM_CMM_TYPES_H

#include <stddef.h>
#include <stdint.h>

#include "zyax.h"
#include "zymm.h"
#include "zyumm.h"

#ifdef __cplusplus
#define CMM_STATIC_ASSERT static_assert
extern "C" {
#else
#define CMM_STATIC_ASSERT _Static_assert
#endif

/* Marks what the shared library exports; everything else is hidden. */
#define CMM_API __attribute__((visibility("default")))

#define CMM_ASSERT_OFFSET(record, field, offset) \
    CMM_STATIC_ASSERT(offsetof(record, field) == (offset), #record "." #field)
#define CMM_ASSERT_SIZE(record, size) CMM_STATIC_ASSERT(sizeof(record) == (size), #record)

/* Status of all operations that answer uint32_t; SGL operations answer int32_t 0 and -1. */
#define CMM_OK      0u
#define CMM_FAILURE 0xFFFFFFFFu

/* The library's own module id, as owner of its pools and in its log lines. */
#define CMM_MODULE_ID 386u

/* ------------------------------------------------------------------ partitions */

#define CMM_PART_MAX_ID  2047u /* highest structure partition id; ids start at 1 */
#define CMM_PART_ENTRIES 2048u /* registry entries; entry 0 is never used */

/* Bits of the partition-creator mask: a set bit leaves that pool to an outside component. */
#define CMM_CREATOR_PAGE 0x1u
#define CMM_CREATOR_SGL  0x2u
#define CMM_CREATOR_REQ  0x4u

/* Runs with every object right after allocStructure obtained it. */
typedef void (*cmm_object_init_fn)(void *object);

/* Runs with every object right before freeStructure returns it. */
typedef void (*cmm_object_free_fn)(void *object, uint32_t part_id, uint32_t module_id,
                                   const char *caller);

/*
 * One entry of the partition registry `g_cmm_part_s`.
 *
 * Owner:   the thread that reserved the id, until deleteStructurePartition.
 * Threads: part_id changes under g_cmm_part_lock; the rest is written by the owner.
 * Valid:   part_id == the entry's own index while reserved, 0 while free.
 */
typedef struct cmm_partition {
    cmm_object_init_fn init_cb; /* may be null */
    cmm_object_free_fn free_cb; /* may be null */
    uint64_t           pool;    /* memory pool handle; 0 = none */
    uint32_t           part_id; /* own index; 0 = free slot */
} cmm_partition;

CMM_ASSERT_OFFSET(cmm_partition, init_cb, 0);
CMM_ASSERT_OFFSET(cmm_partition, free_cb, 8);
CMM_ASSERT_OFFSET(cmm_partition, pool, 16);
CMM_ASSERT_OFFSET(cmm_partition, part_id, 24);
CMM_ASSERT_SIZE(cmm_partition, 32);

#define STRUCTURE_MEMPOOL_MAGIC 0xABCABCull

/* Attribute flags of a structure pool; createStructureMempool and the loose-value creators map
 * them differently, see zyumm_cmm.h. */
#define STRUCTURE_FLAG_NOFORK    0x02u
#define STRUCTURE_FLAG_NODUMP    0x04u
#define STRUCTURE_FLAG_CLEARED   0x10u
#define STRUCTURE_FLAG_LOCKED    0x20u
#define STRUCTURE_FLAG_HUGEPAGES 0x40u

/*
 * Parameters of a structure pool; filled with initStructureMempoolPara first, then by the client.
 *
 * Owner:   the client; the library reads it during createStructureMempool only.
 * Valid:   magic == STRUCTURE_MEMPOOL_MAGIC.
 */
typedef struct structure_mempool_para {
    uint64_t           magic;
    uint32_t           reserved_num; /* objects backed at creation */
    uint32_t           max_num;      /* objects at most */
    const char        *name;         /* at most 31 characters are kept; null = unnamed */
    uint32_t           module_id;    /* owner */
    uint32_t           flags;        /* STRUCTURE_FLAG_* */
    uint32_t           obj_size;     /* bytes */
    uint32_t           cache_num;    /* objects in a thread's cache */
    uint32_t           cache_size;   /* size of a thread's cache, as the memory manager counts it */
    cmm_object_init_fn init_cb;
    cmm_object_free_fn free_cb;
    uint32_t           extra; /* 7; not read */
} structure_mempool_para;

CMM_ASSERT_OFFSET(structure_mempool_para, magic, 0);
CMM_ASSERT_OFFSET(structure_mempool_para, reserved_num, 8);
CMM_ASSERT_OFFSET(structure_mempool_para, max_num, 12);
CMM_ASSERT_OFFSET(structure_mempool_para, name, 16);
CMM_ASSERT_OFFSET(structure_mempool_para, module_id, 24);
CMM_ASSERT_OFFSET(structure_mempool_para, flags, 28);
CMM_ASSERT_OFFSET(structure_mempool_para, obj_size, 32);
CMM_ASSERT_OFFSET(structure_mempool_para, cache_num, 36);
CMM_ASSERT_OFFSET(structure_mempool_para, cache_size, 40);
CMM_ASSERT_OFFSET(structure_mempool_para, init_cb, 48);
CMM_ASSERT_OFFSET(structure_mempool_para, free_cb, 56);
CMM_ASSERT_OFFSET(structure_mempool_para, extra, 64);
CMM_ASSERT_SIZE(structure_mempool_para, 72);

/* --------------------------------------------------------------- configuration */

#define CMM_PATH_SIZE      4096u /* bytes of a path buffer, terminator included */
#define CMM_PROC_NAME_SIZE 32u   /* bytes of a process name buffer, terminator included */

/* Quota of one buffer pool. All sizes are KiB. */
typedef struct cmm_pool_quota {
    uint64_t reserve_size;
    uint64_t max_size;
    uint64_t extand_size;
    uint64_t fourth_size;   /* the reader always writes 0; in io_pool the buffer pool's extension */
    uint64_t max_limit;     /* 0 or 1 */
    uint64_t leak_rate;     /* percent, 0 to 100 */
    uint64_t dontfork_flag; /* 0 or 1 */
    uint64_t pool_handle;   /* the reader writes 0; in io_pool the buffer pool's handle */
} cmm_pool_quota;

CMM_ASSERT_OFFSET(cmm_pool_quota, reserve_size, 0);
CMM_ASSERT_OFFSET(cmm_pool_quota, max_size, 8);
CMM_ASSERT_OFFSET(cmm_pool_quota, extand_size, 16);
CMM_ASSERT_OFFSET(cmm_pool_quota, fourth_size, 24);
CMM_ASSERT_OFFSET(cmm_pool_quota, max_limit, 32);
CMM_ASSERT_OFFSET(cmm_pool_quota, leak_rate, 40);
CMM_ASSERT_OFFSET(cmm_pool_quota, dontfork_flag, 48);
CMM_ASSERT_OFFSET(cmm_pool_quota, pool_handle, 56);
CMM_ASSERT_SIZE(cmm_pool_quota, 64);

/*
 * The process's configuration, `g_ucmm_config`; zero at load.
 *
 * Threads: written once by the starting thread before any pool exists, read without locks after.
 */
typedef struct cmm_config {
    uint32_t       req_min, req_max;   /* request objects */
    uint32_t       sgl_min, sgl_max;   /* SGL objects */
    uint32_t       page_min, page_max; /* pages; a maximum of 0 makes no page pool */
    cmm_pool_quota normal_pool;        /* general buffer pool */
    cmm_pool_quota io_pool;            /* I/O buffer pool */
    zymm_allocator buffer_allocator;
    uint32_t       rdma_flag;      /* 1 = RDMA, anything else TCP */
    uint32_t       cache_size;     /* per-thread pool cache, KiB */
    uint32_t       coredump_level; /* handed to the slab layer */
} cmm_config;

CMM_ASSERT_OFFSET(cmm_config, req_min, 0);
CMM_ASSERT_OFFSET(cmm_config, req_max, 4);
CMM_ASSERT_OFFSET(cmm_config, sgl_min, 8);
CMM_ASSERT_OFFSET(cmm_config, sgl_max, 12);
CMM_ASSERT_OFFSET(cmm_config, page_min, 16);
CMM_ASSERT_OFFSET(cmm_config, page_max, 20);
CMM_ASSERT_OFFSET(cmm_config, normal_pool, 24);
CMM_ASSERT_OFFSET(cmm_config, io_pool, 88);
CMM_ASSERT_OFFSET(cmm_config, buffer_allocator, 152);
CMM_ASSERT_OFFSET(cmm_config, rdma_flag, 216);
CMM_ASSERT_OFFSET(cmm_config, cache_size, 220);
CMM_ASSERT_OFFSET(cmm_config, coredump_level, 224);
CMM_ASSERT_SIZE(cmm_config, 232);

/*
 * One pool of cmm_config_info: its quota as cmm_pool_quota has it, but with sizes in bytes.
 */
typedef struct cmm_pool_info {
    uint64_t reserve_size;
    uint64_t max_size;
    uint64_t extand_size;
    uint64_t fourth_size;
    uint64_t max_limit;     /* 0 or 1 */
    uint64_t leak_rate;     /* percent, 0 to 100 */
    uint64_t reserved_48;   /* never read or written by the library */
    uint64_t dontfork_flag; /* 0 or 1 */
} cmm_pool_info;

CMM_ASSERT_OFFSET(cmm_pool_info, reserve_size, 0);
CMM_ASSERT_OFFSET(cmm_pool_info, max_size, 8);
CMM_ASSERT_OFFSET(cmm_pool_info, extand_size, 16);
CMM_ASSERT_OFFSET(cmm_pool_info, fourth_size, 24);
CMM_ASSERT_OFFSET(cmm_pool_info, max_limit, 32);
CMM_ASSERT_OFFSET(cmm_pool_info, leak_rate, 40);
CMM_ASSERT_OFFSET(cmm_pool_info, reserved_48, 48);
CMM_ASSERT_OFFSET(cmm_pool_info, dontfork_flag, 56);
CMM_ASSERT_SIZE(cmm_pool_info, 64);

/*
 * The configuration as zyumm_cmm_config_info_get reports it, and the way in which a buffer pool
 * that was made elsewhere is handed to zyumm_cmm_pool_info_set. All sizes are bytes.
 *
 *     0             64        72            136       168       176                      208
 *     | normal_pool | pool_id |   io_pool   | nothing | rdma    | cache and page figures |
 *
 * Owner:   the caller; the library keeps no pointer to it.
 * Valid:   a report leaves pool_id and the reserved words as they were.
 */
typedef struct cmm_config_info {
    cmm_pool_info normal_pool;
    uint64_t      pool_id; /* in: handle of the buffer pool to register; never reported */
    cmm_pool_info io_pool;
    uint64_t      reserved_136[4]; /* never read or written by the library */
    uint32_t      rdma_flag;       /* 1 = RDMA, anything else TCP */
    uint32_t      reserved_172;    /* never read or written by the library */
    uint64_t      cache_size;      /* of a thread's pool cache */
    uint64_t      page_max;        /* pages, not bytes */
    uint64_t      page_min_size;   /* what page_min pages with their records really take */
    uint64_t      page_max_size;   /* what page_max of them take */
} cmm_config_info;

CMM_ASSERT_OFFSET(cmm_config_info, normal_pool, 0);
CMM_ASSERT_OFFSET(cmm_config_info, pool_id, 64);
CMM_ASSERT_OFFSET(cmm_config_info, io_pool, 72);
CMM_ASSERT_OFFSET(cmm_config_info, reserved_136, 136);
CMM_ASSERT_OFFSET(cmm_config_info, rdma_flag, 168);
CMM_ASSERT_OFFSET(cmm_config_info, reserved_172, 172);
CMM_ASSERT_OFFSET(cmm_config_info, cache_size, 176);
CMM_ASSERT_OFFSET(cmm_config_info, page_max, 184);
CMM_ASSERT_OFFSET(cmm_config_info, page_min_size, 192);
CMM_ASSERT_OFFSET(cmm_config_info, page_max_size, 200);
CMM_ASSERT_SIZE(cmm_config_info, 208);

/* ------------------------------------------------------------------------ pages */

#define PAGE_SECTORS          16u   /* sectors of a page */
#define PAGE_SECTOR_DATA_SIZE 512u  /* data bytes of a sector */
#define PAGE_SECTOR_DIF_SIZE  8u    /* integrity bytes behind each sector's data */
#define PAGE_SECTOR_SIZE      520u  /* both together */
#define PAGE_DATA_SIZE        8192u /* data bytes of a page */
#define PAGE_SIZE_WITH_DIF    8320u /* 16 x 520; the control record lies at this offset */
#define PAGE_OBJECT_SIZE      8376u /* PAGE_SIZE_WITH_DIF and the 56 bytes of page_ctrl */

#define PAGE_FREE   0u /* page_ctrl.flags */
#define PAGE_IN_USE 1u

#define PAGE_IS_ZERO     0x20u /* page_ctrl.zero_flags: the content is known to be all zero */
#define PAGE_FULLY_VALID 0xFFu /* page_ctrl.valid_bitmap */

/*
 * Control record of one page; it lies directly behind the page's last sector:
 *
 *     page_addr                          page_addr + 8320     + 8376
 *     |<- 512 data ->|8 DIF| ... x16 ... |<---- page_ctrl ---->|
 *
 * Callers always hold the record's address, never the page's.
 *
 * Owner:   whoever holds a reference; the drop of the last one frees the page.
 * Threads: `ref` changes by atomic add only; `valid_bitmap` under `lock`; `zero_flags` by any
 *          holder, one byte and no lock; every other field is written by the one thread that
 *          allocates or frees.
 * Valid:   page_addr + 8320 == address of the record, and flags == PAGE_IN_USE.
 */
typedef struct page_ctrl {
    uint8_t      *page_addr;    /* start of the page, which is the pool object */
    const char   *owner_func;   /* function that allocated the page; not copied */
    zyax_spinlock lock;         /* guards valid_bitmap */
    int32_t       ref;          /* holders; 1 after allocation */
    uint8_t       flags;        /* PAGE_IN_USE or PAGE_FREE; anything else is corruption */
    uint8_t       reserved;     /* never read or written by the library */
    uint8_t       valid_bitmap; /* callers' bits: which parts hold valid data */
    uint8_t       zero_flags;   /* PAGE_IS_ZERO or 0 */
    uint16_t      owner_modid;  /* module that allocated the page */
} page_ctrl;

CMM_ASSERT_OFFSET(page_ctrl, page_addr, 0);
CMM_ASSERT_OFFSET(page_ctrl, owner_func, 8);
CMM_ASSERT_OFFSET(page_ctrl, lock, 16);
CMM_ASSERT_OFFSET(page_ctrl, ref, 40);
CMM_ASSERT_OFFSET(page_ctrl, flags, 44);
CMM_ASSERT_OFFSET(page_ctrl, reserved, 45);
CMM_ASSERT_OFFSET(page_ctrl, valid_bitmap, 46);
CMM_ASSERT_OFFSET(page_ctrl, zero_flags, 47);
CMM_ASSERT_OFFSET(page_ctrl, owner_modid, 48);
CMM_ASSERT_SIZE(page_ctrl, 56);
CMM_STATIC_ASSERT(PAGE_SECTORS * PAGE_SECTOR_SIZE == PAGE_SIZE_WITH_DIF, "sectors fill the page");
CMM_STATIC_ASSERT(PAGE_SIZE_WITH_DIF + sizeof(page_ctrl) == PAGE_OBJECT_SIZE, "record ends the object");

/* What traversePageInSgl does with each page of a chain; its result is ignored. */
typedef uint32_t (*cmm_page_op_fn)(page_ctrl *ctrl, uint32_t value, const char *text);

/* ------------------------------------------------------------------ retry queue */

/* Delivers a result without a return code. */
typedef void (*page_retry_cb_no_ret)(void *result, uint64_t cb_arg);

/* Delivers a page_ctrl or an SGL chain and 0, or null and one of PAGE_RETRY_*. */
typedef void (*page_retry_cb)(void *result, uint64_t cb_arg, uint32_t ret);

/* Runs just before page_retry_cb brings a failure. */
typedef void (*page_retry_fail_cb)(uint64_t fail_cb_arg);

#define PAGE_RETRY_NOT_QUEUED 0xFFFFFFFFu /* no memory for the request's record */
#define PAGE_RETRY_TIMED_OUT  0x80009301u /* the time-out passed in the queue */
#define PAGE_TIMEOUT_NEVER    0xFFFFFFFFu /* a time-out that never expires */

/* Link of a circular doubly linked list. */
typedef struct list_link {
    struct list_link *next;
    struct list_link *prev;
} list_link;

/*
 * A list under a spin lock. Empty when head points to itself, and also while all zero: a list
 * whose start never ran counts as empty everywhere.
 */
typedef struct sLockList {
    zyax_spinlock lock; /* guards head, sum and the links of every record on the list */
    list_link     head;
    uint64_t      sum; /* records on the list; read without the lock as a hint */
} sLockList;

CMM_ASSERT_OFFSET(sLockList, lock, 0);
CMM_ASSERT_OFFSET(sLockList, head, 24);
CMM_ASSERT_OFFSET(sLockList, sum, 40);
CMM_ASSERT_SIZE(sLockList, 48);

#define PAGE_REQ_OUTPUT_SGL  0u /* page_retry_req.output_type: deliver an SGL chain */
#define PAGE_REQ_OUTPUT_PAGE 1u /* deliver one page_ctrl */

/*
 * One queued request for pages.
 *
 * Owner:   the queue from queueing until it is served or expires; then whoever removed it frees it.
 * Threads: links under the list's lock; `served` as said at page_do_retry; the rest is constant.
 */
typedef struct page_retry_req {
    list_link            list; /* poisoned with 0x100100 / 0x200200 while off the list */
    page_retry_cb_no_ret cbFuncNoRet;
    page_retry_cb        cbFunc;
    uint64_t             cbArg;
    page_retry_fail_cb   failcbFunc;
    uint64_t             failcbArg;
    uint32_t             page_cnt;
    uint32_t             served; /* in the record's padding: a run is serving it, the walk keeps off */
    const char          *func_name; /* owner of the pages to come */
    uint16_t             line;
    uint16_t             module_id;
    uint16_t             output_type;  /* PAGE_REQ_OUTPUT_* */
    uint64_t             enqueue_time; /* ns, zyax_time_getnanosec */
    uint64_t             timeout;      /* s; PAGE_TIMEOUT_NEVER */
} page_retry_req;

CMM_ASSERT_OFFSET(page_retry_req, list, 0);
CMM_ASSERT_OFFSET(page_retry_req, cbFuncNoRet, 16);
CMM_ASSERT_OFFSET(page_retry_req, cbFunc, 24);
CMM_ASSERT_OFFSET(page_retry_req, cbArg, 32);
CMM_ASSERT_OFFSET(page_retry_req, failcbFunc, 40);
CMM_ASSERT_OFFSET(page_retry_req, failcbArg, 48);
CMM_ASSERT_OFFSET(page_retry_req, page_cnt, 56);
CMM_ASSERT_OFFSET(page_retry_req, served, 60);
CMM_ASSERT_OFFSET(page_retry_req, func_name, 64);
CMM_ASSERT_OFFSET(page_retry_req, line, 72);
CMM_ASSERT_OFFSET(page_retry_req, module_id, 74);
CMM_ASSERT_OFFSET(page_retry_req, output_type, 76);
CMM_ASSERT_OFFSET(page_retry_req, enqueue_time, 80);
CMM_ASSERT_OFFSET(page_retry_req, timeout, 88);
CMM_ASSERT_SIZE(page_retry_req, 96);

/* --------------------------------------------------------------- page eviction */

#define PAGE_EVICT_HANDLERS 8u /* eviction handlers at most */

/* Asks the registering component to give pages back; runs in the timer's thread. */
typedef void (*page_evict_handler)(uint64_t arg);

/* One registered eviction handler. */
typedef struct page_evict_entry {
    page_evict_handler handler;
    uint64_t           arg;       /* handed to the handler */
    uint32_t           module_id; /* the registering module */
} page_evict_entry;

CMM_ASSERT_OFFSET(page_evict_entry, handler, 0);
CMM_ASSERT_OFFSET(page_evict_entry, arg, 8);
CMM_ASSERT_OFFSET(page_evict_entry, module_id, 16);
CMM_ASSERT_SIZE(page_evict_entry, 24);

/*
 * The eviction handlers, `g_page_async_evict_handler`.
 *
 * Owner:   the library; entries are used front to back and never taken back.
 * Threads: written under `lock`. Readers load `count` with acquire and need no lock: an entry is
 *          complete before it is counted, and constant from then on.
 * Valid:   count <= PAGE_EVICT_HANDLERS.
 */
typedef struct page_evict_table {
    page_evict_entry entries[PAGE_EVICT_HANDLERS];
    uint32_t         count; /* entries in use */
    uint64_t         spare; /* 0; not read */
    zyax_spinlock    lock;  /* guards entries and count */
    zyax_timer       timer; /* of the threshold check */
} page_evict_table;

CMM_ASSERT_OFFSET(page_evict_table, entries, 0);
CMM_ASSERT_OFFSET(page_evict_table, count, 192);
CMM_ASSERT_OFFSET(page_evict_table, spare, 200);
CMM_ASSERT_OFFSET(page_evict_table, lock, 208);
CMM_ASSERT_OFFSET(page_evict_table, timer, 232);
CMM_ASSERT_SIZE(page_evict_table, 360);

/* --------------------------------------------------------- scatter-gather lists */

#define SGL_MAX_ENTRY_NUM 64u   /* entries of one SGL */
#define SGL_OBJECT_SIZE   1584u /* bytes of a pool object; more than the record needs, and kept so */

/*
 * One piece of memory.
 *
 * An entry that holds a whole pool page has buf = the page's start and len = 8320.
 */
typedef struct SGL_ENTRY {
    uint8_t   *buf;      /* first byte */
    page_ctrl *pageCtrl; /* record of the page that holds the memory */
    uint32_t   len;      /* bytes, integrity bytes included; the 4 bytes behind it hold anything */
} SGL_ENTRY;

CMM_ASSERT_OFFSET(SGL_ENTRY, buf, 0);
CMM_ASSERT_OFFSET(SGL_ENTRY, pageCtrl, 8);
CMM_ASSERT_OFFSET(SGL_ENTRY, len, 16);
CMM_ASSERT_SIZE(SGL_ENTRY, 24);

/*
 * Scatter-gather list of up to 64 entries; longer ones are chains:
 *
 *     head                      second                last
 *     nextSgl ----------------> nextSgl ----> ... --> nextSgl = null
 *     entrySumInChain = 130     (unused)
 *     entryNum = 64             entryNum = 64         entryNum = 2
 *
 * Owner:   one user at a time, who drops the page references before the chain is freed.
 * Threads: no locks; a chain must not change while another thread reads it.
 * Valid:   the head's entrySumInChain is the sum of entryNum over the chain.
 */
typedef struct SGL {
    struct SGL *nextSgl;         /* null in the last SGL */
    uint16_t    entrySumInChain; /* in the head: entries used in the whole chain */
    uint16_t    entryNum;        /* entries used in this SGL, 0 to 64 */
    uint32_t    userFlag;        /* the user's; cleared on allocation */
    uint64_t    userTag;         /* the user's; cleared on allocation */
    SGL_ENTRY   entries[SGL_MAX_ENTRY_NUM]; /* only the first entryNum mean anything */
} SGL;

CMM_ASSERT_OFFSET(SGL, nextSgl, 0);
CMM_ASSERT_OFFSET(SGL, entrySumInChain, 8);
CMM_ASSERT_OFFSET(SGL, entryNum, 10);
CMM_ASSERT_OFFSET(SGL, userFlag, 12);
CMM_ASSERT_OFFSET(SGL, userTag, 16);
CMM_ASSERT_OFFSET(SGL, entries, 24);
CMM_ASSERT_SIZE(SGL, 1560);

/* --------------------------------------------------------------------- requests */

#define CMM_REQ_OBJECT_SIZE 768u /* bytes of a request record */

/*
 * Request record. Its fields belong to the I/O components; the library knows only the offsets that
 * allocReq resets and that the two copies exchange with cmm_genio, see zyumm_cmm_req.h.
 */
typedef struct cmm_req {
    uint64_t opaque[CMM_REQ_OBJECT_SIZE / 8];
} cmm_req;

CMM_ASSERT_SIZE(cmm_req, 768);

#define CMM_REQ_NOT_QUEUED 0xABu /* queue mark at offset 29: the request is in no queue */

/*
 * Generic I/O record of the lower layers. The names give each field's offset; the meaning belongs
 * to the I/O components. zyumm_cmm_req.h has the table of the exchange with a request.
 */
typedef struct cmm_genio {
    uint32_t  word_0;
    uint64_t  word_8;
    uint64_t  word_16;
    uint64_t  word_24;
    uint32_t  word_32;
    uint16_t  half_36;
    uint64_t  word_40;
    uint64_t  word_48;
    uint64_t  word_56;
    uint32_t  word_64;
    uint16_t  half_68;
    uint8_t   byte_70;
    uint64_t  req; /* address of the request, on the way to the lower layers */
    uint64_t  word_80;
    uint64_t  word_88;
} cmm_genio;

CMM_ASSERT_OFFSET(cmm_genio, word_0, 0);
CMM_ASSERT_OFFSET(cmm_genio, word_8, 8);
CMM_ASSERT_OFFSET(cmm_genio, word_16, 16);
CMM_ASSERT_OFFSET(cmm_genio, word_24, 24);
CMM_ASSERT_OFFSET(cmm_genio, word_32, 32);
CMM_ASSERT_OFFSET(cmm_genio, half_36, 36);
CMM_ASSERT_OFFSET(cmm_genio, word_40, 40);
CMM_ASSERT_OFFSET(cmm_genio, word_48, 48);
CMM_ASSERT_OFFSET(cmm_genio, word_56, 56);
CMM_ASSERT_OFFSET(cmm_genio, word_64, 64);
CMM_ASSERT_OFFSET(cmm_genio, half_68, 68);
CMM_ASSERT_OFFSET(cmm_genio, byte_70, 70);
CMM_ASSERT_OFFSET(cmm_genio, req, 72);
CMM_ASSERT_OFFSET(cmm_genio, word_80, 80);
CMM_ASSERT_OFFSET(cmm_genio, word_88, 88);
CMM_ASSERT_SIZE(cmm_genio, 96);

#ifdef __cplusplus
}
#endif

#endif
