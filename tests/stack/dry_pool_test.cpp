/*
 * Many threads on a page pool far too small for them: requests wait in the retry queue, are served
 * or time out, and each ends exactly once.
 */
#include <array>
#include <deque>
#include <memory>
#include <random>

#include "node_process.h"

static constexpr uint32_t MODULE         = 77;
static constexpr int      WORKERS        = 8;
static constexpr int      REQUESTS       = 5000; /* a worker */
static constexpr uint32_t POOL_PAGES     = 96;
static constexpr uint32_t PAGES_AT_MOST  = 64; /* a request */
static constexpr uint32_t NEVER_FINISHED = 0xFFFF0000;

namespace
{

/* One request's ending, as its call-backs reported it. */
struct ending {
    std::mutex              mutex;
    std::condition_variable done;
    void                   *result      = nullptr;
    uint32_t                code        = NEVER_FINISHED;
    uint32_t                calls       = 0;
    uint32_t                fail_calls  = 0;
    bool                    fail_before = false;
};

void on_failure(uint64_t arg)
{
    ending                           *end = reinterpret_cast<ending *>(arg);
    const std::lock_guard<std::mutex> guard(end->mutex);
    end->fail_calls++;
    end->fail_before = end->calls == 0;
}

void on_end(void *result, uint64_t arg, uint32_t code)
{
    ending                           *end = reinterpret_cast<ending *>(arg);
    const std::lock_guard<std::mutex> guard(end->mutex);
    end->result = result;
    end->code   = code;
    end->calls++;
    end->done.notify_one();
}

uint32_t wait_for(ending &end)
{
    std::unique_lock<std::mutex> guard(end.mutex);
    end.done.wait(guard, [&end] { return end.calls != 0; });
    return end.code;
}

/* What a test adds up over its workers. */
struct totals {
    std::atomic<uint64_t> delivered{0};
    std::atomic<uint64_t> timed_out{0};
    std::atomic<uint64_t> not_queued{0};
    std::atomic<uint64_t> wrong{0};
};

bool is_consistent(const ending &end)
{
    if (end.calls != 1)
        return false;
    if (end.code == 0)
        return end.result != nullptr && end.fail_calls == 0;
    return end.result == nullptr && end.fail_calls == 1 && end.fail_before;
}

/* Writes a mark into each page and finds it again: no page is in two hands. */
bool pages_are_private(SGL *chain, uint32_t count, uint64_t mark)
{
    SGL     *sgl   = chain;
    uint32_t index = 0;
    for (uint32_t i = 0; i < count; ++i, move2NextEntryAndModifyPSgl(&sgl, &index))
        *reinterpret_cast<uint64_t *>(sgl->entries[index].buf) = mark + i;
    std::this_thread::yield();
    sgl   = chain;
    index = 0;
    for (uint32_t i = 0; i < count; ++i, move2NextEntryAndModifyPSgl(&sgl, &index))
        if (*reinterpret_cast<uint64_t *>(sgl->entries[index].buf) != mark + i)
            return false;
    return true;
}

void finish(ending &end, uint32_t count, bool single, uint64_t mark, totals &sum)
{
    const uint32_t code = wait_for(end);
    if (!is_consistent(end))
        sum.wrong++;
    if (code == PAGE_RETRY_TIMED_OUT)
        sum.timed_out++;
    else if (code == PAGE_RETRY_NOT_QUEUED)
        sum.not_queued++;
    if (code != 0)
        return;

    sum.delivered++;
    if (single) {
        freeOnePage(static_cast<page_ctrl *>(end.result), MODULE, __func__, __LINE__);
        return;
    }
    SGL *chain = static_cast<SGL *>(end.result);
    if (chain->entrySumInChain != count || !pages_are_private(chain, count, mark))
        sum.wrong++;
    freeMultiPages(chain, MODULE, __func__, __LINE__);
}

void run_worker(int worker, uint32_t timeout, retry_poller &poller, totals &sum)
{
    std::mt19937 random(static_cast<uint32_t>(worker));
    for (int i = 0; i < REQUESTS; ++i) {
        const auto     end    = std::make_unique<ending>();
        const uint64_t arg    = reinterpret_cast<uint64_t>(end.get());
        const bool     single = random() % 4 == 0;
        const uint32_t count  = single ? 1 : 1 + random() % PAGES_AT_MOST;

        if (single)
            allocOnePageForPagePoolTimeOut(nullptr, timeout, on_end, arg, on_failure, arg, MODULE,
                                           __func__, __LINE__);
        else
            allocMultiPagesForPagePoolTimeOut(count, nullptr, timeout, on_end, arg, on_failure, arg,
                                              MODULE, __func__, __LINE__);
        finish(*end, count, single, arg, sum);
        poller.signal();
    }
}

void run_workers(uint32_t timeout, retry_poller &poller, totals &sum)
{
    std::vector<std::thread> workers;
    for (int worker = 0; worker < WORKERS; ++worker)
        workers.emplace_back([=, &poller, &sum] { run_worker(worker, timeout, poller, sum); });
    for (std::thread &worker : workers)
        worker.join();
}

} // namespace

