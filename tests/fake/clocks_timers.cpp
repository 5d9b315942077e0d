/*
 * Clocks and timers: clocks stand still until a test moves them, timers are only remembered.
 *
 * A timer is told apart by its address. Its first word carries a mark while it is initialised, so
 * that a record that was zeroed again counts as new, as its owner expects.
 */
#include "fake_local.h"

namespace
{

constexpr uint64_t TIMER_MARK        = 0x54494d4552;
constexpr int      ALREADY_THERE     = 17;
constexpr int      NOT_INITIALISED   = 22;

struct known_timer {
    zyax_timer      *address;
    fake_timer_state now;
};

struct time_state {
    uint64_t                 nanosec = 1000000000;
    uint64_t                 step    = 0;
    uint64_t                 jiffies = 1000;
    std::vector<known_timer> timers;
};

time_state &state()
{
    static time_state *const time = new time_state;
    return *time;
}

fake_timer_state *find_timer(const zyax_timer *timer)
{
    for (known_timer &known : state().timers) {
        if (known.address == timer)
            return &known.now;
    }
    return nullptr;
}

/* Null unless the timer is initialised. */
fake_timer_state *usable_timer(const zyax_timer *timer)
{
    if (timer == nullptr || timer->opaque[0] != TIMER_MARK)
        return nullptr;
    fake_timer_state *const now = find_timer(timer);
    return now != nullptr && now->initialised ? now : nullptr;
}

std::string or_null(const char *text)
{
    return text != nullptr ? text : "(null)";
}

} // namespace

int zyax_Init(void)
{
    return fake::call(OP_zyax_Init).answer<int>([] { return 0; });
}

int zyax_timer_init(zyax_timer *timer)
{
    fake::call c(OP_zyax_timer_init, timer);
    return c.answer<int>([&] {
        const fake::guard held(fake::state_mutex());
        if (timer == nullptr)
            return NOT_INITIALISED;
        if (usable_timer(timer) != nullptr)
            return ALREADY_THERE;

        if (find_timer(timer) == nullptr)
            state().timers.push_back({timer, {}});
        *find_timer(timer)             = fake_timer_state{};
        find_timer(timer)->initialised = true;
        timer->opaque[0]               = TIMER_MARK;
        return 0;
    });
}

int zyax_timer_set_raw(zyax_timer *timer, uint64_t expires, uint32_t flags, void (*fn)(void),
                       const char *fn_name, const char *file, uint32_t line)
{
    fake::call c(OP_zyax_timer_set_raw, timer, expires, flags, fn, fn_name, file, line);
    return c.answer<int>([&] {
        const fake::guard       held(fake::state_mutex());
        fake_timer_state *const now = usable_timer(timer);
        if (now == nullptr)
            return NOT_INITIALISED;
        now->expires = expires;
        now->flags   = flags;
        now->fn      = fn;
        now->fn_name = or_null(fn_name);
        now->file    = or_null(file);
        return 0;
    });
}

int zyax_timer_add(zyax_timer *timer)
{
    fake::call c(OP_zyax_timer_add, timer);
    return c.answer<int>([&] {
        const fake::guard       held(fake::state_mutex());
        fake_timer_state *const now = usable_timer(timer);
        if (now == nullptr)
            return NOT_INITIALISED;
        now->armed = true;
        return 0;
    });
}

int zyax_timer_modify(zyax_timer *timer, uint64_t expires)
{
    fake::call c(OP_zyax_timer_modify, timer, expires);
    return c.answer<int>([&] {
        const fake::guard       held(fake::state_mutex());
        fake_timer_state *const now = usable_timer(timer);
        if (now == nullptr)
            return NOT_INITIALISED;
        now->armed   = true;
        now->expires = expires;
        return 0;
    });
}

int zyax_timer_delete(zyax_timer *timer)
{
    fake::call c(OP_zyax_timer_delete, timer);
    return c.answer<int>([&] {
        const fake::guard       held(fake::state_mutex());
        fake_timer_state *const now = usable_timer(timer);
        if (now == nullptr)
            return 0;
        now->initialised = false;
        now->armed       = false;
        timer->opaque[0] = 0;
        return 0;
    });
}

uint64_t zyax_get_jiffies(void)
{
    return fake::call(OP_zyax_get_jiffies).answer<uint64_t>([] {
        const fake::guard held(fake::state_mutex());
        return state().jiffies;
    });
}

uint64_t zyax_time_getnanosec(void)
{
    return fake::call(OP_zyax_time_getnanosec).answer<uint64_t>([] {
        const fake::guard held(fake::state_mutex());
        const uint64_t    now = state().nanosec;
        state().nanosec += state().step;
        return now;
    });
}

void fake_set_nanosec(uint64_t now)
{
    const fake::guard held(fake::state_mutex());
    state().nanosec = now;
}

void fake_advance_nanosec(uint64_t by)
{
    const fake::guard held(fake::state_mutex());
    state().nanosec += by;
}

void fake_set_nanosec_step(uint64_t by)
{
    const fake::guard held(fake::state_mutex());
    state().step = by;
}

void fake_set_jiffies(uint64_t now)
{
    const fake::guard held(fake::state_mutex());
    state().jiffies = now;
}

fake_timer_state fake_timer(const zyax_timer *timer)
{
    const fake::guard             held(fake::state_mutex());
    const fake_timer_state *const now = find_timer(timer);
    return now != nullptr ? *now : fake_timer_state{};
}

std::vector<fake_timer_state> fake_timers()
{
    const fake::guard             held(fake::state_mutex());
    std::vector<fake_timer_state> timers;
    for (const known_timer &known : state().timers)
        timers.push_back(known.now);
    return timers;
}
