/*
 * The console's server: its socket, and whom and what it leaves alone.
 */
#include "zyax_console_helpers.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

static uint32_t mode_of(const std::string &path)
{
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

/* ------------------------------------------------------------------ the socket */

TEST(ZyaxConsoleServer, a_client_gets_its_commands_text)
{
    ASSERT_EQ(add_command("umm show page <addr>"), 0);
    served_console console;
    console_peer peer(console.path());

    EXPECT_EQ(peer.ask("umm show page 12"), "ok:4 umm show page 12.");
    EXPECT_EQ(peer.ask("umm show"), "error:\"umm show\" is not complete. What begins so:\n" +
                                        row("umm show page <addr>", "prints its words"));
    EXPECT_EQ(peer.ask(""), "ok:");
}

TEST(ZyaxConsoleServer, an_answer_is_its_head_and_exactly_its_bytes)
{
    ASSERT_EQ(add_command("log sinks"), 0);
    served_console console;
    console_peer peer(console.path());
    peer.send_bytes("log sinks\n--json\nlog sinks\n");
    peer.end_sending();
    std::string all;
    char bytes[256];
    ssize_t got;
    while ((got = recv(peer.descriptor(), bytes, sizeof(bytes), 0)) > 0)
        all.append(bytes, size_t(got));

    EXPECT_EQ(all, "ok 12\n2 log sinks."
                   "error 27\nNo command after \"--json\".\n"
                   "ok 12\n2 log sinks.");
}

TEST(ZyaxConsoleServer, without_a_client_text_goes_to_standard_output_while_it_serves)
{
    served_console console;
    console_peer peer(console.path());
    ASSERT_EQ(peer.ask(""), "ok:");
    testing::internal::CaptureStdout();
    DBG_Print("of the process");

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "of the process");
}

TEST(ZyaxConsoleServer, the_sockets_mode_is_0600_whatever_the_umask)
{
    const mode_t before = umask(0);
    {
        served_console console;
        EXPECT_EQ(mode_of(console.path()), 0600u);
    }
    umask(0777);
    {
        temp_folder folder;
        chmod(folder.path("").c_str(), 0700);
        EXPECT_EQ(zyax_console_start(folder.path("console").c_str()), 0);
        EXPECT_EQ(mode_of(folder.path("console")), 0600u);
        EXPECT_EQ(zyax_console_stop(), 0);
    }
    umask(before);
}

TEST(ZyaxConsoleServer, a_stop_removes_the_socket_and_disconnects)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    ASSERT_EQ(zyax_console_start(path.c_str()), 0);
    console_peer peer(path);
    ASSERT_EQ(peer.ask(""), "ok:");

    EXPECT_EQ(zyax_console_stop(), 0);
    EXPECT_FALSE(exists(path));
    EXPECT_EQ(peer.read_answer(), "end");
    EXPECT_EQ(zyax_console_stop(), 0);
}

TEST(ZyaxConsoleServer, a_stop_leaves_what_another_has_put_at_its_path)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    ASSERT_EQ(zyax_console_start(path.c_str()), 0);
    ASSERT_EQ(unlink(path.c_str()), 0);
    make_socket(path, false);

    EXPECT_EQ(zyax_console_stop(), 0);
    EXPECT_TRUE(exists(path));
}

TEST(ZyaxConsoleServer, a_dead_servers_socket_is_replaced)
{
    temp_folder folder;
    const std::string path = folder.path("console");
    make_socket(path, false);

    ASSERT_EQ(zyax_console_start(path.c_str()), 0);
    EXPECT_EQ(console_peer(path).ask(""), "ok:");
    EXPECT_EQ(mode_of(path), 0600u);
    EXPECT_EQ(zyax_console_stop(), 0);
}

TEST(ZyaxConsoleServer, a_living_servers_socket_is_not)
{
    kept_log log;
    temp_folder folder;
    const std::string path = folder.path("console");
    const int fd = make_socket(path, true);

    EXPECT_EQ(zyax_console_start(path.c_str()), -1);
    EXPECT_TRUE(
        log.has("The console cannot be served at \"" + path + "\": a server listens there."));
    EXPECT_TRUE(console_peer(path).is_connected());
    close(fd);
}

