/*
 * The thread that serves queued requests for pages; the library leaves that to its embedder.
 *
 * It looks at the queue at least every 10 ms, and at once when it is told that pages came back:
 * while requests wait it starts a run, and finishes a run that is pending. Between runs that served
 * nothing it pauses, however often it is told: pages are held by threads that need the processor.
 *
 * Threads: only this thread ever runs the queue. Stopped before the library is.
 */
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

struct page_statistics;

class retry_poller
{
public:
    explicit retry_poller(const page_statistics &statistics) : statistics_(statistics) {}
    ~retry_poller() { stop(); }

    void start();
    void stop();

    /* Pages came back, or a request was queued. Any thread but a call-back's. */
    void signal();

    uint64_t runs() const { return runs_; }

private:
    void loop();
    bool run_queue();
    void pause(bool served);

    const page_statistics  &statistics_;
    std::mutex              lock_;
    std::condition_variable wake_;
    bool                    stopping_  = false;
    bool                    signalled_ = false;
    std::atomic<uint64_t>   runs_{0};
    std::thread             thread_;
};
