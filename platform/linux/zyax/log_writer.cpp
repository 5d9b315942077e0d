/*
 * The log's writer: one thread that takes lines out of the queue and hands them to the sinks.
 *
 *     MODE_IDLE ----first line----> MODE_QUEUED ----end of the process, or
 *         ^                                          in a forked child----> MODE_DIRECT
 *         +------------------ a forked child adds a sink ----------------------+
 *
 * In MODE_DIRECT callers write their lines themselves. So they do for one line when the thread
 * cannot be started.
 *
 * Sleeping: the writer says that it sleeps, looks at the queue once more and waits on a semaphore;
 * a thread that has published a line wakes it only if it sleeps. Idle, it costs nothing.
 *
 * Locks: s_start while the mode changes; s_write around each batch, held by whoever writes to the
 * sinks, perhaps for ever if one is stuck. So everything but the writer waits for s_write with a
 * limit, and goes without after it.
 *
 * Fork: the parent's handler takes s_write, so that the child finds the sinks between two batches.
 * The child has no writer; what was queued is the parent's to write.
 */
#include "log_local.h"

#include <semaphore.h>
#include <time.h>

namespace zyax
{

enum log_mode : uint32_t { MODE_IDLE, MODE_QUEUED, MODE_DIRECT };

static constexpr uint32_t BATCH = 64; /* lines that are written before others may write */

/* Milliseconds that somebody waits for sinks which may be stuck. */
static constexpr uint32_t DIRECT_LIMIT = 2000; /* a line without the queue */
static constexpr uint32_t FORK_LIMIT   = 1000;
static constexpr uint32_t EXIT_LIMIT   = 2000; /* the end of the process */
static constexpr uint32_t FLUSH_LIMIT  = 5000; /* zyax_log_flush */

static uint32_t s_mode = MODE_IDLE;
static uint32_t s_is_child;  /* of a fork after which there is no writer */
static uint32_t s_sleeps;    /* the writer waits, or is about to wait, for s_wake */
static uint64_t s_written;   /* positions written */
static uint64_t s_dropped;   /* lines that did not reach every sink */
static uint64_t s_reported;  /* of those, told in a line; under s_write */
static bool s_fork_has_sinks; /* between the handlers of one fork */
static sem_t s_wake;
static pthread_mutex_t s_start = PTHREAD_MUTEX_INITIALIZER;
static pthread_mutex_t s_write = PTHREAD_MUTEX_INITIALIZER;

__attribute__((format(printf, 3, 4)))
static void fill(log_line *line, const log_source &source, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    log_line_fill(line, source, format, args);
    va_end(args);
}

/* Says how many lines are missing. If a sink refuses this line too it is not counted again, or
 * there would be no end. Under s_write. */
static void report_dropped(void)
{
    const uint64_t dropped = __atomic_load_n(&s_dropped, __ATOMIC_RELAXED);
    if (dropped == s_reported)
        return;

    const log_source source = {ZYAX_MODULE_ID, ZYLOG_WARNING, __FILE__, __LINE__, __func__};
    log_line line;
    fill(&line, source, "%lu log lines were dropped.", dropped - s_reported);
    s_reported = dropped;
    log_sinks_write(line);
}

static void write_line(const log_line &line)
{
    if (!log_sinks_write(line))
        log_count_dropped();
}

/* Writes up to BATCH lines; false when there was none. */
static bool write_batch(void)
{
    if (log_queue_front() == nullptr)
        return false;

    pthread_mutex_lock(&s_write);
    const log_line *line = log_queue_front();
    for (uint32_t count = 0; count < BATCH && line != nullptr; ++count) {
        write_line(*line);
        log_queue_pop();
        line = log_queue_front();
    }
    if (line == nullptr)
        report_dropped();
    pthread_mutex_unlock(&s_write);
    __atomic_store_n(&s_written, log_queue_popped(), __ATOMIC_RELEASE);
    return true;
}

static void *writer_main(void *)
{
    for (;;) {
        while (write_batch()) {
        }
        /* Pairs with log_queue_publish, see there. */
        __atomic_store_n(&s_sleeps, 1u, __ATOMIC_SEQ_CST);
        if (log_queue_front() == nullptr)
            sem_wait(&s_wake);
        __atomic_store_n(&s_sleeps, 0u, __ATOMIC_RELAXED);
    }
    return nullptr;
}

static uint32_t start_writer(void)
{
    pthread_mutex_lock(&s_start);
    uint32_t mode = __atomic_load_n(&s_mode, __ATOMIC_RELAXED);
    if (mode == MODE_IDLE) {
        sem_init(&s_wake, 0, 0);
        if (start_service_thread(writer_main, "zyax_log"))
            mode = MODE_QUEUED;
        __atomic_store_n(&s_mode, mode, __ATOMIC_RELEASE);
    }
    pthread_mutex_unlock(&s_start);
    return mode;
}

bool log_writer_is_running(void)
{
    uint32_t mode = __atomic_load_n(&s_mode, __ATOMIC_ACQUIRE);
    if (mode == MODE_IDLE)
        mode = start_writer();
    return mode == MODE_QUEUED;
}

void log_writer_wake(void)
{
    if (__atomic_load_n(&s_sleeps, __ATOMIC_SEQ_CST) != 0 &&
        __atomic_exchange_n(&s_sleeps, 0u, __ATOMIC_RELAXED) != 0)
        sem_post(&s_wake);
}

bool log_writer_wait(uint64_t position, uint32_t milliseconds)
{
    constexpr timespec PAUSE = {0, 100000};

    for (uint64_t pauses = uint64_t(milliseconds) * 10;; --pauses) {
        if (__atomic_load_n(&s_written, __ATOMIC_ACQUIRE) > position)
            return true;
        if (pauses == 0)
            return false;
        nanosleep(&PAUSE, nullptr);
    }
}

void log_write_directly(const log_line &line)
{
    if (!lock_within(&s_write, DIRECT_LIMIT)) {
        log_write_raw(line);
        return;
    }
    write_line(line);
    report_dropped();
    pthread_mutex_unlock(&s_write);
}

void log_count_dropped(void)
{
    __atomic_add_fetch(&s_dropped, 1, __ATOMIC_RELAXED);
}

void log_writer_allow(void)
{
    pthread_mutex_lock(&s_start);
    if (s_is_child != 0) {
        s_is_child = 0;
        __atomic_store_n(&s_mode, uint32_t(MODE_IDLE), __ATOMIC_RELEASE);
    }
    pthread_mutex_unlock(&s_start);
}

static void wait_for_everything(uint32_t milliseconds)
{
    const uint64_t claimed = log_queue_claimed();
    if (claimed != 0)
        log_writer_wait(claimed - 1, milliseconds);
}

static void before_fork(void)
{
    pthread_mutex_lock(&s_start);
    s_fork_has_sinks = lock_within(&s_write, FORK_LIMIT);
    log_sinks_lock_list();
}

static void after_fork_in_parent(void)
{
    log_sinks_unlock_list();
    if (s_fork_has_sinks)
        pthread_mutex_unlock(&s_write);
    pthread_mutex_unlock(&s_start);
}

static void after_fork_in_child(void)
{
    log_sinks_unlock_list();
    if (s_fork_has_sinks) {
        pthread_mutex_unlock(&s_write);
    } else {
        pthread_mutex_init(&s_write, nullptr);
        log_sinks_start_over();
    }

    /* Where the parent had no thread of ours yet, the child is a fresh process to the log. */
    if (s_mode == MODE_QUEUED || had_timer_thread()) {
        s_mode = MODE_DIRECT;
        s_is_child = 1;
    }
    log_queue_reset();
    s_sleeps = 0;
    s_written = 0;
    s_reported = s_dropped;
    pthread_mutex_unlock(&s_start);
}

__attribute__((constructor)) static void begin(void)
{
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

/* The lines of destructors that run later than this one are written directly. */
__attribute__((destructor)) static void end(void)
{
    if (__atomic_exchange_n(&s_mode, uint32_t(MODE_DIRECT), __ATOMIC_ACQ_REL) == MODE_QUEUED)
        wait_for_everything(EXIT_LIMIT);
}

} // namespace zyax

void zyax_log_flush(void)
{
    zyax::wait_for_everything(zyax::FLUSH_LIMIT);
}

uint64_t zyax_log_dropped(void)
{
    return __atomic_load_n(&zyax::s_dropped, __ATOMIC_RELAXED);
}
