/*
 * The explorer. Logical threads are contexts of their own on stacks that are used again by every
 * run; control passes only between the explorer and one thread. A context is entered once, later
 * switches are jumps, which do without the two system calls that a context costs each time.
 *
 * A failure copies its text into the explorer's state before it leaves the thread for good.
 */
#include "scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <setjmp.h>
#include <ucontext.h>

namespace
{

constexpr size_t STACK_BYTES = 262144;
constexpr size_t STEPS_AT_MOST = 5000; /* of one run; beyond, somebody turns in a circle */
constexpr unsigned SOLO = schedule::THREADS_AT_MOST; /* runs prepare and check */
constexpr int NOBODY = -1;

/* What one step touched. */
class footprint
{
public:
    void clear()
    {
        touches_.clear();
    }

    void add(schedule::object what, bool writes)
    {
        for (mark &each : touches_) {
            if (each.what == what) {
                each.writes = each.writes || writes;
                return;
            }
        }
        touches_.push_back({what, writes});
    }

    bool commutes_with(const footprint &other) const
    {
        for (const mark &mine : touches_) {
            for (const mark &theirs : other.touches_) {
                if (mine.what == theirs.what && (mine.writes || theirs.writes))
                    return false;
            }
        }
        return true;
    }

private:
    struct mark {
        schedule::object what;
        bool writes;
    };
    std::vector<mark> touches_;
};

struct logical_thread {
    ucontext_t machine;
    jmp_buf place; /* where it stopped, once it was entered */
    std::vector<char> stack = std::vector<char>(STACK_BYTES);
    std::function<void()> body;
    bool entered = false;
    bool alive = false;
    const void *waiting_for = nullptr;
    const char *next_step = "starts";
};

/* A moment of choice, and what is known of the choices already made there. */
struct node {
    uint32_t enabled = 0; /* a bit a thread, as below */
    uint32_t asleep = 0;  /* choosing it would repeat a run */
    uint32_t explored = 0;
    unsigned chosen = 0;
    footprint of[schedule::THREADS_AT_MOST]; /* the next step of those asleep and explored */
};

struct held_lock {
    const void *which;
    int owner;
};

struct made_step {
    unsigned thread;
    const char *label;
};

struct explorer {
    jmp_buf place; /* where it waits for the thread that runs */
    logical_thread threads[schedule::THREADS_AT_MOST + 1];
    unsigned count = 0;
    int current = NOBODY;
    footprint touched; /* by the step that is being made */
    std::vector<held_lock> locks;
    std::vector<node> path;
    std::vector<made_step> steps; /* of this run */
    std::string failure;
};

explorer *s_explorer;

uint32_t bit(unsigned thread)
{
    return uint32_t{1} << thread;
}

unsigned lowest(uint32_t threads)
{
    return unsigned(__builtin_ctz(threads));
}

/* ------------------------------------------------------------------ control */

/* Back to the explorer, for ever if it does not resume the thread. */
void hand_back()
{
    logical_thread &self = s_explorer->threads[s_explorer->current];
    if (_setjmp(self.place) == 0)
        _longjmp(s_explorer->place, 1);
}

void thread_main()
{
    logical_thread &self = s_explorer->threads[s_explorer->current];
    self.body();
    self.alive = false;
    hand_back();
    abort(); /* a thread that has ended is never chosen */
}

void make_ready(unsigned index, const std::function<void()> &body)
{
    logical_thread &thread = s_explorer->threads[index];
    thread.body = body;
    thread.entered = false;
    thread.alive = true;
    thread.waiting_for = nullptr;
    thread.next_step = "starts";
    getcontext(&thread.machine);
    thread.machine.uc_stack.ss_sp = thread.stack.data();
    thread.machine.uc_stack.ss_size = thread.stack.size();
    thread.machine.uc_link = nullptr;
    makecontext(&thread.machine, thread_main, 0);
}

[[noreturn]] void go_on_in(logical_thread &thread)
{
    if (thread.entered)
        _longjmp(thread.place, 1);
    thread.entered = true;
    setcontext(&thread.machine);
    abort(); /* setcontext failed */
}

/* Lets a thread run until it hands control back, ends or fails. */
void resume(unsigned index)
{
    s_explorer->current = int(index);
    if (_setjmp(s_explorer->place) == 0)
        go_on_in(s_explorer->threads[index]);
    s_explorer->current = NOBODY;
}

/* Prepare and check run alone, but on a stack that a failure can leave. */
bool run_alone(const std::function<void()> &body)
{
    make_ready(SOLO, body);
    resume(SOLO);
    return s_explorer->failure.empty();
}

/* ------------------------------------------------------------------ one run */

/* The one who holds the lock, or NOBODY. */
int owner_of(const void *which)
{
    for (const held_lock &held : s_explorer->locks) {
        if (held.which == which)
            return held.owner;
    }
    return NOBODY;
}

bool can_go_on(const logical_thread &thread)
{
    return thread.alive &&
           (thread.waiting_for == nullptr || owner_of(thread.waiting_for) == NOBODY);
}

uint32_t enabled_threads()
{
    uint32_t enabled = 0;
    for (unsigned i = 0; i < s_explorer->count; ++i)
        enabled |= can_go_on(s_explorer->threads[i]) ? bit(i) : 0;
    return enabled;
}

bool anybody_is_alive()
{
    return std::any_of(s_explorer->threads, s_explorer->threads + s_explorer->count,
                       [](const logical_thread &thread) { return thread.alive; });
}

void make_step(unsigned index)
{
    s_explorer->touched.clear();
    s_explorer->steps.push_back({index, s_explorer->threads[index].next_step});
    resume(index);
}

/* Those that need not be chosen behind the step just made from `from`. */
node next_node(const node &from, const footprint &step)
{
    node next;
    const uint32_t known = (from.asleep | from.explored) & ~bit(from.chosen);
    for (uint32_t rest = known; rest != 0; rest &= rest - 1) {
        const unsigned thread = lowest(rest);
        if (!from.of[thread].commutes_with(step))
            continue;
        next.asleep |= bit(thread);
        next.of[thread] = from.of[thread];
    }
    return next;
}

enum class ending { COMPLETE, PRUNED, FAILED };

ending follow_path(size_t *steps)
{
    std::vector<node> &path = s_explorer->path;
    node next;

    for (size_t depth = 0;; ++depth) {
        *steps = depth;
        const uint32_t enabled = enabled_threads();
        if (!anybody_is_alive())
            return ending::COMPLETE;
        if (enabled == 0 || depth == STEPS_AT_MOST) {
            s_explorer->failure = enabled == 0 ? "deadlock" : "no end in sight";
            return ending::FAILED;
        }
        if (depth == path.size()) {
            if ((enabled & ~next.asleep) == 0)
                return ending::PRUNED;
            next.enabled = enabled;
            next.chosen = lowest(enabled & ~next.asleep);
            path.push_back(std::move(next));
        }

        make_step(path[depth].chosen);
        if (!s_explorer->failure.empty())
            return ending::FAILED;
        path[depth].of[path[depth].chosen] = s_explorer->touched;
        next = next_node(path[depth], s_explorer->touched);
    }
}

ending run_once(const schedule::scenario &wanted, size_t *steps)
{
    s_explorer->locks.clear();
    s_explorer->steps.clear();
    if (!run_alone(wanted.prepare))
        return ending::FAILED;
    for (unsigned i = 0; i < s_explorer->count; ++i)
        make_ready(i, wanted.threads[i]);

    const ending end = follow_path(steps);
    if (end != ending::COMPLETE)
        return end;
    if (!s_explorer->locks.empty())
        s_explorer->failure = "a lock is still held at the end";
    else
        run_alone(wanted.check);
    return s_explorer->failure.empty() ? ending::COMPLETE : ending::FAILED;
}

/* Turns the path into the next one to follow; false when all have been followed. */
bool choose_next_path()
{
    std::vector<node> &path = s_explorer->path;
    while (!path.empty()) {
        node &last = path.back();
        last.explored |= bit(last.chosen);
        const uint32_t left = last.enabled & ~last.explored & ~last.asleep;
        if (left != 0) {
            last.chosen = lowest(left);
            return true;
        }
        path.pop_back();
    }
    return false;
}

std::string told(const std::vector<made_step> &steps)
{
    std::string text;
    for (const made_step &step : steps)
        text += std::string(1, char('A' + step.thread)) + ": " + step.label + "\n";
    return text;
}

} // namespace

