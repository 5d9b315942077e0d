/*
 * Calls, faults and hooks: the one path that every operation of the fake takes. What differs from
 * operation to operation is in operations.cpp.
 *
 * A call is counted and recorded first, then its hook runs with no lock held, then either its
 * fault's value is answered or its effect happens. Which fault strikes is settled when the call is
 * counted, so a hook that sets faults means later calls.
 *
 * Faults and hooks count calls from the start of the process; what a test sees as counts can be
 * forgotten without moving them.
 */
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>

#include "fake_local.h"

namespace
{

/* Operations that are called all the time keep only their newest records. */
constexpr size_t QUIET_RECORDS_KEPT = 10000;

/* A sweep that has not ended by then never will. */
constexpr uint64_t SWEEP_LIMIT = 1000000;

constexpr uint64_t EVERY_CALL = UINT64_MAX;

struct kept_call {
    uint64_t  id; /* position among all calls */
    fake_call call;
};

struct planned_fault {
    uint64_t at; /* number of the call that fails, or EVERY_CALL */
    uint64_t value;
    fault   *step; /* of a sweep, told when the fault strikes; may be null */
};

struct op_state {
    uint64_t                                 calls = 0; /* ever */
    uint64_t                                 count = 0; /* since the last forgetting */
    std::deque<kept_call>                    records;
    std::vector<planned_fault>               faults;
    std::map<uint64_t, std::function<void()>> hooks;
};

struct calls_state {
    uint64_t next_id = 1;
    bool     hit     = false;
    op_state ops[OP_COUNT];
};

calls_state &state()
{
    static calls_state *const all = new calls_state;
    return *all;
}

/* The fault that strikes the call just counted, if any; a fault for one call is used up. */
bool strike(op_state *op, uint64_t *value)
{
    const auto found = std::find_if(op->faults.begin(), op->faults.end(), [&](const auto &f) {
        return f.at == op->calls || f.at == EVERY_CALL;
    });
    if (found == op->faults.end())
        return false;

    *value = found->value;
    if (found->step != nullptr)
        found->step->hit = true;
    if (found->at != EVERY_CALL)
        op->faults.erase(found);
    return true;
}

std::function<void()> take_hook(op_state *op)
{
    const auto found = op->hooks.find(op->calls);
    if (found == op->hooks.end())
        return nullptr;
    std::function<void()> hook = std::move(found->second);
    op->hooks.erase(found);
    return hook;
}

void plan(fake_op op, uint64_t nth, uint64_t value, fault *step)
{
    const fake::guard held(fake::state_mutex());
    op_state         &target = state().ops[op];
    target.faults.push_back({nth == EVERY_CALL ? nth : target.calls + nth, value, step});
}

/* Records of one operation, or of all that are not quiet, in the order of the calls. */
std::vector<fake_call> in_order(bool (*wanted)(fake_op, fake_op), fake_op op)
{
    const fake::guard              held(fake::state_mutex());
    std::vector<const kept_call *> kept;
    for (unsigned i = 0; i < OP_COUNT; ++i) {
        if (!wanted(static_cast<fake_op>(i), op))
            continue;
        for (const kept_call &record : state().ops[i].records)
            kept.push_back(&record);
    }
    std::sort(kept.begin(), kept.end(), [](auto *a, auto *b) { return a->id < b->id; });

    std::vector<fake_call> calls;
    for (const kept_call *record : kept)
        calls.push_back(record->call);
    return calls;
}

} // namespace

std::mutex &fake::state_mutex()
{
    static std::mutex *const mutex = new std::mutex;
    return *mutex;
}

void fake::call::begin(std::vector<fake_arg> args, std::string record)
{
    const int             kept_errno = errno;
    std::function<void()> hook;
    {
        const guard held(state_mutex());
        op_state   &op = state().ops[op_];
        id_            = state().next_id++;
        ++op.calls;
        ++op.count;
        op.records.push_back({id_, {op_, std::move(args), std::move(record), 0}});
        if (fake::is_quiet(op_) && op.records.size() > QUIET_RECORDS_KEPT)
            op.records.pop_front();
        failed_ = strike(&op, &failure_);
        if (failed_)
            state().hit = true;
        hook = take_hook(&op);
    }
    if (hook)
        hook();
    errno = kept_errno;
}

void fake::call::finish(uint64_t result)
{
    const guard held(state_mutex());
    auto       &records = state().ops[op_].records;
    /* It is one of the newest unless it was forgotten meanwhile. */
    for (auto it = records.rbegin(); it != records.rend() && it->id >= id_; ++it) {
        if (it->id == id_)
            it->call.result = result;
    }
}

std::vector<fake_call> fake_calls()
{
    return in_order([](fake_op each, fake_op) { return !fake::is_quiet(each); }, OP_COUNT);
}

std::vector<fake_call> fake_calls(fake_op op)
{
    return in_order([](fake_op each, fake_op only) { return each == only; }, op);
}

fake_call fake_last_call(fake_op op)
{
    const fake::guard held(fake::state_mutex());
    const auto       &records = state().ops[op].records;
    return records.empty() ? fake_call{op, {}, {}, 0} : records.back().call;
}

uint64_t fake_count(fake_op op)
{
    const fake::guard held(fake::state_mutex());
    return state().ops[op].count;
}

void fake_forget_calls()
{
    const fake::guard held(fake::state_mutex());
    for (op_state &op : state().ops) {
        op.count = 0;
        op.records.clear();
    }
}

void fake_fail(fake_op op, uint64_t nth)
{
    plan(op, nth, fake::own_failure(op), nullptr);
}

void fake_fail_with(fake_op op, uint64_t nth, uint64_t value)
{
    plan(op, nth, value, nullptr);
}

void fake_fail_always(fake_op op)
{
    plan(op, EVERY_CALL, fake::own_failure(op), nullptr);
}

void fake_fail_always_with(fake_op op, uint64_t value)
{
    plan(op, EVERY_CALL, value, nullptr);
}

void fake_no_faults()
{
    const fake::guard held(fake::state_mutex());
    state().hit = false;
    for (op_state &op : state().ops)
        op.faults.clear();
}

bool fake_fault_hit()
{
    const fake::guard held(fake::state_mutex());
    return state().hit;
}

void fake_hook(fake_op op, uint64_t nth, std::function<void()> hook)
{
    const fake::guard held(fake::state_mutex());
    op_state         &target = state().ops[op];
    target.hooks[target.calls + nth] = std::move(hook);
}

void for_each_fault(fake_op op, const std::function<void(const fault &)> &body)
{
    for (uint64_t nth = 1; nth <= SWEEP_LIMIT; ++nth) {
        fault step{nth, false};
        fake_no_faults();
        plan(op, nth, fake::own_failure(op), &step);
        body(step);
        fake_no_faults();
        if (!step.hit)
            return;
    }
    fprintf(stderr, "fake: a sweep over %s does not end\n", fake_op_name(op));
    abort();
}
