/*
 * What a console costs the threads that work: the page pair of page_pair_hot, in a process
 *
 *     page_pair_no_console     without one
 *     page_pair_idle_console   that serves one, which nobody asks
 *     page_pair_top            that `cmmctl top` looks at once a second
 *
 * One thread leaves a processor to the console where there are two, so what it loses are cache
 * lines and the moments in which a look holds what it also needs; with as many threads as processors
 * the console's own time is in the figure as well. Each repetition is longer than a second, so that
 * none of the third row is without a look; the report takes the fastest.
 *
 * Only the static form: the console reads the library through the same exported operations in both.
 */
#include "harness.h"

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "console_client.h"
#include "zyax_console.h"
#include "zyumm_console.h"

namespace bench
{

constexpr double LONGER_THAN_A_LOOK = 1.2; /* s */

/* The process's console, on a socket in a fresh folder. */
class served_console
{
public:
    served_console() : folder_(std::filesystem::temp_directory_path() / "cmm_bench_XXXXXX")
    {
        if (mkdtemp(folder_.data()) == nullptr)
            fail("no temporary folder can be made");
        if (zyumm_console_register() != 0 || zyax_console_start(socket_path().c_str()) != 0)
            fail("the console cannot be served");
    }
    ~served_console()
    {
        if (zyax_console_stop() != 0 || zyumm_console_unregister() != 0)
            fail("the console does not stop cleanly");
        std::filesystem::remove_all(folder_);
    }
    served_console(const served_console &) = delete;
    served_console &operator=(const served_console &) = delete;

    std::string socket_path() const
    {
        return folder_ + "/console";
    }

private:
    std::string folder_;
};

static std::unique_ptr<served_console> s_console;
static std::unique_ptr<console_client> s_client;

static void serve(const state &)
{
    s_console = std::make_unique<served_console>();
}

static void serve_and_watch(const state &run)
{
    serve(run);
    s_client = std::make_unique<console_client>(s_console->socket_path());
}

static void end_console(const state &)
{
    s_client.reset();
    s_console.reset();
}

static void add_row(const char *row, int threads, setup before)
{
    add(row, ours_static::NAME, threads, page_pair_hot<ours_pages<ours_static>>)
        ->MinTime(LONGER_THAN_A_LOOK)
        ->Setup(before)
        ->Teardown(end_console);
}

void add_page_console(void)
{
    if (g_turns != 0)
        return; /* how often a client looks depends on the time, not on the turns */
    for (int threads : {1, 2}) {
        add_row("page_pair_no_console", threads, end_console);
        add_row("page_pair_idle_console", threads, serve);
        add_row("page_pair_top", threads, serve_and_watch);
    }
}

} // namespace bench
