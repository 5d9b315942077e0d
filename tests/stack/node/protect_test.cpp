/*
 * Files go through the program and come back: every size that is special to sectors, pages and
 * requests, many files and threads, and what is left behind afterwards.
 */
#include <gmock/gmock.h>

#include "node_program.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

using NodeProtect = NodeProgram;

namespace {

/* A run without a flaw that left these two images of `content`. */
void expect_images(const node_result &run, const std::string &first, const std::string &second,
                   const std::string &content)
{
    ASSERT_EQ(run.code, 0) << run.out << run.err;
    EXPECT_TRUE(read_whole(first) == expected_image(content));
    EXPECT_TRUE(read_whole(second) == expected_image(content));
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
    EXPECT_THAT(run.out, ContainsRegex("stop +clean\n"));
    EXPECT_THAT(run.out, ContainsRegex("result +ok\n"));
    EXPECT_THAT(run.err, IsEmpty());
}

} // namespace

#define EXPECT_PROTECTED(size)                                                                    \
    do {                                                                                          \
        const std::string content = noise(size);                                                  \
        const node_result run = node({"--keep", make_file("file", content)});                     \
        expect_images(run, image(1, "0-file"), image(2, "0-file"), content);                      \
    } while (0)

TEST_F(NodeProtect, a_file_without_a_byte_has_an_image_without_a_byte)
{
    EXPECT_PROTECTED(0);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 0u);
}

TEST_F(NodeProtect, one_byte_takes_one_sector)
{
    EXPECT_PROTECTED(1);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 520u);
}

TEST_F(NodeProtect, a_sector_less_one_byte)
{
    EXPECT_PROTECTED(511);
}

TEST_F(NodeProtect, exactly_one_sector)
{
    EXPECT_PROTECTED(512);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 520u);
}

TEST_F(NodeProtect, one_sector_and_a_byte_take_two)
{
    EXPECT_PROTECTED(513);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 1040u);
}

TEST_F(NodeProtect, exactly_one_page)
{
    EXPECT_PROTECTED(8192);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 8320u);
}

TEST_F(NodeProtect, a_page_and_a_byte_take_one_sector_more)
{
    EXPECT_PROTECTED(8193);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 8840u);
}

TEST_F(NodeProtect, more_pages_than_one_sgl_holds)
{
    EXPECT_PROTECTED(65 * 8192);
}

TEST_F(NodeProtect, exactly_one_request)
{
    EXPECT_PROTECTED(1 << 20);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 1064960u);
}

TEST_F(NodeProtect, one_request_and_a_byte)
{
    EXPECT_PROTECTED((1 << 20) + 1);
    EXPECT_EQ(std::filesystem::file_size(image(1, "0-file")), 1065480u);
}

TEST_F(NodeProtect, threads_that_together_need_eight_times_the_pool_all_get_their_pages)
{
    const std::string content = noise(24 << 20);
    const node_result run = node({"--keep", "--threads", "8", make_file("file", content)});

    expect_images(run, image(1, "0-file"), image(2, "0-file"), content);
    EXPECT_THAT(run.out, HasSubstr("by 8 threads"));
    EXPECT_THAT(run.out, ContainsRegex("pages +128 of 128 in use at the peak"));
    EXPECT_THAT(run.out, ContainsRegex("48 for pages, ([0-9]+) queued"));
    EXPECT_THAT(run.out, HasSubstr(" 0 timed out, 0 refused"));
}

TEST_F(NodeProtect, no_more_threads_than_the_queue_has_places)
{
    make_config(node_config(40, 24, 8)); /* 5 records, of which 3 may not be back yet */
    const node_result run = node({"--threads", "8", make_file("file", noise(600000))});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("by 2 threads"));
}

TEST_F(NodeProtect, requests_shrink_to_a_pool_of_a_single_page)
{
    make_config(node_config(1, 3, 1)); /* SGLs: the chain and a clone for each writer */
    const std::string content = noise(3 * 8192 + 5);
    const node_result run = node({"--keep", "--threads", "8", make_file("file", content)});

    expect_images(run, image(1, "0-file"), image(2, "0-file"), content);
    EXPECT_THAT(run.out, HasSubstr("4 requests"));
}

