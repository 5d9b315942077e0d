/*
 * Transport of the process: whether its buffers travel over RDMA or TCP.
 */
#ifndef ZYUMM_CMM_BUFFER_H
#define ZYUMM_CMM_BUFFER_H

#include "zyumm_cmm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Stores the transport flag in g_ucmm_config.rdma_flag; it is the flag's only writer.
 *
 * flag:    1 = RDMA; any other value is stored as it is and means TCP.
 * Threads: the one that starts the library, or one that knows that nobody reads the flag.
 * Logs:    info, not limited, "CMM usr rdma flag set to RDMA." or "... to TCP.".
 */
CMM_API void cvx_usr_rdma_flag_set(uint32_t flag);

#ifdef __cplusplus
}
#endif

#endif
