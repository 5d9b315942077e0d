/*
 * The world around the retry queue, while schedules are explored: its platform, the requests and
 * what became of them, and what must hold when all threads are through.
 *
 * The explored code is the library's own: queueing, the kick, runs, the walk, allocation and
 * freeing. Of the platform, locks, clock and slabs are given by this world through the linker's
 * --wrap; whatever else the library needs comes from the programmable platform and is not reached.
 *
 * A freed record's memory is never used again within a run, so that every later touch shows.
 */
#pragma once

#include <cstdint>

#include "zyumm_cmm_page.h"

#include "scheduler.h"

namespace world
{

enum class memory { SHARED, FREED, OTHER };

/* What an address of the instrumented code belongs to. */
memory kind_of(uintptr_t address);

/* How a world begins. */
struct setting {
    uint32_t free_pages;
    uint32_t held_pages = 0;                          /* out already; give_page_back returns one */
    unsigned late_walker = schedule::THREADS_AT_MOST; /* thread whose clock jumps ... */
    unsigned late_at = 0; /* ... by 2 ms right before this reading of it, from 1; 0 = never */
    bool ordered = true;  /* all requests are queued, in the order of their numbers */
    bool careful = true;  /* runs are driven as the interface says */
};

/* Puts the library and the world back; the queue is empty. The first request is 1. */
void begin(const setting &wanted);

/* Ask for pages from any thread; the requests' numbers count up from 1, each used once. */
void ask_page(uint64_t request, uint32_t timeout);
void ask_run(uint64_t request, uint32_t pages, uint32_t timeout);

/* Queues without an attempt, which only prepare does. */
void enqueue(uint64_t request, uint16_t output_type, uint32_t pages, uint32_t timeout);

/* Two seconds pass. */
void let_time_pass();

/* Frees one of the pages that are held, as a whole operation that kicks the queue. */
void give_page_back();

/* What the embedder's thread does at each round. */
void drive_once();

/*
 * The check: the list hangs together and agrees with its sum, nobody is marked, the walk's marker
 * names something that is there, each request was answered once or waits, runs are counted
 * right; and then, with pages enough, driving the queue a few times more answers everybody.
 */
void check_end();

} // namespace world
