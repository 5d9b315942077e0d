#ifndef ZYUMM_CMM_H
#define ZYUMM_CMM_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- start and stop */
CMM_API extern uint64_t g_cmm_init_magic;
CMM_API extern uint32_t g_cmm_init_status;
CMM_API extern int32_t  g_cmm_init_count;
CMM_API extern uint32_t g_cmm_umm_partition;

CMM_API uint32_t cmm_module_init(void);
CMM_API uint32_t cmm_module_init_ext(const void *param);
CMM_API uint32_t zyumm_cmm_module_init(void);
CMM_API uint32_t cmm_module_init_inner(void);
CMM_API uint32_t cmm_module_exit(void);
CMM_API uint64_t zyumm_attr_conver_zymm_attr(uint64_t attr);

/* ---- structure partitions */
CMM_API extern cmm_partition g_cmm_part_s[CMM_PART_ENTRIES];
CMM_API extern uint32_t      g_cmm_part_sum;
CMM_API extern zyax_spinlock g_cmm_part_lock;
CMM_API extern uint64_t      g_cmm_part_creator;

CMM_API void     zyumm_partition_creator_set(uint64_t mask);
CMM_API void     zyumm_partition_creator_add(uint64_t mask);
CMM_API uint32_t zyumm_is_partition_creator(uint64_t mask);
CMM_API cmm_partition *get_cmm_partition_byid(int32_t part_id);
CMM_API uint32_t cmm_alloc_part_id(void);
CMM_API void     initStructureMempoolPara(structure_mempool_para *para);
CMM_API int      mm_mempool_para_init_by_pool_param(zyumm_mpool_param *record,
                                                    const structure_mempool_para *para);
CMM_API int      mm_mempool_para_init_by_param(zyumm_mpool_param *record, uint32_t reserved_num,
                                               uint32_t max_num, const char *name,
                                               uint32_t module_id, uint32_t flags,
                                               uint32_t obj_size);
CMM_API uint32_t createStructureMempool(const structure_mempool_para *para, uint32_t *part_id);
CMM_API uint32_t createExpStructurePartition(uint32_t reserved_num, uint32_t max_num,
                                             const char *name, uint32_t module_id, uint32_t flags,
                                             uint32_t obj_size, uint32_t *part_id,
                                             cmm_object_init_fn init_cb,
                                             cmm_object_free_fn free_cb);
CMM_API uint32_t createStructurePartition(uint32_t obj_num, const char *name, uint32_t module_id,
                                          uint32_t flags, uint32_t obj_size, uint32_t *part_id,
                                          cmm_object_init_fn init_cb, cmm_object_free_fn free_cb,
                                          uint32_t unused);
CMM_API void     allocStructure(uint32_t module_id, uint32_t part_id, void **out,
                                const char *caller);
CMM_API uint32_t freeStructure(void *object, uint32_t part_id, uint32_t module_id,
                               const char *caller, uint32_t line);
CMM_API uint32_t deleteStructurePartition(uint32_t part_id);
CMM_API uint32_t deletePartitionByID(uint32_t part_id);
CMM_API uint32_t getPartitionAllocInfo(uint32_t part_id, uint32_t *total, uint32_t *allocated);
CMM_API uint32_t getObjectSum(uint32_t part_id);
CMM_API uint32_t getBusyObjectSum(uint32_t part_id);
CMM_API uint32_t allocStructureFromPubPool(uint64_t pool, void **out, uint32_t module_id,
                                           const char *caller, uint32_t size);
CMM_API int      freeStructureToPubPool(uint64_t pool, void *object, uint32_t module_id,
                                        const char *caller);
CMM_API uint32_t createContinuousPartition(uint64_t size, const char *name, uint32_t module_id,
                                           uint64_t reserved, uint32_t *part_id, void **addr,
                                           const char *caller);

/* ---- configuration */
struct _mxml_node_s; /* an element of a loaded document, see the platform's zyax_xml.h */

CMM_API extern char       g_config_path[CMM_PATH_SIZE];
CMM_API extern char       g_proc_name[CMM_PROC_NAME_SIZE];
CMM_API extern char       g_exe_file_path[CMM_PATH_SIZE];
CMM_API extern char       g_cfg_path_absolute[CMM_PATH_SIZE];
CMM_API extern cmm_config g_ucmm_config;

CMM_API uint32_t get_umm_cfg_path(char *cfg_path, char *proc_name);
CMM_API uint32_t zyumm_set_config_path(const char *path, const char *func, uint32_t line);
CMM_API uint32_t zyumm_config_path_get(char *buf);
CMM_API uint32_t zyumm_config_info_get(char *path_buf, char *proc_name_buf);

CMM_API uint32_t umm_parse_xml(const char *path, const char *proc_name);
CMM_API uint64_t umm_get_total_mem(void);
CMM_API uint32_t umm_get_node_mem_size(struct _mxml_node_s *doc);
CMM_API struct _mxml_node_s *umm_get_quota_xml(struct _mxml_node_s *doc, uint32_t mem_size);
CMM_API struct _mxml_node_s *umm_get_process_xml(struct _mxml_node_s *umm_element,
                                                 struct _mxml_node_s *doc, const char *proc_name);
CMM_API struct _mxml_node_s *get_process_xml_by_name(struct _mxml_node_s *umm_element,
                                                     struct _mxml_node_s *doc, const char *name);
CMM_API uint32_t umm_xml_get_element_attr(struct _mxml_node_s *element, const char *name,
                                          uint32_t *out);

CMM_API uint32_t umm_parse_param(struct _mxml_node_s *process_element, struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_rdma_flag_quota(struct _mxml_node_s *first_child,
                                           struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_pool_quota(struct _mxml_node_s *first_child, struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_pool_cachesize(struct _mxml_node_s *first_child,
                                          struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_pool_cachenum(struct _mxml_node_s *first_child,
                                         struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_cmm_xml(struct _mxml_node_s *first_child, struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_cfg_path(struct _mxml_node_s *first_child, struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_coredump_level(struct _mxml_node_s *first_child,
                                          struct _mxml_node_s *doc);
CMM_API uint32_t umm_parse_cmm_quota(struct _mxml_node_s *first_child, struct _mxml_node_s *doc,
                                     const char *element_name, uint32_t *min, uint32_t *max,
                                     uint32_t *numa_factor, uint32_t *num_factor);
CMM_API void     umm_fix_cmm_quota(uint32_t *min, uint32_t *max, uint32_t numa_factor,
                                   uint32_t num_factor);
CMM_API uint32_t umm_parse_pool_quota_for_each(struct _mxml_node_s *first_child,
                                               struct _mxml_node_s *doc, const char *pool_name,
                                               cmm_pool_quota *quota);
CMM_API void     umm_adjust_pool_config_info(cmm_pool_quota *quota);
CMM_API uint32_t umm_parse_cmm_page_creator(struct _mxml_node_s *first_child,
                                            struct _mxml_node_s *doc, const char *element_name,
                                            uint32_t *creator);

#ifdef __cplusplus
}
#endif

#endif
