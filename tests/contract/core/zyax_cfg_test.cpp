/*
 * Ini files.
 */
#include <gtest/gtest.h>

#include "under_test.h"
#include "zyax.h"

namespace
{

/* An open file with [node] name=storage in it. */
class Ini : public testing::Test
{
protected:
    Ini()
    {
        const std::string path = make_ini("node", "name", "storage");
        EXPECT_EQ(zyax_cfg_init(path.c_str(), &cfg), 0);
    }

    ~Ini() override
    {
        zyax_cfg_destroy_ex(cfg);
    }

    zyax_cfg *cfg       = nullptr;
    char      value[16] = "untouched";
};

} // namespace

TEST_F(Ini, value_is_found_by_section_and_key)
{
    EXPECT_EQ(zyax_cfg_getItemValue(cfg, "node", "name", value, sizeof value), 0);
    EXPECT_STREQ(value, "storage");
}

TEST_F(Ini, value_is_not_found_in_another_section)
{
    EXPECT_NE(zyax_cfg_getItemValue(cfg, "other", "name", value, sizeof value), 0);
}

TEST_F(Ini, value_is_not_found_under_another_key)
{
    EXPECT_NE(zyax_cfg_getItemValue(cfg, "node", "names", value, sizeof value), 0);
}

TEST_F(Ini, value_fits_with_its_terminator)
{
    EXPECT_EQ(zyax_cfg_getItemValue(cfg, "node", "name", value, 8), 0);
    EXPECT_STREQ(value, "storage");
}

TEST_F(Ini, value_that_lacks_room_for_its_terminator_does_not_fit)
{
    EXPECT_NE(zyax_cfg_getItemValue(cfg, "node", "name", value, 7), 0);
}

TEST_F(Ini, value_needs_a_place_to_go)
{
    EXPECT_NE(zyax_cfg_getItemValue(cfg, "node", "name", nullptr, 16), 0);
    EXPECT_NE(zyax_cfg_getItemValue(cfg, "node", "name", value, 0), 0);
}

TEST(IniFile, that_does_not_exist_does_not_open)
{
    zyax_cfg *cfg = nullptr;
    EXPECT_NE(zyax_cfg_init("/no/such/file.ini", &cfg), 0);
}

TEST(IniFile, needs_a_path_and_a_place_to_go)
{
    zyax_cfg *cfg = nullptr;
    EXPECT_NE(zyax_cfg_init(nullptr, &cfg), 0);
    EXPECT_NE(zyax_cfg_init(make_ini("a", "b", "c").c_str(), nullptr), 0);
}