namespace schedule
{

outcome explore(const scenario &wanted)
{
    explorer all;
    s_explorer = &all;
    all.count = unsigned(wanted.threads.size());

    outcome result;
    size_t steps = 0;
    do {
        const ending end = run_once(wanted, &steps);
        result.longest = std::max<uint64_t>(result.longest, steps);
        if (end == ending::FAILED) {
            result.failure = wanted.name + ": " + all.failure;
            result.trace = told(all.steps);
            break;
        }
        (end == ending::COMPLETE ? result.complete : result.pruned)++;
    } while (choose_next_path());
    s_explorer = nullptr;
    return result;
}

int running()
{
    const bool in_thread =
        s_explorer != nullptr && s_explorer->current != NOBODY && s_explorer->current != int(SOLO);
    return in_thread ? s_explorer->current : NOBODY;
}

bool is_exploring()
{
    return s_explorer != nullptr && s_explorer->current != NOBODY;
}

void touch(object what, bool writes)
{
    if (running() != NOBODY)
        s_explorer->touched.add(what, writes);
}

const char *current_step()
{
    return running() != NOBODY ? s_explorer->threads[running()].next_step : "";
}

void step(object what, bool writes, const char *label)
{
    if (running() == NOBODY)
        return;
    s_explorer->threads[running()].next_step = label;
    hand_back();
    touch(what, writes);
}

void fail(const std::string &why)
{
    if (!is_exploring()) {
        fprintf(stderr, "schedule: %s\n", why.c_str());
        abort();
    }
    s_explorer->failure = why;
    hand_back();
    abort(); /* a thread that has failed is never resumed */
}

static object lock_object(const void *which)
{
    return reinterpret_cast<object>(which);
}

void lock(const void *which)
{
    if (!is_exploring())
        return;
    if (owner_of(which) == s_explorer->current)
        fail("a lock is taken again by its holder");

    logical_thread &self = s_explorer->threads[s_explorer->current];
    self.waiting_for = which;
    step(lock_object(which), true, "locks");
    self.waiting_for = nullptr;
    s_explorer->locks.push_back({which, s_explorer->current});
}

bool trylock(const void *which)
{
    if (!is_exploring())
        return true;
    step(lock_object(which), true, "tries the lock");
    if (owner_of(which) != NOBODY)
        return false;
    s_explorer->locks.push_back({which, s_explorer->current});
    return true;
}

void unlock(const void *which)
{
    if (!is_exploring())
        return;
    step(lock_object(which), true, "unlocks");
    if (owner_of(which) != s_explorer->current)
        fail("a lock is given up by a thread that does not hold it");
    std::erase_if(s_explorer->locks,
                  [which](const held_lock &held) { return held.which == which; });
}

bool holds_a_lock()
{
    return std::any_of(s_explorer->locks.begin(), s_explorer->locks.end(),
                       [](const held_lock &held) { return held.owner == s_explorer->current; });
}

} // namespace schedule
