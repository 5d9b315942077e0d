/*
 * One-shot timers, run by one thread that waits on a timerfd.
 *
 *     armed timers, by deadline:   s_first -> 1000 ms -> 1000 ms -> 1500 ms -> null
 *     timerfd:                     fires once, at s_wake_at: that deadline, or earlier
 *
 * An expiry counts in whole milliseconds, rounded up, and its deadline lies on the next whole
 * millisecond of the clock, so that timers share ticks. A timer whose own function re-arms it for
 * less than a millisecond polls for ever, and what that costs is waking a core up: some 35 us on a
 * virtual machine, 2 % of a core at 500 a second. Such timers share a beat of 5 ms instead, which
 * keeps an idle process below 1.5 %.
 *
 * A deadline that moves away leaves the timerfd alone: the thread wakes once for nothing. So the
 * usual re-arming, from the thread itself or to a later time, costs no system call.
 *
 * The armed timers are a sorted list, walked from its end: a process has a handful of timers, and a
 * timer that is re-armed mostly goes to the end.
 *
 * Locking: s_lock guards the list and all records. It is never held while an expiry function runs,
 * so that functions may arm and delete any timer. A record may be gone as soon as its function
 * deleted it: the thread remembers whose function it runs by address and never looks into it.
 *
 * Fork: a child has no timer thread. If its parent had one, the child's timers can be armed and
 * deleted as ever but never expire; a child whose parent had none is like any other process.
 */
#include "zyax_local.h"

