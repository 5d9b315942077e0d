/*
 * Where node_config.xml lies and what this process is called in it.
 */
#include "zyumm_cmm.h"

#include <csignal>

#include "config_documents.h"
#include "fake/expect_log.h"

static uint32_t locate()
{
    return get_umm_cfg_path(g_config_path, g_proc_name);
}

static uint32_t set_path(const char *path)
{
    return zyumm_set_config_path(path, "the caller", 17);
}

/* A path of `length` characters without the file's name: "/xxx...". */
static std::string long_directory(size_t length)
{
    return "/" + std::string(length - 1, 'x');
}

/* ------------------------------------------------------------------ get_umm_cfg_path */

TEST(ConfigPath, an_executable_gives_name_path_and_its_own_directory)
{
    fake_set_executable("/a/b/prog");

    EXPECT_EQ(locate(), 0u);

    EXPECT_STREQ(g_proc_name, "prog");
    EXPECT_STREQ(g_config_path, "/a/b/./node_config.xml");
    EXPECT_STREQ(g_exe_file_path, "/a/b");
    EXPECT_ONLY_LINE(6, "get_umm_cfg_path", "[UMM_CMM] node_config.xml path is: /a/b/./node_config.xml, proc_name prog.");
}

TEST(ConfigPath, the_link_is_the_one_of_this_process)
{
    fake_fail_with(OP_posix_getpid, 1, 4711);

    locate();

    EXPECT_EQ(fake_last_call(OP_posix_readlink).args[0].text, "/proc/4711/exe");
    EXPECT_EQ(fake_last_call(OP_posix_readlink).args[2].number, 4096u);
}

TEST(ConfigPath, a_path_that_is_already_set_is_kept)
{
    fake_set_executable("/a/b/prog");
    strcpy(g_config_path, "/c/node_config.xml");

    EXPECT_EQ(locate(), 0u);

    EXPECT_STREQ(g_proc_name, "prog");
    EXPECT_STREQ(g_config_path, "/c/node_config.xml");
    EXPECT_STREQ(g_exe_file_path, "/a/b/prog");
    EXPECT_ONLY_LINE(6, "get_umm_cfg_path", "[UMM_CMM] umm node_config.xml path='/c/node_config.xml', name (prog)");
}

TEST(ConfigPath, a_second_start_finds_the_name_again)
{
    fake_set_executable("/a/b/prog");
    locate();
    fake_set_executable("/a/b/other");

    EXPECT_EQ(locate(), 0u);

    EXPECT_STREQ(g_proc_name, "other");
    EXPECT_STREQ(g_config_path, "/a/b/./node_config.xml");
}

TEST(ConfigPath, an_executable_in_the_root_directory_has_a_path_too)
{
    fake_set_executable("/prog");

    EXPECT_EQ(locate(), 0u);

    EXPECT_STREQ(g_config_path, "//./node_config.xml");
}

/* The other function of the same name would answer "b" and cut the buffer. */
TEST(ConfigPath, the_base_name_is_what_is_behind_the_last_slash_and_leaves_the_path_alone)
{
    fake_set_executable("/a/b/");
    strcpy(g_config_path, "/c/node_config.xml");

    EXPECT_EQ(locate(), 0u);

    EXPECT_STREQ(g_proc_name, "");
    EXPECT_STREQ(g_exe_file_path, "/a/b/");
}

TEST(ConfigPath, an_executable_name_of_31_characters_fits)
{
    fake_set_executable("/a/" + std::string(31, 'n'));

    EXPECT_EQ(locate(), 0u);

    EXPECT_EQ(g_proc_name, std::string(31, 'n'));
}

TEST(ConfigPath, an_executable_name_of_32_characters_fails)
{
    fake_set_executable("/a/" + std::string(32, 'n'));

    EXPECT_EQ(locate(), 0xFFFFFFFF);

    EXPECT_STREQ(g_config_path, "");
    EXPECT_ONLY_LINE(3, "get_umm_cfg_path", "[UMM_CMM] binary name len too long");
}

