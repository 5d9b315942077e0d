/*
 * The retry queue with everybody at it at once: threads that queue, threads that free, the driver,
 * walks beside the platform's own.
 *
 * The clock is this program's: it advances at each reading, by almost half a walk's budget. So a
 * walk is out of time after two records and leaves its marker, whatever the machine does, a run
 * ends after the record that it served, and time-outs pass by readings and not by waiting.
 */
#include <deque>
#include <memory>

#include "node_process.h"

static constexpr uint32_t MODULE = 84;
static constexpr uint64_t A_READING = 450000; /* ns */
static constexpr uint32_t POOL_PAGES = 256;

static std::atomic<uint64_t> s_now{1000000000};

extern "C" __attribute__((visibility("default"))) uint64_t zyax_time_getnanosec(void)
{
    return s_now.fetch_add(A_READING);
}

namespace
{

/* How one request ended. */
struct ending {
    std::atomic<uint32_t> ends{0};
    std::atomic<uint32_t> fails{0};
    uint32_t pages = 0; /* asked for; 0 = one page without a chain */
};

struct delivery {
    void *result;
    bool is_chain;
};

/* What came and has to go back; it ends when everybody is answered. */
struct storm {
    explicit storm(uint32_t requests) : endings(requests)
    {
    }

    std::vector<ending> endings;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<delivery> delivered;
    uint32_t answered = 0;
    std::atomic<uint32_t> served{0}, expired{0}, refused{0}, wrong{0};

    bool is_over() const
    {
        return answered == endings.size();
    }
};

storm *s_storm;

void on_fail(uint64_t number)
{
    s_storm->endings[number].fails++;
}

/* Runs under the list lock when it tells of a time-out, so it only takes notes. */
void on_end(void *result, uint64_t number, uint32_t code)
{
    storm &all = *s_storm;
    ending &mine = all.endings[number];
    if (mine.ends++ != 0 || (result != nullptr) != (code == 0) ||
        mine.fails != (code == 0 ? 0u : 1u))
        all.wrong++;
    (code == 0 ? all.served : code == PAGE_RETRY_TIMED_OUT ? all.expired : all.refused)++;

    const std::lock_guard<std::mutex> guard(all.mutex);
    if (result != nullptr)
        all.delivered.push_back({result, mine.pages != 0});
    all.answered++;
    all.changed.notify_all();
}

void ask(uint32_t number, uint32_t pages, uint32_t timeout)
{
    s_storm->endings[number].pages = pages;
    if (pages == 0)
        allocOnePageForPagePoolTimeOut(nullptr, timeout, on_end, number, on_fail, number, MODULE,
                                       __func__, __LINE__);
    else
        allocMultiPagesForPagePoolTimeOut(pages, nullptr, timeout, on_end, number, on_fail, number,
                                          MODULE, __func__, __LINE__);
}

/* Asks for its share of the requests, never more than a few ahead of the answers. */
void queue_requests(uint32_t from, uint32_t to, uint32_t threads)
{
    static constexpr uint32_t TIMEOUTS[] = {0, 1, 3600, PAGE_TIMEOUT_NEVER};
    storm &all = *s_storm;
    for (uint32_t number = from; number < to; ++number) {
        {
            std::unique_lock<std::mutex> guard(all.mutex);
            const uint32_t asked = (number - from) * threads;
            all.changed.wait(guard, [&] { return all.answered + 48 > asked; });
        }
        ask(number, number % 5 == 0 ? 0 : 1 + number * 7 % 120, TIMEOUTS[number % 4]);
    }
}

/* Frees what was delivered, a little later than it came. */
void free_deliveries()
{
    storm &all = *s_storm;
    for (;;) {
        delivery next = {};
        {
            std::unique_lock<std::mutex> guard(all.mutex);
            all.changed.wait(guard, [&] { return !all.delivered.empty() || all.is_over(); });
            if (all.delivered.empty())
                return;
            next = all.delivered.front();
            all.delivered.pop_front();
        }
        std::this_thread::yield();
        if (next.is_chain)
            freeMultiPages(static_cast<SGL *>(next.result), MODULE, __func__, __LINE__);
        else
            freeOnePage(static_cast<page_ctrl *>(next.result), MODULE, __func__, __LINE__);
    }
}

bool is_over()
{
    const std::lock_guard<std::mutex> guard(s_storm->mutex);
    return s_storm->is_over();
}

/* As the interface says, with a pause that lets others at the machine. */
void drive()
{
    while (!is_over()) {
        if (__atomic_load_n(&s_retry_req_list.sum, __ATOMIC_RELAXED) != 0)
            page_start_retry();
        if (__atomic_load_n(&s_enter_retry_cnt, __ATOMIC_RELAXED) != 0)
            page_do_retry();
        std::this_thread::yield();
    }
}

void run_unasked()
{
    while (!is_over()) {
        page_do_retry();
        std::this_thread::yield();
    }
}

void walk()
{
    while (!is_over()) {
        umm_hung_page_timeout_detect();
        std::this_thread::yield();
    }
}

/* Two threads that queue and two that free, beside the helpers, until all have their answer. */
void run_storm(const std::vector<void (*)()> &helpers)
{
    const uint32_t half = uint32_t(s_storm->endings.size()) / 2;
    std::vector<std::thread> threads;
    threads.emplace_back(queue_requests, 0, half, 2);
    threads.emplace_back(queue_requests, half, 2 * half, 2);
    threads.emplace_back(free_deliveries);
    threads.emplace_back(free_deliveries);
    for (void (*helper)() : helpers)
        threads.emplace_back(helper);
    for (std::thread &thread : threads)
        thread.join();
}

void expect_nothing_left(uint32_t requests)
{
    EXPECT_EQ(s_storm->served + s_storm->expired + s_storm->refused, requests);
    EXPECT_EQ(s_storm->wrong, 0u);
    EXPECT_EQ(s_retry_req_list.sum, 0u);
    EXPECT_EQ(s_retry_req_list.head.next, &s_retry_req_list.head);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
    uint64_t total = 0, used = 0;
    zymm_slab_get_usage_info(s_page_request_id, &total, &used);
    EXPECT_EQ(total, 32u);
    EXPECT_EQ(used, 0u) << "records of requests";
}

class QueueStorm : public ::testing::Test
{
protected:
    QueueStorm() : config_({POOL_PAGES, 64, 8})
    {
    }

