/*
 * Ini files, good ones and broken ones of many kinds.
 */
#include "zyax.h"
#include "zyax_temp_folder.h"

#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>
#include <unistd.h>

class ZyaxIni : public testing::Test
{
protected:
    int open_text(const std::string &content)
    {
        return zyax_cfg_init(m_folder.write("file.ini", content).c_str(), &m_cfg);
    }

    /* The value, or "(none)". */
    std::string value(const char *section, const char *key)
    {
        char text[64];
        return zyax_cfg_getItemValue(m_cfg, section, key, text, sizeof(text)) == 0 ? text
                                                                                   : "(none)";
    }

    void TearDown() override
    {
        zyax_cfg_destroy_ex(m_cfg);
    }

    const temp_folder m_folder;
    zyax_cfg *m_cfg = nullptr;
};

TEST_F(ZyaxIni, values_are_found_by_section_and_key)
{
    ASSERT_EQ(open_text("outside=0\n"
                        "[cgroup_info]\n"
                        "cgroup_mem = 4096 \n"
                        "; note\n"
                        "# note\n"
                        "\n"
                        "[other]\r\n"
                        "cgroup_mem=17 ; note\r\n"
                        "empty=\n"
                        "colon: 5\n"
                        "last=end"),
              0);

    EXPECT_EQ(value("", "outside"), "0");
    EXPECT_EQ(value("cgroup_info", "cgroup_mem"), "4096");
    EXPECT_EQ(value("other", "cgroup_mem"), "17");
    EXPECT_EQ(value("other", "empty"), "");
    EXPECT_EQ(value("other", "colon"), "5");
    EXPECT_EQ(value("other", "last"), "end");
    EXPECT_EQ(value("other", "outside"), "(none)");
    EXPECT_EQ(value("Other", "last"), "(none)");
    EXPECT_EQ(value("other", "Last"), "(none)");
    EXPECT_EQ(value("no", "such"), "(none)");
}

TEST_F(ZyaxIni, no_white_space_at_the_begin_of_a_line_makes_it_continue_the_value_before)
{
    ASSERT_EQ(open_text("[a]\nfirst=1\n\vsecond=2\nthird=3\n\f[b]\n\rfourth=4\n \t\v\f\rfifth=5\n"),
              0);

    EXPECT_EQ(value("a", "first"), "1");
    EXPECT_EQ(value("a", "second"), "2");
    EXPECT_EQ(value("a", "third"), "3");
    EXPECT_EQ(value("b", "fourth"), "4");
    EXPECT_EQ(value("b", "fifth"), "5");
}

TEST_F(ZyaxIni, the_last_of_equal_keys_holds)
{
    ASSERT_EQ(open_text("[a]\nkey=1\nkey=2\n[b]\nkey=3\n[a]\nkey=4\n"), 0);

    EXPECT_EQ(value("a", "key"), "4");
    EXPECT_EQ(value("b", "key"), "3");
}

TEST_F(ZyaxIni, an_indented_pair_is_a_pair)
{
    ASSERT_EQ(open_text("  [a]\n\tone=1\n  two=2\n"), 0);

    EXPECT_EQ(value("a", "one"), "1");
    EXPECT_EQ(value("a", "two"), "2");
}

TEST_F(ZyaxIni, a_byte_order_mark_is_passed_over)
{
    ASSERT_EQ(open_text("\xEF\xBB\xBF[a]\none=1\n"), 0);

    EXPECT_EQ(value("a", "one"), "1");
}

TEST_F(ZyaxIni, a_value_needs_room_for_its_terminator)
{
    ASSERT_EQ(open_text("[a]\nkey=1234567\n"), 0);
    char text[8] = "as was";

    EXPECT_NE(zyax_cfg_getItemValue(m_cfg, "a", "key", text, 7), 0);
    EXPECT_NE(zyax_cfg_getItemValue(m_cfg, "a", "key", text, 0), 0);
    EXPECT_STREQ(text, "as was");
    EXPECT_EQ(zyax_cfg_getItemValue(m_cfg, "a", "key", text, 8), 0);
    EXPECT_STREQ(text, "1234567");
}

TEST_F(ZyaxIni, an_empty_file_has_no_values)
{
    ASSERT_EQ(open_text(""), 0);

    EXPECT_EQ(value("", ""), "(none)");
}

