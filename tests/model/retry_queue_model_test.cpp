/*
 * The queue of requests for pages against a plain list (retry_model.h): after each operation the
 * same requests wait in the same order, the same call-backs have heard the same, and all that a
 * program can read of the queue (sum, pending and absorbed kicks, the walk's marker, how the timers
 * are armed, objects out, the clock) is the same.
 *
 * Budgets of runs and walks are used up by the clock alone: it moves on with every reading.
 */
#include "model_check.h"

#include "both_queues.h"

namespace
{

/* ------------------------------------------------------------------ operations */

constexpr uint32_t TIMEOUTS[] = {0, 1, 2, 3600, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr uint32_t RUNS[] = {1, 2, 3, 5, 66, 0, 65536, 0xFFFFFFFF};
constexpr uint64_t LIMITS[] = {0, 1, 2, 3, 4, 6, 9, 140};
constexpr uint64_t ADVANCES[] = {1,          999999,     500000000,  999999999,
                                 1000000000, 1000000001, 2000000001, 3601000000000};
constexpr uint64_t RUN_STEPS[] = {0, 100000, 250000, 250001, 500001};
constexpr uint64_t WALK_STEPS[] = {0, 300000, 500000, 500001, 1000001};

const model::argument TIMEOUT = {"timeout", TIMEOUTS};
const model::argument HABIT = {"then", {"nothing", "hand-back", "ask-again", "walk"}};

const model::alphabet LETTERS = {
    {"ask-page", 8, {TIMEOUT, HABIT}},
    {"ask-run", 6, {{"pages", RUNS}, TIMEOUT, HABIT}},
    {"limit-pool", 4, {{"pages", LIMITS}}},
    {"free", 6, {{"which", 4}}},
    {"advance", 5, {{"ns", ADVANCES}}},
    {"kick", 3, {}},
    {"run", 4, {{"clock-step", RUN_STEPS}}},
    {"walk", 6, {{"clock-step", WALK_STEPS}}},
    {"drive", 5, {}},
    {"restart", 1, {}},
};

enum letter : uint32_t {
    ASK_PAGE,
    ASK_RUN,
    LIMIT_POOL,
    FREE,
    ADVANCE,
    KICK,
    RUN,
    WALK,
    DRIVE,
    RESTART
};

/* ------------------------------------------------------------------ playing */

void play_step(both_queues *both, const model::step &one)
{
    switch (one.op) {
    case ASK_PAGE:
        return both->ask(false, 1, TIMEOUTS[one.args[0]], habit(one.args[1]));
    case ASK_RUN:
        return both->ask(true, RUNS[one.args[0]], TIMEOUTS[one.args[1]], habit(one.args[2]));
    case LIMIT_POOL:
        return both->set_limit(LIMITS[one.args[0]]);
    case FREE:
        return both->give_back(one.args[0]);
    case ADVANCE:
        return both->advance(ADVANCES[one.args[0]]);
    case KICK:
        return both->kick();
    case RUN:
        return both->run(RUN_STEPS[one.args[0]]);
    case WALK:
        return both->walk(WALK_STEPS[one.args[0]]);
    case DRIVE:
        return both->drive();
    case RESTART:
        return both->restart();
    }
}

std::string play(const model::sequence &steps, flaw wrong)
{
    both_queues both(wrong);
    for (const model::step &one : steps) {
        play_step(&both, one);
        const std::string found = both.difference();
        if (!found.empty())
            return found;
    }
    return both.end();
}

constexpr uint32_t LONGEST = 60;

class RetryQueueModel : public ::testing::Test
{
protected:
    void SetUp() override
    {
        start_pages(8000);
        start_queue();
        fake_set_log_level(ZYLOG_FATAL);
    }
};

model::sequence smallest_for(flaw wrong)
{
    return model::expect_found_out(
        LETTERS, LONGEST, [wrong](const model::sequence &steps) { return play(steps, wrong); });
}

} // namespace

TEST_F(RetryQueueModel, random_operations_leave_the_queue_as_the_model_has_it)
{
    model::expect_agreement(LETTERS, model::quick(3000), LONGEST,
                            [](const model::sequence &steps) { return play(steps, flaw::NONE); });
}

TEST_F(RetryQueueModel, a_model_that_serves_the_newest_first_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::NEWEST_FIRST);
    EXPECT_EQ(smallest.size(), 3u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "drive");
}

TEST_F(RetryQueueModel, a_model_that_lets_requests_expire_at_their_time_out_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::EXPIRES_TOO_EARLY);
    EXPECT_EQ(smallest.size(), 2u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "walk clock-step=0");
}

TEST_F(RetryQueueModel, a_model_whose_walk_passes_nobody_over_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::NEVER_PASSES_OVER);
    EXPECT_EQ(smallest.size(), 6u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "walk clock-step=0");
}

TEST_F(RetryQueueModel, a_model_in_which_a_failed_run_kicks_nobody_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::QUIET_WHEN_A_RUN_FAILS);
    EXPECT_EQ(smallest.size(), 2u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "ask-run pages=1 timeout=0 then=nothing");
}
