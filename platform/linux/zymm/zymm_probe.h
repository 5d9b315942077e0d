/*
 * Static probes of the slab layer, for bpftrace, perf, SystemTap and gdb. Untraced, each is one
 * nop. Names and arguments are an interface, listed in docs/operating.md.
 *
 * Where the system has no sys/sdt.h, or with CMM_WITHOUT_PROBES, they are nothing. No other header
 * of the platform includes it.
 */
#pragma once

#if !defined(CMM_WITHOUT_PROBES) && __has_include(<sys/sdt.h>)
#define SDT_USE_VARIADIC
#include <sys/sdt.h>
#define ZYMM_PROBE(...) STAP_PROBEV(zymm, __VA_ARGS__)
#else
#define ZYMM_PROBE(...) static_cast<void>(0)
#endif

/* A slab in use has taken one more piece. */
#define ZYMM_PROBE_SLAB_GROWN(slab_name, node, objects, bytes)                                     \
    ZYMM_PROBE(slab_grown, slab_name, node, objects, bytes)

/* All threads were stopped and their caches emptied for one object, which is null if there was
 * none even so. */
#define ZYMM_PROBE_CACHES_DRAINED(slab_name, object) ZYMM_PROBE(caches_drained, slab_name, object)
