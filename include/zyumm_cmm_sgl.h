#ifndef ZYUMM_CMM_SGL_H
#define ZYUMM_CMM_SGL_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- pool */
CMM_API extern uint64_t g_sgl_partition_id;

CMM_API int32_t cmm_create_sgl_mempool(void);
CMM_API int32_t zyumm_sgl_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                      const char *func);
CMM_API int     zyumm_sgl_get_usage_info(uint64_t *total, uint64_t *used);
CMM_API int     zyumm_sgl_get_usage_by_numa(uint32_t numa_id, zymm_numa_usage *usage);
CMM_API int     zyumm_sgl_info_get(zyumm_partition_info *info);
CMM_API void    cmm_destory_sgl_mempool(void);

/* ---- chains */
CMM_API void allocOneSgl(SGL **out, uint32_t owner_id, const char *func, uint32_t line);
CMM_API void allocSglChain(SGL **out, uint32_t entry_cnt, uint32_t owner_id, const char *func,
                           uint32_t line);
CMM_API void freeSglChain(SGL *chain, uint32_t owner_id, const char *func, uint32_t line);
CMM_API void move2NextEntryAndIncEntrySum(SGL **cur_sgl, uint32_t *index, SGL *head);
CMM_API void move2NextEntryAndModifyPSgl(SGL **cur_sgl, uint32_t *index);
CMM_API void cpmm_print_sgl_detail(SGL *sgl);

/* ---- lookup */
CMM_API int32_t  getCurrentSglByOffset(SGL *sgl, uint32_t offset, SGL **cur_sgl, uint32_t *index,
                                       uint32_t *entry_offset);
CMM_API int32_t  getCurrentSglByOffsetIgnoreDif(SGL *sgl, uint32_t offset, SGL **cur_sgl,
                                                uint32_t *index, uint32_t *entry_offset);
CMM_API void     getLastSgl(SGL *head, SGL **last_sgl, uint32_t *index);
CMM_API void     sglAndEntryOffsetPages(SGL **sgl, uint32_t *index, int32_t count);
CMM_API uint32_t getValidSglPageNum(SGL *sgl, uint32_t offset, uint32_t length);

/* ---- copies */
CMM_API int32_t copyDataFromBufferToSgl(SGL *dstSgl, uint32_t offset, const void *buffer,
                                        uint32_t length);
CMM_API int32_t copyDataFromSglToBuffer(SGL *srcSgl, uint32_t offset, void *buffer,
                                        uint32_t length);
CMM_API int32_t copyDataFromBufferToSglIgnoreDif(SGL *dstSgl, uint32_t offset, const void *buffer,
                                                 uint32_t length);
CMM_API int32_t copyDataFromSglToBufferIgnoreDif(SGL *srcSgl, uint32_t offset, void *buffer,
                                                 uint32_t length);
CMM_API int32_t copyDataFromBufferToEntryIgnoreDif(SGL_ENTRY *entry, uint32_t offset,
                                                   const void *buffer, uint32_t length);
CMM_API int32_t copyDataFromEntryToBufferIgnoreDif(SGL_ENTRY *entry, uint32_t offset, void *buffer,
                                                   uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
