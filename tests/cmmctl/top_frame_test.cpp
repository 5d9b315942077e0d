/*
 * Whole frames, to the character; and what stands out.
 */
#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include "samples.h"
#include "top_frame.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

top_state busy_state()
{
    top_state state;

    state.sample = busy_node();
    state.rates = {{"0xPAGE PARTITION", {12345, 12300}}, {"0xSGL_PARTITION", {0.5, 0}}};
    state.pid = 4711;
    return state;
}

std::string frame_text(const top_state &state, size_t columns, size_t lines)
{
    return plain(top_frame(state, columns, lines));
}

/* The look of the piece that has the text in it. */
look look_of(const painted_text &frame, const std::string &text)
{
    for (const painted_line &line : frame)
        for (const painted_piece &piece : line)
            if (piece.text.find(text) != std::string::npos)
                return piece.as;
    ADD_FAILURE() << text << " is not there";
    return look::PLAIN;
}

} // namespace

TEST(TopFrame, fits_a_terminal_of_80_by_24)
{
    EXPECT_EQ(frame_text(busy_state(), 80, 24),
              R"(cmmctl top  cmm_node  pid 4711  every 1 s
waiting 2, oldest 12.3s  leaked 0  out 534K of 8.0M mapped  pools 2
POOL              USED   MAX                    USE%  HIGH ALLOC/s LEAKED MEMORY
PAGE PARTITION     510   512 [############### ]  99%   510   12.3k      0   512K
SGL_PARTITION       24  1024 [#               ]   2%    24     0.5      0   1.0M
WAITS  PAGES     AGE    LEFT KIND   MODULE       FOR
    1     16   12.3s   17.6s sgl    writer       read_ahead:120
    2     16    0.9s   29.1s sgl    writer       protect:120
HELD OF          OBJECTS  BYTES  OLDEST LEAKED MODULE       BY
PAGE PARTITION       512   512K    7.0s      0 writer       page_cache:42
PAGE PARTITION         2   2.0K    7.0s      0 writer       protect:42












q quit s sort: use / filter Tab panel r reverse p pause h help
)");
}

TEST(TopFrame, fits_a_terminal_of_40_by_10)
{
    EXPECT_EQ(frame_text(busy_state(), 40, 10),
              R"(cmmctl top  cmm_node  pid 4711  every 1
waiting 2, oldest 12.3s  leaked 0  out 5
POOL                   USED USE% ALLOC/s
PAGE PARTITION          510  99%   12.3k
SGL_PARTITION            24   2%     0.5
WAITS  PAGES     AGE FOR        1-1 of 2
    1     16   12.3s read_ahead:120
 BYTES  OLDEST BY               1-1 of 2
  512K    7.0s page_cache:42
q quit s sort: use / filter Tab panel r
)");
}

TEST(TopFrame, shows_the_chosen_panel_alone_where_there_is_no_room_for_all)
{
    top_state state = busy_state();
    state.view.chosen = top_panel::REQUESTS;

    EXPECT_EQ(frame_text(state, 60, 7),
              R"(cmmctl top  cmm_node  pid 4711  every 1 s
waiting 2, oldest 12.3s  leaked 0  out 534K of 8.0M mapped
WAITS  PAGES     AGE    LEFT MODULE       FOR
    1     16   12.3s   17.6s writer       read_ahead:120
    2     16    0.9s   29.1s writer       protect:120

q quit s sort: age / filter Tab panel r reverse p pause h he
)");
}

TEST(TopFrame, takes_the_lines_it_needs_when_none_are_given)
{
    EXPECT_EQ(frame_text(busy_state(), 100, 0),
              R"(cmmctl top  cmm_node  pid 4711  every 1 s
waiting 2, oldest 12.3s  leaked 0  out 534K of 8.0M mapped  pools 2
POOL               USED   MAX                      USE%  HIGH ALLOC/s FREE/s LEAKED MEMORY MODULE
PAGE PARTITION      510   512 [################# ]  99%   510   12.3k  12.3k      0   512K cmm
SGL_PARTITION        24  1024 [#                 ]   2%    24     0.5      0      0   1.0M cmm
WAITS  PAGES     AGE    LEFT KIND   MODULE       FOR
    1     16   12.3s   17.6s sgl    writer       read_ahead:120
    2     16    0.9s   29.1s sgl    writer       protect:120
HELD OF                  OBJECTS  BYTES  OLDEST LEAKED MODULE       BY
PAGE PARTITION               512   512K    7.0s      0 writer       page_cache:42
PAGE PARTITION                 2   2.0K    7.0s      0 writer       protect:42
)");
}

TEST(TopFrame, is_never_wider_or_higher_than_it_may)
{
    for (size_t columns : {1u, 2u, 7u, 10u, 39u, 79u, 81u, 200u})
        for (size_t lines : {1u, 2u, 3u, 4u, 5u, 8u, 9u, 12u, 50u}) {
            const painted_text frame = top_frame(busy_state(), columns, lines);
            ASSERT_EQ(frame.size(), lines) << columns;
            for (const painted_line &line : frame)
                ASSERT_LE(width_of(line), columns) << lines;
        }
}

TEST(TopFrame, says_what_is_the_trouble_and_for_how_long)
{
    top_state state = busy_state();
    state.trouble = "Connection refused";
    state.trouble_ms = 65000;
    const painted_text frame = top_frame(state, 80, 24);

    EXPECT_EQ(plain(frame[0]),
              "no news for 1m05s: Connection refused  cmm_node  pid 4711");
    EXPECT_EQ(look_of(frame, "Connection refused"), look::BAD);
    EXPECT_THAT(plain(frame), HasSubstr("PAGE PARTITION"));
}

TEST(TopFrame, bears_that_nothing_is_known)
{
    top_state state;
    state.trouble = "x";

    EXPECT_EQ(frame_text(state, 80, 6),
              "no news for 0.0s: x  process\n"
              "\n"
              "(nothing is known yet)\n"
              "\n"
              "\n"
              "q quit s sort: use / filter Tab panel r reverse p pause h help\n");
}

TEST(TopFrame, empty_panels_say_so)
{
    top_state state;
    state.sample = node_sample();
    const std::string text = frame_text(state, 80, 24);

    EXPECT_THAT(text, HasSubstr("(no pool exists)"));
    EXPECT_THAT(text, HasSubstr("(no request waits)"));
    EXPECT_THAT(text, HasSubstr("(nothing is held)"));
    state.view.filter = "x";
    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("(none fits the filter)"));
}

TEST(TopFrame, shows_the_filter_while_it_is_typed_and_afterwards)
{
    top_state state = busy_state();
    state.view.filter = "pag";
    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("/ filter: pag Tab"));
    state.view.is_typing = true;
    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("\nfilter: pag_\n"));
}

TEST(TopFrame, shows_the_order_of_the_chosen_panel)
{
    top_state state = busy_state();
    state.view.chosen = top_panel::HOLDERS;
    state.view.panels[2] = {2, true, 0};

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("sort: -oldest "));
}

