/*
 * What the whole program shares and how it says so: clones, zero pages, the cache; and the console
 * commands' text on demand.
 */
#include <gmock/gmock.h>

#include "node_program.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

using NodeSharingReport = NodeProgram;

namespace {

constexpr size_t MIB = 1 << 20;

std::string zeros(size_t size)
{
    return std::string(size, '\0');
}

} // namespace

TEST_F(NodeSharingReport, every_request_has_a_clone_for_each_writer_and_a_borrowed_copy)
{
    const node_result run = node({"--replicas", "3", make_file("file", noise(3 * MIB))});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("clones +9 for the replicas' writers, 3 borrowed copies"));
}

TEST_F(NodeSharingReport, zero_stretches_are_told_and_their_images_are_exact)
{
    const std::string content =
        noise(MIB + 300) + zeros(2 * MIB) + noise(MIB, 2) + zeros(MIB) + noise(5, 3);
    const node_result run = node({"--keep", make_file("file", content)});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_whole(image(1, "0-file")) == expected_image(content));
    EXPECT_TRUE(read_whole(image(2, "0-file")) == expected_image(content));
    EXPECT_THAT(run.out, ContainsRegex("zero pages +382 of 641 pages were the shared zero page"));
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
}

TEST_F(NodeSharingReport, a_file_of_zeros_is_protected_without_a_page)
{
    const node_result run = node({"--keep", make_file("file", zeros(3 * MIB + 1))});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_whole(image(2, "0-file")) == expected_image(zeros(3 * MIB + 1)));
    EXPECT_THAT(run.out, ContainsRegex("zero pages +385 of 385 pages"));
    EXPECT_THAT(run.out, ContainsRegex("requests +4 for pages")); /* to verify */
}

TEST_F(NodeSharingReport, pages_in_the_cache_are_found_again)
{
    make_config(node_config(512, 64, 32)); /* so many that none has to be given back */
    const node_result run = node({"--threads", "1", make_file("file", noise(MIB))});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("cache +128 pages kept, 128 found again, 0 given back in "
                                       "0 evictions"));
}

TEST_F(NodeSharingReport, a_cache_beside_many_threads_keeps_nobody_from_his_pages)
{
    make_config(node_config(256, 64, 32));
    const std::string content = noise(24 * MIB);
    const node_result run = node({"--keep", "--threads", "8", make_file("file", content)});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_whole(image(1, "0-file")) == expected_image(content));
    EXPECT_THAT(run.out, ContainsRegex("cache +3072 pages kept, "));
    EXPECT_THAT(run.out, HasSubstr(" 0 timed out, 0 refused"));
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
}

TEST_F(NodeSharingReport, show_prints_the_commands_text_once_in_each_phase)
{
    const node_result run = node({"--show", "--quiet", make_file("file", noise(MIB))});

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("\numm show requests\n The page request number is (.|\n)*"
                                       "\numm show page\n(.|\n)*page owner_modid: +[0-9]+\n(.|\n)*"
                                       "\numm show requests\n(.|\n)*\numm show page\n"));
}