TEST(ConfigPath, a_long_name_fails_even_when_the_path_is_set)
{
    fake_set_executable("/a/" + std::string(32, 'n'));
    strcpy(g_config_path, "/c/node_config.xml");

    EXPECT_EQ(locate(), 0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "get_umm_cfg_path", "[UMM_CMM] binary name len too long");
}

TEST(ConfigPath, a_failed_readlink_is_an_error_with_its_result)
{
    fake_fail(OP_posix_readlink);

    EXPECT_EQ(locate(), 0xFFFFFFFF);

    EXPECT_STREQ(g_config_path, "");
    EXPECT_STREQ(g_proc_name, "");
    EXPECT_ONLY_LINE(3, "get_umm_cfg_path", "[UMM_CMM] read link for exe_path fail, ret[-1]");
}

TEST(ConfigPath, a_link_that_fills_the_whole_buffer_is_an_error)
{
    fake_fail_with(OP_posix_readlink, 1, 4096);

    EXPECT_EQ(locate(), 0xFFFFFFFF);

    EXPECT_ONLY_LINE(3, "get_umm_cfg_path", "[UMM_CMM] read link for exe_path fail, ret[4096]");
}

TEST(ConfigPath, a_link_of_4095_characters_is_read)
{
    fake_set_executable(long_directory(4090) + "/prog");
    strcpy(g_config_path, "/c/node_config.xml");

    EXPECT_EQ(locate(), 0u);

    EXPECT_EQ(strlen(g_exe_file_path), 4095u);
    EXPECT_STREQ(g_proc_name, "prog");
}

TEST(ConfigPath, a_path_of_4095_characters_fits)
{
    fake_set_executable(long_directory(4077) + "/prog");

    EXPECT_EQ(locate(), 0u);

    EXPECT_EQ(g_config_path, long_directory(4077) + "/./node_config.xml");
}

TEST(ConfigPath, a_path_of_4096_characters_fails)
{
    fake_set_executable(long_directory(4078) + "/prog");

    EXPECT_EQ(locate(), 0xFFFFFFFF);

    EXPECT_ONLY_LINE(3, "get_umm_cfg_path", "[UMM_CMM] node config path too long");
}

TEST(ConfigPath, a_link_name_that_cannot_be_formatted_is_an_error_before_it_is_read)
{
    fake_fail(OP_snprintf_s);

    EXPECT_EQ(locate(), 0xFFFFFFFF);

    EXPECT_ONLY_LINE(3, "get_umm_cfg_path", "[UMM_CMM] binary exe len too long");
    EXPECT_EQ(fake_count(OP_posix_readlink), 0u);
}

TEST(ConfigPath, every_failing_format_fails_the_search)
{
    for_each_fault(OP_snprintf_s, [](const fault &f) {
        g_config_path[0] = '\0';
        const uint32_t status = locate();
        EXPECT_EQ(status, f.hit ? 0xFFFFFFFF : 0u);
    });
}

TEST(ConfigPath, null_buffers_fail_without_a_line)
{
    EXPECT_EQ(get_umm_cfg_path(nullptr, g_proc_name), 0xFFFFFFFF);
    EXPECT_EQ(get_umm_cfg_path(g_config_path, nullptr), 0xFFFFFFFF);

    EXPECT_NO_LINE();
}

TEST(ConfigPath, none_of_its_lines_is_limited)
{
    fake_set_executable("/a/b/prog");
    fake_fail_always(OP_snprintf_s);
    EXPECT_NOT_LIMITED(locate(), "[UMM_CMM] binary exe len too long");
    fake_no_faults();
    fake_fail_always(OP_posix_readlink);
    EXPECT_NOT_LIMITED(locate(), "[UMM_CMM] read link for exe_path fail, ret[-1]");
    fake_no_faults();
    EXPECT_NOT_LIMITED((g_config_path[0] = '\0', locate()), "[UMM_CMM] node_config.xml path is: /a/b/./node_config.xml, proc_name prog.");
    EXPECT_NOT_LIMITED(locate(), "[UMM_CMM] umm node_config.xml path='/a/b/./node_config.xml', name (prog)");
}