TEST(TopFrame, help_lists_every_key)
{
    top_state state = busy_state();
    state.view.shows_help = true;
    const std::string text = frame_text(state, 80, 24);

    EXPECT_THAT(text, HasSubstr("q               quit"));
    EXPECT_THAT(text, HasSubstr("Tab, Shift-Tab"));
    EXPECT_THAT(text, Not(HasSubstr("PAGE PARTITION")));
}

TEST(TopFrame, says_that_it_is_paused)
{
    top_state state = busy_state();
    state.view.is_paused = true;

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("pid 4711  paused\n"));
}

TEST(TopFrame, says_that_the_list_of_requests_was_busy)
{
    top_state state = busy_state();
    state.sample->requests = {true, 7, {}};

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("waiting 7 (list busy)  leaked"));
}

TEST(TopFrame, a_panel_that_is_cut_says_which_rows_are_shown)
{
    top_state state = busy_state();
    for (int i = 0; i < 30; ++i)
        state.sample->pools.pools.push_back(a_pool("pool" + std::to_string(i), 1, 100));
    state.view.panels[0].first = 3;
    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("  MAX  4-17 of 32        USE%"));
    state.view.panels[0].first = 31;
    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("  MAX  19-32 of 32       USE%"));
}

TEST(TopFrame, names_of_any_content_move_no_cursor)
{
    top_state state = busy_state();
    state.sample->process = "\x1b[2J";
    state.sample->pools.pools[0].name = "a\nb\x1b[31m";
    state.sample->holders[0].function = "f\t\xff";
    const std::string text = frame_text(state, 120, 24);

    EXPECT_THAT(text, HasSubstr("cmmctl top  ?[2J"));
    EXPECT_THAT(text, HasSubstr("a?b?[31m"));
    EXPECT_THAT(text, HasSubstr("f??:42"));
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

TEST(TopFrame, a_pool_without_a_name_has_its_handle)
{
    top_state state = busy_state();
    state.sample->pools.pools[0].name = "";

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("0xPAGE PARTITIO"));
}

TEST(TopFrame, what_is_dry_leaked_or_nearly_over_stands_out)
{
    top_state state = busy_state();
    state.sample->pools.pools[1].leaked = 3;
    state.sample->pools.pools[1].leaked_bytes = 3072;
    state.sample->requests.requests[0].age_ms = 29500;
    const painted_text frame = top_frame(state, 80, 24);

    EXPECT_EQ(look_of(frame, "99%"), look::BAD);
    EXPECT_EQ(look_of(frame, "2%"), look::GOOD);
    EXPECT_EQ(look_of(frame, "leaked 3 (3.0K)"), look::BAD);
    EXPECT_EQ(look_of(frame, "0.5s"), look::BAD);
    EXPECT_EQ(look_of(frame, "29.1s"), look::PLAIN);
    EXPECT_EQ(look_of(frame, "waiting 2"), look::WARNING);
}

TEST(TopFrame, the_heading_of_the_chosen_panel_stands_out)
{
    top_state state = busy_state();
    state.view.chosen = top_panel::HOLDERS;
    const painted_text frame = top_frame(state, 80, 24);

    EXPECT_EQ(look_of(frame, "HELD OF"), look::CHOSEN);
    EXPECT_EQ(look_of(frame, "USED"), look::HEADING);
}

TEST(TopFrame, a_request_without_a_time_out_never_ends)
{
    top_state state = busy_state();
    state.sample->requests.requests[0].timeout_ms.reset();

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("12.3s   never"));
}

TEST(TopFrame, a_long_function_is_cut_before_its_line_number)
{
    top_state state = busy_state();
    state.sample->requests.requests[0].function = std::string(80, 'f');

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("fff~:120\n"));
}

TEST(TopFrame, size_classes_of_an_allocator_are_told_apart_by_their_size)
{
    top_state state = busy_state();
    state.sample->pools.pools[1].name = "heap";
    state.sample->pools.pools[1].is_class = true;

    EXPECT_THAT(frame_text(state, 80, 24), HasSubstr("heap/1.0K"));
}
