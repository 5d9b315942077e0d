/*
 * The memory that 100,000 pages cost: resident memory of the process before the first and after
 * the last, beyond 100,000 x 8,384 bytes, as the counter "excess" (0.01 = 1 %).
 *
 * Each source is measured in a process of its own, this program started again, since an allocator
 * that other rows have used already has memory to spare.
 */
#include "harness.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace bench
{

constexpr uint32_t PAGES = 100000;

/* A pool for exactly these pages, so that nothing is spent on others. */
struct packet_of_all : packet {
    static void prepare(uint32_t pages)
    {
        s_pool = packet_pool_create(pages, PACKET_CACHE);
    }
};

using memory_sources =
    sources<ours_pages<ours_static>, ours_pages<ours_shared>, peer_pages<packet_of_all>,
            peer_pages<glibc>, peer_pages<mimalloc>, peer_pages<jemalloc>, peer_pages<tcmalloc>>;

static double resident_bytes(void)
{
    unsigned long all = 0;
    unsigned long resident = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    if (file == nullptr || fscanf(file, "%lu %lu", &all, &resident) != 2)
        fail("/proc/self/statm cannot be read");
    fclose(file);
    return double(resident) * double(sysconf(_SC_PAGESIZE));
}

template <class SOURCE>
static double measure_excess(void)
{
    static page_ctrl *s_pages[PAGES];
    for (page_ctrl *&page : s_pages)
        put(&page, static_cast<page_ctrl *>(nullptr)); /* resident before the count begins */

    const double before = resident_bytes();
    SOURCE::prepare(PAGES);
    for (page_ctrl *&page : s_pages) {
        page = SOURCE::take();
        if (page == nullptr)
            fail("a source has no 100,000 pages");
    }
    const double spent = resident_bytes() - before;
    return spent / (double(PAGES) * double(PAGE_STRIDE)) - 1.0;
}

int print_memory_of(const char *source)
{
    bool is_known = false;
    memory_sources::each([&]<class SOURCE>(std::type_identity<SOURCE>) {
        if (strcmp(source, SOURCE::NAME) != 0)
            return;
        is_known = true;
        printf("excess %.6f\n", measure_excess<SOURCE>());
    });
    fflush(stdout);
    return is_known ? 0 : 1;
}

template <class SOURCE>
static void memory_100k(state &run)
{
    char program[4096];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    if (length < 0)
        fail("the program does not find itself");
    program[length] = '\0';
    const std::string command =
        "'" + std::string(program) + "' --memory-of=" + std::string(SOURCE::NAME);

    double excess = 0;
    for (auto _ : run) {
        FILE *child = popen(command.c_str(), "r");
        if (child == nullptr || fscanf(child, "excess %lf", &excess) != 1 || pclose(child) != 0)
            fail("memory could not be measured");
    }
    run.counters["excess"] = excess;
}

void add_memory(void)
{
    memory_sources::each([]<class SOURCE>(std::type_identity<SOURCE>) {
        add("memory_100k", SOURCE::NAME, 1, memory_100k<SOURCE>)->Iterations(1)->Repetitions(1);
    });
}

} // namespace bench
