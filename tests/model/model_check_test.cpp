/*
 * The search for differences itself: on a counter that forgets one at its third "double".
 */
#include "model_check.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

const model::alphabet LETTERS = {
    {"add", 5, {{"amount", 100}}},
    {"double", 2, {}},
    {"look", 5, {{"how", {"briefly", "closely"}}, {"from", 9}}},
};

enum letter : uint32_t { ADD, DOUBLE, LOOK };

uint64_t times_played;

/* Differs once 20 or more were added and 3 doublings came after that. */
std::string play_counter(const model::sequence &steps)
{
    uint32_t added = 0;
    uint32_t doubled = 0;
    ++times_played;
    for (const model::step &one : steps) {
        added += one.op == ADD ? one.args[0] : 0;
        doubled += one.op == DOUBLE && added >= 20 ? 1 : 0;
    }
    return doubled >= 3 ? "off by one" : "";
}

std::string play_well(const model::sequence &)
{
    ++times_played;
    return "";
}

} // namespace

TEST(ModelCheck, a_difference_is_found_and_shrunk_to_its_smallest_sequence)
{
    const auto found = model::search(LETTERS, 1, 1000, 40, play_counter);

    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->difference, "off by one");
    EXPECT_EQ(model::text_of(LETTERS, found->smallest), "    add amount=20\n"
                                                        "    double\n"
                                                        "    double\n"
                                                        "    double\n");
}

TEST(ModelCheck, the_seed_of_a_finding_finds_it_again_at_once)
{
    const auto found = model::search(LETTERS, 1, 1000, 40, play_counter);
    ASSERT_TRUE(found.has_value());

    const auto again = model::search(LETTERS, found->seed, 1, 40, play_counter);

    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(model::text_of(LETTERS, *again), model::text_of(LETTERS, *found));
}

TEST(ModelCheck, a_finding_reads_as_seed_difference_operations_and_what_to_set)
{
    const model::finding found = {17, {{LOOK, {1, 8}}, {DOUBLE, {}}}, "off by one"};

    EXPECT_EQ(model::text_of(LETTERS, found), "seed 17: \"off by one\" after 2 operations\n"
                                              "    look how=closely from=8\n"
                                              "    double\n"
                                              "again, from this case on: CMM_MODEL_SEED=17\n");
}

TEST(ModelCheck, all_cases_are_played_when_nothing_differs)
{
    EXPECT_FALSE(model::search(LETTERS, 5, 321, 40, play_well).has_value());
    EXPECT_EQ(times_played, 321u);
}

TEST(ModelCheck, a_sequence_is_a_function_of_its_seed)
{
    EXPECT_EQ(model::text_of(LETTERS, model::random_sequence(LETTERS, 3, 40)),
              model::text_of(LETTERS, model::random_sequence(LETTERS, 3, 40)));
    EXPECT_NE(model::text_of(LETTERS, model::random_sequence(LETTERS, 3, 40)),
              model::text_of(LETTERS, model::random_sequence(LETTERS, 4, 40)));
}

TEST(ModelCheck, the_environment_multiplies_the_cases)
{
    unsetenv("CMM_MODEL_SEED");
    setenv("CMM_MODEL_CASES", "3", 1);

    model::expect_agreement(LETTERS, 10, 40, play_well);

    EXPECT_EQ(times_played, 30u);
}

TEST(ModelCheck, a_variable_that_is_not_set_changes_nothing)
{
    unsetenv("CMM_MODEL_CASES");

    EXPECT_EQ(model::number_from_environment("CMM_MODEL_CASES", 7), 7u);
}

TEST(ModelCheckDeath, a_case_that_ends_the_process_is_shown_as_it_was)
{
    const model::alphabet one = {{"press", 1, {}}};
    const auto press = [](const model::sequence &) -> std::string { abort(); };

    EXPECT_DEATH(model::search(one, 42, 1, 1, press), "the process ended at seed 42:\n    press\n");
}
