/*
 * Clients of the console: slow ones, broken ones, those that vanish; and that none of them is to
 * the others' harm.
 */
#include "zyax_console_helpers.h"

#include <gtest/gtest.h>

#include <memory>
#include <poll.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <thread>

static constexpr size_t OUTPUT_MAX = 16777216;

/* "print <bytes>": so many letters. */
static void print_much(int32_t, char **words)
{
    const std::string text(std::stoul(words[1]), 'x');
    DBG_Print("%s", text.c_str());
}

static void add_print()
{
    ASSERT_EQ(add_command("print <bytes>", print_much), 0);
    ASSERT_EQ(add_command("log sinks"), 0);
}

/* ------------------------------------------------------------------ lines */

TEST(ZyaxConsoleClient, two_clients_have_each_their_own_answers)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer one(console.path());
    console_peer two(console.path());
    one.send_bytes("say one\n");
    two.send_bytes("say two\nsay three\n");

    EXPECT_EQ(two.read_answer(), "ok:2 say two.");
    EXPECT_EQ(two.read_answer(), "ok:2 say three.");
    EXPECT_EQ(one.read_answer(), "ok:2 say one.");
}

TEST(ZyaxConsoleClient, a_line_may_come_in_pieces_and_with_a_carriage_return)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer peer(console.path());
    console_peer other(console.path());
    peer.send_bytes("sa");
    EXPECT_EQ(other.ask("say other"), "ok:2 say other."); /* the first piece has been read by now */
    peer.send_bytes("y word\r\n\r\n");

    EXPECT_EQ(peer.read_answer(), "ok:2 say word.");
    EXPECT_EQ(peer.read_answer(), "ok:");
}

TEST(ZyaxConsoleClient, lines_sent_without_waiting_are_all_answered_in_order)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer peer(console.path());
    std::string lines;
    for (int i = 0; i < 1000; ++i)
        lines += "say " + std::to_string(i) + "\n";
    std::thread sender([&] { peer.send_bytes(lines); });
    int wrong = 0;
    for (int i = 0; i < 1000; ++i)
        wrong += peer.read_answer() != "ok:2 say " + std::to_string(i) + ".";
    sender.join();

    EXPECT_EQ(wrong, 0);
}

TEST(ZyaxConsoleClient, who_closes_the_sending_half_gets_the_answers_and_then_the_end)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer peer(console.path());
    peer.send_bytes("say one\nsay two\nsay without an end");
    peer.end_sending();

    EXPECT_EQ(peer.read_answer(), "ok:2 say one.");
    EXPECT_EQ(peer.read_answer(), "ok:2 say two.");
    EXPECT_EQ(peer.read_answer(), "end");
}

TEST(ZyaxConsoleClient, a_line_of_4096_bytes_is_run_and_one_of_4097_refused)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer peer(console.path());
    const std::string word(4092, 'x');

    EXPECT_EQ(peer.ask("say " + word), "ok:2 say " + word + ".");
    EXPECT_EQ(peer.ask("say " + word + "\r"), "ok:2 say " + word + ".");
    EXPECT_EQ(peer.ask("say " + word + "x"), "error:The line is longer than 4096 bytes.\n");
    EXPECT_EQ(peer.ask("say it"), "ok:2 say it.");
}

TEST(ZyaxConsoleClient, a_line_without_end_is_refused_once_and_passed_over)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer peer(console.path());
    std::thread sender([&] { peer.send_bytes(std::string(1000000, 'x')); });
    EXPECT_EQ(peer.read_answer(), "error:The line is longer than 4096 bytes.\n");
    sender.join();
    peer.send_bytes("xxx\nsay one\n" + std::string(4099, 'x') + "\nsay two\n");

    EXPECT_EQ(peer.read_answer(), "ok:2 say one.");
    EXPECT_EQ(peer.read_answer(), "error:The line is longer than 4096 bytes.\n");
    EXPECT_EQ(peer.read_answer(), "ok:2 say two.");
}

TEST(ZyaxConsoleClient, garbage_is_refused_line_by_line)
{
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    console_peer peer(console.path());
    std::string garbage;
    for (int byte = 0; byte < 256; ++byte)
        garbage += char(byte); /* one of them ends a line */
    peer.send_bytes(garbage + "\n");

    EXPECT_EQ(peer.read_answer(), "error:The line holds control characters.\n");
    EXPECT_EQ(peer.read_answer(), "error:The line holds control characters.\n");
    EXPECT_EQ(peer.ask("say it"), "ok:2 say it.");
}

/* ------------------------------------------------------------------ answers */

TEST(ZyaxConsoleClient, an_answer_of_16_mib_arrives_whole_and_a_longer_one_is_refused)
{
    add_print();
    served_console console;
    console_peer peer(console.path());

    EXPECT_EQ(peer.ask("print 16777216"), "ok:" + std::string(OUTPUT_MAX, 'x'));
    EXPECT_EQ(peer.ask("print 16777217"), "error:The output is longer than 16777216 bytes.\n");
    EXPECT_EQ(peer.ask("log sinks"), "ok:2 log sinks.");
}

TEST(ZyaxConsoleClient, what_a_command_prints_after_too_much_is_lost_with_the_rest)
{
    ASSERT_EQ(add_command("pieces",
                          [](int32_t, char **) {
                              const std::string half(9000000, 'x');
                              DBG_Print("%s", half.c_str());
                              DBG_Print("%s", half.c_str());
                              DBG_Print("little");
                              DBG_PrintBuf("at the end");
                          }),
              0);
    served_console console;
    console_peer peer(console.path());

    EXPECT_EQ(peer.ask("pieces"), "error:The output is longer than 16777216 bytes.\n");
}

