/*
 * What an operator's console does with the log: levels in words, modules by name, and the lists of
 * modules and sinks.
 */
#include "zyax.h"
#include "zyax_log_helpers.h"

#include <atomic>
#include <string.h>
#include <thread>
#include <vector>

static std::vector<zyax_log_module> modules(void)
{
    std::vector<zyax_log_module> all(zyax_log_list_modules(nullptr, 0));
    EXPECT_EQ(zyax_log_list_modules(all.data(), uint32_t(all.size())), all.size());
    return all;
}

static std::vector<zyax_log_sink> sinks(void)
{
    std::vector<zyax_log_sink> all(zyax_log_list_sinks(nullptr, 0));
    EXPECT_EQ(zyax_log_list_sinks(all.data(), uint32_t(all.size())), all.size());
    return all;
}

/* "id name level", and an asterisk when the level is the module's own. */
static std::string in_words(const zyax_log_module &module)
{
    return std::to_string(module.module_id) + " " + module.name + " " +
           std::to_string(module.level) + (module.has_own_level != 0 ? "*" : "");
}

TEST(ZylogLevel, every_level_has_a_name)
{
    EXPECT_STREQ(zyax_log_level_name(0), "fatal");
    EXPECT_STREQ(zyax_log_level_name(2), "fatal");
    EXPECT_STREQ(zyax_log_level_name(3), "error");
    EXPECT_STREQ(zyax_log_level_name(4), "warning");
    EXPECT_STREQ(zyax_log_level_name(5), "notice");
    EXPECT_STREQ(zyax_log_level_name(6), "info");
    EXPECT_STREQ(zyax_log_level_name(7), "debug");
    EXPECT_STREQ(zyax_log_level_name(UINT32_MAX), "debug");
}

static uint32_t parsed(const char *text)
{
    uint32_t level = 99;
    const int result = zyax_log_level_parse(text, &level);
    EXPECT_EQ(result == 0, level != 99) << text;
    return level;
}

TEST(ZylogLevel, a_level_is_read_from_its_name_or_its_number)
{
    EXPECT_EQ(parsed("fatal"), 2u);
    EXPECT_EQ(parsed("error"), 3u);
    EXPECT_EQ(parsed("warning"), 4u);
    EXPECT_EQ(parsed("notice"), 5u);
    EXPECT_EQ(parsed("info"), 6u);
    EXPECT_EQ(parsed("debug"), 7u);
    EXPECT_EQ(parsed("WARNING"), 4u);
    EXPECT_EQ(parsed("0"), 2u);
    EXPECT_EQ(parsed("1"), 2u);
    EXPECT_EQ(parsed("2"), 2u);
    EXPECT_EQ(parsed("7"), 7u);
}

TEST(ZylogLevel, what_is_no_level_is_refused_and_changes_nothing)
{
    EXPECT_EQ(parsed(""), 99u);
    EXPECT_EQ(parsed("8"), 99u);
    EXPECT_EQ(parsed("-1"), 99u);
    EXPECT_EQ(parsed("44"), 99u);
    EXPECT_EQ(parsed("warn"), 99u);
    EXPECT_EQ(parsed("warnings"), 99u);
    EXPECT_EQ(parsed(" error"), 99u);
    EXPECT_EQ(parsed(nullptr), 99u);
    EXPECT_EQ(zyax_log_level_parse("error", nullptr), -1);
}

TEST(ZylogLevel, the_level_of_all_can_be_asked_for)
{
    EXPECT_EQ(zyax_log_get_level(), 4u);

    zyax_log_set_level(6);
    EXPECT_EQ(zyax_log_get_level(), 6u);
    zyax_log_set_level(0);
    EXPECT_EQ(zyax_log_get_level(), 2u);
    zyax_log_set_level(1000);
    EXPECT_EQ(zyax_log_get_level(), 7u);

    zyax_log_set_module_level(77, 3);
    EXPECT_EQ(zyax_log_get_level(), 7u);
}

