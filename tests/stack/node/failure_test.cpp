/*
 * What a user and a machine can do wrong: each is answered with a reason and an exit code, and
 * whatever was held is given back.
 */
#include <gmock/gmock.h>

#include <unistd.h>

#include "node_program.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using NodeFailure = NodeProgram;

namespace {

void expect_nothing_leaked(const node_result &run)
{
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
    EXPECT_THAT(run.out, ContainsRegex("stop +clean\n"));
    EXPECT_THAT(run.out, ContainsRegex("result +failed\n"));
}

std::string replaced(std::string text, const std::string &what, const std::string &with)
{
    const size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos);
    return text.replace(at, what.size(), with);
}

} // namespace

/* ---- disk */

TEST_F(NodeFailure, a_full_disk_is_told_with_path_and_offset)
{
    std::filesystem::create_directories(path("replicas/replica-1"));
    std::filesystem::create_symlink("/dev/full", image(1, "0-file"));
    const node_result run = node({"--threads", "1", make_file("file", noise(3 << 20))});

    EXPECT_THAT(run.err, HasSubstr("cmm_node: " + image(1, "0-file") +
                                   ": write failed at byte offset 0: No space left on device\n"));
    expect_nothing_leaked(run);
}

TEST_F(NodeFailure, a_full_disk_with_every_thread_at_work_leaks_nothing)
{
    std::filesystem::create_directories(path("replicas/replica-2"));
    std::filesystem::create_symlink("/dev/full", image(2, "0-file"));
    const node_result run = node({"--threads", "8", make_file("file", noise(24 << 20))});

    EXPECT_THAT(run.err, HasSubstr(": write failed at byte offset "));
    expect_nothing_leaked(run);
}

TEST_F(NodeFailure, a_write_that_stops_in_the_middle_is_told_with_the_byte_where_it_stopped)
{
    const node_result run =
        node({"--threads", "1", make_file("file", noise(3 << 20))}, /* file size limit */ 2000000);

    EXPECT_THAT(run.err, HasSubstr("cmm_node: " + image(1, "0-file") +
                                   ": write failed at byte offset 2000000: File too large\n"));
    expect_nothing_leaked(run);
}

TEST_F(NodeFailure, images_of_a_failed_write_are_removed)
{
    node({"--threads", "1", make_file("file", noise(3 << 20))}, 2000000);

    EXPECT_FALSE(std::filesystem::exists(image(1, "0-file")));
}

TEST_F(NodeFailure, images_of_a_failed_write_can_be_kept)
{
    node({"--threads", "1", "--keep", make_file("file", noise(3 << 20))}, 2000000);

    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 2000000u);
}

TEST_F(NodeFailure, a_folder_for_images_that_cannot_be_made)
{
    make_file("replicas", "a file where the folder should be");
    const node_result run = node({make_file("file", "x")});

    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("cmm_node: " + path("replicas")));
}

TEST_F(NodeFailure, an_image_that_would_overwrite_its_own_source)
{
    const std::string file = make_file("file", "precious");
    std::filesystem::create_directories(path("replicas/replica-1"));
    std::filesystem::create_symlink(file, image(1, "0-file"));
    const node_result run = node({"--keep", file});

    EXPECT_THAT(run.err, HasSubstr("is the file to be protected"));
    EXPECT_EQ(read_whole(file), "precious");
    expect_nothing_leaked(run);
}

/* ---- sources */

TEST_F(NodeFailure, a_file_that_is_not_there)
{
    const node_result run = node({path("nothing")});

    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "cmm_node: " + path("nothing") + ": No such file or directory\n");
}

TEST_F(NodeFailure, a_folder_is_no_file)
{
    const node_result run = node({scratch_});

    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "cmm_node: " + scratch_ + ": not a regular file\n");
}

/* ---- usage */

TEST_F(NodeFailure, no_file_is_wrong_usage)
{
    const node_result run = bare_node({});

    EXPECT_EQ(run.code, 2);
    EXPECT_THAT(run.err, HasSubstr("files is required"));
}

TEST_F(NodeFailure, an_unknown_option_is_wrong_usage)
{
    EXPECT_EQ(bare_node({"--sideways", make_file("file", "x")}).code, 2);
}

TEST_F(NodeFailure, no_replica_at_all_is_wrong_usage)
{
    EXPECT_EQ(bare_node({"--replicas", "0", make_file("file", "x")}).code, 2);
}

TEST_F(NodeFailure, no_thread_at_all_is_wrong_usage)
{
    EXPECT_EQ(bare_node({"--threads", "0", make_file("file", "x")}).code, 2);
}

TEST_F(NodeFailure, a_number_that_is_none_is_wrong_usage)
{
    EXPECT_EQ(bare_node({"--timeout", "soon", make_file("file", "x")}).code, 2);
}

TEST_F(NodeFailure, an_unknown_level_is_wrong_usage)
{
    EXPECT_EQ(bare_node({"--log-level", "loud", make_file("file", "x")}).code, 2);
}