TEST_F(ZyaxIni, a_line_that_is_no_pair_makes_the_file_bad)
{
    EXPECT_NE(open_text("[a]\nno pair\nkey=1\n"), 0);
    EXPECT_EQ(m_cfg, nullptr);
}

TEST_F(ZyaxIni, a_section_that_is_not_closed_makes_the_file_bad)
{
    EXPECT_NE(open_text("[a\nkey=1\n"), 0);
    EXPECT_EQ(m_cfg, nullptr);
}

TEST_F(ZyaxIni, a_line_that_is_too_long_makes_the_file_bad_and_is_never_split)
{
    EXPECT_NE(open_text("[a]\nkey=" + std::string(5000, 'v') + "\n"), 0);
    EXPECT_NE(open_text("[a]\nkey=" + std::string(5000, 'v')), 0);
    EXPECT_EQ(m_cfg, nullptr);
}

TEST_F(ZyaxIni, a_comment_may_have_any_length)
{
    ASSERT_EQ(open_text("[a]\n; " + std::string(5000, 'c') + "\n   # x=" +
                        std::string(5000, 'c') + "\nkey=1\n"),
              0);

    EXPECT_EQ(value("a", "key"), "1");
}

TEST_F(ZyaxIni, a_file_that_is_no_text_is_bad)
{
    EXPECT_NE(open_text(std::string("[a]\nkey=1\0\0\nmore=2\n", 19)), 0);
    EXPECT_NE(open_text(std::string(4096, '\0')), 0);
    EXPECT_NE(open_text("\x7f" "ELF\x02\x01\x01"), 0);
    EXPECT_EQ(m_cfg, nullptr);
}

TEST_F(ZyaxIni, what_cannot_be_read_is_not_opened)
{
    EXPECT_NE(zyax_cfg_init(m_folder.path("no_file").c_str(), &m_cfg), 0);
    EXPECT_EQ(m_cfg, nullptr);
    EXPECT_NE(zyax_cfg_init(m_folder.path(".").c_str(), &m_cfg), 0);
    EXPECT_EQ(m_cfg, nullptr);
}

TEST_F(ZyaxIni, null_arguments_are_refused)
{
    ASSERT_EQ(open_text("[a]\nkey=1\n"), 0);
    char text[8] = "as was";

    EXPECT_NE(zyax_cfg_init(nullptr, &m_cfg), 0);
    EXPECT_NE(zyax_cfg_init("file", nullptr), 0);
    EXPECT_NE(zyax_cfg_getItemValue(nullptr, "a", "key", text, 8), 0);
    EXPECT_NE(zyax_cfg_getItemValue(m_cfg, nullptr, "key", text, 8), 0);
    EXPECT_NE(zyax_cfg_getItemValue(m_cfg, "a", nullptr, text, 8), 0);
    EXPECT_NE(zyax_cfg_getItemValue(m_cfg, "a", "key", nullptr, 8), 0);
    zyax_cfg_destroy_ex(nullptr);
    EXPECT_STREQ(text, "as was");
    EXPECT_EQ(value("a", "key"), "1");
}

TEST_F(ZyaxIni, a_closed_handle_is_refused)
{
    ASSERT_EQ(open_text("[a]\nkey=1\n"), 0);
    zyax_cfg *stale = m_cfg;
    char text[8];
    zyax_cfg_destroy_ex(stale);
    m_cfg = nullptr;

    EXPECT_NE(zyax_cfg_getItemValue(stale, "a", "key", text, 8), 0);
    zyax_cfg_destroy_ex(stale);
}

TEST_F(ZyaxIni, two_files_are_open_at_a_time)
{
    ASSERT_EQ(open_text("[a]\nkey=1\n"), 0);
    zyax_cfg *second = nullptr;
    ASSERT_EQ(zyax_cfg_init(m_folder.write("2.ini", "[a]\nkey=2\n").c_str(), &second), 0);
    char text[8];

    EXPECT_EQ(zyax_cfg_getItemValue(second, "a", "key", text, 8), 0);
    EXPECT_STREQ(text, "2");
    zyax_cfg_destroy_ex(second);
    EXPECT_EQ(value("a", "key"), "1");
}