TEST(ZylogLevel, a_module_that_gives_its_level_up_follows_the_others_again)
{
    zyax_log_set_module_level(77, 3);
    zyax_log_set_level(6);
    ASSERT_NE(zylog_level_check(77, 6), 0);

    zyax_log_clear_module_level(77);
    EXPECT_EQ(zylog_level_check(77, 6), 0);
    EXPECT_NE(zylog_level_check(77, 7), 0);

    zyax_log_set_level(3);
    EXPECT_NE(zylog_level_check(77, 4), 0);
    EXPECT_EQ(zylog_level_check(77, 3), 0);
}

/* Levels 3 and 6 come and go; in the end it is 6, and no module may have been passed over. */
TEST(ZylogLevel, a_level_given_up_during_a_change_of_all_does_not_stay_behind)
{
    std::atomic<bool> stop = false;
    std::thread clearer([&] {
        while (!stop) {
            zyax_log_set_module_level(77, 2);
            zyax_log_clear_module_level(77);
        }
    });
    for (int i = 0; i < 500; ++i) {
        zyax_log_set_level(3);
        zyax_log_set_level(6);
    }
    stop = true;
    clearer.join();

    EXPECT_EQ(zylog_level_check(77, 6), 0);
    EXPECT_NE(zylog_level_check(77, 7), 0);
}

TEST(ZylogModules, a_fresh_process_knows_the_platform_alone)
{
    const std::vector<zyax_log_module> all = modules();

    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(in_words(all[0]), "1 zyax 4");
}

TEST(ZylogModules, modules_are_listed_by_id_with_their_names_and_levels)
{
    ASSERT_EQ(zyax_module_name_set(70000, "beyond_16_bits"), 0);
    ASSERT_EQ(zyax_module_name_set(90, "former"), 0);
    ASSERT_EQ(zyax_module_name_set(90, "present"), 0);
    ASSERT_EQ(zyax_module_name_set(0, "zero"), 0);
    zyax_log_set_module_level(77, 6);
    zyax_log_set_module_level(70000, 2);
    zyax_log_set_module_level(65535, 7);
    zyax_log_set_level(3);

    const std::vector<zyax_log_module> all = modules();

    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(in_words(all[0]), "0 zero 3");
    EXPECT_EQ(in_words(all[1]), "1 zyax 3");
    EXPECT_EQ(in_words(all[2]), "77 unknown 6*");
    EXPECT_EQ(in_words(all[3]), "90 present 3");
    EXPECT_EQ(in_words(all[4]), "65535 unknown 7*");
    EXPECT_EQ(in_words(all[5]), "70000 beyond_16_bits 2*");
}

TEST(ZylogModules, a_list_without_room_is_counted_and_not_written)
{
    ASSERT_EQ(zyax_module_name_set(77, "my_module"), 0);
    zyax_log_module all[2] = {};
    all[1].module_id = 99;

    EXPECT_EQ(zyax_log_list_modules(all, 1), 2u);
    EXPECT_EQ(in_words(all[0]), "1 zyax 4");
    EXPECT_EQ(all[1].module_id, 99u);
    EXPECT_EQ(zyax_log_list_modules(nullptr, 5), 2u);
}

TEST(ZylogModules, the_id_is_found_by_the_name)
{
    uint32_t module_id = 99;
    ASSERT_EQ(zyax_module_name_set(4000000000, "far_away"), 0);

    EXPECT_EQ(zyax_module_id_get("far_away", &module_id), 0);
    EXPECT_EQ(module_id, 4000000000u);
    EXPECT_EQ(zyax_module_id_get("zyax", &module_id), 0);
    EXPECT_EQ(module_id, 1u);
}

TEST(ZylogModules, a_name_that_nobody_has_any_more_is_not_found)
{
    uint32_t module_id = 99;
    ASSERT_EQ(zyax_module_name_set(5, "former"), 0);
    ASSERT_EQ(zyax_module_name_set(5, "present"), 0);

    EXPECT_EQ(zyax_module_id_get("former", &module_id), -1);
    EXPECT_EQ(zyax_module_id_get("unknown", &module_id), -1);
    EXPECT_EQ(zyax_module_id_get("", &module_id), -1);
    EXPECT_EQ(zyax_module_id_get(nullptr, &module_id), -1);
    EXPECT_EQ(zyax_module_id_get("present", nullptr), -1);
    EXPECT_EQ(module_id, 99u);
}