TEST(ConfigPath, its_lines_about_long_names_are_not_limited)
{
    fake_set_executable("/a/" + std::string(32, 'n'));
    EXPECT_NOT_LIMITED(locate(), "[UMM_CMM] binary name len too long");
    fake_set_executable(long_directory(4078) + "/prog");
    EXPECT_NOT_LIMITED((g_config_path[0] = '\0', locate()), "[UMM_CMM] node config path too long");
}

/* ------------------------------------------------------------------ zyumm_set_config_path */

TEST(ConfigPathSet, a_file_in_the_config_directory_comes_first)
{
    scratch_directory dir;
    dir.write("config/node_config.xml", "");
    dir.write("node_config.xml", "");

    EXPECT_EQ(set_path(dir.path().c_str()), 0u);

    EXPECT_EQ(g_config_path, dir.path() + "/config/node_config.xml");
    EXPECT_ONLY_LINE(6, "zyumm_set_config_path", "[UMM_CMM] The umm config path: " + dir.path() + "/config/node_config.xml. func(the caller) line(17)");
}

TEST(ConfigPathSet, without_it_the_path_is_the_directory_s_own_file_even_if_that_is_missing)
{
    scratch_directory dir;

    EXPECT_EQ(set_path(dir.path().c_str()), 0u);

    EXPECT_EQ(g_config_path, dir.path() + "/node_config.xml");
    EXPECT_EQ(fake_count(OP_zyax_access), 1u);
    EXPECT_ONLY_LINE(6, "zyumm_set_config_path", "[UMM_CMM] The umm config path: " + dir.path() + "/node_config.xml. func(the caller) line(17)");
}

TEST(ConfigPathSet, existence_is_asked_of_the_platform_in_existence_mode)
{
    scratch_directory dir;

    set_path(dir.path().c_str());

    const fake_call access = fake_last_call(OP_zyax_access);
    EXPECT_EQ(access.args[0].text, dir.path() + "/config/node_config.xml");
    EXPECT_EQ(access.args[1].number, 0u);
}

TEST(ConfigPathSet, a_path_is_resolved)
{
    scratch_directory dir;
    dir.write("sub/file", "");

    EXPECT_EQ(set_path((dir.path() + "/sub/../sub/.").c_str()), 0u);

    EXPECT_EQ(g_config_path, dir.path() + "/sub/node_config.xml");
}

TEST(ConfigPathSet, a_later_call_overwrites_the_path)
{
    scratch_directory first;
    scratch_directory second;
    set_path(first.path().c_str());

    EXPECT_EQ(set_path(second.path().c_str()), 0u);

    EXPECT_EQ(g_config_path, second.path() + "/node_config.xml");
}

TEST(ConfigPathSet, a_set_path_is_kept_by_the_start)
{
    scratch_directory dir;
    set_path(dir.path().c_str());

    EXPECT_EQ(locate(), 0u);

    EXPECT_EQ(g_config_path, dir.path() + "/node_config.xml");
}

TEST(ConfigPathSet, a_null_path_is_an_error)
{
    EXPECT_EQ(set_path(nullptr), 0xFFFFFFFF);

    EXPECT_STREQ(g_config_path, "");
    EXPECT_ONLY_LINE(3, "zyumm_set_config_path", "[UMM_CMM] The path is NULL.func(the caller) line(17)");
}

TEST(ConfigPathSet, a_directory_that_does_not_exist_is_an_error)
{
    scratch_directory dir;

    EXPECT_EQ(set_path((dir.path() + "/none").c_str()), 0xFFFFFFFF);

    EXPECT_STREQ(g_config_path, "");
    EXPECT_ONLY_LINE(3, "zyumm_set_config_path", "[UMM_CMM] The filePath is NULL.func(the caller) line(17)");
}

