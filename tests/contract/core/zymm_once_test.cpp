/*
 * The once-guard.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "zymm.h"

namespace
{

std::atomic<int> g_runs;
std::atomic<int> g_waiting;
uint64_t         g_outer_word, g_inner_word;
uint32_t         g_outer_status, g_inner_status;

uint32_t succeed()
{
    ++g_runs;
    return 0;
}

uint32_t fail()
{
    ++g_runs;
    return 0xFFFFFFFF;
}

/* Does not end before all four callers have announced themselves. */
uint32_t wait_for_company()
{
    ++g_runs;
    while (g_waiting.load() < 4)
        std::this_thread::yield();
    return 7;
}

uint32_t run_the_inner_one()
{
    return zymm_init_once(&g_inner_word, succeed, &g_inner_status, "inner");
}

class OnceGuard : public testing::Test
{
protected:
    OnceGuard()
    {
        g_runs    = 0;
        g_waiting = 0;
    }

    uint64_t word   = 0;
    uint32_t status = 5;
};

} // namespace

TEST_F(OnceGuard, runs_its_initialiser_once)
{
    EXPECT_EQ(zymm_init_once(&word, succeed, &status, "once"), 0u);
    EXPECT_EQ(zymm_init_once(&word, succeed, &status, "once"), 0u);
    EXPECT_EQ(g_runs, 1);
    EXPECT_EQ(status, 0u);
    EXPECT_NE(word, 0u);
}

TEST_F(OnceGuard, keeps_a_failure_and_answers_it_to_every_caller)
{
    EXPECT_EQ(zymm_init_once(&word, fail, &status, "once"), 0xFFFFFFFFu);
    EXPECT_EQ(zymm_init_once(&word, succeed, &status, "once"), 0xFFFFFFFFu);
    EXPECT_EQ(g_runs, 1);
    EXPECT_EQ(status, 0xFFFFFFFFu);
    EXPECT_NE(word, 0u);
}

TEST_F(OnceGuard, answers_what_the_status_says)
{
    zymm_init_once(&word, succeed, &status, "once");
    status = 9;
    EXPECT_EQ(zymm_init_once(&word, succeed, &status, "once"), 9u);
}

TEST_F(OnceGuard, runs_again_once_its_word_is_cleared)
{
    zymm_init_once(&word, fail, &status, "once");
    word = 0;
    EXPECT_EQ(zymm_init_once(&word, succeed, &status, "once"), 0u);
    EXPECT_EQ(g_runs, 2);
    EXPECT_EQ(status, 0u);
}

TEST_F(OnceGuard, may_be_used_inside_an_initialiser_with_another_word)
{
    EXPECT_EQ(zymm_init_once(&g_outer_word, run_the_inner_one, &g_outer_status, "outer"), 0u);
    EXPECT_EQ(g_runs, 1);
    EXPECT_NE(g_inner_word, 0u);
    EXPECT_NE(g_outer_word, 0u);
}

TEST_F(OnceGuard, lets_concurrent_callers_wait_and_answers_all_of_them)
{
    std::atomic<int>         right = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            ++g_waiting;
            right += zymm_init_once(&word, wait_for_company, &status, "once") == 7;
        });
    }
    for (std::thread &caller : callers)
        caller.join();
    EXPECT_EQ(g_runs, 1);
    EXPECT_EQ(right, 4);
}
