/*
 * Start and stop of the common memory manager, its structure partitions, and its configuration.
 *
 * A process loads the library once, and however many of its components ask for it, it is started
 * once:
 *
 *     component A   cmm_module_init ......................................... cmm_module_exit
 *     component B         cmm_module_init ........... cmm_module_exit
 *     library        started here (count 1, then 2)   (count 1)               torn down here
 *
 * The start reads the node's configuration and makes the standing pools: requests, SGLs, pages, and
 * the queue of those who wait for pages. A start that fails is final for this process.
 *
 * Structure partitions are the clients' own fixed-size object pools, known by a number from 1 to
 * 2047. They can be made between start and stop and have to be deleted before the last stop, which
 * looks for leftovers and fails when it finds one.
 *
 * Conventions of all headers of the library: a status is 0 for success and 0xFFFFFFFF for failure
 * (of SGL operations -1, the same bits); function names that are passed in are kept as pointers and
 * must be constant strings. "Logs:" names the level of a function's own lines; a limited line is
 * written at most three times in a row by its call site. "Threads: any" means that any thread may
 * call the function at any time between start and stop.
 */
#ifndef ZYUMM_CMM_H
#define ZYUMM_CMM_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- start and stop */

/* The start's once-guard: 0 = not started; its mark also stays after a failed start or stop. */
CMM_API extern uint64_t g_cmm_init_magic;

/* What the one run of the start answered; never reset. */
CMM_API extern uint32_t g_cmm_init_status;

/* Successful starts that no stop has matched yet; negative after stops without a start. */
CMM_API extern int32_t g_cmm_init_count;

/* The library's own partition of the unified memory manager, "cmm_moduleInit"; 0 = none. Every
 * memory pool behind a structure partition is made in it. */
CMM_API extern uint32_t g_cmm_umm_partition;

/*
 * Starts the library, or counts one more user of a started one.
 *
 * 0 on success. A failed start is not counted, and its result is the answer of all later calls: the
 * process has to end to try again. The configuration file has to be where it is looked for, but
 * need not be readable: then the defaults hold, which make no pools at all.
 *
 * Owner:   every success is owed one cmm_module_exit.
 * Threads: any; of concurrent first calls one starts, the others wait for its result. Not while the
 *          last user stops the library.
 * Logs:    error, limited, when no configuration path is found; the pools log their own failures.
 */
CMM_API uint32_t cmm_module_init(void);

/*
 * cmm_module_init for callers with a parameter block.
 *
 * param: not read; null is refused with 0xFFFFFFFF and not counted.
 */
CMM_API uint32_t cmm_module_init_ext(const void *param);

/* cmm_module_init under its other name. */
CMM_API uint32_t zyumm_cmm_module_init(void);

/* The start itself, unguarded. For the once-guard only: everybody else calls cmm_module_init. */
CMM_API uint32_t cmm_module_init_inner(void);

/*
 * Gives one use of the library back; the last one tears it down.
 *
 * 0 when other users remain (or none ever was: the count then goes negative), and when everything
 * was torn down; the library can be started again then. 0xFFFFFFFF when the page pool or the
 * library's own partition could not be deleted, or when a structure partition was left over. What
 * was torn down until then stays so and nothing is retried; a later cmm_module_init counts a user
 * and answers 0, but builds nothing.
 *
 * Before the last stop all pages, SGLs and requests must be back, the thread that drives
 * page_do_retry must have ended, and all structure partitions must be deleted.
 *
 * Threads: any, but nobody may use or start the library during the last call.
 * Logs:    info at the beginning, and at the end or with the remaining count; error, limited, for
 *          each kind of failure. Of several leftover partitions the lowest id is named.
 */
CMM_API uint32_t cmm_module_exit(void);

/*
 * Converts an attribute word of the unified memory manager to one of the slab allocator: 0x10 to
 * 0x2, 0x40 to 0x80, 0x80 to 0x800. No other bit passes.
 */
CMM_API uint64_t zyumm_attr_conver_zymm_attr(uint64_t attr);