TEST(ConfigPathSet, a_resolved_directory_of_4072_characters_is_accepted)
{
    fake_set_realpath(long_directory(4072));
    fake_set_existing_files({long_directory(4072) + "/config/node_config.xml"});

    EXPECT_EQ(set_path("/anywhere"), 0u);

    EXPECT_EQ(g_config_path, long_directory(4072) + "/config/node_config.xml");
}

TEST(ConfigPathSet, a_resolved_directory_of_4073_characters_is_refused)
{
    fake_set_realpath(long_directory(4073));

    EXPECT_EQ(set_path("/anywhere"), 0xFFFFFFFF);

    EXPECT_STREQ(g_config_path, "");
    EXPECT_EQ(fake_count(OP_zyax_access), 0u);
    EXPECT_ONLY_LINE(3, "zyumm_set_config_path", "[UMM_CMM] The path is too long.func(the caller) line(17)");
}

TEST(ConfigPathSet, a_refused_path_leaves_the_old_one)
{
    strcpy(g_config_path, "/c/node_config.xml");
    fake_fail(OP_posix_realpath);

    EXPECT_EQ(set_path("/anywhere"), 0xFFFFFFFF);

    EXPECT_STREQ(g_config_path, "/c/node_config.xml");
}

TEST(ConfigPathSet, a_null_caller_is_written_out)
{
    EXPECT_EQ(zyumm_set_config_path(nullptr, nullptr, 4294967295), 0xFFFFFFFF);

    EXPECT_LAST_LINE(3, "zyumm_set_config_path", "[UMM_CMM] The path is NULL.func((null)) line(4294967295)");
}

TEST(ConfigPathSet, none_of_its_lines_is_limited)
{
    EXPECT_NOT_LIMITED(set_path(nullptr), "[UMM_CMM] The path is NULL.func(the caller) line(17)");
    fake_fail_always(OP_posix_realpath);
    EXPECT_NOT_LIMITED(set_path("/x"), "[UMM_CMM] The filePath is NULL.func(the caller) line(17)");
    fake_no_faults();
    fake_set_realpath(long_directory(4073));
    EXPECT_NOT_LIMITED(set_path("/x"), "[UMM_CMM] The path is too long.func(the caller) line(17)");
    fake_set_realpath("/d");
    EXPECT_NOT_LIMITED(set_path("/x"), "[UMM_CMM] The umm config path: /d/node_config.xml. func(the caller) line(17)");
}

/* The two lines that end the process, exactly and in this order. */
static const char FORMAT_FAILED[] =
    "^3\\|zyumm_set_config_path\\|0\\|\\[UMM_CMM\\] The path snprintf_s error ret\\(-1\\)\\.\n"
    "2\\|zyumm_set_config_path\\|0\\|BUG\n$";

TEST(ConfigPathSetDeathTest, a_path_that_cannot_be_formatted_is_fatal)
{
    fake_set_realpath("/d");
    fake_fail_with(OP_snprintf_s, 1, uint64_t(-1));

    EXPECT_EXIT(set_path("/anywhere"), testing::KilledBySignal(SIGABRT), FORMAT_FAILED);
}

TEST(ConfigPathSetDeathTest, a_second_path_that_cannot_be_formatted_is_fatal)
{
    fake_set_realpath("/d");
    fake_fail_with(OP_snprintf_s, 2, uint64_t(-1));

    EXPECT_EXIT(set_path("/anywhere"), testing::KilledBySignal(SIGABRT), FORMAT_FAILED);
}

/* ------------------------------------------------------------------ what callers get back */

TEST(ConfigPathGet, without_an_entry_the_text_is_empty)
{
    char buf[4096] = "old";

    EXPECT_EQ(zyumm_config_path_get(buf), 0u);

    EXPECT_STREQ(buf, "");
    EXPECT_NO_LINE();
}

