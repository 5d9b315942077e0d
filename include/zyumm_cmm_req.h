#ifndef ZYUMM_CMM_REQ_H
#define ZYUMM_CMM_REQ_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

CMM_API extern uint64_t g_req_partition_id;

CMM_API uint32_t cmm_create_req_mempool(void);
CMM_API void     cmm_destory_req_mempool(void);
CMM_API uint32_t zyumm_req_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                       const char *func);
CMM_API void     allocReq(cmm_req **out, uint32_t module_id, const char *func, uint32_t line);
CMM_API void     freeReq(cmm_req *req, uint32_t module_id, const char *func, uint32_t line);
CMM_API void     copyReq2Genio(cmm_genio *genio, const cmm_req *req);
CMM_API void     copyGenio2Req(cmm_req *req, const cmm_genio *genio);
CMM_API void     printReqInfo(const cmm_req *req);
CMM_API int      zyumm_req_info_get(zyumm_partition_info *info);

#ifdef __cplusplus
}
#endif

#endif
