/*
 * The library under measurement, twice in one process.
 *
 *     ours_static   compiled into the program with link-time optimisation: calls are direct and may
 *                   be inlined, as in a program that links the static libraries
 *     ours_shared   the shared libraries, loaded with dlopen into a scope of their own. A call is
 *                   one indirect jump through a pointer, as it is through a program's jump table
 *
 * Both copies have their own pools, timers and logs and know nothing of each other: the program
 * exports none of its symbols, so the shared libraries find only each other. start_ours checks it.
 *
 * A measurement is written once, for a class L that has the library's operations as members with
 * the library's names.
 */
#pragma once

#include "zyax_log.h"
#include "zylog.h"
#include "zymm.h"
#include "zyumm_cmm.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_req.h"
#include "zyumm_cmm_sgl.h"

#define BENCH_OPERATIONS(X)                                                                        \
    X(cmm_module_init)                                                                             \
    X(cmm_module_exit)                                                                             \
    X(zyumm_set_config_path)                                                                       \
    X(zyax_log_set_level)                                                                          \
    X(zymm_slab_param_init)                                                                        \
    X(zymm_create_slab)                                                                            \
    X(zymm_destory_slab)                                                                           \
    X(zymm_slab_malloc)                                                                            \
    X(zymm_slab_free)                                                                              \
    X(zyumm_page_get_usage_info)                                                                   \
    X(page_init_retry)                                                                             \
    X(page_exit_retry)                                                                             \
    X(allocOnePageSync)                                                                            \
    X(freeOnePage)                                                                                 \
    X(allocMultiPagesSync)                                                                         \
    X(freeMultiPages)                                                                              \
    X(decAndRetPageReference)                                                                      \
    X(decPageReferenceBySgl)                                                                       \
    X(allocOnePageForPagePoolTimeOut)                                                              \
    X(allocMultiPagesForPagePoolTimeOut)                                                           \
    X(freeSglChain)                                                                                \
    X(getCurrentSglByOffset)                                                                       \
    X(copyDataFromBufferToSgl)                                                                     \
    X(copyDataFromSglToBuffer)                                                                     \
    X(copyDataFromBufferToSglIgnoreDif)                                                            \
    X(copyDataFromSglToBufferIgnoreDif)                                                            \
    X(cloneSgl)                                                                                    \
    X(cloneSglChain)                                                                               \
    X(freeCloneSgl)                                                                                \
    X(allocReq)                                                                                    \
    X(freeReq)

namespace bench
{

struct ours_static {
    static constexpr char NAME[] = "static";
#define X(operation) static constexpr auto operation = &::operation;
    BENCH_OPERATIONS(X)
#undef X
};

struct ours_shared {
    static constexpr char NAME[] = "shared";
#define X(operation) static inline decltype(&::operation) operation = nullptr;
    BENCH_OPERATIONS(X)
#undef X
};

/* Pages, SGLs and requests that each of the two libraries may hold. */
struct quota {
    uint32_t pages;
    uint32_t sgls;
    uint32_t reqs;
};

/*
 * Loads the shared libraries and starts both copies, with a configuration written for the purpose
 * that is gone when the call returns; ends the process, with a line, when that does not work.
 */
void start_ours(const quota &sizes);
void stop_ours(void);

} // namespace bench
