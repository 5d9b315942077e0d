/*
 * Forks beside other threads, where a sanitizer stands in the way.
 *
 * The C library makes its allocator whole again in a forked child. AddressSanitizer's own allocator
 * stays as it was: a lock of it that another thread held at the fork stays locked for ever, and the
 * child's next allocation hangs.
 */
#pragma once

#include <gtest/gtest.h>

#ifdef __SANITIZE_ADDRESS__
#define SKIP_IF_CHILD_CANNOT_ALLOCATE() \
    GTEST_SKIP() << "the child may find the sanitizer's allocator locked by a thread it has not"
#else
#define SKIP_IF_CHILD_CANNOT_ALLOCATE() static_cast<void>(0)
#endif
