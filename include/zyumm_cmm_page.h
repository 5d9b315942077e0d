#ifndef ZYUMM_CMM_PAGE_H
#define ZYUMM_CMM_PAGE_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- page pool */
CMM_API extern uint64_t s_page_partition_id;

CMM_API uint32_t create_page_mempool(void);
CMM_API uint32_t zyumm_page_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                        const char *func);
CMM_API uint32_t zyumm_page_slab_create_ex(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                           const char *func);
CMM_API uint32_t delete_page_mempool(void);
CMM_API int      zyumm_page_get_usage_info(uint64_t *total, uint64_t *used);
CMM_API int      zyumm_page_get_usage_by_numa(uint32_t numa_id, zymm_numa_usage *usage);
CMM_API int      zyumm_page_info_get(zyumm_partition_info *info);
CMM_API void     set_page_ctrl_free(page_ctrl *ctrl);
CMM_API int      free_one_page(page_ctrl *ctrl, uint32_t module_id, const char *func,
                               uint32_t line);

/* ---- zero pages */
CMM_API extern uint32_t   s_zero_page_partition_id;
CMM_API extern void      *s_zero_page_address;
CMM_API extern page_ctrl *g_global_zero_page_without_dif;
CMM_API extern page_ctrl *g_global_zero_page_dif;

CMM_API uint32_t   umm_create_global_zero_pages(void);
CMM_API page_ctrl *getZeroPageCtrlWithoutDif(void);
CMM_API page_ctrl *getZeroPageCtrl(void);
CMM_API void       umm_set_global_zero_page_ctrl_without_dif(page_ctrl *ctrl);
CMM_API void       umm_set_global_zero_page_ctrl_dif(page_ctrl *ctrl);

/* ---- synchronous allocation and freeing */
CMM_API page_ctrl *allocOnePageSync(uint32_t module_id, const char *func, uint32_t line);
CMM_API void       allocMultiPagesSync(uint32_t page_cnt, SGL **out, uint32_t module_id,
                                       const char *func, uint32_t line);
CMM_API void       freeOnePage(page_ctrl *ctrl, uint32_t module_id, const char *func,
                               uint32_t line);
CMM_API void       freeMultiPages(SGL *chain, uint32_t module_id, const char *func, uint32_t line);
CMM_API uint32_t   try_free_one_page(page_ctrl *ctrl, uint32_t module_id, const char *func,
                                     uint32_t line);
CMM_API uint32_t   free_multi_page(SGL *chain, uint32_t module_id, const char *func, uint32_t line);
CMM_API uint32_t   alloc_multi_page(uint32_t page_cnt, uint32_t module_id, SGL *chain,
                                    const char *func, uint32_t line);
CMM_API void       add_one_page_to_sgl(SGL *head, SGL **cur_sgl, uint32_t *cur_index,
                                       page_ctrl *ctrl);

/* ---- time-out allocation and the retry queue */
CMM_API extern uint64_t        s_page_request_id;
CMM_API extern sLockList       s_retry_req_list;
CMM_API extern uint32_t        s_enter_retry_cnt;
CMM_API extern uint32_t        s_enter_retry_repeat_cnt;
CMM_API extern uint32_t        s_retry_times;
CMM_API extern uint32_t        s_retry_exit_count;
CMM_API extern list_link      *s_hung_page_list_travel_node;

CMM_API void allocOnePageForPagePoolTimeOut(const void *reserved, uint32_t timeout,
                                            page_retry_cb cbFunc, uint64_t cbArg,
                                            page_retry_fail_cb failcbFunc, uint64_t failcbArg,
                                            uint32_t module_id, const char *func, uint32_t line);
CMM_API void allocMultiPagesForPagePoolTimeOut(uint32_t page_cnt, const void *reserved,
                                               uint32_t timeout, page_retry_cb cbFunc,
                                               uint64_t cbArg, page_retry_fail_cb failcbFunc,
                                               uint64_t failcbArg, uint32_t module_id,
                                               const char *func, uint32_t line);
CMM_API void     page_do_retry(void);
CMM_API uint32_t page_start_retry(void);
CMM_API void     umm_hung_page_timeout_detect(void);
CMM_API uint32_t page_init_retry(void);
CMM_API void     page_exit_retry(void);
CMM_API uint32_t page_init_retry_timeout_timer(void);
CMM_API uint32_t page_init_hung_page_timeout_timer(void);
CMM_API uint32_t umm_delete_retry_timer(void);
CMM_API uint32_t umm_delete_hung_page_timer(void);

#ifdef __cplusplus
}
#endif

#endif
