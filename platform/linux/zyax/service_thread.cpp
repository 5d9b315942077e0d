/*
 * The platform's own threads: the log's writer, the timer thread and the console's server.
 *
 * The first two are detached and live as long as the process. Nothing joins them at the end: one of
 * them may be stuck in a sink, and a process that ends must not wait for it. The server is joined
 * by whoever stops it.
 */
#include "zyax_local.h"

#include <signal.h>
#include <time.h>

namespace zyax
{

static void fill_asynchronous_signals(sigset_t *set)
{
    static constexpr int FAULTS[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS};

    sigfillset(set);
    for (const int fault : FAULTS)
        sigdelset(set, fault);
}

bool start_service_thread(void *(*thread_main)(void *), const char *name, pthread_t *joinable)
{
    sigset_t blocked;
    sigset_t before;
    fill_asynchronous_signals(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);

    pthread_t thread;
    const bool started = pthread_create(&thread, nullptr, thread_main, nullptr) == 0;
    if (started) {
        pthread_setname_np(thread, name);
        if (joinable != nullptr)
            *joinable = thread;
        else
            pthread_detach(thread);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

bool lock_within(pthread_mutex_t *mutex, uint32_t milliseconds)
{
    constexpr timespec ONE_MILLISECOND = {0, 1000000};

    for (uint32_t waited = 0; pthread_mutex_trylock(mutex) != 0; ++waited) {
        if (waited == milliseconds)
            return false;
        nanosleep(&ONE_MILLISECOND, nullptr);
    }
    return true;
}

} // namespace zyax
