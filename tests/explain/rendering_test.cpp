/*
 * The explanation as a caller sees it: exit codes, text, JSON.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

#include "told.h"

using nlohmann::json;

/* What is printed, with the folder of the files written as DIR. */
static std::string printed(const node_files &files, const explain_request &request)
{
    std::ostringstream out;
    run_explain(request, out);
    std::string text = out.str();
    for (size_t at = text.find(files.path()); at != std::string::npos; at = text.find(files.path()))
        text.replace(at, files.path().size(), "DIR");
    return text;
}

static json printed_json(const node_files &files, explain_request request)
{
    request.json = true;
    return json::parse(printed(files, request));
}

static int exit_code(const std::string &document)
{
    const node_files files(document);
    std::ostringstream out;
    return run_explain(files.request(), out);
}

TEST(ExplainExit, clean_warnings_and_unusable_are_0_1_and_2)
{
    EXPECT_EQ(exit_code(one_entry(SOUND_PARAMETERS)), 0);
    EXPECT_EQ(exit_code(one_entry(sound_but("page_num", "<page_num num=\"7\"/>"))), 1);
    EXPECT_EQ(exit_code(one_entry("")), 2);
    EXPECT_EQ(exit_code("no document"), 2);
}

TEST(ExplainExit, json_has_the_same_code)
{
    const node_files files(one_entry(sound_but("page_num", "<page_num num=\"7\"/>")));
    explain_request request = files.request();
    std::ostringstream out;
    request.json = true;

    EXPECT_EQ(run_explain(request, out), 1);
}

TEST(ExplainText, the_whole_explanation_reads_from_top_to_bottom)
{
    const node_files files(one_entry("\n<sgl_num num=\"8\"/>\n<page_num num=\"7\"/>\n"));
    const std::string text = printed(files, files.request());

    EXPECT_THAT(text,
                testing::StartsWith(
                    "DIR/node_config.xml, for process \"io_process\"\n"
                    "memory\n"
                    "    --memory says 1,073,741,824 bytes; no ini file is asked.\n"
                    "    That measures 1,024 MiB.\n"
                    "    The file lists 1024 MiB; the last before the first one above the "
                    "measured size is 1,024 MiB.\n"
                    "section\n"
                    "    <node memory=\"1024\">, number 1 of 1, is the first one for the chosen "
                    "size.\n"
                    "entry\n"
                    "    <uprocess name=\"io_process\"> is the process's own.\n"
                    "values\n"
                    "    rdma_flag                             1 RDMA    default, there is no "
                    "<rdma_flag>\n"
                    "    normal_pool, all 6                    0         default, there is no "
                    "<normal_pool>\n"));
    EXPECT_THAT(text,
                testing::HasSubstr("    page_max                              7 pages   num of "
                                   "<page_num>\n"));
    EXPECT_THAT(text,
                testing::HasSubstr("    REQ PARTITION             not made: its maximum is 0\n"));
    EXPECT_THAT(text, testing::HasSubstr("the start logs\n    info    umm node_config.xml "
                                         "path='DIR/node_config.xml', name (io_process)\n"));
    EXPECT_THAT(text,
                testing::HasSubstr("    warning CMM can not get rdma flag in config file, set "
                                   "flag[1] by default.\n"));
    EXPECT_THAT(text,
                testing::EndsWith("findings\n"
                                  "    warning [request_slab_empty] 7 pages make a request slab "
                                  "of 0 records, one for each 8 pages: a request that would "
                                  "have to wait is refused at once.\n"
                                  "result: warnings\n"));
}

TEST(ExplainText, two_explanations_of_one_file_are_the_same)
{
    const node_files files(one_entry(SOUND_PARAMETERS));

    EXPECT_EQ(printed(files, files.request()), printed(files, files.request()));
}

