/*
 * The life of the console's server: start and stop many times, idle, forked, and under load.
 */
#include "zyax_console_helpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <sys/wait.h>
#include <thread>

#include "zyax_log.h"
#include "zymm.h"

/* Not while the log's writer opens the time zone's file for a line that is still under way. */
static size_t entries_in(const char *folder)
{
    zyax_log_flush();
    const std::filesystem::directory_iterator first(folder);
    return size_t(std::distance(first, std::filesystem::directory_iterator()));
}

/* ------------------------------------------------------------------ start, stop, idle */

TEST(ZyaxConsoleLife, two_hundred_starts_and_stops_leave_no_descriptor_and_no_thread)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    ASSERT_EQ(zyax_console_start(path.c_str()), 0);
    ASSERT_EQ(zyax_console_stop(), 0);
    const size_t descriptors = entries_in("/proc/self/fd");
    int wrong = 0;
    for (int i = 0; i < 200; ++i) {
        wrong += zyax_console_start(path.c_str()) != 0;
        console_peer peer(path);
        wrong += peer.ask("") != "ok:";
        wrong += zyax_console_stop() != 0;
    }
    while (entries_in("/proc/self/task") > 2) /* the log's writer; joined threads go in a moment */
        std::this_thread::yield();

    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(entries_in("/proc/self/fd"), descriptors);
    EXPECT_FALSE(exists(path));
}

TEST(ZyaxConsoleLife, refused_starts_leave_no_descriptor)
{
    temp_folder folder;
    const std::string file = folder.write("file", "");
    const int fd = make_socket(folder.path("living"), true);
    zyax_console_start(file.c_str());
    const size_t descriptors = entries_in("/proc/self/fd");
    zyax_console_start(file.c_str());
    zyax_console_start(folder.path("living").c_str());
    zyax_console_start(folder.path("missing/console").c_str());

    EXPECT_EQ(entries_in("/proc/self/fd"), descriptors);
    close(fd);
}

TEST(ZyaxConsoleLife, clients_that_left_leave_no_descriptor)
{
    served_console console;
    console_peer last(console.path());
    ASSERT_EQ(last.ask(""), "ok:");
    const size_t descriptors = entries_in("/proc/self/fd");
    for (int i = 0; i < 100; ++i)
        console_peer(console.path()).ask("help");
    while (entries_in("/proc/self/fd") > descriptors) /* the server learns of the last one soon */
        std::this_thread::yield();

    EXPECT_EQ(last.ask(""), "ok:");
}

TEST(ZyaxConsoleLife, several_threads_may_start_and_stop)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < 50; ++turn) {
                zyax_console_start(path.c_str());
                wrong += zyax_console_stop() != 0;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0);
    EXPECT_FALSE(exists(path));
}

TEST(ZyaxConsoleLife, a_command_cannot_stop_the_server_that_runs_it)
{
    kept_log log;
    ASSERT_EQ(add_command("stop", [](int32_t, char **) { DBG_Print("%d", zyax_console_stop()); }),
              0);
    served_console console;
    console_peer peer(console.path());

    EXPECT_EQ(peer.ask("stop"), "ok:-1");
    EXPECT_TRUE(log.has("A command cannot stop the console that runs it."));
    EXPECT_EQ(peer.ask(""), "ok:");
}

TEST(ZyaxConsoleLife, a_command_may_change_the_table)
{
    ASSERT_EQ(add_command("once",
                          [](int32_t, char **) {
                              zyax_console_unregister("once");
                              add_command("now this");
                          }),
              0);
    served_console console;
    console_peer peer(console.path());

    EXPECT_EQ(peer.ask("once"), "ok:");
    EXPECT_EQ(peer.ask("now this"), "ok:2 now this.");
}

/* The thread's system call as the kernel tells it: number, then arguments. */
static std::string system_call_of_server()
{
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name != "zyax_console")
            continue;
        std::string call;
        std::getline(std::ifstream(task.path() / "syscall"), call);
        return call;
    }
    return "";
}

TEST(ZyaxConsoleLife, an_idle_server_waits_without_a_limit)
{
    served_console console;
    console_peer peer(console.path());
    ASSERT_EQ(peer.ask("help").substr(0, 3), "ok:");
    std::string call = system_call_of_server();
    if (call.empty())
        GTEST_SKIP() << "the kernel does not tell system calls";
    while (call.substr(0, 4) != "232 " && call.substr(0, 4) != "281 ") /* epoll_wait, epoll_pwait */
        call = system_call_of_server();
    std::istringstream words(call);
    std::string number, epoll, events, count, limit;
    words >> number >> epoll >> events >> count >> limit;

    EXPECT_EQ(limit.substr(limit.size() - 8), "ffffffff");
}

/* ------------------------------------------------------------------ fork */

TEST(ZyaxConsoleLife, a_forked_child_has_no_server_and_holds_no_connection)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    ASSERT_EQ(zyax_console_start(path.c_str()), 0);
    console_peer peer(path);
    ASSERT_EQ(peer.ask(""), "ok:");
    int told[2];
    int release[2];
    ASSERT_EQ(pipe(told), 0);
    ASSERT_EQ(pipe(release), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(release[1]);
        char byte = 'x';
        const bool is_stopped = zyax_console_stop() == 0;           /* there is none */
        const bool is_served = console_peer(path).ask("") == "ok:"; /* by the parent */
        const bool is_told = write(told[1], &byte, 1) == 1;
        while (read(release[0], &byte, 1) > 0) {
        }
        _exit(is_stopped && is_served && is_told ? 0 : 1);
    }
    char byte;
    ASSERT_EQ(read(told[0], &byte, 1), 1);
    EXPECT_EQ(peer.ask(""), "ok:");
    EXPECT_EQ(zyax_console_stop(), 0);
    EXPECT_EQ(peer.read_answer(), "end"); /* though the child lives */
    close(release[1]);
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_FALSE(exists(path));
}