/* ---- structure partitions: the registry */

/* The registry. Entry 0 is never used; look entries up with get_cmm_partition_byid. */
CMM_API extern cmm_partition g_cmm_part_s[CMM_PART_ENTRIES];

/* Reserved ids; changes by atomic operations only. */
CMM_API extern uint32_t g_cmm_part_sum;

/* Guards the id fields of the registry's entries, for the moment of a reservation or a release. */
CMM_API extern zyax_spinlock g_cmm_part_lock;

/* CMM_CREATOR_*: pools that an outside component makes instead of the start; 0 at load. */
CMM_API extern uint64_t g_cmm_part_creator;

/*
 * Replaces the partition-creator mask; or adds bits to it.
 *
 * mask:    CMM_CREATOR_*. The start skips the pools whose bit is set, and zyumm_page_slab_create,
 *          zyumm_sgl_slab_create and zyumm_req_slab_create work only when theirs is.
 * Threads: one, before the library is started.
 * Logs:    info, with the old mask and the new one (of add: the added bits).
 */
CMM_API void zyumm_partition_creator_set(uint64_t mask);
CMM_API void zyumm_partition_creator_add(uint64_t mask);

/* 1 if any bit of `mask` is set in the partition-creator mask, else 0. Threads: any. */
CMM_API uint32_t zyumm_is_partition_creator(uint64_t mask);

/*
 * The registry entry of a partition id, in use or not; null for an id outside 1 to 2047.
 *
 * Threads: any; the entry stays where it is for the life of the process.
 */
CMM_API cmm_partition *get_cmm_partition_byid(int32_t part_id);

/*
 * Reserves the lowest free id for the caller: 1 to 2047, or 2048 when none is free.
 *
 * Owner:   the caller owns the entry until deleteStructurePartition. Clients have no use for this:
 *          every creator below reserves its own.
 * Threads: any.
 */
CMM_API uint32_t cmm_alloc_part_id(void);

/* ---- structure partitions: creation and deletion */

/*
 * Sets every field of a parameter record to its default, which is 0 but for the magic, the sizes
 * of the per-thread cache (the memory manager's) and the last word.
 *
 * para: null does nothing but log.
 * Logs: error, limited.
 */
CMM_API void initStructureMempoolPara(structure_mempool_para *para);

/*
 * Fill the memory manager's creation record, from a parameter record or from loose values.
 *
 * The two map the attribute flags differently, and clients rely on it:
 *
 *     STRUCTURE_FLAG_             NOFORK  NODUMP  CLEARED  LOCKED  HUGEPAGES  none
 *     ..._by_pool_param           0x80    0x40    0x6      0x100   0x400      0x2, always set
 *     ..._by_param                0x80    0x40    0x4      -       0x400      0
 *
 * record:  overwritten whole; null is refused with -1, as is a null `para`.
 * name:    at most 31 characters are kept; null leaves the pool unnamed.
 * 0, or the non-zero result of the name's bounded copy; the record is usable all the same.
 */
CMM_API int mm_mempool_para_init_by_pool_param(zyumm_mpool_param *record,
                                               const structure_mempool_para *para);
CMM_API int mm_mempool_para_init_by_param(zyumm_mpool_param *record, uint32_t reserved_num,
                                          uint32_t max_num, const char *name, uint32_t module_id,
                                          uint32_t flags, uint32_t obj_size);

/*
 * Creates a structure partition from a parameter record.
 *
 * para:    filled by initStructureMempoolPara, then by the client; null, or another magic, is
 *          refused.
 * part_id: receives the id, 1 to 2047; null is refused; untouched on failure.
 * 0 or 0xFFFFFFFF. When only the id was missing the new memory pool stays behind.
 *
 * Owner:   the caller, until deleteStructurePartition.
 * Threads: any.
 * Logs:    error, limited, for each cause.
 */
CMM_API uint32_t createStructureMempool(const structure_mempool_para *para, uint32_t *part_id);

