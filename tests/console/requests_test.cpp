/*
 * "umm show requests" and "umm show requests all": the memory manager's own texts, and JSON.
 */
#include "console_process.h"

#include "zyax.h"

namespace
{

class ShowRequests : public console_process
{
};

void on_pages(void *, uint64_t, uint32_t)
{
}

void on_failure(uint64_t)
{
}

/* All pages are out, so that every request waits. */
class ShowWaitingRequests : public console_process
{
protected:
    ShowWaitingRequests()
    {
        allocMultiPagesSync(128, &all_, TEST_MODULE, "hoarder", 1);
        EXPECT_NE(all_, nullptr);
    }
    ~ShowWaitingRequests() override
    {
        freeMultiPages(all_, TEST_MODULE, "hoarder", 1);
    }

    static void queue_one(uint32_t seconds, const char *func, uint32_t line)
    {
        allocOnePageForPagePoolTimeOut(nullptr, seconds, on_pages, 0, on_failure, 0, TEST_MODULE,
                                       func, line);
    }
    static void queue_run(uint32_t pages, uint32_t seconds, const char *func, uint32_t line)
    {
        allocMultiPagesForPagePoolTimeOut(pages, nullptr, seconds, on_pages, 0, on_failure, 0,
                                          TEST_MODULE, func, line);
    }

    SGL *all_ = nullptr;
};

const char HEADING[] = "Seq ID       Page Count   Start Time         Function Name"
                       "                    File Line    Module ID    Module Name"
                       "        Output Type \n";

} // namespace

TEST_F(ShowRequests, without_requests_there_are_zero)
{
    EXPECT_EQ(run_line("umm show requests").text, " The page request number is ZERO.\n");
    EXPECT_EQ(run_line("umm show requests all").text, " The page request number is ZERO.\n");
    const json expected = json::parse(R"({"busy": false, "count": 0, "requests": []})");
    EXPECT_EQ(run_json("umm show requests"), expected);
    EXPECT_EQ(parse_answer("umm show requests all", run_line("--json umm show requests all")),
              expected);
}

TEST_F(ShowWaitingRequests, waiting_requests_are_shown_in_the_library_s_words)
{
    queue_run(5, 30, "first_asker", 100);
    queue_one(60, "second_asker", 200);
    const std::string expected =
        std::string(" The page request number is 2.\n") + HEADING +
        "1            5            1000000000000      first_asker                      "
        "100          77           tester             SGL         \n"
        "2            1            1000000000000      second_asker                     "
        "200          77           tester             PAGE CTRL   \n";
    EXPECT_EQ(run_when_not_busy("umm show requests").text, expected);
    EXPECT_EQ(run_when_not_busy("umm show requests all").text, expected);
}

TEST_F(ShowWaitingRequests, waiting_requests_have_their_ages_in_json)
{
    queue_run(5, 30, "first_asker", 100);
    advance_clock_ms(1'500);
    queue_one(PAGE_TIMEOUT_NEVER, "second_asker", 200);
    advance_clock_ms(250);
    const json expected = json::parse(R"({
        "busy": false, "count": 2, "requests": [
          {"place": 1, "age_ms": 1750, "timeout_ms": 30000, "pages_wanted": 5, "is_served": false,
           "kind": "sgl", "module_id": 77, "module": "tester", "function": "first_asker",
           "line": 100},
          {"place": 2, "age_ms": 250, "timeout_ms": null, "pages_wanted": 1, "is_served": false,
           "kind": "page", "module_id": 77, "module": "tester", "function": "second_asker",
           "line": 200}]})");
    EXPECT_EQ(run_json("umm show requests"), expected);
    EXPECT_EQ(
        parse_answer("umm show requests all", run_when_not_busy("--json umm show requests all")),
        expected);
}

/* The pool has 128 pages, so 16 requests may wait. */
TEST_F(ShowWaitingRequests, of_many_requests_the_newest_eleven_are_shown_and_all_on_demand)
{
    for (uint32_t line = 1; line <= 16; ++line)
        queue_one(600, "asker", line);
    const json newest = run_json("umm show requests");
    EXPECT_EQ(newest["count"], 16);
    ASSERT_EQ(newest["requests"].size(), 11u);
    EXPECT_EQ(newest["requests"][0]["place"], 6);
    EXPECT_EQ(newest["requests"][0]["line"], 6);
    EXPECT_EQ(newest["requests"][10]["place"], 16);
    EXPECT_EQ(newest["requests"][10]["line"], 16);

    const json all =
        parse_answer("umm show requests all", run_when_not_busy("--json umm show requests all"));
    ASSERT_EQ(all["requests"].size(), 16u);
    EXPECT_EQ(all["requests"][0]["place"], 1);
    EXPECT_EQ(all["requests"][0]["line"], 1);
    EXPECT_EQ(all["requests"][15]["line"], 16);

    const std::string text = run_when_not_busy("umm show requests").text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 + 11);
    const std::string all_text = run_when_not_busy("umm show requests all").text;
    EXPECT_EQ(std::count(all_text.begin(), all_text.end(), '\n'), 2 + 16);
}

TEST_F(ShowWaitingRequests, a_request_that_a_run_is_serving_says_so)
{
    queue_one(600, "asker", 1);
    page_retry_req *const req = reinterpret_cast<page_retry_req *>(s_retry_req_list.head.next);
    __atomic_store_n(&req->served, 1u, __ATOMIC_RELAXED);
    EXPECT_EQ(run_json("umm show requests")["requests"][0]["is_served"], true);
    __atomic_store_n(&req->served, 0u, __ATOMIC_RELAXED);
}

TEST_F(ShowWaitingRequests, a_locked_list_is_busy_and_nobody_waits)
{
    queue_one(600, "asker", 1);
    do_zyax_spinlock_lock(&s_retry_req_list.lock, __func__, __LINE__);
    const answer text = run_line("umm show requests");
    const answer newest = run_line("--json umm show requests");
    const answer all = run_line("--json umm show requests all");
    do_zyax_spinlock_unlock(&s_retry_req_list.lock);
    EXPECT_EQ(text.text, " The page request number is 1.\nTry to lock the list failed.\n");
    const json busy = json::parse(R"({"busy": true, "count": 1, "requests": []})");
    EXPECT_EQ(parse_answer("umm show requests", newest), busy);
    EXPECT_EQ(parse_answer("umm show requests all", all), busy);
}

TEST_F(ShowWaitingRequests, other_words_are_no_command)
{
    EXPECT_EQ(run_line("umm show requests some").status, -1);
    EXPECT_EQ(run_line("umm show requests all of them").status, -1);
    EXPECT_EQ(run_line("--json umm show requests all of them").status, -1);
}
