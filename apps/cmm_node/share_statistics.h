/*
 * How often pages were shared instead of taken; written by many threads.
 */
#pragma once

#include <atomic>
#include <cstdint>

struct share_statistics {
    std::atomic<uint64_t> clones{0};       /* chains with references of their own */
    std::atomic<uint64_t> borrowed{0};     /* chains without */
    std::atomic<uint64_t> pages{0};        /* entries of all protected requests */
    std::atomic<uint64_t> zero_entries{0}; /* ... that are the shared zero page */
};
