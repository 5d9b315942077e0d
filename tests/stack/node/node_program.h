/*
 * cmm_node as a user runs it: a scratch folder, configurations, files, and the program's exit code
 * and output.
 *
 * One fixture is one scratch folder, removed with everything in it at the end.
 */
#pragma once

#include <gtest/gtest.h>

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

struct node_result {
    int         code; /* exit code; -1 when a signal ended the program */
    std::string out, err;
};

/* Runs the program to its end; `file_size_limit` in bytes, 0 for none. */
node_result run_program(const std::string &program, const std::vector<std::string> &arguments,
                        const std::string &scratch, uint64_t file_size_limit = 0);

/* The two halves of it: the program runs meanwhile, its output so far in the scratch folder. */
pid_t       start_program(const std::string &program, const std::vector<std::string> &arguments,
                          const std::string &scratch, uint64_t file_size_limit = 0);
node_result finish_program(pid_t program, const std::string &scratch);

/* Text of a configuration with one section, for any machine, and one entry. */
std::string node_config(uint32_t pages, uint32_t sgls, uint32_t requests);

std::string read_whole(const std::string &path);
void        write_whole(const std::string &path, const std::string &content);

/* The image of a file: every 512 bytes, zeros at the end, followed by "CMMREDIF". */
std::string expected_image(const std::string &content);

/* Bytes without a pattern that a page, a sector or a request could share; the same every time. */
std::string noise(size_t size, uint32_t seed = 1);

class NodeProgram : public ::testing::Test
{
protected:
    NodeProgram();
    ~NodeProgram() override;

    std::string path(const std::string &name) const { return scratch_ + "/" + name; }

    /* A file in the scratch folder; answers its path. */
    std::string make_file(const std::string &name, const std::string &content) const;

    /* A configuration folder in the scratch folder; answers its path. */
    std::string make_config(const std::string &text) const;

    /* Runs cmm_node with the scratch configuration, the images under "replicas". */
    node_result node(std::vector<std::string> arguments, uint64_t file_size_limit = 0) const;

    /* Starts it likewise. */
    pid_t start_node(std::vector<std::string> arguments) const;

    /* Runs it with just these arguments. */
    node_result bare_node(const std::vector<std::string> &arguments) const;

    std::vector<std::string> with_folders(std::vector<std::string> arguments) const;

    std::string image(unsigned replica, const std::string &name) const;

    std::string scratch_;
};
