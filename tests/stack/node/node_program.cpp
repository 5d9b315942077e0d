/*
 * Starts the program with its output in files of the scratch folder, and waits for it.
 */
#include "node_program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <sstream>

namespace {

void redirect(int fd, const std::string &path)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || dup2(file, fd) < 0)
        _exit(126);
}

[[noreturn]] void become(const std::string &program, std::vector<char *> arguments,
                         const std::string &scratch, uint64_t file_size_limit)
{
    redirect(STDOUT_FILENO, scratch + "/stdout");
    redirect(STDERR_FILENO, scratch + "/stderr");
    if (file_size_limit != 0) {
        const rlimit limit = {file_size_limit, file_size_limit};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    execv(program.c_str(), arguments.data());
    _exit(127);
}

} // namespace

pid_t start_program(const std::string &program, const std::vector<std::string> &arguments,
                    const std::string &scratch, uint64_t file_size_limit)
{
    std::vector<char *> argv = {const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);

    const pid_t child = fork();
    if (child == 0)
        become(program, argv, scratch, file_size_limit);
    return child;
}

node_result finish_program(pid_t program, const std::string &scratch)
{
    int status = 0;
    EXPECT_EQ(waitpid(program, &status, 0), program);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_whole(scratch + "/stdout"),
            read_whole(scratch + "/stderr")};
}

node_result run_program(const std::string &program, const std::vector<std::string> &arguments,
                        const std::string &scratch, uint64_t file_size_limit)
{
    return finish_program(start_program(program, arguments, scratch, file_size_limit), scratch);
}

std::string node_config(uint32_t pages, uint32_t sgls, uint32_t requests)
{
    std::ostringstream text;
    text << "<node_config>\n <memcfg>\n  <mem>1</mem>\n </memcfg>\n <config>\n"
         << "  <node memory=\"1\">\n   <umm>\n    <uprocess name=\"default\">\n"
         << "     <rdma_flag flag=\"0\"/>\n"
         << "     <req_num num=\"" << requests << "\"/>\n"
         << "     <sgl_num num=\"" << sgls << "\"/>\n"
         << "     <page_num num=\"" << pages << "\"/>\n"
         << "    </uprocess>\n   </umm>\n  </node>\n </config>\n</node_config>\n";
    return text.str();
}

std::string read_whole(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_whole(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::string expected_image(const std::string &content)
{
    std::string image;
    for (size_t at = 0; at < content.size(); at += 512) {
        std::string sector = content.substr(at, 512);
        sector.resize(512, '\0');
        image += sector + "CMMREDIF";
    }
    return image;
}

std::string noise(size_t size, uint32_t seed)
{
    std::minstd_rand random(seed);
    std::string bytes(size, '\0');
    for (char &byte : bytes)
        byte = char(random() >> 8);
    return bytes;
}

NodeProgram::NodeProgram()
{
    std::string folder = ::testing::TempDir() + "cmm_node_test-XXXXXX";
    scratch_ = mkdtemp(folder.data());
}

NodeProgram::~NodeProgram()
{
    std::filesystem::remove_all(scratch_);
}

std::string NodeProgram::make_file(const std::string &name, const std::string &content) const
{
    write_whole(path(name), content);
    return path(name);
}

std::string NodeProgram::make_config(const std::string &text) const
{
    std::filesystem::create_directories(path("etc/config"));
    write_whole(path("etc/config/node_config.xml"), text);
    return path("etc");
}

std::vector<std::string> NodeProgram::with_folders(std::vector<std::string> arguments) const
{
    if (!std::filesystem::exists(path("etc")))
        make_config(node_config(128, 64, 32));
    arguments.insert(arguments.begin(),
                     {"--config", path("etc"), "--replica-dir", path("replicas")});
    return arguments;
}

node_result NodeProgram::node(std::vector<std::string> arguments, uint64_t file_size_limit) const
{
    return run_program(CMM_NODE_PROGRAM, with_folders(std::move(arguments)), scratch_,
                       file_size_limit);
}

pid_t NodeProgram::start_node(std::vector<std::string> arguments) const
{
    return start_program(CMM_NODE_PROGRAM, with_folders(std::move(arguments)), scratch_);
}

node_result NodeProgram::bare_node(const std::vector<std::string> &arguments) const
{
    return run_program(CMM_NODE_PROGRAM, arguments, scratch_);
}

std::string NodeProgram::image(unsigned replica, const std::string &name) const
{
    return path("replicas/replica-" + std::to_string(replica) + "/" + name + ".img");
}
