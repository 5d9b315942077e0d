/*
 * cmm_bench: the library and its peers in one program, measured in one run.
 *
 *     cmm_bench [--benchmark_...]      the measurements; see the bench script at the root
 *     cmm_bench --memory-of=SOURCE     what memory_bench.cpp asks of a process of its own
 *
 * One of the allocators wants more room for thread-local data than a process sets aside for what
 * it loads later. How much that is can only be said before a program starts, so this one starts
 * itself again with it.
 */
#include "harness.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

static void provide_thread_local_room(char **argv)
{
    constexpr char VARIABLE[] = "GLIBC_TUNABLES";
    if (getenv(VARIABLE) != nullptr)
        return;
    setenv(VARIABLE, "glibc.rtld.optional_static_tls=16384", 1);
    execv("/proc/self/exe", argv);
    bench::fail("the program cannot start itself again");
}

static void add_everything(void)
{
    bench::add_page_alloc();
    bench::add_page_free();
    bench::add_page_tail();
    bench::add_page_timeout();
    bench::add_slab();
    bench::add_slab_limits();
    bench::add_memory();
    bench::add_sgl_copy();
    bench::add_sgl_seek();
    bench::add_sgl_clone();
    bench::add_req_pool();
}

static std::string processor_name(void)
{
    std::ifstream facts("/proc/cpuinfo");
    for (std::string line; std::getline(facts, line);) {
        if (line.starts_with("model name"))
            return line.substr(line.find(':') + 2);
    }
    return "unknown";
}

/* What the report says about the machine; it goes into the result, so that the two stay together.
 * */
static void describe_machine(void)
{
    utsname system = {};
    uname(&system);
    benchmark::AddCustomContext("cpu", processor_name());
    benchmark::AddCustomContext("kernel", std::string(system.sysname) + " " + system.release);
    benchmark::AddCustomContext("compiler", BENCH_COMPILER);
}

int main(int argc, char **argv)
{
    provide_thread_local_room(argv);
    bench::start_peers();
    bench::start_ours({.pages = 100000, .sgls = 4096, .reqs = 1024});

    constexpr char MEMORY_OF[] = "--memory-of=";
    if (argc == 2 && strncmp(argv[1], MEMORY_OF, sizeof MEMORY_OF - 1) == 0)
        return bench::print_memory_of(argv[1] + sizeof MEMORY_OF - 1);

    bench::page_work_check();
    add_everything();
    describe_machine();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    bench::stop_ours();
    return 0;
}