TEST_F(NodeProtect, files_of_one_name_have_images_of_their_own)
{
    std::filesystem::create_directories(path("a"));
    std::filesystem::create_directories(path("b"));
    const node_result run =
        node({"--keep", make_file("a/same", "first"), make_file("b/same", "2.")});

    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(read_whole(image(1, "0-same")), expected_image("first"));
    EXPECT_EQ(read_whole(image(2, "1-same")), expected_image("2."));
}

TEST_F(NodeProtect, hundreds_of_files_need_no_more_descriptors_than_a_few)
{
    std::vector<std::string> arguments = {"--replicas", "4"};
    for (int i = 0; i < 300; ++i)
        arguments.push_back(make_file("file" + std::to_string(i), noise(100 + size_t(i) * 7)));
    const node_result run = node(arguments);

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("300, "));
}

TEST_F(NodeProtect, images_of_an_earlier_run_are_replaced)
{
    ASSERT_EQ(node({"--keep", make_file("file", noise(5000))}).code, 0);
    ASSERT_EQ(node({"--keep", make_file("file", "short now")}).code, 0);

    EXPECT_EQ(read_whole(image(1, "0-file")), expected_image("short now"));
}

TEST_F(NodeProtect, images_are_removed_unless_they_are_to_be_kept)
{
    ASSERT_EQ(node({make_file("file", noise(5000))}).code, 0);

    EXPECT_FALSE(std::filesystem::exists(path("replicas")));
}

TEST_F(NodeProtect, a_folder_that_was_there_before_stays)
{
    std::filesystem::create_directories(path("replicas"));
    ASSERT_EQ(node({make_file("file", noise(5000))}).code, 0);

    EXPECT_TRUE(std::filesystem::is_empty(path("replicas")));
}

TEST_F(NodeProtect, without_a_terminal_progress_is_plain_lines)
{
    const node_result run = node({make_file("file", noise(5000))});

    EXPECT_THAT(run.out, HasSubstr("protect: 100 %, 4.9 KiB of 4.9 KiB\n"));
    EXPECT_THAT(run.out, HasSubstr("verify: 100 %, 4.9 KiB of 4.9 KiB\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("\r")));
}

TEST_F(NodeProtect, quiet_says_nothing_when_all_is_well)
{
    const node_result run = node({"--quiet", make_file("file", noise(5000))});

    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST_F(NodeProtect, the_log_goes_to_the_file_that_is_named)
{
    const node_result run = node({"--log-level", "info", "--log-file", path("node.log"),
                                  make_file("file", noise(5000))});

    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(read_whole(path("node.log")), HasSubstr("[UMM_CMM] umm_cmm module exit finish."));
}

TEST_F(NodeProtect, lines_of_the_log_name_the_module_that_they_come_from)
{
    node({"--log-level", "info", "--log-file", path("node.log"), make_file("file", noise(5000))});
    const std::string log = read_whole(path("node.log"));

    EXPECT_THAT(log, ContainsRegex(" info +[0-9]+ cmm [^\n]*umm_cmm module exit finish\\."));
    EXPECT_THAT(log, Not(HasSubstr(" unknown ")));
}

TEST_F(NodeProtect, the_sample_configuration_serves_this_machine)
{
    const node_result run = run_program(
        CMM_NODE_PROGRAM, {"--replica-dir", path("replicas"), make_file("file", noise(5000))},
        scratch_);

    EXPECT_EQ(run.code, 0) << run.err;
}

TEST_F(NodeProtect, without_a_folder_for_the_images_a_temporary_one_comes_and_goes)
{
    make_config(node_config(128, 64, 32));
    const node_result run = bare_node({"--config", path("etc"), make_file("file", noise(5000))});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("2 in [^ ]*/cmm_node-[A-Za-z0-9]+, removed again"));
}
