/*
 * What the tests of the real slab layer share: log lines of an action, facts of an address from the
 * kernel, threads that start together.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "contract/core/slab_helpers.h"
#include "zyax_log.h"
#include "zymm_host.h"

/* Bytes behind each object in builds that look for writes past its end. */
#if defined(__SANITIZE_ADDRESS__) || defined(ZYMM_CHECKING)
constexpr uint64_t RED_ZONE = 16;
#else
constexpr uint64_t RED_ZONE = 0;
#endif

/* Bytes from one object of 64 bytes to the next: its tag lies behind it unless every gap is watched. */
#if defined(__SANITIZE_ADDRESS__)
constexpr uint64_t STRIDE_OF_64 = 64 + RED_ZONE;
#else
constexpr uint64_t STRIDE_OF_64 = 64 + RED_ZONE + 8;
#endif

/* In the checking build a freed object is filled and waits before it goes out again. */
#if defined(ZYMM_CHECKING)
constexpr bool FREED_OBJECTS_WAIT = true;
#else
constexpr bool FREED_OBJECTS_WAIT = false;
#endif

/* Under these sanitizers mlock does nothing and the address space must not be limited. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

/* Everything that the platform logs to standard error while `action` runs. */
inline std::string log_of(const std::function<void()> &action)
{
    testing::internal::CaptureStderr();
    action();
    zyax_log_flush();
    return testing::internal::GetCapturedStderr();
}

inline size_t count_of(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        count++;
    return count;
}

inline bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

/* The VmFlags of the mapping that holds the address: "rd wr mr ..."; empty when there is none. */
inline std::string vm_flags(const void *address)
{
    std::ifstream smaps("/proc/self/smaps");
    std::string   line;
    bool          is_in = false;
    while (std::getline(smaps, line)) {
        uint64_t from = 0;
        uint64_t to   = 0;
        char     dash = 0;
        std::istringstream head(line);
        if (head >> std::hex >> from >> dash >> to && dash == '-')
            is_in = reinterpret_cast<uint64_t>(address) >= from &&
                    reinterpret_cast<uint64_t>(address) < to;
        else if (is_in && line.rfind("VmFlags:", 0) == 0)
            return line.substr(8);
    }
    return "";
}

inline bool is_mapped(const void *address)
{
    return !vm_flags(address).empty();
}

/* Pages of 4 KiB in the range that are backed by memory. */
inline uint64_t resident_pages(const void *address, uint64_t bytes)
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(address) / 4096 * 4096;
    const uint64_t  pages = (reinterpret_cast<uintptr_t>(address) + bytes - begin + 4095) / 4096;
    std::vector<unsigned char> in_core(pages);
    if (mincore(reinterpret_cast<void *>(begin), pages * 4096, in_core.data()) != 0)
        return 0;
    uint64_t count = 0;
    for (unsigned char page : in_core)
        count += page & 1;
    return count;
}

inline uint64_t mapped_bytes()
{
    zymm_stats stats = {};
    zymm_stats_get(&stats);
    return stats.mapped;
}

/* Runs `body(number)` in `count` threads that are let go together, and waits for them. */
inline void in_threads(unsigned count, const std::function<void(unsigned)> &body)
{
    std::atomic<unsigned>    ready{0};
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < count; number++)
        threads.emplace_back([&, number] {
            ready++;
            while (ready.load() < count)
                std::this_thread::yield();
            body(number);
        });
    for (std::thread &thread : threads)
        thread.join();
}

/* Everything that the slab gives until it answers null. */
inline std::vector<void *> take_all(uint64_t slab)
{
    std::vector<void *> taken;
    for (void *object = take(slab); object != nullptr; object = take(slab))
        taken.push_back(object);
    return taken;
}
