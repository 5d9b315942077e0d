/*
 * Operations of the seam as the fake sees them: their names, which of them are too frequent to be
 * kept in full, and what each answers when it fails. Whatever is not named as failing otherwise
 * fails with 0 or null.
 */
#include "fake_local.h"

const char *fake_op_name(fake_op op)
{
    static const char *const names[] = {
#define FAKE_OP_NAME(name) #name,
        FAKE_OPERATIONS(FAKE_OP_NAME)
#undef FAKE_OP_NAME
    };
    return op < OP_COUNT ? names[op] : "no operation";
}

bool fake::is_quiet(fake_op op)
{
    switch (op) {
    case OP_zylog_level_check:
    case OP_zylog:
    case OP_do_zyax_spinlock_lock:
    case OP_do_zyax_spinlock_trylock:
    case OP_do_zyax_spinlock_unlock:
    case OP_zyax_get_jiffies:
    case OP_zyax_time_getnanosec:
    case OP_memcpy_s:
    case OP_memset_s:
    case OP_strncpy_s:
    case OP_snprintf_s:
        return true;
    default:
        return false;
    }
}

uint64_t fake::own_failure(fake_op op)
{
    switch (op) {
    case OP_zylog_level_check: /* disabled */
        return 1;
    case OP_zyax_timer_init:
    case OP_zyax_timer_set_raw:
    case OP_zyax_timer_add:
    case OP_zyax_timer_modify:
    case OP_zyax_timer_delete:
    case OP_memcpy_s:
    case OP_memset_s:
    case OP_strncpy_s:
        return 22;
    case OP_zymm_init_once:
    case OP_zymm_object_get_numaid:
        return 0xFFFFFFFF;
    case OP_zyax_Init:
    case OP_zyax_access:
    case OP_zyax_get_total_mem:
    case OP_zyax_setmemory_ro:
    case OP_zyax_setmemory_rw:
    case OP_zyax_str_isuint:
    case OP_zyax_numam_proc_numamask_get:
    case OP_zyax_cfg_init:
    case OP_zyax_cfg_getItemValue:
    case OP_snprintf_s:
    case OP_zymm_slab_param_init:
    case OP_zymm_destory_slab:
    case OP_zymm_slab_free:
    case OP_zymm_slab_get_usage_info:
    case OP_zymm_slab_get_usage_by_numa:
    case OP_zymm_slab_dump_usageinfo:
    case OP_zymm_slab_dump_detailinfo:
    case OP_zymm_pool_destory:
    case OP_zymm_allocator_init:
    case OP_zymm_allocator_create:
    case OP_zymm_allocator_destroy:
    case OP_zymm_allocator_free:
    case OP_zyumm_partition_delete:
    case OP_zyumm_mpool_delete:
    case OP_zyumm_mpool_free_i:
    case OP_get_mpool_alloc_info:
    case OP_pub_mpool_free_i:
    case OP_zyumm_partition_info_get:
    case OP_posix_readlink:
    case OP_posix_getpid:
        return static_cast<uint64_t>(-1);
    default:
        return 0;
    }
}
