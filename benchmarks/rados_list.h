/*
 * librados' buffer list as a peer of clones, behind three calls: its header is not valid C++20 for
 * every compiler, so that what includes it is compiled as C++17.
 *
 * Threads: make and drop from one thread; clones from several at once, they only read the list.
 */
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench
{

/* A list of `buffers` buffers, each of `bytes` bytes and `stride` bytes from the one before. */
void rados_list_make(uint32_t buffers, uint32_t bytes, size_t stride);
void rados_list_drop(void);

/* A second list over the same memory, and its end. */
void rados_list_clone(void);

} // namespace bench