/*
 * Creates a structure partition from loose values.
 *
 * reserved_num: objects backed by memory at creation.
 * max_num:      objects at most; 0 = no limit but memory.
 * name:         at most 31 characters are kept; null is refused.
 * module_id:    owner.
 * flags:        STRUCTURE_FLAG_*, mapped as mm_mempool_para_init_by_param does.
 * obj_size:     bytes.
 * part_id:      receives the id, 1 to 2047; null is refused; untouched on failure.
 * init_cb:      runs with every object that allocStructure hands out; may be null.
 * free_cb:      runs with every object that freeStructure takes back; may be null.
 * 0 or 0xFFFFFFFF. When only the id was missing the new memory pool stays behind.
 *
 * Owner:   the caller, until deleteStructurePartition.
 * Threads: any.
 * Logs:    error, limited, for a refused argument; warning, limited, when no id is free; nothing
 *          when the memory manager makes no pool.
 */
CMM_API uint32_t createExpStructurePartition(uint32_t reserved_num, uint32_t max_num,
                                             const char *name, uint32_t module_id, uint32_t flags,
                                             uint32_t obj_size, uint32_t *part_id,
                                             cmm_object_init_fn init_cb,
                                             cmm_object_free_fn free_cb);

/* createExpStructurePartition with `obj_num` objects both reserved and at most; `unused` is not
 * read. */
CMM_API uint32_t createStructurePartition(uint32_t obj_num, const char *name, uint32_t module_id,
                                          uint32_t flags, uint32_t obj_size, uint32_t *part_id,
                                          cmm_object_init_fn init_cb, cmm_object_free_fn free_cb,
                                          uint32_t unused);

/*
 * Creates a partition of exactly one object and allocates it: a contiguous, page-aligned block.
 *
 * size:      bytes.
 * name:      at most 31 characters are kept; not checked, null leaves the pool unnamed.
 * module_id: owner of pool and block.
 * reserved:  not read.
 * part_id:   receives the id, 1 to 2047; null is refused; untouched on failure.
 * addr:      receives the block; null is refused; null is stored when there is no memory for it.
 * caller:    the calling function, as the block's owner.
 * 0 or 0xFFFFFFFF. When the block itself could not be had, the id stays reserved for good, and the
 * last module exit reports it. When only the id was missing the new memory pool stays behind.
 *
 * Owner:   the caller, until freeStructure of the block and deleteStructurePartition of the id.
 * Threads: any.
 * Logs:    error, limited, for a refused argument; warning, limited, when no id is free.
 */
CMM_API uint32_t createContinuousPartition(uint64_t size, const char *name, uint32_t module_id,
                                           uint64_t reserved, uint32_t *part_id, void **addr,
                                           const char *caller);

/*
 * Deletes a structure partition and frees its id.
 *
 * part_id: outside 1 to 2047 there is nothing to delete, and that is a success.
 * 0; 0xFFFFFFFF when the memory manager refuses, as it does while objects are out and for an id
 * that is not in use. The partition stays then.
 *
 * Threads: any, but nobody may use the partition any more.
 * Logs:    warning, limited, for an id out of range; error, limited, for a refusal.
 */
CMM_API uint32_t deleteStructurePartition(uint32_t part_id);

/* deleteStructurePartition under its other name. */
CMM_API uint32_t deletePartitionByID(uint32_t part_id);

/* ---- structure partitions: objects */

/*
 * Takes an object from a partition and runs the partition's init call-back with it.
 *
 * module_id: who will own the object.
 * part_id:   only its upper bound, 2047, is checked; an id that is not in use, and 0, give null.
 * out:       receives the object, or null; null is refused.
 * caller:    the calling function, for the memory manager's records.
 *
 * Owner:   the caller, until freeStructure.
 * Threads: any; the call-back runs on the calling thread, and no lock is held.
 * Logs:    error, limited, for a null `out` and for an id above 2047.
 */
CMM_API void allocStructure(uint32_t module_id, uint32_t part_id, void **out, const char *caller);

