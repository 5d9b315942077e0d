/*
 * cmm_node, held in the middle of a run: the image of the second file is a pipe that nobody reads,
 * so that the program stands still at a known place: the first file is protected and the second not
 * yet open.
 */
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "node_program.h"

class HeldProgram : public NodeProgram
{
protected:
    void start(std::vector<std::string> arguments = {})
    {
        make_config(node_config(512, 64, 32));
        std::filesystem::create_directories(path("replicas/replica-1"));
        ASSERT_EQ(mkfifo(image(1, "1-second").c_str(), 0600), 0);
        arguments.push_back(make_file("first", noise(2 << 20)));
        arguments.push_back(make_file("second", "x"));
        program_ = start_node(arguments);
        wait_for("stdout", "protect: "); /* signals are blocked by then */
    }

    void send(int number) const { ASSERT_EQ(kill(program_, number), 0); }

    /* Until the program has written the text; a program that ended without is a failure. */
    void wait_for(const std::string &stream, const std::string &text) const
    {
        siginfo_t ended{};
        while (read_whole(path(stream)).find(text) == std::string::npos) {
            ended.si_pid = 0;
            waitid(P_PID, id_t(program_), &ended, WEXITED | WNOHANG | WNOWAIT);
            ASSERT_EQ(ended.si_pid, 0) << read_whole(path("stderr"));
        }
    }

    /* Lets the program go on, to its end. */
    node_result let_go() const
    {
        const int reader = open(image(1, "1-second").c_str(), O_RDONLY | O_NONBLOCK);
        const node_result run = finish_program(program_, scratch_);
        close(reader);
        return run;
    }

    node_result stop_with(int number) const
    {
        send(number);
        wait_for("stderr", "cmm_node: stopping when the requests under way are done");
        return let_go();
    }

    pid_t program_ = 0;
};