TEST(ZyaxConsoleServer, a_living_server_with_a_full_queue_is_one_too)
{
    kept_log log;
    temp_folder folder;
    const std::string path = folder.path("console");
    const int fd = make_socket(path, true);
    ASSERT_EQ(listen(fd, 0), 0);
    const console_peer queued(path);

    EXPECT_EQ(zyax_console_start(path.c_str()), -1);
    EXPECT_TRUE(log.has("a server listens there."));
    EXPECT_TRUE(exists(path));
    close(fd);
}

TEST(ZyaxConsoleServer, a_file_that_is_no_socket_is_left_alone)
{
    kept_log log;
    temp_folder folder;
    const std::string path = folder.write("console", "precious");

    EXPECT_EQ(zyax_console_start(path.c_str()), -1);
    EXPECT_TRUE(log.has("there is a file that is no socket."));
    EXPECT_EQ(folder.read("console"), "precious");
}

TEST(ZyaxConsoleServer, a_link_is_not_followed)
{
    temp_folder folder;
    make_socket(folder.path("dead"), false);
    ASSERT_EQ(symlink("dead", folder.path("console").c_str()), 0);

    EXPECT_EQ(zyax_console_start(folder.path("console").c_str()), -1);
    EXPECT_TRUE(exists(folder.path("dead")));
}

TEST(ZyaxConsoleServer, bad_paths_are_refused_with_the_reason)
{
    kept_log log;
    temp_folder folder;

    EXPECT_EQ(zyax_console_start(nullptr), -1);
    EXPECT_TRUE(log.has("A console without a path."));
    EXPECT_EQ(zyax_console_start(""), -1);
    EXPECT_EQ(zyax_console_start(std::string(108, 'x').c_str()), -1);
    EXPECT_TRUE(log.has("a path has 1 to 107 bytes."));
    EXPECT_EQ(zyax_console_start(folder.path("").c_str()), -1);
    EXPECT_TRUE(log.has("the path names a folder."));
    EXPECT_EQ(zyax_console_start(folder.path("missing/console").c_str()), -1);
    EXPECT_TRUE(log.has("its folder: No such file or directory."));
}

TEST(ZyaxConsoleServer, a_path_may_be_relative_and_107_bytes_long)
{
    temp_folder folder;
    ASSERT_EQ(chdir(folder.path("").c_str()), 0);
    const std::string name(107, 'x');

    ASSERT_EQ(zyax_console_start(name.c_str()), 0);
    EXPECT_EQ(chdir("/"), 0);
    EXPECT_EQ(mode_of(folder.path(name)), 0600u);
    EXPECT_EQ(zyax_console_stop(), 0);
    EXPECT_FALSE(exists(folder.path(name)));
}

TEST(ZyaxConsoleServer, a_second_start_is_refused_and_the_first_goes_on)
{
    kept_log log;
    served_console console;
    temp_folder folder;

    EXPECT_EQ(zyax_console_start(console.path().c_str()), -1);
    EXPECT_EQ(zyax_console_start(folder.path("console").c_str()), -1);
    EXPECT_TRUE(log.has("the process has a console already."));
    EXPECT_EQ(console_peer(console.path()).ask(""), "ok:");
}

/* The socket's mode keeps others out. Where it was widened, the server itself does. */
TEST(ZyaxConsoleServer, another_user_is_disconnected_even_when_the_mode_lets_him_in)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    kept_log log;
    served_console console;
    const std::string folder = console.path().substr(0, console.path().rfind('/'));
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    ASSERT_EQ(chmod(console.path().c_str(), 0666), 0);
    const std::string path = console.path();
    const pid_t child = fork();
    if (child == 0) {
        if (setresuid(12345, 12345, 12345) != 0)
            _exit(2);
        console_peer peer(path);
        _exit(peer.is_connected() && peer.ask("") == "end" ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_TRUE(log.has("A console client of user 12345 is refused."));
}
