/*
 * What keys do to the view.
 */
#include <gtest/gtest.h>

#include "top_rows.h"
#include "top_view.h"

namespace {

const std::array<size_t, TOP_PANELS> ROWS = {9, 0, 3};

void type(top_view &view, const std::string &keys)
{
    for (const char key : keys)
        press_key(view, key, ROWS);
}

} // namespace

TEST(TopView, q_quits)
{
    top_view view;

    type(view, "q");
    EXPECT_TRUE(view.quits);
}

TEST(TopView, tab_goes_round_the_panels_both_ways)
{
    top_view view;

    type(view, "\t");
    EXPECT_EQ(view.chosen, top_panel::REQUESTS);
    type(view, "\t\t");
    EXPECT_EQ(view.chosen, top_panel::POOLS);
    press_key(view, TOP_KEY_BACK_TAB, ROWS);
    EXPECT_EQ(view.chosen, top_panel::HOLDERS);
}

TEST(TopView, s_goes_round_the_sort_keys_of_the_chosen_panel)
{
    top_view view;

    type(view, "s");
    EXPECT_EQ(sort_keys(top_panel::POOLS)[view.panels[0].sort_by], "name");
    type(view, "sssss");
    EXPECT_EQ(view.panels[0].sort_by, 0u);
    type(view, "S");
    EXPECT_EQ(sort_keys(top_panel::POOLS)[view.panels[0].sort_by], "memory");
    type(view, "\ts");
    EXPECT_EQ(sort_keys(top_panel::REQUESTS)[view.panels[1].sort_by], "place");
    EXPECT_EQ(sort_keys(top_panel::POOLS)[view.panels[0].sort_by], "memory");
}

TEST(TopView, r_reverses_and_a_new_key_does_not_stay_reversed)
{
    top_view view;

    type(view, "r");
    EXPECT_TRUE(view.panels[0].is_reversed);
    type(view, "s");
    EXPECT_FALSE(view.panels[0].is_reversed);
    type(view, "rr");
    EXPECT_FALSE(view.panels[0].is_reversed);
}

TEST(TopView, a_filter_is_typed_and_kept)
{
    top_view view;

    type(view, "/pq");
    EXPECT_TRUE(view.is_typing);
    EXPECT_FALSE(view.quits);
    press_key(view, TOP_KEY_ERASE, ROWS);
    type(view, "a\n");
    EXPECT_FALSE(view.is_typing);
    EXPECT_EQ(view.filter, "pa");
}

TEST(TopView, escape_drops_the_filter_while_it_is_typed_and_later)
{
    top_view view;

    type(view, "/pa\x1b");
    EXPECT_FALSE(view.is_typing);
    EXPECT_EQ(view.filter, "");
    type(view, "/pa\n\x1b");
    EXPECT_EQ(view.filter, "");
}

TEST(TopView, erasing_an_empty_filter_does_nothing)
{
    top_view view;

    type(view, "/");
    press_key(view, TOP_KEY_ERASE, ROWS);
    EXPECT_EQ(view.filter, "");
    EXPECT_TRUE(view.is_typing);
}

TEST(TopView, keys_that_are_no_characters_are_not_typed)
{
    top_view view;

    type(view, "/a");
    press_key(view, TOP_KEY_DOWN, ROWS);
    press_key(view, '\t', ROWS);
    press_key(view, 0xe9, ROWS);
    EXPECT_EQ(view.filter, "a");
}

TEST(TopView, a_filter_has_an_end)
{
    top_view view;

    type(view, "/" + std::string(100, 'x'));
    EXPECT_EQ(view.filter.size(), 40u);
}

TEST(TopView, scrolling_stays_within_the_rows)
{
    top_view view;

    press_key(view, TOP_KEY_UP, ROWS);
    EXPECT_EQ(view.panels[0].first, 0u);
    type(view, "jjk");
    EXPECT_EQ(view.panels[0].first, 1u);
    press_key(view, TOP_KEY_PAGE_DOWN, ROWS);
    EXPECT_EQ(view.panels[0].first, 6u);
    press_key(view, TOP_KEY_PAGE_DOWN, ROWS);
    EXPECT_EQ(view.panels[0].first, 8u);
    press_key(view, TOP_KEY_PAGE_UP, ROWS);
    EXPECT_EQ(view.panels[0].first, 3u);
    press_key(view, TOP_KEY_END, ROWS);
    EXPECT_EQ(view.panels[0].first, 8u);
    press_key(view, TOP_KEY_HOME, ROWS);
    EXPECT_EQ(view.panels[0].first, 0u);
}

TEST(TopView, an_empty_panel_does_not_scroll)
{
    top_view view;

    type(view, "\tj");
    press_key(view, TOP_KEY_END, ROWS);
    EXPECT_EQ(view.panels[1].first, 0u);
}

TEST(TopView, pausing_and_speed)
{
    top_view view;

    type(view, "p");
    EXPECT_TRUE(view.is_paused);
    type(view, " ");
    EXPECT_FALSE(view.is_paused);
    type(view, "+");
    EXPECT_DOUBLE_EQ(view.interval, 0.5);
    type(view, "---");
    EXPECT_DOUBLE_EQ(view.interval, 4);
    type(view, std::string(30, '+'));
    EXPECT_DOUBLE_EQ(view.interval, 0.1);
    type(view, std::string(30, '-'));
    EXPECT_DOUBLE_EQ(view.interval, 3600);
}

TEST(TopView, help_goes_away_with_any_key_which_does_nothing_else)
{
    top_view view;

    type(view, "?");
    EXPECT_TRUE(view.shows_help);
    type(view, "s");
    EXPECT_FALSE(view.shows_help);
    EXPECT_EQ(view.panels[0].sort_by, 0u);
    type(view, "hq");
    EXPECT_TRUE(view.quits);
}

TEST(TopView, a_key_without_meaning_changes_nothing)
{
    top_view view;

    type(view, "xyz0");
    EXPECT_EQ(view.panels[0].sort_by, 0u);
    EXPECT_EQ(view.chosen, top_panel::POOLS);
    EXPECT_FALSE(view.quits);
}
