/*
 * What bites before the entry is reached: each sentence, and that it alone is said.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "told.h"

using testing::ElementsAre;
using testing::IsEmpty;

static std::string sound_section(const std::string &memory)
{
    return "<node memory=\"" + memory + "\">\n<umm>\n<uprocess name=\"io_process\">" +
           SOUND_PARAMETERS + "</uprocess>\n</umm>\n</node>\n";
}

TEST(ExplainChoices, of_a_sound_file_nothing_is_said)
{
    EXPECT_THAT(findings_in(one_entry(SOUND_PARAMETERS)), IsEmpty());
}

TEST(ExplainChoices, a_list_that_does_not_ascend_is_told)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n<mem>512</mem>\n<mem>128</mem>\n",
                                sound_section("64") + sound_section("512") + sound_section("128"))),
        ElementsAre("list_not_ascending: The listed sizes do not ascend: 128 follows 512. The "
                    "list is left at the first size above the measured one, and what comes "
                    "behind that is not seen.",
                    "section_never_matches: <node memory=\"512\">, number 2 of 3, can never be "
                    "taken: no node comes out at 512 MiB."));
}

TEST(ExplainChoices, an_empty_size_that_ends_the_list_is_told)
{
    EXPECT_THAT(findings_in(document_of("<mem>64</mem>\n<mem></mem>\n<mem>512</mem>\n",
                                        sound_section("64"))),
                ElementsAre("list_cut: An empty <mem> ends the list behind 1 sizes."));
}

TEST(ExplainChoices, a_size_that_is_no_number_is_told)
{
    EXPECT_THAT(findings_in(document_of("<mem>small</mem>\n<mem>64</mem>\n", sound_section("64"))),
                ElementsAre("size_not_positive: Listed size number 1 counts as 0 MiB."));
}

TEST(ExplainChoices, a_size_beyond_what_can_be_measured_is_told)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n<mem>8192</mem>\n", sound_section("64"))),
        ElementsAre("size_never_measured: Listed size number 2, 8,192 MiB, is never reached: "
                    "the most that 32 bits of bytes measure is 4,095 MiB."));
}

TEST(ExplainChoices, a_listed_size_without_a_section_is_told)
{
    EXPECT_THAT(findings_in(document_of("<mem>64</mem>\n<mem>2048</mem>\n", sound_section("64"))),
                ElementsAre("size_without_section: No section serves the listed size 2,048 MiB."));
}

TEST(ExplainChoices, a_section_for_a_size_that_is_not_listed_is_told)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n", sound_section("64") + sound_section("200"))),
        ElementsAre(
            "section_never_matches: <node memory=\"200\">, number 2 of 2, can never be taken: "
            "no node comes out at 200 MiB."));
}

TEST(ExplainChoices, a_second_section_for_one_size_is_told)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n", sound_section("64") + sound_section("64"))),
        ElementsAre(
            "section_never_matches: <node memory=\"64\">, number 2 of 2, can never be taken: "
            "one for the same size, or one whose memory is no number, stands before it."));
}

TEST(ExplainChoices, a_broken_section_hides_itself_and_all_behind_it)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n<mem>2048</mem>\n",
                                sound_section("64") + sound_section("2G") + sound_section("2048"))),
        ElementsAre(
            "section_never_matches: <node memory=\"2G\">, number 2 of 3, can never be taken: "
            "its memory is no number. The search ends at it.",
            "section_never_matches: <node memory=\"2048\">, number 3 of 3, can never be taken: "
            "one for the same size, or one whose memory is no number, stands before it.",
            "size_without_section: No section serves the listed size 2,048 MiB."));
}

TEST(ExplainChoices, a_section_for_nodes_below_the_smallest_size_is_reached)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n", sound_section("64") + sound_section("1"))),
        IsEmpty());
}

TEST(ExplainChoices, without_a_list_every_size_that_can_be_measured_is_reached)
{
    EXPECT_THAT(
        findings_in(
            document_of("", sound_section("1024") + sound_section("4095") + sound_section("4096"))),
        ElementsAre("section_never_matches: <node memory=\"4096\">, number 3 of 3, can never "
                    "be taken: no node comes out at 4,096 MiB."));
}

TEST(ExplainChoices, a_section_beyond_32_bits_is_told_with_the_size_that_it_is_for)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n", sound_section("4294967360"))),
        ElementsAre("value_beyond_32_bits: <node memory=\"4294967360\">, number 1 of 1, is one "
                    "for 64 MiB: of larger numbers the low 32 bits count."));
}

TEST(ExplainChoices, the_umm_of_another_section_is_told)
{
    EXPECT_THAT(
        findings_in(document_of("<mem>64</mem>\n<mem>2048</mem>\n",
                                "<node memory=\"64\">\n</node>\n" + sound_section("2048"))),
        ElementsAre("umm_of_other_section: The section has no <umm>; the next one in the file "
                    "is taken, that of another section."));
}

TEST(ExplainChoices, a_memory_beyond_32_bits_is_told)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    explain_request request = files.request();
    request.memory = 5368709120;

    EXPECT_THAT(findings_of(describe(request)),
                ElementsAre("size_truncated: The node's 5,368,709,120 bytes do not fit 32 bits: it "
                            "counts as a node of 1,024 MiB."));
}

/* ------------------------------------------------------------------ unusable */