/*
 * Runs the partition's free call-back with an object and gives it back.
 *
 * object:  from allocStructure of the same id; null is refused.
 * part_id: as for allocStructure; it is checked first.
 * caller:  the calling function.
 * line:    not read.
 * Always 0; the answer means nothing.
 *
 * Threads: any; the call-back runs on the calling thread, and no lock is held.
 * Logs:    error, limited, for an id above 2047 and for a null object.
 */
CMM_API uint32_t freeStructure(void *object, uint32_t part_id, uint32_t module_id,
                               const char *caller, uint32_t line);

/*
 * Takes `size` bytes from a public pool of the memory manager.
 *
 * out: receives the object, or null; a null `out` is refused before anything is allocated.
 * 0, or 0xFFFFFFFF when there is no object.
 *
 * Owner:   the caller, until freeStructureToPubPool.
 * Threads: any.
 */
CMM_API uint32_t allocStructureFromPubPool(uint64_t pool, void **out, uint32_t module_id,
                                           const char *caller, uint32_t size);

/* Gives an object back to its public pool; the memory manager's answer, 0 on success.
 * Threads: any. */
CMM_API int freeStructureToPubPool(uint64_t pool, void *object, uint32_t module_id,
                                   const char *caller);

/* ---- structure partitions: usage */

/*
 * Counts a partition's objects.
 *
 * total:     receives the objects it can have; null is refused.
 * allocated: receives the objects that are out; null is refused.
 * The memory manager's answer, 0 on success; 0xFFFFFFFF for a refused argument.
 *
 * Threads: any; the counts are those of the moment.
 * Logs:    error, limited, for a null pointer, and for an id outside 1 to 2047.
 */
CMM_API uint32_t getPartitionAllocInfo(uint32_t part_id, uint32_t *total, uint32_t *allocated);

/* Objects that a partition can have; 0 for an id outside 1 to 2047. Threads: any. */
CMM_API uint32_t getObjectSum(uint32_t part_id);

/* Objects of a partition that are out; 0xFFFFFFFF (not 0) for an id outside 1 to 2047.
 * Threads: any. */
CMM_API uint32_t getBusyObjectSum(uint32_t part_id);

/* ---- configuration */

/*
 * The configuration comes from one file of the node, node_config.xml:
 *
 *     get_umm_cfg_path       which file, and under which name this process is listed in it
 *     umm_parse_xml          reads the file
 *       umm_get_node_mem_size    the node's memory size, which chooses a section
 *       umm_get_quota_xml        the section for that size
 *       umm_get_process_xml      the process's entry in it, or the one named "default"
 *       umm_parse_param          the entry's parameters, into g_ucmm_config
 *
 * The module's start calls the first two; the others are their steps. What an operator writes into
 * the file is told in docs/configuration.md.
 *
 * For all of it, unless a function says otherwise:
 *
 * Threads: the one that starts the library. What is found is only read afterwards, without locks.
 * Logs:    the levels given; never limited.
 */
struct _mxml_node_s; /* an element of a loaded document, see the platform's zyax_xml.h */

/* Path of node_config.xml; empty until zyumm_set_config_path or the module's start sets it, and
 * kept by later starts. */
CMM_API extern char g_config_path[CMM_PATH_SIZE];

/* Base name of the executable, the process's name in the file; written by every start. */
CMM_API extern char g_proc_name[CMM_PROC_NAME_SIZE];

/* Scratch of the search: the executable's path, and only its directory once the path of the
 * configuration has been derived from it. */
CMM_API extern char g_exe_file_path[CMM_PATH_SIZE];

/* The file that the entry's cfg_path element names, see zyumm_config_path_get; else empty. */
CMM_API extern char g_cfg_path_absolute[CMM_PATH_SIZE];

/* The process's configuration: zero at load, filled by umm_parse_xml, not cleared by a stop. */
CMM_API extern cmm_config g_ucmm_config;

