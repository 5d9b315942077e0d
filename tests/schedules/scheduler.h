/*
 * All interleavings of a few logical threads, one after the other.
 *
 * Threads of the operating system meet in the same few ways again and again; the orders that break
 * a protocol are the ones that luck does not find. Here two or three logical threads run the real
 * code in one thread of the system, and hand control back before each step that another thread
 * could notice: taking, trying and giving up a lock, every atomic access to shared state, every
 * plain one made without a lock, and each call of the platform and of a call-back. The explorer
 * chooses who goes on, remembers its choices, and starts over with the next choice until none is
 * left:
 *
 *          prepare
 *             |            a node is a moment at which somebody must be chosen;
 *             o            an edge is one thread's step to its next such moment
 *        A /     \ B
 *         o       o        a run goes from the top to a leaf; the next run repeats it down to the
 *     A /  \ B   ...       last node with a thread that was not chosen yet, and chooses that
 *      ...  ...
 *             |
 *           check          at each leaf: what must hold however it came about
 *
 * Steps that touch nothing in common commute, so one order of the two stands for both. This is done
 * with sleep sets: once all that follows from choosing A at a node is known, A need not be chosen
 * behind its sibling B before something that B does touches what A's step touched. What a step
 * touched is recorded while it runs, so the reduction leaves out no outcome; there is no bound on
 * preemptions. Memory is sequentially consistent here: weaker orders are ThreadSanitizer's to find.
 *
 * A step that touches freed memory, a lock taken twice, a deadlock or a failed check ends the
 * exploration with the choices that led there. Threads are abandoned where they stand, so they must
 * own no memory at a step.
 */
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace schedule
{

inline constexpr unsigned THREADS_AT_MOST = 4;

struct scenario {
    std::string name;
    std::function<void()> prepare;              /* puts all state back to where a run begins */
    std::vector<std::function<void()>> threads; /* THREADS_AT_MOST at most */
    std::function<void()> check;                /* fails the run, or is content */
};

struct outcome {
    uint64_t complete = 0; /* runs to the end; each is an order that differs in some effect */
    uint64_t pruned = 0;   /* runs given up, as an equal one had been made */
    uint64_t longest = 0;  /* steps of the longest run */
    std::string failure;   /* empty, or what the first failed run failed of */
    std::string trace;     /* and its steps */
};

/* Runs every schedule, up to the first that fails. */
outcome explore(const scenario &wanted);

/* ---- for code that runs inside a scenario; elsewhere these do nothing */

/* What two steps may have in common: a number that nothing else has, as an address has. */
using object = uint64_t;

/* A moment at which another thread may go on; what follows touches `what`. */
void step(object what, bool writes, const char *label);

/* The label of the step that the running thread is in. */
const char *current_step();

/* The current step touches `what` too; nobody else gets a turn. */
void touch(object what, bool writes);

void lock(const void *which);
bool trylock(const void *which);
void unlock(const void *which);
bool holds_a_lock(); /* the running thread */

/* Index of the running thread in the scenario, or -1 inside prepare and check. */
int running();

/* True inside a scenario, prepare and check included. */
bool is_exploring();

/* Ends the run and the exploration. */
[[noreturn]] void fail(const std::string &why);

inline void expect(bool holds, const char *claim)
{
    if (!holds)
        fail(claim);
}

} // namespace schedule
