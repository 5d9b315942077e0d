/*
 * Everything together: a process with the memory manager and its console, and the program beside
 * it.
 */
#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <unistd.h>

#include <atomic>
#include <thread>

#include <nlohmann/json.hpp>

#include "stack/node/node_program.h"
#include "stack/node_process.h"
#include "terminal.h"
#include "zyax_console.h"
#include "zyax_log.h"
#include "zyumm_console.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using nlohmann::json;

namespace {

constexpr uint32_t MODULE = 77;

/* Where a request's pages or its failure arrive. */
struct arrival {
    std::atomic<bool> has_come = false;
    SGL              *pages = nullptr;
};

void take_arrival(void *result, uint64_t to, uint32_t)
{
    auto *at = reinterpret_cast<arrival *>(to);
    at->pages = static_cast<SGL *>(result);
    at->has_come = true;
}

void take_failure(uint64_t)
{
}

class LiveNode : public NodeProgram
{
protected:
    LiveNode()
    {
        zyax_module_name_set(MODULE, "tester");
        EXPECT_EQ(cmm_module_init(), 0u);
        EXPECT_EQ(zyumm_console_register(), 0);
        EXPECT_EQ(zyax_console_start(path("console").c_str()), 0);
    }

    ~LiveNode() override
    {
        EXPECT_EQ(zyax_console_stop(), 0);
        EXPECT_EQ(zyumm_console_unregister(), 0);
        cmm_module_exit();
    }

    node_result ask(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"-s", path("console")});
        return run_program(CMMCTL_PROGRAM, arguments, scratch_);
    }

    /* One frame; asked for again while the list of requests is locked by the walk over it. */
    std::string top_once() const
    {
        std::string frame;
        do
            frame = ask({"top", "--once", "--interval", "0.05"}).out;
        while (frame.find("(list busy)") != std::string::npos);
        return frame;
    }

    SGL *take_pages(uint32_t count) const
    {
        SGL *chain = nullptr;
        allocMultiPagesSync(count, &chain, MODULE, "take_pages", 41);
        EXPECT_NE(chain, nullptr);
        return chain;
    }

    config_directory config_{{128, 64, 32}};
};

} // namespace

TEST_F(LiveNode, answers_every_show_command_in_text_and_json)
{
    SGL *const pages = take_pages(5);

    for (const char *what : {"pools", "pool PAGE PARTITION", "holders PAGE PARTITION", "requests",
                             "requests all", "leaks", "numa", "config", "partitions"}) {
        const node_result text = ask({"umm", "show", what});
        EXPECT_EQ(text.code, 0) << what << text.err;
        EXPECT_NE(text.out, "") << what;
        const node_result answer = ask({"umm", "show", what, "--json"});
        EXPECT_EQ(answer.code, 0) << what << answer.err;
        EXPECT_TRUE(json::parse(answer.out, nullptr, false).is_object()) << what << answer.out;
    }
    freeMultiPages(pages, MODULE, __func__, __LINE__);
}

TEST_F(LiveNode, answers_a_command_that_it_does_not_know_with_the_code_1)
{
    const node_result result = ask({"umm", "show", "poools"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("umm show pools"));
}

TEST_F(LiveNode, has_metrics_that_are_valid_and_true)
{
    SGL *const pages = take_pages(5);
    const node_result checked = run_program(
        PYTHON, {OPENMETRICS_CHECKER, "--run", CMMCTL_PROGRAM, "-s", path("console"), "metrics"},
        scratch_);
    const node_result metrics = ask({"metrics"});

    EXPECT_EQ(checked.out, "openmetrics: nothing to report\n");
    EXPECT_THAT(metrics.out,
                ContainsRegex("\ncmm_pool_used_objects.pool=\"PAGE PARTITION\"[^\n]* 5\n"));
    EXPECT_THAT(metrics.out,
                ContainsRegex("\ncmm_pool_max_objects.pool=\"PAGE PARTITION\"[^\n]* 128\n"));
    EXPECT_THAT(metrics.out,
                ContainsRegex("\ncmm_holder_objects[^\n]*module_id=\"77\",module=\"tester\","
                              "function=\"take_pages\",line=\"41\". 5\n"));
    EXPECT_THAT(metrics.out, HasSubstr("\ncmm_queue_requests 0\n"));
    EXPECT_THAT(metrics.out, HasSubstr("pid=\"" + std::to_string(getpid()) + "\"} 1\n"));
    freeMultiPages(pages, MODULE, __func__, __LINE__);
}

TEST_F(LiveNode, shows_who_waits_and_who_holds)
{
    SGL *const pages = take_pages(128);
    arrival arrived;
    allocMultiPagesForPagePoolTimeOut(16, nullptr, PAGE_TIMEOUT_NEVER, take_arrival,
                                      reinterpret_cast<uint64_t>(&arrived), take_failure, 0, MODULE,
                                      "wait_for_pages", 90);

    const std::string top = top_once();
    const node_result metrics = ask({"metrics"});

    EXPECT_THAT(top, ContainsRegex("\nwaiting 1"));
    EXPECT_THAT(top, ContainsRegex("\nPAGE PARTITION +128 +128 .#+. +100%"));
    EXPECT_THAT(top, ContainsRegex(" 16 +[0-9.msh]+ +never +sgl +tester +wait_for_pages:90\n"));
    EXPECT_THAT(top, ContainsRegex(" 128 [^\n]* tester +take_pages:41\n"));
    EXPECT_THAT(metrics.out, HasSubstr("\ncmm_queue_requests 1\n"));

    freeMultiPages(pages, MODULE, __func__, __LINE__);
    {
        retry_poller poller;
        while (!arrived.has_come)
            std::this_thread::yield();
    }
    freeMultiPages(arrived.pages, MODULE, __func__, __LINE__);
}

TEST_F(LiveNode, is_followed_by_top_while_pages_come_and_go)
{
    const terminal shown(scratch_, 80, 24,
                         CMMCTL_PROGRAM " -s " + path("console") + " top --interval 0.1");
    ASSERT_TRUE(shown.shows("PAGE PARTITION       0   128"));

    SGL *const pages = take_pages(100);
    EXPECT_TRUE(shown.shows("PAGE PARTITION     100   128"));
    EXPECT_TRUE(shown.shows("take_pages:41"));
    freeMultiPages(pages, MODULE, __func__, __LINE__);
    EXPECT_TRUE(shown.shows("PAGE PARTITION       0   128"));
    EXPECT_TRUE(shown.shows_no("take_pages:41"));
    shown.press({"q"});
    EXPECT_EQ(shown.exit_code(), 0);
}
