/*
 * The once-guard with real threads.
 */
#include "zymm_real_helpers.h"

namespace
{

std::atomic<uint32_t> s_runs{0};
std::atomic<bool>     s_may_end{false};
uint64_t              s_outer_word;
uint64_t              s_inner_word;
uint64_t              s_own_word;
uint32_t              s_inner_status;

/* Ends only when it is told to, so that all other callers have to wait. */
uint32_t slow_initialiser()
{
    s_runs++;
    while (!s_may_end.load())
        std::this_thread::yield();
    return 17;
}

uint32_t inner_initialiser()
{
    return 5;
}

uint32_t outer_initialiser()
{
    return zymm_init_once(&s_inner_word, inner_initialiser, &s_inner_status, "inner") + 1;
}

uint32_t self_asking_initialiser()
{
    uint32_t status = 0;
    return zymm_init_once(&s_own_word, self_asking_initialiser, &status, "itself");
}

} // namespace

TEST(ZymmOnceReal, sixteen_threads_get_the_result_of_one_run)
{
    uint64_t              word   = 0;
    uint32_t              status = 0;
    std::atomic<uint32_t> calling{0};
    std::atomic<uint32_t> results{0};
    in_threads(17, [&](unsigned number) {
        if (number == 16) { /* lets the run end once the others are calling */
            while (calling.load() < 16 || s_runs.load() == 0)
                std::this_thread::yield();
            s_may_end = true;
            return;
        }
        calling++;
        results += zymm_init_once(&word, slow_initialiser, &status, "slow");
    });
    EXPECT_EQ(s_runs.load(), 1u);
    EXPECT_EQ(results.load(), 16u * 17u);
    EXPECT_EQ(status, 17u);
    EXPECT_NE(word, 0u);
}

TEST(ZymmOnceReal, a_word_does_not_wait_for_another_words_run)
{
    uint64_t    slow_word   = 0;
    uint32_t    slow_status = 0;
    uint64_t    word        = 0;
    uint32_t    status      = 0;
    std::thread slow(
        [&] { zymm_init_once(&slow_word, slow_initialiser, &slow_status, "slow"); });
    while (s_runs.load() == 0)
        std::this_thread::yield();
    EXPECT_EQ(zymm_init_once(&word, inner_initialiser, &status, "quick"), 5u);
    s_may_end = true;
    slow.join();
    EXPECT_EQ(slow_status, 17u);
}

TEST(ZymmOnceReal, an_initialiser_may_use_the_guard_on_another_word)
{
    uint32_t status = 0;
    EXPECT_EQ(zymm_init_once(&s_outer_word, outer_initialiser, &status, "outer"), 6u);
    EXPECT_EQ(s_inner_status, 5u);
}

TEST(ZymmOnceReal, an_initialiser_that_asks_for_its_own_word_is_refused_with_a_line)
{
    uint32_t          status = 0;
    uint32_t          result = 0;
    const std::string log    = log_of([&] {
        result = zymm_init_once(&s_own_word, self_asking_initialiser, &status, "outer");
    });
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_EQ(count_of(log, "called again by its own initialiser"), 1u) << log;
}