TEST_F(NodeFailure, verifying_without_saying_where_is_wrong_usage)
{
    const node_result run = bare_node({"--verify-only", make_file("file", "x")});

    EXPECT_EQ(run.code, 2);
    EXPECT_THAT(run.err, HasSubstr("--replica-dir"));
}

TEST_F(NodeFailure, help_is_no_failure)
{
    const node_result run = bare_node({"--help"});

    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.out, HasSubstr("--replicas N"));
    EXPECT_THAT(run.out, HasSubstr("Exit status: 0"));
}

TEST_F(NodeFailure, version_is_no_failure)
{
    const node_result run = bare_node({"--version"});

    EXPECT_EQ(run.code, 0);
    EXPECT_THAT(run.out, StartsWith("cmm_node 0."));
}

/* ---- configuration */

TEST_F(NodeFailure, no_folder_with_a_configuration)
{
    const node_result run = bare_node({"--config", path("nowhere"), make_file("file", "x")});

    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "cmm_node: " + path("nowhere") + ": no folder with a configuration\n");
}

TEST_F(NodeFailure, a_folder_without_a_configuration)
{
    std::filesystem::create_directories(path("etc"));
    const node_result run = node({make_file("file", "x")});

    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err,
              "cmm_node: " + path("etc/node_config.xml") + ": No such file or directory\n");
}

TEST_F(NodeFailure, a_configuration_directly_in_the_folder_serves)
{
    std::filesystem::create_directories(path("etc"));
    write_whole(path("etc/node_config.xml"), node_config(128, 64, 32));

    EXPECT_EQ(node({make_file("file", "x")}).code, 0);
}

/* A started library without pools: the program says which one is missing and at which step. */
#define EXPECT_NO_POOL(config, reason)                                                            \
    do {                                                                                          \
        make_config(config);                                                                      \
        const node_result run = node({"--log-level", "fatal", make_file("file", "x")});           \
        EXPECT_EQ(run.code, 1);                                                                   \
        EXPECT_THAT(run.err, HasSubstr(reason));                                                  \
    } while (0)

TEST_F(NodeFailure, a_configuration_that_is_no_xml)
{
    EXPECT_NO_POOL("<node_config>", "node_config.xml: it is not well-formed XML");
}

TEST_F(NodeFailure, an_empty_configuration)
{
    EXPECT_NO_POOL("", "node_config.xml: it is not well-formed XML");
}

TEST_F(NodeFailure, a_configuration_without_memory_sizes)
{
    EXPECT_NO_POOL(replaced(node_config(128, 64, 32), "<memcfg>\n  <mem>1</mem>\n </memcfg>", ""),
                   "it has no usable list of memory sizes");
}

TEST_F(NodeFailure, a_configuration_without_a_section_for_this_machine)
{
    EXPECT_NO_POOL(replaced(node_config(128, 64, 32), "memory=\"1\"", "memory=\"77\""),
                   "the section for memory size 1 is missing or broken");
}

TEST_F(NodeFailure, a_section_without_an_entry_for_this_program)
{
    EXPECT_NO_POOL(replaced(node_config(128, 64, 32), "\"default\"", "\"other\""),
                   "the section for memory size 1 has no uprocess \"cmm_node\" and none "
                   "\"default\"");
}

TEST_F(NodeFailure, an_entry_without_pages)
{
    EXPECT_NO_POOL(node_config(0, 64, 32), "no page pool: ");
    EXPECT_NO_POOL(node_config(0, 64, 32), "the process's entry gives no page_num");
}

TEST_F(NodeFailure, an_entry_without_scatter_gather_lists)
{
    EXPECT_NO_POOL(node_config(128, 0, 32), "the process's entry gives no sgl_num");
}

TEST_F(NodeFailure, an_entry_without_requests)
{
    EXPECT_NO_POOL(node_config(128, 64, 0), "the process's entry gives no req_num");
}

TEST_F(NodeFailure, fewer_scatter_gather_lists_than_one_request_needs)
{
    make_config(node_config(128, 4, 32));
    const node_result run = node({"--replicas", "4", make_file("file", "x")});

    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "cmm_node: the SGL pool of 4 is too small: a request with 4 replicas "
                       "needs 5\n");
}

TEST_F(NodeFailure, an_entry_that_leaves_the_page_pool_to_another_component)
{
    EXPECT_NO_POOL(
        replaced(node_config(128, 64, 32), "<req_num",
                 "<io_pool reserve_size=\"1\" max_size=\"2\" extand_size=\"1\"/>\n     <req_num"),
        "which leaves the page pool to its owner");
}

TEST_F(NodeFailure, a_machine_whose_memory_is_a_multiple_of_4_gib_has_no_memory_size)
{
    make_config(node_config(128, 64, 32));
    const node_result run = run_program(CMM_NODE_WITHOUT_SIZE_PROGRAM,
                                        {"--log-level", "fatal", "--config", path("etc"),
                                         "--replica-dir", path("replicas"), make_file("file", "x")},
                                        scratch_);

    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "cmm_node: this node's memory size has no value: the low 32 bits of its "
                       "byte count are zero, so no section of the configuration can be chosen\n");
}
