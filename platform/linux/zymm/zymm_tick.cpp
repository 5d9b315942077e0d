/*
 * The timer behind the coarse time. It re-arms itself at the tick's length and is never deleted: a
 * slab may be made at any time, and seven wake-ups a second are nothing beside what the process's
 * other timers do.
 */
#include "zymm_tick.h"

#include <pthread.h>

#include "zyax.h"

namespace zymm
{

enum : uint64_t { TICK_US = (1ull << TICK_SHIFT) / 1000 };

std::atomic<uint64_t> g_tick_bits{0};

static zyax_timer     s_timer;
static pthread_once_t s_started = PTHREAD_ONCE_INIT;

uint32_t tick_refresh()
{
    const uint32_t tick = uint32_t(zyax_time_getnanosec() >> TICK_SHIFT);
    g_tick_bits.store(uint64_t(tick) << 32, std::memory_order_relaxed);
    return tick;
}

static void on_timer()
{
    tick_refresh();
    zyax_timer_modify(&s_timer, TICK_US);
}

static void start_timer()
{
    tick_refresh();
    zyax_timer_init(&s_timer);
    zyax_timer_set_raw(&s_timer, TICK_US, 0, on_timer, "tick", __FILE__, __LINE__);
    zyax_timer_add(&s_timer);
}

void tick_start()
{
    pthread_once(&s_started, start_timer);
}

} // namespace zymm