/*
 * Finds the process's name and, unless it is set already, the path of node_config.xml beside the
 * executable.
 *
 * cfg_path:  buffer of 4096 bytes. An empty text is replaced by "<directory>/./node_config.xml";
 *            any other is kept. Null fails.
 * proc_name: buffer of 32 bytes for the executable's base name, which fails when it is longer than
 *            31 characters. Filled also when the path is kept. Null fails.
 *
 * Whether the file exists is not asked.
 *
 * Logs:      info, the path and the name; error when the executable cannot be found or a text is
 *            too long.
 */
CMM_API uint32_t get_umm_cfg_path(char *cfg_path, char *proc_name);

/*
 * Sets the path of node_config.xml from a directory: <path>/config/node_config.xml when that file
 * exists, else <path>/node_config.xml, whether that exists or not.
 *
 * Call it before the module's start; afterwards the document has been read already.
 *
 * path:    an existing directory, resolved to at most 4072 characters. Null, a missing directory
 *          and a longer path fail and leave the old path.
 * func:    name of the caller, for the log only; null is written "(null)".
 * line:    source line of the caller, for the log only.
 *
 * Logs:    info, the path; error on each failure.
 * Fatal:   a path that cannot be formatted, an error line and "BUG".
 */
CMM_API uint32_t zyumm_set_config_path(const char *path, const char *func, uint32_t line);

/*
 * Copies the path of the file that the entry's cfg_path element names; an empty text when it has
 * none.
 *
 * buf:     buffer of 4096 bytes; null fails.
 *
 * Threads: any, once the library is started.
 * Logs:    nothing.
 */
CMM_API uint32_t zyumm_config_path_get(char *buf);

/*
 * Copies the path of node_config.xml and the process's name.
 *
 * path_buf:      buffer of 4096 bytes, of which exactly 4095 are written: the copy is a block, not
 *                a text, and the last byte is left as it was. Null fails.
 * proc_name_buf: buffer of 32 bytes. Null fails.
 *
 * Threads: any, once the library is started.
 * Logs:    info, the path; nothing for a null buffer.
 */
CMM_API uint32_t zyumm_config_info_get(char *path_buf, char *proc_name_buf);

/*
 * Reads the file and fills g_ucmm_config from the process's entry.
 *
 * 0 when an entry was found, even if some of its parameters are bad; 0xFFFFFFFF otherwise, and then
 * the record is as it was, but for the transport flag: when the section has no entry for the
 * process, the transport is set to RDMA.
 *
 * A buffer pool that exists while a document is read is forgotten: the record's word that holds its
 * handle is zeroed.
 *
 * path:      null counts as a file that cannot be opened.
 * proc_name: null gets the entry named "default".
 *
 * Owner:     the loaded tree and the descriptor are given back, but for the tree of a document for
 *            which no memory size was found: that one stays behind.
 * Logs:      error on each failure; its steps' lines.
 */
CMM_API uint32_t umm_parse_xml(const char *path, const char *proc_name);

/*
 * The node's memory in bytes; 0 when no source gives it.
 *
 * The sources, in order: cgroup_mem in section cgroup_info of /opt/marrowbay/cgroup_info.ini; mem
 * in the section named like the process of /opt/marrowbay/storage_resource_info.ini; the platform.
 * A control group file that opens but has no value ends the search with 0.
 *
 * Logs:    info, the source and its value, or that there is none; warning for a file without a
 *          value.
 */
CMM_API uint64_t umm_get_total_mem(void);

/*
 * The memory size in MiB that chooses a section; 0 on failure.
 *
 * The low 32 bits of umm_get_total_mem, in MiB, are compared with the document's list of mem
 * values: of those from the first up to the one before the first larger value the last is taken.
 * Below the list's first value the answer is 1; without a list it is the measured size. The list is
 * meant to ascend and is not sorted.
 *
 * doc:     the loaded tree; null is a document without a list.
 *
 * Logs:    info, the measured size; error without a memcfg element and with more than 16 values.
 */
CMM_API uint32_t umm_get_node_mem_size(struct _mxml_node_s *doc);

/*
 * The umm element of the section for that size: of the first node element behind config whose
 * memory equals it. Null when there is none; a node without a readable memory ends the search.
 *
 * doc:      the loaded tree; null is a document without sections.
 * mem_size: MiB.
 *
 * Logs:     info, the size; error for each way to fail.
 */