TEST(ZyaxConsoleLife, a_command_may_fork)
{
    ASSERT_EQ(add_command("fork",
                          [](int32_t, char **) {
                              const pid_t child = fork();
                              if (child == 0)
                                  _exit(zyax_console_stop() == 0 ? 7 : 1);
                              int status = 0;
                              waitpid(child, &status, 0);
                              DBG_Print("%d", WEXITSTATUS(status));
                          }),
              0);
    served_console console;
    console_peer peer(console.path());

    EXPECT_EQ(peer.ask("fork"), "ok:7");
    EXPECT_EQ(peer.ask("fork"), "ok:7");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) /* they dislike such children */
TEST(ZyaxConsoleLife, a_child_that_returns_from_its_command_ends_and_harms_nobody)
{
    static pid_t child;
    ASSERT_EQ(add_command("fork",
                          [](int32_t, char **) {
                              child = fork();
                              DBG_Print("forked");
                          }),
              0);
    served_console console;
    console_peer peer(console.path());
    EXPECT_EQ(peer.ask("fork"), "ok:forked");
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(peer.ask(""), "ok:");
    EXPECT_TRUE(exists(console.path()));
}
#endif

#ifndef __SANITIZE_THREAD__ /* which ends a forked process that starts threads */
TEST(ZyaxConsoleLife, a_forked_child_may_serve_a_console_of_its_own)
{
    ASSERT_EQ(add_command("log sinks"), 0);
    served_console console;
    temp_folder folder;
    const std::string path = folder.path("console");
    const pid_t child = fork();
    if (child == 0) {
        const bool is_good = zyax_console_start(path.c_str()) == 0 &&
                             console_peer(path).ask("log sinks") == "ok:2 log sinks." &&
                             zyax_console_stop() == 0;
        _exit(is_good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(console_peer(console.path()).ask("log sinks"), "ok:2 log sinks.");
}

/* Each child tells whether it serves, and stays until all have told. */
TEST(ZyaxConsoleLife, of_eight_processes_that_find_a_dead_socket_one_serves)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    make_socket(path, false);
    int told[2];
    int release[2];
    ASSERT_EQ(pipe(told), 0);
    ASSERT_EQ(pipe(release), 0);
    for (int i = 0; i < 8; ++i) {
        if (fork() != 0)
            continue;
        close(release[1]);
        const char serves = zyax_console_start(path.c_str()) == 0 ? 'y' : 'n';
        char byte;
        const bool is_told = write(told[1], &serves, 1) == 1;
        while (read(release[0], &byte, 1) > 0) {
        }
        zyax_console_stop();
        _exit(is_told ? 0 : 1);
    }
    std::string answers(8, ' ');
    for (char &answer : answers)
        ASSERT_EQ(read(told[0], &answer, 1), 1);
    const std::string served = console_peer(path).ask("");
    close(release[1]);
    while (wait(nullptr) > 0) {
    }

    EXPECT_EQ(std::count(answers.begin(), answers.end(), 'y'), 1);
    EXPECT_EQ(served, "ok:");
    EXPECT_FALSE(exists(path));
}
#endif

/* ------------------------------------------------------------------ under load */

static uint64_t s_slab;

static void allocate_until(const std::atomic<bool> &is_over)
{
    while (!is_over) {
        void *object = zymm_slab_malloc(s_slab, 77, "the test", 1);
        if (object != nullptr)
            zymm_slab_free(s_slab, object, 77, "the test");
    }
}

/* 5,000 lines, every other one for JSON; answers that are not as they should be. */
static int ask_often(const std::string &path)
{
    console_peer peer(path);
    int wrong = 0;
    for (int i = 0; i < 2500; ++i) {
        wrong += peer.ask("show slab").substr(0, 3) != "ok:";
        wrong += peer.ask("--json show slab") != "ok:{\"total\":256}";
    }
    return wrong;
}

TEST(ZyaxConsoleLife, ten_thousand_commands_are_answered_while_eight_threads_allocate)
{
    zymm_slab_param param;
    zymm_slab_param_init(&param);
    param.max_num = 256;
    param.attr = ZYMM_SLAB_CACHED;
    s_slab = zymm_create_slab(&param, 77, "the test");
    ASSERT_NE(s_slab, 0u);
    ASSERT_EQ(add_command(
                  "show slab",
                  [](int32_t, char **) { zymm_slab_dump_usageinfo(s_slab, 77, "the test"); },
                  "one slab",
                  [](int32_t, char **) {
                      uint64_t total = 0;
                      uint64_t used = 0;
                      zymm_slab_get_usage_info(s_slab, &total, &used);
                      DBG_Print("{\"total\":%lu}", total);
                  }),
              0);
    std::atomic<bool> is_over = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { allocate_until(is_over); });
    int wrong = 0;
    {
        served_console console;
        int others_wrong = 0;
        std::thread other([&] { others_wrong = ask_often(console.path()); });
        wrong = ask_often(console.path());
        other.join();
        wrong += others_wrong;
    }
    is_over = true;
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(zymm_destory_slab(s_slab, 77, "the test"), 0);
}
