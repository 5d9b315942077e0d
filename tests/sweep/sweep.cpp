/*
 * One step of the sweep and the loop over them. A step runs in a child process and writes what it
 * saw into memory shared with the parent, text by text as it goes, so that a step that ends the
 * process has still told everything up to there.
 */
#include "sweep.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <tuple>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "unit/zyumm_cmm/config_documents.h"
#include "zyumm_cmm.h"

namespace
{

/* Every operation goes on whatever these refuse: a line more or less, a limiter's reading of the
 * clock. */
const std::set<fake_op> NEVER_DECIDE = {OP_zylog_level_check, OP_zylog, OP_zyax_get_jiffies};

/* Locking and unlocking have no refusal. */
const std::set<fake_op> NEVER_REFUSE = {OP_do_zyax_spinlock_lock, OP_do_zyax_spinlock_unlock};

/* An operation that calls this often does not end. */
constexpr uint64_t STEP_LIMIT = 100000;

struct report {
    bool hit;
    bool ended; /* the step came to its end */
    uint64_t locks_held;
    uint64_t calls[OP_COUNT];
    char outcome[512];
    char leaves[512];
    char next[512];
};

struct holding {
    const char *name;
    long count;
};

std::vector<holding> holdings()
{
    long timers = 0;
    for (const fake_timer_state &timer : fake_timers())
        timers += timer.initialised ? 1 : 0;
    return {
        {"objects", long(fake_objects_out())},
        {"pools", long(fake_handles_alive())},
        {"partitions", long(fake_partitions_alive())},
        {"allocators", long(fake_allocators_alive())},
        {"ids", long(g_cmm_part_sum)},
        {"timers", timers},
        {"trees", long(fake_trees_alive())},
        {"inis", long(fake_ini_files_open())},
        {"descriptors", open_descriptors()},
    };
}

/* "objects+1 ids-1", or nothing. */
std::string difference(const std::vector<holding> &before, const std::vector<holding> &after)
{
    std::string text;
    for (size_t i = 0; i < before.size(); ++i) {
        const long by = after[i].count - before[i].count;
        if (by == 0)
            continue;
        text += (text.empty() ? "" : " ") + std::string(before[i].name) + (by > 0 ? "+" : "") +
                std::to_string(by);
    }
    return text;
}

void write_down(char (&where)[512], const std::string &text)
{
    snprintf(where, sizeof where, "%s", text.c_str());
}

struct refusal {
    fake_op op;
    uint64_t nth;
};

using refusals = std::vector<refusal>; /* at once; none for an unhindered call */

void run_step(const operation &row, const refusals &refused, report *told_of)
{
    const std::vector<holding> before = holdings();
    row.ready();
    fake_forget_calls();
    for (const refusal &each : refused)
        fake_fail(each.op, each.nth);
    const std::string outcome = row.call();
    told_of->hit = fake_fault_hit();
    fake_no_faults();
    told_of->locks_held = fake_locks_held();
    write_down(told_of->outcome, outcome);
    for (unsigned op = 0; op < OP_COUNT; ++op)
        told_of->calls[op] = fake_count(static_cast<fake_op>(op));

    if (outcome == row.clean)
        row.undo();
    write_down(told_of->leaves, difference(before, holdings()));

    row.ready();
    write_down(told_of->next, row.call());
    told_of->ended = true;
}

/* The last fatal line that the child wrote to its standard error. */
std::string last_words(int stderr_file)
{
    std::string words = "nothing";
    std::ifstream lines("/proc/self/fd/" + std::to_string(stderr_file));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("2|"))
            words = line;
    }
    return words;
}

std::string everything_said(int stderr_file)
{
    std::ostringstream text;
    text << std::ifstream("/proc/self/fd/" + std::to_string(stderr_file)).rdbuf();
    return text.str();
}

/* Runs a step in a child; an abort is an outcome, any other early end is a failure. */
report step_of(const operation &row, const refusals &refused)
{
    void *const shared =
        mmap(nullptr, sizeof(report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    report *const told_of = new (shared) report{};
    const int stderr_file = memfd_create("standard error", 0);

    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(stderr_file, STDERR_FILENO);
        run_step(row, refused, told_of);
        fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);

    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) {
        told_of->hit = true;
        write_down(told_of->outcome, "aborts: " + last_words(stderr_file));
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || !told_of->ended) {
        ADD_FAILURE() << "the step ended early, status " << status << "\n"
                      << everything_said(stderr_file);
    }
    const report copy = *told_of;
    close(stderr_file);
    munmap(shared, sizeof(report));
    return copy;
}

/* The stops of a row, and which of them the sweep has seen. */
class described_stops
{
public:
    explicit described_stops(const operation &row) : row_(row)
    {
    }

    /* For the n-th call of `op`: a stop that names this call before one that names none. */
    const stop *find(fake_op op, uint64_t nth)
    {
        const stop *any = nullptr;
        for (const stop &each : row_.stops) {
            if (!contains(each.ops, op))
                continue;
            if (contains(each.calls, nth))
                return note(&each, op, nth);
            if (each.calls.empty())
                any = &each;
        }
        return any != nullptr ? note(any, op, 0) : nullptr;
    }

