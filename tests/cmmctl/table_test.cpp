/*
 * Lines, columns and bars of a given width.
 */
#include <gtest/gtest.h>

#include "table.h"
#include "usage_bar.h"

namespace {

const std::vector<table_column> COLUMNS = {
    {"name", 6, 10, 0, false},
    {"used", 4, 4, 0, true},
    {"bar", 8, 20, 1, false},
    {"rate", 5, 5, 2, true},
};

std::string row(size_t width)
{
    static const char *const CELLS[] = {"pages", "17", "[###]", "1.5"};

    return plain(table_row(COLUMNS, lay_out(COLUMNS, width), [](size_t column, size_t) {
        return painted_line{{CELLS[column], look::PLAIN}};
    }));
}

std::vector<size_t> widths(size_t width)
{
    return lay_out(COLUMNS, width).widths;
}

std::string bar(uint64_t used, uint64_t high, uint64_t capacity, size_t width)
{
    return plain(usage_bar(used, high, capacity, width));
}

} // namespace

TEST(PaintedText, a_line_is_cut_or_filled_up)
{
    const painted_line line = {{"abc", look::GOOD}, {"def", look::BAD}};

    EXPECT_EQ(plain(fitted(line, 4)), "abcd");
    EXPECT_EQ(plain(fitted(line, 3)), "abc");
    EXPECT_EQ(plain(fitted(line, 0)), "");
    EXPECT_EQ(plain(fitted(line, 8)), "abcdef  ");
    EXPECT_EQ(plain(fitted(line, 8, true)), "  abcdef");
    EXPECT_EQ(plain(fitted({}, 2)), "  ");
}

TEST(PaintedText, blanks_have_the_look_beside_them)
{
    const painted_line line = {{"abc", look::GOOD}, {"def", look::BAD}};

    EXPECT_EQ(fitted(line, 8).back().as, look::BAD);
    EXPECT_EQ(fitted(line, 8, true).front().as, look::GOOD);
    EXPECT_EQ(fitted({{"", look::CHOSEN}}, 8).front().as, look::CHOSEN);
}

TEST(PaintedText, plain_text_has_no_blanks_at_the_ends_of_lines)
{
    EXPECT_EQ(plain(painted_text{{{"a  ", look::BAD}}, {}, {{"  b ", look::PLAIN}}}),
              "a\n\n  b\n");
}

TEST(Table, takes_its_columns_least_widths_where_they_fit_exactly)
{
    EXPECT_EQ(widths(26), (std::vector<size_t>{6, 4, 8, 5}));
    EXPECT_EQ(row(26), "pages    17 [###]      1.5");
}

TEST(Table, leaves_out_what_matters_least)
{
    EXPECT_EQ(widths(25), (std::vector<size_t>{9, 4, 10, 0}));
    EXPECT_EQ(widths(19), (std::vector<size_t>{10, 4, 0, 0}));
    EXPECT_EQ(row(19), "pages        17");
}

TEST(Table, never_leaves_out_what_stays)
{
    EXPECT_EQ(widths(3), (std::vector<size_t>{6, 4, 0, 0}));
}

TEST(Table, shares_what_is_left_over_in_turn)
{
    EXPECT_EQ(widths(31), (std::vector<size_t>{9, 4, 10, 5}));
    EXPECT_EQ(widths(200), (std::vector<size_t>{10, 4, 20, 5}));
}

TEST(UsageBar, shows_use_and_high_water)
{
    EXPECT_EQ(bar(5, 8, 10, 12), "[#####..|  ]");
    EXPECT_EQ(bar(0, 0, 10, 12), "[          ]");
    EXPECT_EQ(bar(10, 10, 10, 12), "[##########]");
    EXPECT_EQ(bar(5, 5, 10, 12), "[#####     ]");
    EXPECT_EQ(bar(0, 10, 10, 12), "[.........|]");
}

TEST(UsageBar, one_object_shows_and_only_a_full_pool_fills_it)
{
    EXPECT_EQ(bar(1, 1, 1000000, 12), "[#         ]");
    EXPECT_EQ(bar(999999, 999999, 1000000, 12), "[######### ]");
    EXPECT_EQ(bar(0, 1, 1000000, 12), "[|         ]");
}

TEST(UsageBar, bears_more_than_the_capacity_and_none)
{
    EXPECT_EQ(bar(20, 30, 10, 12), "[##########]");
    EXPECT_EQ(bar(5, 8, 0, 12), "[          ]");
    EXPECT_EQ(bar(1, 2, 2, 3), "[#]");
    EXPECT_EQ(bar(1, 2, 2, 0), "[#]");
}

TEST(UsageBar, its_look_says_how_dry_the_pool_is)
{
    EXPECT_EQ(look_of_use(74, 100), look::GOOD);
    EXPECT_EQ(look_of_use(75, 100), look::WARNING);
    EXPECT_EQ(look_of_use(94, 100), look::WARNING);
    EXPECT_EQ(look_of_use(95, 100), look::BAD);
    EXPECT_EQ(look_of_use(1, 0), look::DIM);
    EXPECT_EQ(look_of_use(1, 1), look::DIM);
}