TEST(ConfigPathGet, the_absolute_path_is_copied)
{
    char buf[4096] = "";
    strcpy(g_cfg_path_absolute, "/a/b/./sub/x.cfg");

    EXPECT_EQ(zyumm_config_path_get(buf), 0u);

    EXPECT_STREQ(buf, "/a/b/./sub/x.cfg");
}

TEST(ConfigPathGet, the_longest_path_is_copied_whole)
{
    char buf[4096] = "";
    strcpy(g_cfg_path_absolute, long_directory(4095).c_str());

    EXPECT_EQ(zyumm_config_path_get(buf), 0u);

    EXPECT_EQ(buf, long_directory(4095));
}

TEST(ConfigPathGet, a_null_buffer_fails)
{
    EXPECT_EQ(zyumm_config_path_get(nullptr), 0xFFFFFFFF);

    EXPECT_EQ(fake_count(OP_strncpy_s), 0u);
    EXPECT_NO_LINE();
}

TEST(ConfigPathGet, a_failed_copy_fails)
{
    char buf[4096] = "";
    fake_fail(OP_strncpy_s);

    EXPECT_EQ(zyumm_config_path_get(buf), 0xFFFFFFFF);
}

TEST(ConfigInfoGet, path_and_name_are_copied_and_the_path_logged)
{
    char path[4096] = "";
    char name[32]   = "";
    strcpy(g_config_path, "/c/node_config.xml");
    strcpy(g_proc_name, "prog");

    EXPECT_EQ(zyumm_config_info_get(path, name), 0u);

    EXPECT_STREQ(path, "/c/node_config.xml");
    EXPECT_STREQ(name, "prog");
    EXPECT_ONLY_LINE(6, "zyumm_config_info_get", "[UMM_CMM] The umm config path: /c/node_config.xml.");
}

TEST(ConfigInfoGet, the_path_is_a_block_whose_last_byte_is_left_alone_is_kept)
{
    char path[4096];
    char name[32] = "";
    memset(path, 'z', sizeof path);
    strcpy(g_config_path, "/c");
    g_config_path[4094] = 'q';

    EXPECT_EQ(zyumm_config_info_get(path, name), 0u);

    EXPECT_STREQ(path, "/c");
    EXPECT_EQ(path[4093], '\0');
    EXPECT_EQ(path[4094], 'q');
    EXPECT_EQ(path[4095], 'z');
}

TEST(ConfigInfoGet, a_name_of_31_characters_is_copied_whole)
{
    char path[4096] = "";
    char name[32]   = "";
    strcpy(g_proc_name, std::string(31, 'n').c_str());

    EXPECT_EQ(zyumm_config_info_get(path, name), 0u);

    EXPECT_EQ(name, std::string(31, 'n'));
}

TEST(ConfigInfoGet, null_buffers_fail_without_a_line)
{
    char path[4096] = "";
    char name[32]   = "";

    EXPECT_EQ(zyumm_config_info_get(nullptr, name), 0xFFFFFFFF);
    EXPECT_EQ(zyumm_config_info_get(path, nullptr), 0xFFFFFFFF);

    EXPECT_NO_LINE();
}

TEST(ConfigInfoGet, a_failed_copy_of_the_path_fails_before_the_name)
{
    char path[4096] = "";
    char name[32]   = "old";
    fake_fail(OP_memcpy_s);

    EXPECT_EQ(zyumm_config_info_get(path, name), 0xFFFFFFFF);

    EXPECT_STREQ(name, "old");
}

TEST(ConfigInfoGet, a_failed_copy_of_the_name_fails)
{
    char path[4096] = "";
    char name[32]   = "";
    fake_fail(OP_strncpy_s);

    EXPECT_EQ(zyumm_config_info_get(path, name), 0xFFFFFFFF);
}

TEST(ConfigInfoGet, its_line_is_not_limited)
{
    char path[4096] = "";
    char name[32]   = "";
    strcpy(g_config_path, "/c");

    EXPECT_NOT_LIMITED(zyumm_config_info_get(path, name), "[UMM_CMM] The umm config path: /c.");
}