    void expect_all_seen() const
    {
        for (const stop &each : row_.stops) {
            for (const fake_op op : each.ops) {
                for (const uint64_t nth : each.calls.empty() ? any_call() : each.calls)
                    EXPECT_TRUE(seen_.count({&each, op, nth}))
                        << "described and not seen: call " << nth << " of " << fake_op_name(op);
            }
        }
    }

private:
    template <typename T>
    static bool contains(const std::vector<T> &all, const T &one)
    {
        return std::find(all.begin(), all.end(), one) != all.end();
    }

    static std::vector<uint64_t> any_call()
    {
        return {0};
    }

    const stop *note(const stop *found, fake_op op, uint64_t nth)
    {
        seen_.insert({found, op, nth});
        return found;
    }

    const operation &row_;
    std::set<std::tuple<const stop *, fake_op, uint64_t>> seen_;
};

void expect_as_described(const operation &row, const stop &described, const report &seen)
{
    const bool went_on = described.outcome.empty();
    const std::string outcome = went_on ? row.clean : described.outcome;
    const std::string leaves = went_on && described.leaves.empty() ? row.keeps : described.leaves;

    EXPECT_EQ(seen.outcome, outcome);
    EXPECT_EQ(seen.locks_held, 0u);
    if (outcome.starts_with("aborts"))
        return;
    EXPECT_EQ(seen.leaves, leaves);
    EXPECT_EQ(seen.next, described.next.empty() ? row.clean : described.next);
}

/*
 * What an operation calls only after a refusal is its way back. A second refusal there changes
 * nothing in its outcome and holds no lock; what could not be given back stays. The first and the
 * last call stand for all, of which a long run makes many. Where it is not the way back but another
 * attempt, the row has a stop for it.
 */
void sweep_over_way_back(const operation &row, const report &dry, const refusal &first,
                         const report &single, described_stops *stops)
{
    for (unsigned i = 0; i < OP_COUNT; ++i) {
        const fake_op op = static_cast<fake_op>(i);
        if (dry.calls[op] != 0 || NEVER_REFUSE.count(op) != 0)
            continue;
        if (single.calls[op] == 0)
            continue;
        for (const uint64_t nth : std::set<uint64_t>{1, single.calls[op]}) {
            SCOPED_TRACE("and call " + std::to_string(nth) + " of " + fake_op_name(op));
            const report both = step_of(row, {first, {op, nth}});
            const stop *described = stops->find(op, nth);
            EXPECT_EQ(both.outcome, described != nullptr ? described->outcome : single.outcome);
            EXPECT_EQ(both.locks_held, 0u);
        }
    }
}

/* Refuses the 1st, 2nd, ... call of `op` until the operation gets through. */
void sweep_over(const operation &row, const report &dry, fake_op op, described_stops *stops)
{
    static const stop no_decision = goes_on({});

    for (uint64_t nth = 1; nth <= STEP_LIMIT; ++nth) {
        SCOPED_TRACE("call " + std::to_string(nth) + " of " + fake_op_name(op));
        const report seen = step_of(row, {{op, nth}});
        if (!seen.hit)
            return expect_as_described(row, no_decision, seen);

        const bool decides = NEVER_DECIDE.count(op) == 0;
        const stop *described = decides ? stops->find(op, nth) : &no_decision;
        if (described != nullptr)
            expect_as_described(row, *described, seen);
        else
            ADD_FAILURE() << "no outcome is described; seen: \"" << seen.outcome << "\" leaving \""
                          << seen.leaves << "\" then \"" << seen.next << "\"";
        sweep_over_way_back(row, dry, {op, nth}, seen, stops);
    }
    FAIL() << "the operation does not end";
}

} // namespace

stop stop::at(std::vector<uint64_t> which) const
{
    stop changed = *this;
    changed.calls = std::move(which);
    return changed;
}

stop stop::leaving(const std::string &what) const
{
    stop changed = *this;
    changed.leaves = what;
    return changed;
}

stop stop::then(const std::string &outcome_of_next) const
{
    stop changed = *this;
    changed.next = outcome_of_next;
    return changed;
}

stop goes_on(std::vector<fake_op> ops)
{
    return {std::move(ops), ""};
}

stop ends(const std::string &outcome, std::vector<fake_op> ops)
{
    return {std::move(ops), outcome};
}

std::string told(uint32_t status)
{
    return status == 0xFFFFFFFF ? "0xFFFFFFFF" : std::to_string(status);
}

std::string told(uint64_t number)
{
    return std::to_string(number);
}

std::string told(int status)
{
    return std::to_string(status);
}

std::string told(const void *pointer)
{
    return pointer == nullptr ? "null" : "there";
}

std::string row_name(const ::testing::TestParamInfo<operation> &row)
{
    return row.param.when.empty() ? row.param.name : row.param.name + "_" + row.param.when;
}

TEST_P(Sweep, every_refusal_below_ends_as_described)
{
    const operation &row = GetParam();
    row.scene();
    ASSERT_FALSE(HasFailure()) << "the scene";

    const report dry = step_of(row, {});
    ASSERT_EQ(dry.outcome, row.clean) << "without any refusal";
    EXPECT_EQ(dry.leaves, row.keeps);
    EXPECT_EQ(dry.next, row.clean);
    EXPECT_EQ(dry.locks_held, 0u);

    described_stops stops(row);
    for (unsigned i = 0; i < OP_COUNT; ++i) {
        const fake_op op = static_cast<fake_op>(i);
        if (dry.calls[op] != 0 && NEVER_REFUSE.count(op) == 0)
            sweep_over(row, dry, op, &stops);
    }
    stops.expect_all_seen();
}