TEST(DryPool, every_request_of_eight_threads_is_served_exactly_once)
{
    const config_directory config({POOL_PAGES, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    totals sum;
    {
        retry_poller poller;
        run_workers(PAGE_TIMEOUT_NEVER, poller, sum);
    }

    EXPECT_EQ(sum.delivered, uint64_t(WORKERS) * REQUESTS);
    EXPECT_EQ(sum.timed_out, 0u);
    EXPECT_EQ(sum.not_queued, 0u);
    EXPECT_EQ(sum.wrong, 0u);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(DryPool, requests_that_may_not_wait_end_exactly_once_too)
{
    const config_directory config({POOL_PAGES, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    totals sum;
    {
        retry_poller poller;
        run_workers(0, poller, sum);
    }

    EXPECT_EQ(sum.delivered + sum.timed_out + sum.not_queued, uint64_t(WORKERS) * REQUESTS);
    EXPECT_EQ(sum.wrong, 0u);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(DryPool, a_request_that_nobody_can_serve_is_ended_by_the_platform_timer)
{
    const config_directory config({POOL_PAGES, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    SGL *all = nullptr;
    allocMultiPagesSync(POOL_PAGES, &all, MODULE, __func__, __LINE__);
    ASSERT_NE(all, nullptr);

    std::array<ending, 3> ends;
    for (ending &end : ends) {
        const uint64_t arg = reinterpret_cast<uint64_t>(&end);
        allocMultiPagesForPagePoolTimeOut(2, nullptr, 0, on_end, arg, on_failure, arg, MODULE,
                                          __func__, __LINE__);
    }
    for (ending &end : ends) {
        EXPECT_EQ(wait_for(end), 0x80009301u);
        EXPECT_TRUE(is_consistent(end));
    }
    freeMultiPages(all, MODULE, __func__, __LINE__);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(DryPool, more_waiters_than_an_eighth_of_the_pool_are_refused_at_once)
{
    const config_directory config({16, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    SGL *all = nullptr;
    allocMultiPagesSync(16, &all, MODULE, __func__, __LINE__);
    ASSERT_NE(all, nullptr);

    std::array<ending, 3> ends;
    for (ending &end : ends) {
        const uint64_t arg = reinterpret_cast<uint64_t>(&end);
        allocOnePageForPagePoolTimeOut(nullptr, PAGE_TIMEOUT_NEVER, on_end, arg, on_failure, arg,
                                       MODULE, __func__, __LINE__);
    }
    EXPECT_EQ(wait_for(ends[2]), 0xFFFFFFFFu);
    EXPECT_TRUE(is_consistent(ends[2]));
    {
        retry_poller poller;
        freeMultiPages(all, MODULE, __func__, __LINE__);
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(wait_for(ends[size_t(i)]), 0u);
            freeOnePage(static_cast<page_ctrl *>(ends[size_t(i)].result), MODULE, __func__,
                        __LINE__);
        }
    }
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}
