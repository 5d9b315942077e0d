/*
 * Static probes: places of the library at which an engineer may look from the outside, with
 * bpftrace, perf, SystemTap or gdb, in a process that runs as it was installed.
 *
 *     source     CMM_PROBE_REQUEST_QUEUED(req, ...)
 *     code       nop
 *     note       "zyumm_cmm request_queued, at this address, arguments in rbx, 8(rsp), ..."
 *
 * Untraced, a probe is one nop, so its arguments must be what the place has at hand: variables and
 * fields, no calls. A tracer puts a trap in the place of the nop. Probes are never under a lock if
 * that can be avoided: a trap takes a microsecond or two.
 *
 * Names and arguments are an interface: scripts of operators have them. docs/operating.md lists
 * them, and a check compares that list with the notes in the libraries. Times are those of
 * zyax_time_getnanosec, which is the clock of bpftrace's `nsecs`.
 *
 * Where the system has no sys/sdt.h, or with CMM_WITHOUT_PROBES, the probes are nothing. No other
 * header of the library includes it.
 */
#pragma once

#if !defined(CMM_WITHOUT_PROBES) && __has_include(<sys/sdt.h>)
#define SDT_USE_VARIADIC
#include <sys/sdt.h>
#define CMM_PROBE(...) STAP_PROBEV(zyumm_cmm, __VA_ARGS__)
#else
#define CMM_PROBE(...) static_cast<void>(0)
#endif

/* Somebody gets nothing. what: "page", "page run", "sgl", "req", "structure", "retry request". */
#define CMM_PROBE_ALLOC_REFUSED(what, count, module_id, func, line)                                \
    CMM_PROBE(alloc_refused, what, count, module_id, func, line)

/* A request for pages, from its way into the queue to the one way out that it takes. */
#define CMM_PROBE_REQUEST_QUEUED(req, pages, seconds, module_id, func, line)                       \
    CMM_PROBE(request_queued, req, pages, seconds, module_id, func, line)
#define CMM_PROBE_REQUEST_SERVED(req, pages, queued_at, module_id, func, line)                     \
    CMM_PROBE(request_served, req, pages, queued_at, module_id, func, line)
#define CMM_PROBE_REQUEST_TIMED_OUT(req, pages, queued_at, module_id, func, line)                  \
    CMM_PROBE(request_timed_out, req, pages, queued_at, module_id, func, line)

/* The ends of a retry run and of a time-out walk. */
#define CMM_PROBE_RETRY_RUN(began_at)    CMM_PROBE(retry_run, began_at)
#define CMM_PROBE_TIMEOUT_WALK(began_at) CMM_PROBE(timeout_walk, began_at)

/* Around each eviction call-back. */
#define CMM_PROBE_EVICT_CALL(handler, arg, module_id) CMM_PROBE(evict_call, handler, arg, module_id)
#define CMM_PROBE_EVICT_RETURN(handler, arg, module_id)                                            \
    CMM_PROBE(evict_return, handler, arg, module_id)
