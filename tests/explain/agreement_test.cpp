/*
 * The explanation against the library itself: for each configuration a process starts the library,
 * and what it finds in its record, its pools and its log is what the explanation says.
 */
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "config_generator.h"
#include "description.h"
#include "node_files.h"

using report = std::vector<std::string>;

static constexpr uint64_t LARGEST_RESERVATION = 64u << 20; /* bytes that a test may take */

/* What stands in a damaged document may hold line breaks. */
static std::string one_line(std::string text)
{
    for (char &c : text)
        c = uint8_t(c) < ' ' ? '?' : c;
    return text;
}

static std::string level_number(const std::string &name)
{
    return name == "error" ? "3" : name == "warning" ? "4" : name == "info" ? "6" : "2";
}

static report explained(const description &told)
{
    report lines = {"start\t" + std::to_string(told.start_status),
                    "cfg_path\t" + one_line(told.cfg_path)};

    for (const value_line &line : told.values)
        lines.push_back(line.name + "\t" + std::to_string(line.value));
    for (const pool_line &pool : told.pools) {
        if (pool.maker == "library" && pool.name != "ZERO_PAGE_POOL" && told.start_status == 0)
            lines.push_back("pool " + pool.name + "\t" + std::to_string(pool.object_bytes) +
                            " bytes, " + std::to_string(pool.whole_bytes) + " whole, " +
                            std::to_string(pool.min) + " to " + std::to_string(pool.max));
    }
    for (const logged_line &line : told.log) {
        if (line.module_id == 386)
            lines.push_back("log\t" + level_number(line.level) + " " + one_line(line.text));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

static report read_lines(FILE *in)
{
    report lines;
    std::array<char, 9000> text;
    while (fgets(text.data(), int(text.size()), in) != nullptr)
        lines.push_back(std::string(text.data()).substr(0, strlen(text.data()) - 1));
    return lines;
}

static std::string option(const std::optional<uint64_t> &number)
{
    return number ? std::to_string(*number) : "-";
}

/* Starts the library in a process of that name. */
static report started(const node_files &files, const generated_config &config)
{
    const std::string program = files.path() + "/" + config.process;
    std::filesystem::copy_file(EXPLAIN_NODE_START, program);
    const std::string command = program + " " + files.path() + " " + option(config.memory) + " " +
                                files.path() + " " + std::to_string(config.numa_nodes) + " " +
                                std::to_string(config.numa_mask);

    FILE *out = popen(command.c_str(), "r");
    report lines = read_lines(out);
    EXPECT_EQ(pclose(out), 0) << command;
    /* A start that fails hands no numbers to the slab layer, or hands them before it fails. */
    const bool has_caches = std::any_of(lines.begin(), lines.end(), [](const std::string &line) {
        return line.rfind("cache page\t", 0) == 0;
    });
    if (!has_caches) {
        for (const char *name : {"page", "page threads", "64K_inner", "64K_outer"})
            lines.push_back(std::string("cache ") + name + "\t0");
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

static uint64_t reservation(const description &told)
{
    uint64_t bytes = 0;
    for (const pool_line &pool : told.pools)
        bytes += pool.maker == "library" ? pool.reserve_bytes : 0;
    return bytes;
}

/*
 * The explanation from a process of its own, as the library limits its lines by process.
 * Nothing when the configuration would take more memory than a test may.
 */
static report explained_apart(const explain_request &request)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        FILE *out = fdopen(ends[1], "w");
        const description told = describe(request);
        if (reservation(told) <= LARGEST_RESERVATION) {
            for (const std::string &line : explained(told))
                fprintf(out, "%s\n", line.c_str());
        }
        fclose(out);
        _exit(0);
    }
    close(ends[1]);
    FILE *in = fdopen(ends[0], "r");
    const report lines = read_lines(in);
    fclose(in);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return lines;
}

/* False when the configuration would take more memory than a test may, and is passed over. */
static bool compare(uint64_t number)
{
    const generated_config config = generate_config(number);
    node_files files(config.document);
    explain_request request = files.request(config.process);

    if (config.cgroup)
        files.add_cgroup_info(*config.cgroup);
    if (config.storage)
        files.add_storage_info(*config.storage);
    request.memory = config.memory;
    request.root = files.path();
    request.numa_nodes = config.numa_nodes;
    request.numa_mask = config.numa_mask;

    const report told = explained_apart(request);
    if (told.empty())
        return false;
    EXPECT_EQ(told, started(files, config))
        << "configuration " << number << " for " << config.process << "\n"
        << config.document;
    return true;
}

class ExplainAgreement : public testing::TestWithParam<uint64_t>
{
};

/* 8 times 25 are compared; one that is passed over is replaced by the next of its own range. */
TEST_P(ExplainAgreement, what_is_told_is_what_a_start_finds)
{
    static constexpr uint64_t COMPARED = 25;
    static constexpr uint64_t RANGE = 1000;
    uint64_t compared = 0;

    for (uint64_t i = 0; compared < COMPARED && i < RANGE; ++i)
        compared += compare(GetParam() * RANGE + i) ? 1 : 0;
    EXPECT_EQ(compared, COMPARED);
}

INSTANTIATE_TEST_SUITE_P(Generated, ExplainAgreement, testing::Range(uint64_t{0}, uint64_t{8}));
