/*
 * One phase: all workers over one list of chunks, while the main thread looks on.
 */
#pragma once

#include <cstdint>
#include <deque>

#include "page_cache.h"
#include "report.h"
#include "signal_inbox.h"
#include "worker.h"

/* What the main thread does meanwhile. */
struct onlooker {
    signal_inbox &signals;
    page_cache   &cache; /* a page of it is shown */
    const bool    show;  /* half way through each phase, too */
    const bool    quiet; /* no progress */
};

/* Runs the phase to its end, or until a stop signal has come and the chunks under way are done. */
phase_result run_phase(const char *name, phase what, work_list &list, std::deque<worker> &workers,
                       uint64_t total, onlooker &look);
