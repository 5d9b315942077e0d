/*
 * Handles of public pools, which the unified memory manager makes out of an allocator and an
 * enclosing pool: they share the handle space, so that no handle of one kind is ever valid as
 * another.
 */
#include "zymm_handle.h"
#include "zymm_private.h"

using namespace zymm;

uint64_t zymm_public_handle_make(void *body)
{
    return handle_make(HANDLE_PUBLIC, body);
}

void *zymm_public_handle_expect(uint64_t handle, const char *operation, const char *caller)
{
    return handle_expect(handle, HANDLE_PUBLIC, operation, caller);
}

void *zymm_public_handle_drop(uint64_t handle)
{
    return handle_drop(handle, HANDLE_PUBLIC);
}