TEST(ExplainText, control_characters_of_the_file_do_not_reach_the_terminal)
{
    const node_files files(
        one_entry(sound_but("mem_coredump", "<mem_coredump dump_level=\"&#155;2J\"/>")));
    const std::string text = printed(files, files.request());

    EXPECT_EQ(text.find('\x9b'), std::string::npos);
    EXPECT_THAT(text, testing::HasSubstr("is no number: \"??2J\""));
}

/* ------------------------------------------------------------------ JSON */

TEST(ExplainJson, every_part_is_there)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    const json told = printed_json(files, files.request());

    EXPECT_EQ(told["command"], "explain");
    EXPECT_EQ(told["file"], "DIR/node_config.xml");
    EXPECT_EQ(told["process"], "io_process");
    EXPECT_EQ(told["result"], "clean");
    EXPECT_EQ(told["start_fails"], false);
    EXPECT_EQ(told["memory"]["source"], "option");
    EXPECT_EQ(told["memory"]["bytes"], 1073741824);
    EXPECT_EQ(told["memory"]["used_bytes"], 1073741824);
    EXPECT_EQ(told["memory"]["measured_mib"], 1024);
    EXPECT_EQ(told["memory"]["listed_mib"], json::array({1024}));
    EXPECT_EQ(told["memory"]["chosen_mib"], 1024);
    EXPECT_EQ(told["section"]["found"], true);
    EXPECT_EQ(told["section"]["index"], 1);
    EXPECT_EQ(told["section"]["count"], 1);
    EXPECT_EQ(told["entry"]["name"], "io_process");
    EXPECT_EQ(told["entry"]["default"], false);
    EXPECT_EQ(told["numa_nodes"], 0);
    EXPECT_EQ(told["cfg_path"], "DIR/io/limits.cfg");
    EXPECT_EQ(told["values"].size(), 25u);
    EXPECT_EQ(told["pools"].size(), 7u);
    EXPECT_EQ(told["findings"], json::array());
    EXPECT_EQ(told["log"][0]["module_id"], 386);
    EXPECT_EQ(told["log"][0]["level"], "info");
}

TEST(ExplainJson, a_value_is_told_with_all_of_its_origin)
{
    const node_files files(one_entry(sound_but("sgl_num", "<sgl_num num=\" 4294967304 \"/>")));
    const json told = printed_json(files, files.request());
    json sgl_max;
    for (const json &value : told["values"]) {
        if (value["name"] == "sgl_max")
            sgl_max = value;
    }

    EXPECT_EQ(sgl_max, json({{"name", "sgl_max"},
                             {"value", 8},
                             {"unit", "objects"},
                             {"origin", "attribute"},
                             {"element", "sgl_num"},
                             {"attribute", "num"},
                             {"text", " 4294967304 "},
                             {"number", 4294967304},
                             {"said", "num of <sgl_num>, the low 32 bits of 4,294,967,304"}}));
}

TEST(ExplainJson, a_finding_has_a_word_for_programs)
{
    const node_files files(one_entry(""));
    const json told = printed_json(files, files.request());

    EXPECT_EQ(told["result"], "unusable");
    EXPECT_EQ(told["findings"],
              json::array({{{"severity", "unusable"},
                            {"code", "empty_entry"},
                            {"text", "The entry has nothing in it: all values are 0."}}}));
}

TEST(ExplainJson, texts_of_any_content_come_through)
{
    const node_files files(
        one_entry(sound_but("mem_coredump", "<mem_coredump dump_level=\"&quot;\\ \xc3\xa9\"/>")));
    const json told = printed_json(files, files.request());

    EXPECT_EQ(told["values"].back()["text"], "\"\\ \xc3\xa9");
}

TEST(ExplainJson, a_name_that_is_no_utf_8_leaves_it_valid)
{
    const node_files files(one_entry(SOUND_PARAMETERS));
    const json told = printed_json(files, files.request("\xff"));

    EXPECT_EQ(told["process"], "\xef\xbf\xbd");
}