#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace zyax
{

static constexpr uint64_t TICK          = 1000000;    /* ns */
static constexpr uint64_t BEAT          = 5000000;    /* ns */
static constexpr uint64_t SECOND        = 1000000000; /* ns */
static constexpr uint64_t INITIALISED   = 0x7a79617874696d72;
static constexpr uint64_t NO_DEADLINE   = ~uint64_t(0);
static constexpr uint64_t MAX_EXPIRY_US = uint64_t(1) << 52; /* 142 years */

static constexpr int ALREADY_INITIALISED = 17;
static constexpr int NOT_INITIALISED     = 22;
static constexpr int NO_THREAD           = 11;

/* What the opaque words of a zyax_timer hold. */
struct __attribute__((may_alias)) timer_record {
    uint64_t state;    /* INITIALISED, or anything else */
    uint64_t expires;  /* as set_raw was given it, us */
    void (*function)(void);
    uint64_t deadline; /* ns of the monotonic clock, while armed */
    timer_record *before;
    timer_record *after;
    uint64_t is_armed; /* in the list */
};
static_assert(sizeof(timer_record) <= sizeof(zyax_timer));

enum thread_state : uint32_t { NOT_STARTED, RUNNING, LOST_IN_FORK };

static pthread_mutex_t s_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_function_ended = PTHREAD_COND_INITIALIZER;
static timer_record *s_first;
static timer_record *s_last;
static thread_state s_thread_state = NOT_STARTED;
static uint64_t s_timer_thread;        /* identity */
static int s_timerfd = -1;
static uint64_t s_wake_at = NO_DEADLINE; /* when the timerfd fires; none when it is off */
static const timer_record *s_running;  /* whose function runs, by address only */
static uint64_t s_runs;                /* functions started so far */

/* s_lock, held for a scope. */
struct timer_guard {
    timer_guard() { pthread_mutex_lock(&s_lock); }
    ~timer_guard() { pthread_mutex_unlock(&s_lock); }
    timer_guard(const timer_guard &) = delete;
    timer_guard &operator=(const timer_guard &) = delete;
};

static timer_record *record_of(zyax_timer *timer)
{
    return reinterpret_cast<timer_record *>(timer->opaque);
}

static void unlink(timer_record *timer)
{
    (timer->before != nullptr ? timer->before->after : s_first) = timer->after;
    (timer->after != nullptr ? timer->after->before : s_last) = timer->before;
    timer->is_armed = 0;
}

static void link(timer_record *timer)
{
    timer_record *before = s_last;
    while (before != nullptr && before->deadline > timer->deadline)
        before = before->before;

    timer->before = before;
    timer->after = before != nullptr ? before->after : s_first;
    (timer->before != nullptr ? timer->before->after : s_first) = timer;
    (timer->after != nullptr ? timer->after->before : s_last) = timer;
    timer->is_armed = 1;
}

/* Makes the thread wake for the first deadline. */
static void set_timerfd(void)
{
    itimerspec wanted = {};
    s_wake_at = s_first->deadline;
    wanted.it_value.tv_sec = time_t(s_wake_at / SECOND);
    wanted.it_value.tv_nsec = long(s_wake_at % SECOND);
    timerfd_settime(s_timerfd, TFD_TIMER_ABSTIME, &wanted, nullptr);
}

/* Runs the first timer's function without the lock. */
static void run_first(void)
{
    timer_record *timer = s_first;
    void (*function)(void) = timer->function;
    unlink(timer);
    s_running = timer;
    ++s_runs;
    pthread_mutex_unlock(&s_lock);

    function();

    pthread_mutex_lock(&s_lock);
    s_running = nullptr;
    pthread_cond_broadcast(&s_function_ended);
}

static void run_expired(void)
{
    const timer_guard guard;
    s_timer_thread = thread_identity();
    s_wake_at = NO_DEADLINE;
    while (s_first != nullptr && s_first->deadline <= zyax_time_getnanosec())
        run_first();
    if (s_first != nullptr)
        set_timerfd();
}

static void *timer_main(void *)
{
    constexpr timespec ONE_TICK = {0, TICK};

    uint64_t expirations;
    for (;;) {
        /* A process may close descriptors that it does not know; its timers still run then. */
        if (read(s_timerfd, &expirations, sizeof(expirations)) < 0)
            nanosleep(&ONE_TICK, nullptr);
        run_expired();
    }
    return nullptr;
}

static bool start_thread(void)
{
    if (s_thread_state != NOT_STARTED)
        return true;

    if (s_timerfd < 0)
        s_timerfd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    if (s_timerfd < 0 || !start_service_thread(timer_main, "zyax_timer"))
        return false;
    s_thread_state = RUNNING;
    return true;
}

static uint64_t round_up(uint64_t value, uint64_t unit)
{
    return (value + unit - 1) / unit * unit;
}

static uint64_t deadline_after(uint64_t expires, uint64_t grid)
{
    const uint64_t us = expires < MAX_EXPIRY_US ? expires : MAX_EXPIRY_US;
    return round_up(zyax_time_getnanosec() + round_up(us * 1000, TICK), grid);
}

/* A timer that re-arms itself for less than the resolution. Under s_lock. */
static bool is_polling(const timer_record *timer, uint64_t expires)
{
    return expires < TICK / 1000 && s_running == timer && s_timer_thread == thread_identity();
}

/* Arms, or arms anew. Under s_lock. */
static int arm_locked(timer_record *timer, uint64_t expires)
{
    if (timer->state != INITIALISED || timer->function == nullptr)
        return NOT_INITIALISED;
    if (!start_thread())
        return NO_THREAD;

    if (timer->is_armed != 0)
        unlink(timer);
    timer->deadline = deadline_after(expires, is_polling(timer, expires) ? BEAT : TICK);
    link(timer);
    /* While functions run, the thread has yet to look at the deadlines itself. */
    if (s_thread_state == RUNNING && timer->deadline < s_wake_at && s_running == nullptr)
        set_timerfd();
    return 0;
}

/* `func` is the operation that was called. */
static int arm(timer_record *timer, const uint64_t *expires, const char *func)
{
    pthread_mutex_lock(&s_lock);
    const int result = arm_locked(timer, *expires);
    pthread_mutex_unlock(&s_lock);
    if (result == NO_THREAD)
        zylog(ZYAX_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, func, 0,
              "The timer thread cannot be started.");
    return result;
}

bool had_timer_thread(void)
{
    return s_thread_state != NOT_STARTED;
}

static void before_fork(void)
{
    pthread_mutex_lock(&s_lock);
}

static void after_fork_in_parent(void)
{
    pthread_mutex_unlock(&s_lock);
}

static void after_fork_in_child(void)
{
    while (s_first != nullptr)
        unlink(s_first);
    s_running = nullptr;
    if (s_thread_state == RUNNING)
        s_thread_state = LOST_IN_FORK;
    if (s_timerfd >= 0)
        close(s_timerfd);
    s_timerfd = -1;
    pthread_cond_init(&s_function_ended, nullptr);
    pthread_mutex_unlock(&s_lock);
}

__attribute__((constructor)) static void begin(void)
{
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

} // namespace zyax

using namespace zyax;

int zyax_timer_init(zyax_timer *timer)
{
    if (timer == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Init of a null timer.");
        return NOT_INITIALISED;
    }

    const timer_guard guard;
    timer_record *record = record_of(timer);
    if (record->state == INITIALISED)
        return ALREADY_INITIALISED;
    *record = timer_record{};
    record->state = INITIALISED;
    return 0;
}

int zyax_timer_set_raw(zyax_timer *timer, uint64_t expires, uint32_t flags, void (*fn)(void),
                       const char *, const char *, uint32_t)
{
    if (timer == nullptr || fn == nullptr || flags != 0) {
        ZYAX_LOG(ZYLOG_ERROR, "Timer %p cannot be set with flags(%u)%s.",
                 static_cast<void *>(timer), flags, fn == nullptr ? " and no function" : "");
        return NOT_INITIALISED;
    }

    const timer_guard guard;
    timer_record *record = record_of(timer);
    if (record->state != INITIALISED)
        return NOT_INITIALISED;
    record->expires = expires;
    record->function = fn;
    return 0;
}

int zyax_timer_add(zyax_timer *timer)
{
    if (timer == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Arming of a null timer.");
        return NOT_INITIALISED;
    }

    return arm(record_of(timer), &record_of(timer)->expires, __func__);
}

int zyax_timer_modify(zyax_timer *timer, uint64_t expires)
{
    if (timer == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Re-arming of a null timer.");
        return NOT_INITIALISED;
    }

    return arm(record_of(timer), &expires, __func__);
}

/* The wait ends with the very run that it found: the timer may be initialised and run again by
 * others before this thread wakes. */
static void wait_for_function(const timer_record *timer)
{
    const uint64_t run = s_runs;
    while (s_running == timer && s_runs == run && s_timer_thread != thread_identity())
        pthread_cond_wait(&s_function_ended, &s_lock);
}

int zyax_timer_delete(zyax_timer *timer)
{
    if (timer == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Deletion of a null timer.");
        return NOT_INITIALISED;
    }

    const timer_guard guard;
    timer_record *record = record_of(timer);
    if (record->state == INITIALISED && record->is_armed != 0)
        unlink(record);
    record->state = 0;
    /* Also after another thread's delete, which may be waiting as well. */
    wait_for_function(record);
    return 0;
}