TEST(ExplainUnusable, a_multiple_of_4_gib_is_no_memory)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    explain_request request = files.request();
    request.memory = 68719476736;
    const description told = describe(request);

    EXPECT_EQ(told.result, EXPLAIN_UNUSABLE);
    EXPECT_THAT(
        findings_of(told),
        ElementsAre("no_size: The node's 68,719,476,736 bytes are a multiple of 4 GiB, which "
                    "counts as no memory at all; one byte less is 4,095 MiB."));
}

TEST(ExplainUnusable, a_control_group_file_without_its_key_leaves_no_memory)
{
    node_files files(one_entry(SOUND_PARAMETERS));
    files.add_cgroup_info("[cgroup_info]\nother = 1\n");
    explain_request request = files.request();
    request.memory = {};
    request.root = files.path();

    EXPECT_THAT(findings_of(describe(request)),
                ElementsAre("no_size: Nobody knows how much memory the node has."));
}

TEST(ExplainUnusable, seventeen_sizes_are_too_many)
{
    std::string sizes;
    for (int i = 1; i <= 17; ++i)
        sizes += "<mem>" + std::to_string(i) + "</mem>\n";

    EXPECT_THAT(findings_in(document_of(sizes, sound_section("16"))),
                ElementsAre("no_size: The file lists more than 16 sizes, which makes all of it "
                            "useless."));
}

TEST(ExplainUnusable, a_document_without_memcfg_has_no_size)
{
    EXPECT_THAT(findings_in("<file>\n<config>\n</config>\n</file>\n"),
                ElementsAre("no_size: The document has no <memcfg>."));
}

TEST(ExplainUnusable, a_document_without_sections_serves_nobody)
{
    EXPECT_THAT(findings_in(document_of("", "")),
                ElementsAre("no_section: The document has no <config> with a <node>."));
}

TEST(ExplainUnusable, a_size_without_its_section_serves_nobody)
{
    EXPECT_THAT(findings_in(document_of("<mem>64</mem>\n<mem>512</mem>\n", sound_section("64"))),
                ElementsAre("no_section: No section serves a node of 512 MiB. There is no <node "
                            "memory=\"512\">, or a broken <node> stands before it."));
}

TEST(ExplainUnusable, a_document_that_is_not_well_formed_is_told_with_what_the_reader_says)
{
    const std::vector<std::string> found = findings_in("<file>\n<memcfg>\n");

    ASSERT_EQ(found.size(), 1u);
    EXPECT_THAT(found[0], testing::StartsWith("no_document: The document cannot be read: "));
    EXPECT_THAT(found[0], testing::HasSubstr("failed to load xml tree from file["));
}

TEST(ExplainUnusable, a_file_that_is_not_there_is_told)
{
    explain_request request;
    request.file = "/nowhere/node_config.xml";
    request.process = "io_process";
    request.memory = 1073741824;

    EXPECT_THAT(findings_of(describe(request)),
                ElementsAre("no_document: The document cannot be read: failed to open config "
                            "file[/nowhere/node_config.xml]"));
}

TEST(ExplainUnusable, a_name_that_is_too_long_fails_the_start)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    const description told = describe(files.request(std::string(32, 'n')));

    EXPECT_EQ(told.result, EXPLAIN_UNUSABLE);
    EXPECT_THAT(
        findings_of(told),
        ElementsAre("start_fails: The start of the process fails: binary name len too long | "
                    "get node_config.xml failed"));
}
