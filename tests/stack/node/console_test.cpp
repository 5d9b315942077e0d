/*
 * The console of the running program: a client on its socket, and a socket that cannot be had.
 */
#include <gmock/gmock.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "held_program.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

/* Sends the lines, closes the sending half, and reads what comes until the end of file. */
std::string ask(const std::string &socket_path, const std::string &lines)
{
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socket_path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(write(client, lines.data(), lines.size()), ssize_t(lines.size()));
    shutdown(client, SHUT_WR);

    std::string said;
    char piece[4096];
    for (ssize_t got = read(client, piece, sizeof piece); got > 0;
         got = read(client, piece, sizeof piece))
        said.append(piece, size_t(got));
    close(client);
    return said;
}

} // namespace

class NodeConsole : public HeldProgram
{
protected:
    std::string socket_path() const { return path("console"); }
};

TEST_F(NodeConsole, shows_the_pools_of_the_running_program)
{
    start({"--console", socket_path()});
    const std::string said = ask(socket_path(), "umm show pools\n");
    struct stat socket_file = {};
    EXPECT_EQ(stat(socket_path().c_str(), &socket_file), 0);
    const node_result run = stop_with(SIGTERM);

    EXPECT_THAT(said, StartsWith("ok "));
    EXPECT_THAT(said, ContainsRegex("\nPAGE PARTITION +[0-9]+ +512 +[0-9]+ +0 +[0-9.]+ MiB\n"));
    EXPECT_EQ(socket_file.st_mode & 07777, 0600u);
    EXPECT_EQ(run.code, 143) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
    EXPECT_FALSE(std::filesystem::exists(socket_path()));
}

TEST_F(NodeConsole, answers_each_line_in_turn)
{
    start({"--console", socket_path()});
    const std::string said = ask(socket_path(), "umm show requests\n"
                                                "umm show pool nix\n"
                                                "--json umm show requests\n");
    stop_with(SIGTERM);

    EXPECT_THAT(said, StartsWith("ok 34\n The page request number is ZERO.\n"
                                 "error 21\nThere is no pool nix\n"
                                 "ok "));
    EXPECT_THAT(said, HasSubstr("\"busy\":false,\"count\":0,\"requests\":[]}\n"));
}

TEST_F(NodeConsole, a_socket_that_cannot_be_had_is_named)
{
    make_config(node_config(512, 64, 32));
    const std::string nowhere = path("no_such_folder") + "/console";
    const node_result run = node({"--console", nowhere, make_file("first", "x")});

    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err,
                HasSubstr("cmm_node: " + nowhere + ": cannot be used as the console's socket\n"));
}
