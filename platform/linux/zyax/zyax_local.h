/*
 * What the sources of this layer share.
 *
 * The layer is compiled with hidden visibility. The seam and the host interface are what it
 * exports, so their headers are included here, once, with default visibility; everything in
 * namespace zyax stays inside.
 */
#pragma once

#include <pthread.h>

#pragma GCC visibility push(default)
#include "bounded.h"
#include "dbg_console.h"
#include "zyax.h"
#include "zyax_console.h"
#include "zyax_copy.h"
#include "zyax_log.h"
#include "zylog.h"
#pragma GCC visibility pop

/* One line of the platform itself, under the name of the enclosing function. */
#define ZYAX_LOG(level, ...)                                                             \
    do {                                                                                 \
        if (zylog_level_check(ZYAX_MODULE_ID, (level)) == 0)                             \
            zylog(ZYAX_MODULE_ID, (level), __FILE__, __LINE__, __func__, 0, __VA_ARGS__); \
    } while (0)

namespace zyax
{

struct console_command;

/*
 * The command that the thread runs, or null. It is the layer's only thread-local word, and its
 * address serves as the thread's identity: distinct for each live thread, and read without a call.
 */
extern constinit thread_local console_command *t_command
    __attribute__((tls_model("initial-exec")));

/* Never 0 and never all ones. */
inline uint64_t thread_identity(void)
{
    return reinterpret_cast<uint64_t>(&t_command);
}

/*
 * Starts one of the platform's own threads. Signals sent to the process are none of its business:
 * it blocks all but those that a fault of its own raises. False when it cannot start.
 *
 * joinable: receives the thread, which somebody has to join; null = it is detached.
 */
bool start_service_thread(void *(*thread_main)(void *), const char *name,
                          pthread_t *joinable = nullptr);

/* Waits for a mutex, but not for ever; false when `milliseconds` have passed without it. */
bool lock_within(pthread_mutex_t *mutex, uint32_t milliseconds);

/* True when this process, or the one that it was forked from, has a timer thread. */
bool had_timer_thread(void);

/* How many names of modules there is room for. */
inline constexpr uint32_t MAX_MODULE_NAMES = 512;

/* Fills in the ids of all modules that have a name, each once, ascending; how many. */
uint32_t named_modules(uint32_t (&module_ids)[MAX_MODULE_NAMES]);

} // namespace zyax
