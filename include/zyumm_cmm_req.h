/*
 * Requests: the process-wide pool of request records, and the exchange with the generic I/O record
 * ("genio") that lower layers use.
 *
 * A request record is 768 bytes that belong to the I/O components. The library touches only what
 * follows (offsets in bytes) and never anything else.
 *
 * allocReq resets the header; the rest of a record holds what its last user left there:
 *
 *     offset   26      28    29    30  40        48          56 to 99  100  104  112
 *     bytes    2       1     1     1   8         8           44        2    8    8
 *     value    0xFFFF  0xFF  0xAB  0   all ones  0xFFFFFFFF  0         5    0    0
 *
 * The byte at 29 is the queue mark: 0xAB (CMM_REQ_NOT_QUEUED) while the request is in no queue, and
 * anything else while it is. Whoever queues a request changes it, and sets it back on removal.
 *
 * The exchange with a genio:
 *
 *     genio    0  8  16  24  32  36   40  48  56  64  68   70   88
 *     request  32 40 48  56  64  102  72  80  88  96  100  714  688     both ways
 *
 *     genio    72 := address of the request     80 := 0                 to a genio
 *     request  112 := genio's 72                672 := genio's 80       from a genio
 *
 * The pool is made by the library's start, unless the configuration's maximum is 0 or an outside
 * component has claimed it (CMM_CREATOR_REQ) and makes it with zyumm_req_slab_create.
 */
#ifndef ZYUMM_CMM_REQ_H
#define ZYUMM_CMM_REQ_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Slab of the request records, "REQ PARTITION"; 0 = no pool. Changes at start and stop only. */
CMM_API extern uint64_t g_req_partition_id;

/*
 * Creates the pool with the configuration's counts; part of the library's start.
 *
 * 0 also when there is nothing to create; 0xFFFFFFFF on failure.
 *
 * Threads: the one that starts the library.
 * Logs:    error, limited when the slab cannot be created, not limited when its name cannot be set.
 */
CMM_API uint32_t cmm_create_req_mempool(void);

/*
 * Destroys the pool; harmless without one. Requests still out go with it, and the slab allocator
 * reports them.
 *
 * Threads: the one that stops the library.
 */
CMM_API void cmm_destory_req_mempool(void);

/*
 * Creates the pool for an outside component, with the configuration's counts.
 *
 * pool_id:   the memory pool that the slab is to live in; 0 is refused.
 * attr:      attribute word of the unified memory manager, see zyumm_attr_conver_zymm_attr.
 * module_id: owner of the slab.
 * func:      the calling function; null is refused.
 * 0; 0xFFFFFFFF also when the pool exists already and when CMM_CREATOR_REQ is not set, which are
 * refused with the same line.
 *
 * Threads: one, after the library's start.
 * Logs:    error, not limited, for each cause.
 */
CMM_API uint32_t zyumm_req_slab_create(uint64_t pool_id, uint64_t attr, uint32_t module_id,
                                       const char *func);

/*
 * Takes a request record from the pool and resets its header.
 *
 * out:       receives the request, or null when the pool is dry or does not exist; null is refused.
 * module_id: who will own the request.
 * func:      the calling function, kept by the slab allocator: a constant string.
 * line:      the caller's line, likewise.
 *
 * Owner:   the caller, until freeReq.
 * Threads: any.
 * Logs:    error, limited, for a null `out`.
 */
CMM_API void allocReq(cmm_req **out, uint32_t module_id, const char *func, uint32_t line);

/*
 * Gives a request record back.
 *
 * req: from allocReq, in no queue; null is refused. A record that is freed twice is refused by the
 *      slab allocator, not here.
 *
 * Owner:   the pool, from here on.
 * Threads: any.
 * Logs:    error, limited, for a null `req`; its "pid" is the module id.
 * Fatal:   a request whose queue mark is not 0xAB ends the process.
 */
CMM_API void freeReq(cmm_req *req, uint32_t module_id, const char *func, uint32_t line);

/*
 * Copy the I/O description of a request to a genio, and back; field by field as in the table above.
 *
 * genio, req: a null one is refused, and nothing copied.
 *
 * Threads: any; both records belong to the caller for the time of the call.
 * Logs:    error, not limited, for a null pointer.
 */
CMM_API void copyReq2Genio(cmm_genio *genio, const cmm_req *req);
CMM_API void copyGenio2Req(cmm_req *req, const cmm_genio *genio);

/* Does nothing; kept for the components that call it. */
CMM_API void printReqInfo(const cmm_req *req);

/*
 * Facts of the pool, as the unified memory manager gives them.
 *
 * info: filled in on success.
 * The memory manager's answer: 0 on success.
 *
 * Threads: any.
 */
CMM_API int zyumm_req_info_get(zyumm_partition_info *info);

#ifdef __cplusplus
}
#endif

#endif
