/*
 * Handles: one space for slabs, memory pools (which are slabs), enclosing pools and public pools.
 *
 *      63                    24 23    16 15         0
 *     |      generation        |  kind  |   slot     |
 *
 * A slot that is used again gets a new generation, so a handle that outlived its object is never
 * taken for another one. No handle is 0.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

enum handle_kind : uint32_t { HANDLE_SLAB = 1, HANDLE_POOL = 2, HANDLE_PUBLIC = 3 };

/* A handle for `body`; 0 when all 65,536 slots are taken. */
uint64_t handle_make(handle_kind kind, void *body);

/* The body; null when the handle is 0, stale, or of another kind. Takes no lock. */
void *handle_body(uint64_t handle, handle_kind kind);

/* Makes the handle stale and answers its body; of several callers exactly one gets it. */
void *handle_drop(uint64_t handle, handle_kind kind);

/* The body, and an error line in the name of `operation` when a handle other than 0 has none. */
void *handle_expect(uint64_t handle, handle_kind kind, const char *operation, const char *caller);

uint64_t handles_alive();

/* Copies handles of one kind as far as there is room, in the order of their making; the number of
 * all. Takes no lock: what is made or dropped meanwhile may or may not be seen. */
uint64_t handles_list(handle_kind kind, uint64_t *handles, uint64_t room);

} // namespace zymm
