/*
 * Signals: fetched when it suits, and what the program does with them.
 */
#include <gmock/gmock.h>

#include <csignal>

#include "held_program.h"
#include "signal_inbox.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class NodeSignals : public HeldProgram
{
};

TEST_F(NodeSignals, sigusr1_shows_requests_and_a_page_while_the_program_runs)
{
    start();
    send(SIGUSR1);
    wait_for("stdout", "page owner_modid");
    const std::string shown = read_whole(path("stdout"));
    const node_result run = stop_with(SIGTERM);

    EXPECT_THAT(shown, HasSubstr("umm show requests\n The page request number is ZERO.\n"));
    EXPECT_THAT(shown, ContainsRegex("page flags: +1\n"));
    EXPECT_THAT(shown, Not(HasSubstr("leak audit")));
    EXPECT_EQ(run.code, 143);
}

TEST_F(NodeSignals, sigint_ends_the_run_clean_and_removes_the_images)
{
    start();
    const node_result run = stop_with(SIGINT);

    EXPECT_EQ(run.code, 130) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
    EXPECT_THAT(run.out, ContainsRegex("stop +clean\n"));
    EXPECT_THAT(run.out, ContainsRegex("result +stopped by a signal\n"));
    EXPECT_THAT(run.out, HasSubstr("removed again"));
    EXPECT_THAT(run.out, Not(HasSubstr("verified")));
    EXPECT_FALSE(std::filesystem::exists(image(1, "0-first")));
    EXPECT_FALSE(std::filesystem::exists(image(2, "0-first")));
    EXPECT_FALSE(std::filesystem::exists(image(1, "1-second")));
}

TEST_F(NodeSignals, sigterm_ends_the_run_just_as_clean)
{
    start();
    const node_result run = stop_with(SIGTERM);

    EXPECT_EQ(run.code, 143) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
    EXPECT_FALSE(std::filesystem::exists(image(1, "0-first")));
}

TEST_F(NodeSignals, images_that_are_to_be_kept_are_said_to_be_incomplete)
{
    start({"--keep"});
    const node_result run = stop_with(SIGINT);

    EXPECT_EQ(run.code, 130) << run.err;
    EXPECT_THAT(run.out, HasSubstr("replicas, kept, not complete\n"));
    EXPECT_TRUE(std::filesystem::exists(image(1, "0-first")));
}

TEST_F(NodeSignals, an_image_that_cannot_be_removed_is_named)
{
    start();
    std::filesystem::remove(image(2, "0-first"));
    std::filesystem::create_directories(image(2, "0-first"));
    const node_result run = stop_with(SIGINT);

    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("cmm_node: " + image(2, "0-first") +
                                   ": could not be removed: Is a directory\n"));
}

TEST_F(NodeSignals, a_second_stop_signal_ends_at_once)
{
    start();
    send(SIGINT);
    wait_for("stderr", "the same again ends at once");
    send(SIGINT);
    const node_result run = finish_program(program_, scratch_);

    EXPECT_EQ(run.code, -1);
    EXPECT_THAT(run.out, Not(HasSubstr("result")));
}

/* ---- the inbox */

TEST(SignalInbox, nothing_arrives_before_it_is_fetched)
{
    signal_inbox inbox;
    raise(SIGTERM);
    raise(SIGUSR1);

    EXPECT_EQ(inbox.stop_signal(), 0);
    EXPECT_FALSE(inbox.take_show());
    inbox.fetch();
    EXPECT_EQ(inbox.stop_signal(), SIGTERM);
}

TEST(SignalInbox, a_request_to_show_is_taken_once)
{
    signal_inbox inbox;
    raise(SIGUSR1);
    inbox.fetch();

    EXPECT_TRUE(inbox.take_show());
    EXPECT_FALSE(inbox.take_show());
    EXPECT_EQ(inbox.stop_signal(), 0);
}

TEST(SignalInbox, a_signal_that_is_to_be_ignored_stays_ignored)
{
    signal(SIGINT, SIG_IGN);
    signal_inbox inbox;
    raise(SIGINT);
    inbox.fetch();

    EXPECT_EQ(inbox.stop_signal(), 0);
}

TEST(SignalInboxDeathTest, the_second_stop_signal_has_its_usual_effect)
{
    EXPECT_EXIT(
        {
            signal_inbox inbox;
            raise(SIGINT);
            inbox.fetch();
            raise(SIGTERM);
            inbox.fetch();
        },
        ::testing::KilledBySignal(SIGTERM), "stopping when the requests under way are done");
}