/* ------------------------------------------------------------------ clients that misbehave */

TEST(ZyaxConsoleClient, one_that_stops_reading_holds_up_nobody)
{
    add_print();
    served_console console;
    console_peer stuck(console.path());
    stuck.send_bytes("print 4000000\nprint 5000000\n");
    console_peer other(console.path());
    int wrong = 0;
    for (int i = 0; i < 1000; ++i)
        wrong += other.ask("log sinks") != "ok:2 log sinks.";

    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(stuck.read_answer().size(), 4000003u);
    EXPECT_EQ(stuck.read_answer().size(), 5000003u);
}

static int s_runs;

TEST(ZyaxConsoleClient, of_one_that_stops_reading_no_further_line_is_taken)
{
    add_print();
    ASSERT_EQ(add_command("count", [](int32_t, char **) { DBG_Print("%d", ++s_runs); }), 0);
    ASSERT_EQ(add_command("counted", [](int32_t, char **) { DBG_Print("%d", s_runs); }), 0);
    served_console console;
    console_peer stuck(console.path());
    stuck.send_bytes("print 4000000\ncount\ncount\n");
    pollfd readable = {stuck.descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&readable, 1, -1), 1); /* its first answer is under way */
    console_peer other(console.path());

    EXPECT_EQ(other.ask("counted"), "ok:0");
    EXPECT_EQ(other.ask("counted"), "ok:0");
    stuck.read_answer();
    EXPECT_EQ(stuck.read_answer(), "ok:1");
    EXPECT_EQ(stuck.read_answer(), "ok:2");
}

TEST(ZyaxConsoleClient, one_that_vanishes_in_the_midst_of_a_line_or_an_answer_is_forgotten)
{
    add_print();
    served_console console;
    console_peer other(console.path());
    for (int i = 0; i < 50; ++i) {
        console_peer in_a_line(console.path());
        in_a_line.send_bytes("log si");
        console_peer in_an_answer(console.path());
        in_an_answer.send_bytes("print 4000000\nlog sinks\n");
        pollfd readable = {in_an_answer.descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&readable, 1, -1), 1);
    }

    EXPECT_EQ(other.ask("log sinks"), "ok:2 log sinks.");
}

static sem_t s_entered;
static sem_t s_may_leave;

/* The server is held while both send, so that it finds all lines at once. */
TEST(ZyaxConsoleClient, one_that_sends_much_does_not_keep_another_waiting)
{
    sem_init(&s_entered, 0, 0);
    sem_init(&s_may_leave, 0, 0);
    ASSERT_EQ(add_command("count", [](int32_t, char **) { DBG_Print("%d", ++s_runs); }), 0);
    ASSERT_EQ(add_command("hold",
                          [](int32_t, char **) {
                              sem_post(&s_entered);
                              sem_wait(&s_may_leave);
                          }),
              0);
    served_console console;
    console_peer busy(console.path());
    console_peer other(console.path());
    console_peer holder(console.path());
    ASSERT_EQ(busy.ask("") + other.ask(""), "ok:ok:");
    holder.send_bytes("hold\n");
    sem_wait(&s_entered);
    std::string lines;
    for (int i = 0; i < 600; ++i)
        lines += "count\n";
    busy.send_bytes(lines);
    other.send_bytes("count\n");
    sem_post(&s_may_leave);
    const int run_before = std::stoi(other.read_answer().substr(3));
    for (int i = 0; i < 600; ++i)
        busy.read_answer();

    EXPECT_LE(run_before, 2);
    EXPECT_EQ(other.ask("count"), "ok:602");
}

TEST(ZyaxConsoleClient, three_hundred_clients_are_served_at_once)
{
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_cur < 700)
        GTEST_SKIP() << "too few descriptors";
    ASSERT_EQ(add_command("say <word>"), 0);
    served_console console;
    std::vector<std::unique_ptr<console_peer>> peers;
    for (int i = 0; i < 300; ++i)
        peers.push_back(std::make_unique<console_peer>(console.path()));
    for (int i = 0; i < 300; ++i)
        peers[size_t(i)]->send_bytes("say " + std::to_string(i) + "\n");
    int wrong = 0;
    for (int i = 0; i < 300; ++i)
        wrong += peers[size_t(i)]->read_answer() != "ok:2 say " + std::to_string(i) + ".";

    EXPECT_EQ(wrong, 0);
}

TEST(ZyaxConsoleClient, when_descriptors_run_out_a_client_waits_and_others_go_on)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's runtime opens a pipe to look at an object, and calls it bad "
                    "when it cannot";
#endif
    kept_log log;
    ASSERT_EQ(add_command("log sinks"), 0);
    served_console console;
    console_peer first(console.path());
    ASSERT_EQ(first.ask("log sinks"), "ok:2 log sinks.");
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(first.descriptor());
    close(next);
    const rlimit tight = {rlim_t(next) + 1, before.rlim_max}; /* room for the client's own end */
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    console_peer waiting(console.path());
    waiting.send_bytes("log sinks\n");

    EXPECT_TRUE(waiting.is_connected());
    EXPECT_EQ(first.ask("log sinks"), "ok:2 log sinks.");
    pollfd readable = {waiting.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&readable, 1, 0), 0);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(waiting.read_answer(), "ok:2 log sinks.");
    EXPECT_TRUE(log.has("The console cannot take another client now: Too many open files."));
}
