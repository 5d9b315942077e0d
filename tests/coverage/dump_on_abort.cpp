/*
 * Counters of a process that aborts.
 *
 * The counters are written when a process exits, and a death test's process aborts: the very lines
 * that such a test is about would count as never run. Linked into the unit tests of the coverage
 * build only, this writes them first and lets the abort go on. Nothing is asynchronous about it:
 * the signal is raised by the thread's own call of abort, with no lock of the runtime held.
 */
#include <csignal>

extern "C" void __gcov_dump(void);

static void dump_and_die(int signal_number)
{
    __gcov_dump();
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}

[[maybe_unused]] static const auto s_before = std::signal(SIGABRT, dump_and_die);