TEST(ZylogModules, of_several_modules_with_a_name_the_last_one_is_found)
{
    uint32_t module_id = 99;
    ASSERT_EQ(zyax_module_name_set(5, "twin"), 0);
    ASSERT_EQ(zyax_module_name_set(6, "twin"), 0);

    EXPECT_EQ(zyax_module_id_get("twin", &module_id), 0);
    EXPECT_EQ(module_id, 6u);

    ASSERT_EQ(zyax_module_name_set(6, "another"), 0);
    EXPECT_EQ(zyax_module_id_get("twin", &module_id), 0);
    EXPECT_EQ(module_id, 5u);
}

TEST(ZylogSinks, at_first_there_is_standard_error)
{
    const std::vector<zyax_log_sink> all = sinks();

    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].kind, ZYAX_LOG_STDERR);
    EXPECT_STREQ(all[0].target, "stderr");
    EXPECT_EQ(all[0].max_bytes, 0u);
    EXPECT_EQ(all[0].files, 0u);
    EXPECT_EQ(all[0].written, 0u);
    EXPECT_EQ(all[0].refused, 0u);
}

TEST(ZylogSinks, each_sink_is_listed_with_what_it_was_given)
{
    const temp_folder folder;
    const std::string path = folder.path("run.log");
    ASSERT_EQ(zyax_log_add_file(path.c_str(), 4096, 3), 0);
    ASSERT_EQ(zyax_log_add_syslog("zyax_test"), 0);
    zyax_log_remove_stderr();

    const std::vector<zyax_log_sink> all = sinks();

    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].kind, ZYAX_LOG_FILE);
    EXPECT_EQ(all[0].target, path);
    EXPECT_EQ(all[0].max_bytes, 4096u);
    EXPECT_EQ(all[0].files, 3u);
    EXPECT_EQ(all[0].is_coloured, 0u);
    EXPECT_EQ(all[1].kind, ZYAX_LOG_SYSLOG);
    EXPECT_STREQ(all[1].target, "zyax_test");
}

TEST(ZylogSinks, a_sink_counts_what_it_took_and_what_it_refused)
{
    const temp_folder folder;
    log_to_file(folder);
    ASSERT_EQ(zyax_log_add_file("/dev/full", UINT64_MAX, 1), 0);

    LOG(ZYLOG_ERROR, "one");
    LOG(ZYLOG_ERROR, "two");
    zyax_log_flush();

    const std::vector<zyax_log_sink> all = sinks();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].refused, 0u);
    EXPECT_EQ(all[0].written, folder.read_lines("run.log").size());
    EXPECT_GE(all[0].written, 3u); /* the log's own report besides */
    EXPECT_EQ(all[1].written, 0u);
    EXPECT_EQ(all[1].refused, all[0].written);
}

TEST(ZylogSinks, a_long_path_is_cut_in_the_list)
{
    const temp_folder folder;
    const std::string path = folder.path(std::string(200, 'd') + "/" + std::string(200, 'f'));
    ASSERT_EQ(zyax_log_add_file(path.c_str(), MIB, 1), 0);

    const std::vector<zyax_log_sink> all = sinks();

    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].target, path.substr(0, 255));
}

TEST(ZylogSinks, a_list_without_room_is_counted_and_not_written)
{
    const temp_folder folder;
    ASSERT_EQ(zyax_log_add_file(folder.path("run.log").c_str(), MIB, 1), 0);
    zyax_log_sink all[2] = {};
    all[1].kind = 99;

    EXPECT_EQ(zyax_log_list_sinks(all, 1), 2u);
    EXPECT_STREQ(all[0].target, "stderr");
    EXPECT_EQ(all[1].kind, 99u);
    EXPECT_EQ(zyax_log_list_sinks(nullptr, 5), 2u);
}

TEST(ZylogSinks, each_kind_has_a_name)
{
    EXPECT_STREQ(zyax_log_sink_kind_name(ZYAX_LOG_STDERR), "stderr");
    EXPECT_STREQ(zyax_log_sink_kind_name(ZYAX_LOG_FILE), "file");
    EXPECT_STREQ(zyax_log_sink_kind_name(ZYAX_LOG_SYSLOG), "syslog");
    EXPECT_STREQ(zyax_log_sink_kind_name(3), "unknown");
}
