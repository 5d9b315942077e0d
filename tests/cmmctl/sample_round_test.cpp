/*
 * Which questions are asked, in which order, and what becomes of the answers.
 */
#include <gtest/gtest.h>

#include <algorithm>

#include "sample_round.h"
#include "samples.h"

namespace {

console_answer answer_of(const scripted_answer &bytes)
{
    answer_reader reader;

    EXPECT_EQ(reader.take(bytes.bytes), reading::DONE);
    return reader.release();
}

/* Answers everything from the sample; the questions in their order. */
std::vector<std::string> run(sample_round &round, const node_sample &sample)
{
    std::vector<std::string> asked;

    while (const auto command = round.next()) {
        asked.push_back(*command);
        round.take(answer_of(told(sample, *command)));
    }
    return asked;
}

std::string error_of(sample_round &round, const console_answer &answer)
{
    try {
        round.take(answer);
    } catch (const bad_answer &error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(SampleRound, a_screen_asks_little)
{
    sample_round round(SCREEN_ROUND);

    EXPECT_EQ(run(round, busy_node()),
              (std::vector<std::string>{"--json umm show config", "--json umm show pools",
                                        "--json umm show requests all",
                                        "--json umm show holders 0xPAGE PARTITION",
                                        "--json umm show holders 0xSGL_PARTITION"}));
}

TEST(SampleRound, a_full_round_asks_everything)
{
    sample_round round(FULL_ROUND);

    EXPECT_EQ(run(round, busy_node()),
              (std::vector<std::string>{"--json umm show config", "--json umm show pools",
                                        "--json umm show requests all", "--json umm show numa",
                                        "--json umm show partitions", "--json log sinks",
                                        "--json umm show holders 0xPAGE PARTITION",
                                        "--json umm show holders 0xSGL_PARTITION"}));
}

TEST(SampleRound, the_answers_make_the_sample)
{
    sample_round round(FULL_ROUND);
    run(round, busy_node());
    const node_sample sample = round.release();

    EXPECT_EQ(sample.process, "cmm_node");
    EXPECT_EQ(sample.pools.pools.size(), 2u);
    EXPECT_EQ(sample.requests.requests.size(), 2u);
    ASSERT_EQ(sample.holders.size(), 2u);
    EXPECT_EQ(sample.holders[0].function, "page_cache");
    EXPECT_EQ(sample.numa.nodes.size(), 1u);
    EXPECT_EQ(sample.partitions.size(), 2u);
    EXPECT_EQ(sample.dropped_lines, 4u);
}

TEST(SampleRound, holders_of_the_pools_with_most_bytes_out_are_asked_for)
{
    node_sample sample;
    for (uint64_t used : {1u, 6u, 0u, 3u, 5u, 2u, 4u})
        sample.pools.pools.push_back(a_pool(std::to_string(used), used, 10));
    sample_round round(SCREEN_ROUND);

    const std::vector<std::string> asked = run(round, sample);

    ASSERT_EQ(asked.size(), 7u);
    EXPECT_EQ(asked[3], "--json umm show holders 0x6");
    EXPECT_EQ(asked[4], "--json umm show holders 0x5");
    EXPECT_EQ(asked[5], "--json umm show holders 0x4");
    EXPECT_EQ(asked[6], "--json umm show holders 0x3");
}

TEST(SampleRound, pools_that_nobody_holds_are_never_asked_for_holders)
{
    node_sample sample;
    sample.pools.pools = {a_pool("idle", 0, 10)};
    sample_round round(FULL_ROUND);

    EXPECT_EQ(run(round, sample).size(), 6u);
}

TEST(SampleRound, a_busy_list_of_requests_is_asked_for_ten_times)
{
    node_sample sample;
    sample.requests.busy = true;
    sample.requests.count = 5;
    sample_round round(SCREEN_ROUND);

    const std::vector<std::string> asked = run(round, sample);

    EXPECT_EQ(std::count(asked.begin(), asked.end(), "--json umm show requests all"), 10);
    EXPECT_EQ(asked.size(), 12u);
    EXPECT_EQ(round.release().requests.count, 5u);
}

TEST(SampleRound, a_pool_that_is_gone_is_without_holders)
{
    sample_round round(SCREEN_ROUND);
    const node_sample sample = busy_node();
    for (int i = 0; i < 3; ++i)
        round.take(answer_of(told(sample, *round.next())));
    ASSERT_EQ(*round.next(), "--json umm show holders 0xPAGE PARTITION");

    EXPECT_EQ(error_of(round, {false, "no such pool\n"}), "");
    EXPECT_EQ(*round.next(), "--json umm show holders 0xSGL_PARTITION");
}

TEST(SampleRound, an_error_to_any_other_question_ends_the_round)
{
    sample_round round(SCREEN_ROUND);

    EXPECT_EQ(error_of(round, {false, "Unknown command.\n"}),
              "--json umm show config: Unknown command.?");
}

TEST(SampleRound, an_answer_that_cannot_be_read_ends_the_round)
{
    sample_round round(SCREEN_ROUND);

    EXPECT_EQ(error_of(round, {true, "{}"}), "umm show config: \"process\" is missing");
}
