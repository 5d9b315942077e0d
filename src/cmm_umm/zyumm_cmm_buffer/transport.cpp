/*
 * The transport of the process: RDMA or TCP.
 *
 * The flag lives in the configuration record and has one writer, the setter below: the reader of
 * the document goes through it too, so its line is always in the log before any line that says why
 * the flag was set. Any value is stored; only 1 means RDMA.
 */
#include "zyumm_cmm_buffer.h"

#include "zyumm_cmm.h"

#include "common/cmm_log.h"

static constexpr uint32_t RDMA = 1;

void cvx_usr_rdma_flag_set(uint32_t flag)
{
    g_ucmm_config.rdma_flag = flag;
    if (flag == RDMA)
        CMM_LOG(ZYLOG_INFO, "CMM usr rdma flag set to RDMA.");
    else
        CMM_LOG(ZYLOG_INFO, "CMM usr rdma flag set to TCP.");
}