CMM_API struct _mxml_node_s *umm_get_quota_xml(struct _mxml_node_s *doc, uint32_t mem_size);

/*
 * The uprocess element of the process, or the one named "default"; null when there is neither.
 *
 * umm_element: from umm_get_quota_xml; null has no entries.
 * doc:         not read: entries are looked for among umm_element's children only.
 * proc_name:   compared exactly; null gets the default entry.
 *
 * Logs:        info, the name.
 */
CMM_API struct _mxml_node_s *umm_get_process_xml(struct _mxml_node_s *umm_element,
                                                 struct _mxml_node_s *doc, const char *proc_name);

/*
 * The first uprocess element of exactly that name; null when there is none. As umm_get_process_xml,
 * without the default entry. The very first child of umm_element is never matched: in an indented
 * file it is white space.
 *
 * Logs:        nothing.
 */
CMM_API struct _mxml_node_s *get_process_xml_by_name(struct _mxml_node_s *umm_element,
                                                     struct _mxml_node_s *doc, const char *name);

/*
 * Reads one unsigned decimal attribute; its low 32 bits are kept.
 *
 * Fails, and leaves the out alone, when the attribute is absent or is no unsigned number of at most
 * 64 bits, and when an argument is null.
 *
 * Logs:    nothing.
 */
CMM_API uint32_t umm_xml_get_element_attr(struct _mxml_node_s *element, const char *name,
                                          uint32_t *out);

/*
 * Reads all parameters of an entry with the seven functions below, in their order. Fails only when
 * the entry has no child at all: a parameter that fails leaves its fields as they were, and the
 * next one is read.
 *
 * process_element: from umm_get_process_xml; null fails.
 * doc:             handed on.
 *
 * Logs:            those of the seven.
 */
CMM_API uint32_t umm_parse_param(struct _mxml_node_s *process_element, struct _mxml_node_s *doc);

/*
 * The readers of one parameter each have these two arguments:
 *
 * first_child: the entry's first child. The parameter's element is looked for among the siblings
 *              behind it, never below one and never beyond the entry. Null finds nothing.
 * doc:         not read.
 */

/*
 * rdma_flag: sets the transport through cvx_usr_rdma_flag_set. Absent means RDMA. An attribute flag
 * that cannot be read or is above 1 fails and leaves the transport as it was.
 *
 * Logs: warning when absent, behind the setter's own line; error on failure.
 */
CMM_API uint32_t umm_parse_rdma_flag_quota(struct _mxml_node_s *first_child,
                                           struct _mxml_node_s *doc);

/*
 * normal_pool, then io_pool, into the records of these names. A normal_pool that fails ends it
 * before io_pool is read.
 *
 * Logs: error on failure; see umm_parse_pool_quota_for_each.
 */
CMM_API uint32_t umm_parse_pool_quota(struct _mxml_node_s *first_child, struct _mxml_node_s *doc);

/*
 * pool_threadcache: cache_size in KiB; 0 when absent or unreadable. Never fails.
 *
 * Logs: info, the size; warning when the element is there and its attribute cannot be read.
 */
CMM_API uint32_t umm_parse_pool_cachesize(struct _mxml_node_s *first_child,
                                          struct _mxml_node_s *doc);

/*
 * pool_cachenum: hands page, 64K_inner, 64K_outer and page_maxcachethreadnum, in this order, to the
 * slab layer; each is 0 when it cannot be read, all are when the element is absent. Keeps nothing.
 * Never fails.
 *
 * Logs: warning when the element is absent.
 */
CMM_API uint32_t umm_parse_pool_cachenum(struct _mxml_node_s *first_child,
                                         struct _mxml_node_s *doc);

/*
 * req_num, sgl_num, page_num: the objects of each pool, corrected for NUMA. Absent gives 0 and 0,
 * an element that fails leaves its pair as it was. Never fails.
 *
 * Logs: info, all counts with their factors; see umm_fix_cmm_quota.
 */