    void SetUp() override
    {
        ASSERT_EQ(cmm_module_init(), 0u);
    }

    void begin(uint32_t requests)
    {
        storm_ = std::make_unique<storm>(requests);
        s_storm = storm_.get();
    }

private:
    const config_directory config_;
    std::unique_ptr<storm> storm_;
};

} // namespace

TEST_F(QueueStorm, every_request_is_answered_once_however_little_time_walks_and_runs_have)
{
    begin(6000);
    run_storm({drive, walk});
    expect_nothing_left(6000);
    EXPECT_LE(s_enter_retry_cnt, 1u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/* Not how the queue is to be driven: the count of pending runs is spoilt. The requests are not. */
TEST_F(QueueStorm, runs_that_meet_answer_no_request_twice_and_lose_none)
{
    begin(6000);
    run_storm({run_unasked, run_unasked, walk});
    expect_nothing_left(6000);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/* Two records a walk at most, and a record is passed over once: the markers lead to all of them. */
TEST_F(QueueStorm, walks_that_are_always_out_of_time_reach_everybody_in_the_end)
{
    begin(30);
    SGL *all = nullptr;
    allocMultiPagesSync(POOL_PAGES, &all, MODULE, __func__, __LINE__);
    ASSERT_NE(all, nullptr);
    for (uint32_t number = 0; number < 30; ++number)
        ask(number, 2, 0);

    std::vector<std::thread> walkers;
    for (int i = 0; i < 3; ++i)
        walkers.emplace_back(walk);
    for (std::thread &walker : walkers)
        walker.join();

    EXPECT_EQ(s_storm->expired, 30u);
    freeMultiPages(all, MODULE, __func__, __LINE__);
    expect_nothing_left(30);
    EXPECT_EQ(cmm_module_exit(), 0u);
}
