/*
 * Starts the workers and waits for them in short steps, in which the main thread draws the progress
 * and answers signals.
 */
#include "phase_run.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "pool_show.h"
#include "progress.h"

namespace {

constexpr std::chrono::milliseconds STEP{100};

/* Counts workers down, so that the main thread can look on while they work. */
class finish_line
{
public:
    explicit finish_line(size_t runners) : running_(runners) {}

    void cross()
    {
        std::lock_guard hold(lock_);
        --running_;
        all_there_.notify_one();
    }

    bool wait_for(std::chrono::milliseconds time)
    {
        std::unique_lock hold(lock_);
        return all_there_.wait_for(hold, time, [this] { return running_ == 0; });
    }

private:
    std::mutex              lock_;
    std::condition_variable all_there_;
    size_t                  running_;
};

void print_pools(page_cache &cache)
{
    printf("\n%s\n", show_pools(cache).c_str());
    fflush(stdout);
}

void answer_signals(work_list &list, onlooker &look)
{
    look.signals.fetch([&list] { list.stop(); });
    if (look.signals.stop_signal() != 0) /* perhaps of an earlier phase */
        list.stop();
    if (look.signals.take_show())
        print_pools(look.cache);
}

} // namespace

phase_result run_phase(const char *name, phase what, work_list &list, std::deque<worker> &workers,
                       uint64_t total, onlooker &look)
{
    const auto start = std::chrono::steady_clock::now();
    progress shown(name, total, look.quiet);
    finish_line finish(workers.size());
    std::vector<std::jthread> threads;
    bool to_show = look.show;

    answer_signals(list, look);
    for (worker &one : workers)
        threads.emplace_back([&] {
            one.run(what, list);
            finish.cross();
        });
    for (bool finished = false; !finished;) {
        finished = finish.wait_for(STEP);
        answer_signals(list, look);
        if (to_show && (finished || list.bytes_done() >= total / 2)) {
            print_pools(look.cache);
            to_show = false;
        }
        if (!finished)
            shown.show(list.bytes_done());
    }
    threads.clear();
    shown.finish(list.bytes_done());

    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return {list.bytes_done(), list.chunks_done(), took.count()};
}
