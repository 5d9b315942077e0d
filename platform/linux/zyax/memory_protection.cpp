/*
 * Protection of memory pages against writing.
 */
#include "zyax_local.h"

#include <errno.h>
#include <sys/mman.h>

static constexpr size_t PROTECTED_PAGE = 4096;

/* 0, or a negative errno. `func` is the operation that was called. */
static int protect(void *addr, uint32_t count, int protection, const char *func)
{
    if (addr == nullptr) {
        zylog(ZYAX_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, func, 0,
              "Protection of a null address.");
        return -EINVAL;
    }

    return mprotect(addr, count * PROTECTED_PAGE, protection) == 0 ? 0 : -errno;
}

int zyax_setmemory_ro(void *addr, uint32_t count)
{
    return protect(addr, count, PROT_READ, __func__);
}

int zyax_setmemory_rw(void *addr, uint32_t count)
{
    return protect(addr, count, PROT_READ | PROT_WRITE, __func__);
}