CMM_API uint32_t umm_parse_cmm_xml(struct _mxml_node_s *first_child, struct _mxml_node_s *doc);

/*
 * cfg_path: joins the attribute path to the directory of g_config_path, also when it is absolute
 * already, and keeps the result in g_cfg_path_absolute. Absent changes nothing. Fails without the
 * attribute and when the joined path is longer than 4095 characters, of which it then keeps 4095.
 *
 * Logs: info, both paths; error on failure.
 */
CMM_API uint32_t umm_parse_cfg_path(struct _mxml_node_s *first_child, struct _mxml_node_s *doc);

/*
 * mem_coredump: dump_level; 0 when absent or unreadable. The module's start hands it to the slab
 * layer. Never fails.
 *
 * Logs: info, the level; warning when the element is there and its attribute cannot be read.
 */
CMM_API uint32_t umm_parse_coredump_level(struct _mxml_node_s *first_child,
                                          struct _mxml_node_s *doc);

/*
 * The counts of one pool: min_num and max_num, or num for both when the two are not both readable.
 * Fails when that is missing too; the minimum may have been written by then.
 *
 * element_name: null counts as absent.
 * min, max:     objects; 0 and 0 when the element is absent. Null fails.
 * numa_factor,  the attributes of these names, 0 when unreadable, also when the counts fail; left
 * num_factor:   alone when the element is absent. Null fails.
 *
 * Logs:         nothing.
 */
CMM_API uint32_t umm_parse_cmm_quota(struct _mxml_node_s *first_child, struct _mxml_node_s *doc,
                                     const char *element_name, uint32_t *min, uint32_t *max,
                                     uint32_t *numa_factor, uint32_t *num_factor);

/*
 * Corrects a pair of counts for NUMA: each becomes count x num_factor x nodes / 100 in unsigned
 * 32-bit arithmetic, with the number of nodes that the process may run on, or all nodes when its
 * mask names none.
 *
 * Nothing changes when NUMA is off, numa_factor is 0, the mask is unknown or a pointer is null.
 *
 * min, max:    objects.
 * numa_factor: 0 = no correction; any other value switches it on.
 * num_factor:  percent for each node; 0 takes both counts to 0.
 *
 * Logs:        warning when the mask is unknown.
 */
CMM_API void umm_fix_cmm_quota(uint32_t *min, uint32_t *max, uint32_t numa_factor,
                               uint32_t num_factor);

/*
 * The quota of one buffer pool. reserve_size, max_size and extand_size (KiB) are required: without
 * one of them it fails and leaves the record alone. max_limit and dontfork_flag default to 0,
 * leak_rate to 30. An absent element gives a record of zeros, leak rate included.
 *
 * The record's fourth size and its last word are always written 0: a handle kept there is lost.
 *
 * pool_name: the element's name; null counts as absent.
 * quota:     null fails.
 *
 * Logs:      info, the values as they were read, but dontfork_flag as it was adjusted.
 */
CMM_API uint32_t umm_parse_pool_quota_for_each(struct _mxml_node_s *first_child,
                                               struct _mxml_node_s *doc, const char *pool_name,
                                               cmm_pool_quota *quota);

/*
 * Cuts max_limit and dontfork_flag to 1 and leak_rate to 100.
 *
 * quota:   null is left alone.
 *
 * Threads: any, on a record of the caller's own.
 * Logs:    info for each value that is cut, with the value before.
 */
CMM_API void umm_adjust_pool_config_info(cmm_pool_quota *quota);

/*
 * Reads the attribute creator of an element, a partition-creator mask. Absent gives 0; an element
 * without a readable attribute fails and leaves the mask alone. No parameter uses it.
 *
 * element_name: null counts as absent.
 * creator:      null fails.
 *
 * Logs:         nothing.
 */
CMM_API uint32_t umm_parse_cmm_page_creator(struct _mxml_node_s *first_child,
                                            struct _mxml_node_s *doc, const char *element_name,
                                            uint32_t *creator);

#ifdef __cplusplus
}
#endif

#endif
