/*
 * "log level <module> <level>" and "log sinks".
 */
#include "console_process.h"

#include <filesystem>

#include "zyax_log.h"
#include "zylog.h"

namespace
{

class LogCommands : public console_process
{
};

bool is_written(uint32_t module_id, uint32_t level)
{
    return zylog_level_check(module_id, level) == 0;
}

} // namespace

TEST_F(LogCommands, a_module_s_level_is_set_by_its_name)
{
    EXPECT_FALSE(is_written(TEST_MODULE, ZYLOG_INFO));
    const answer said = run_line("log level tester info");
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.text, "tester (77) logs up to info.\n");
    EXPECT_TRUE(is_written(TEST_MODULE, ZYLOG_INFO));
    EXPECT_FALSE(is_written(386, ZYLOG_INFO));
}

TEST_F(LogCommands, a_module_s_level_is_set_by_its_number)
{
    EXPECT_EQ(run_line("log level 386 error").text, "cmm (386) logs up to error.\n");
    EXPECT_FALSE(is_written(386, ZYLOG_WARNING));
    EXPECT_EQ(run_line("log level 4711 7").text, "unknown (4711) logs up to debug.\n");
    EXPECT_TRUE(is_written(4711, 7));
}

TEST_F(LogCommands, a_module_s_own_level_can_be_taken_away)
{
    run_line("log level tester info");
    EXPECT_EQ(run_line("log level tester default").text,
              "tester (77) logs up to warning, as all others.\n");
    EXPECT_FALSE(is_written(TEST_MODULE, ZYLOG_INFO));
    zyax_log_set_level(ZYLOG_INFO);
    EXPECT_TRUE(is_written(TEST_MODULE, ZYLOG_INFO));
}

TEST_F(LogCommands, what_is_no_module_or_no_level_changes_nothing)
{
    const answer module = run_line("log level nobody info");
    EXPECT_EQ(module.status, -1);
    EXPECT_EQ(module.text, "There is no module nobody\n");
    EXPECT_EQ(run_line("log level 4294967296 info").text, "There is no module 4294967296\n");
    const answer level = run_line("log level tester loud");
    EXPECT_EQ(level.status, -1);
    EXPECT_EQ(level.text, "A level is fatal, error, warning, notice, info, debug or default, "
                          "and not loud\n");
    EXPECT_FALSE(is_written(TEST_MODULE, ZYLOG_INFO));
    EXPECT_EQ(run_line("log level tester").status, -1);
    EXPECT_EQ(run_line("log level tester info now").status, -1);
}

TEST_F(LogCommands, sinks_and_levels_are_listed)
{
    const std::string path = config_.path() + "/run.log";
    ASSERT_EQ(zyax_log_add_file(path.c_str(), 1048576, 3), 0);
    zylog(TEST_MODULE, ZYLOG_ERROR, "file", 1, "func", 0, "a line");
    zyax_log_flush();
    zyax_log_remove_stderr();
    run_line("log level tester info");
    EXPECT_EQ(run_line("log sinks").text,
              fill_in("sink       written    refused  target\n"
                      "file             1          0  {path}\n"
                      "0 lines not written.\n"
                      "\n"
                      "module                          id         level\n"
                      "(all others)                               warning\n"
                      "tester                          77         info\n",
                      {{"path", path}}));
    json expected = json::parse(R"({
        "dropped": 0, "level": "warning",
        "sinks": [{"kind": "file", "written": 1, "refused": 0, "is_coloured": false,
                   "max_bytes": 1048576, "files": 3}],
        "modules": [
          {"module_id": 1, "module": "zyax", "level": "warning", "has_own_level": false},
          {"module_id": 77, "module": "tester", "level": "info", "has_own_level": true},
          {"module_id": 386, "module": "cmm", "level": "warning", "has_own_level": false}]})");
    expected["sinks"][0]["target"] = path;
    EXPECT_EQ(parse_answer("log sinks", run_line("--json log sinks")), expected);
}
