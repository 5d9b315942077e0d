/*
 * Which rows are shown, and in which order.
 */
#include <gtest/gtest.h>

#include "samples.h"
#include "top_rows.h"

namespace {

void sort_by(top_view &view, top_panel panel, const std::string &name)
{
    const std::vector<std::string> &keys = sort_keys(panel);
    const auto found = std::find(keys.begin(), keys.end(), name);

    ASSERT_NE(found, keys.end()) << name;
    view.panels[size_t(panel)].sort_by = size_t(found - keys.begin());
}

node_sample three_of_each()
{
    node_sample sample;

    sample.pools.pools = {a_pool("beta", 10, 100), a_pool("alpha", 90, 1000),
                          a_pool("gamma", 50, 60)};
    sample.pools.pools[0].leaked = 3;
    sample.pools.pools[1].memory_bytes = 1u << 30;
    sample.requests.requests = {a_request(1, 5000, "one"), a_request(2, 9000, "two"),
                                a_request(3, 100, "three")};
    sample.requests.requests[0].timeout_ms = 6000;
    sample.requests.requests[1].timeout_ms.reset();
    sample.requests.requests[2].pages_wanted = 64;
    sample.holders = {a_holder("beta", 2048, "one"), a_holder("alpha", 8192, "two"),
                      a_holder("gamma", 4096, "three")};
    sample.holders[0].objects = 99;
    sample.holders[2].oldest_age_s = 1000;
    sample.holders[2].leaked = 1;
    return sample;
}

std::string pools_in_order(const top_view &view, const pool_rates &rates = {})
{
    std::string names;
    for (const pool_row &row : rows_of(three_of_each(), rates, view).pools)
        names += row.pool.name + " ";
    return names;
}

std::string requests_in_order(const top_view &view)
{
    std::string names;
    for (const request_report &request : rows_of(three_of_each(), {}, view).requests)
        names += request.function + " ";
    return names;
}

std::string holders_in_order(const top_view &view)
{
    std::string names;
    for (const holder_report &holder : rows_of(three_of_each(), {}, view).holders)
        names += holder.function + " ";
    return names;
}

} // namespace

TEST(TopRows, pools_are_sorted_by_use_at_first)
{
    EXPECT_EQ(pools_in_order({}), "gamma beta alpha ");
}

TEST(TopRows, pools_sort_by_each_key)
{
    const pool_rates rates = {{"0xalpha", {5, 0}}, {"0xbeta", {7, 0}}};
    top_view view;

    sort_by(view, top_panel::POOLS, "name");
    EXPECT_EQ(pools_in_order(view), "alpha beta gamma ");
    sort_by(view, top_panel::POOLS, "used");
    EXPECT_EQ(pools_in_order(view), "alpha gamma beta ");
    sort_by(view, top_panel::POOLS, "rate");
    EXPECT_EQ(pools_in_order(view, rates), "beta alpha gamma ");
    sort_by(view, top_panel::POOLS, "leaked");
    EXPECT_EQ(pools_in_order(view), "beta alpha gamma ");
    sort_by(view, top_panel::POOLS, "memory");
    EXPECT_EQ(pools_in_order(view), "alpha beta gamma ");
}

TEST(TopRows, an_order_can_be_reversed)
{
    top_view view;
    view.panels[0].is_reversed = true;

    EXPECT_EQ(pools_in_order(view), "alpha beta gamma ");
}

TEST(TopRows, equal_rows_keep_the_order_of_the_process)
{
    top_view view;
    sort_by(view, top_panel::POOLS, "rate");
    EXPECT_EQ(pools_in_order(view), "beta alpha gamma ");
    view.panels[0].is_reversed = true;
    EXPECT_EQ(pools_in_order(view), "beta alpha gamma ");
}

TEST(TopRows, requests_sort_by_each_key)
{
    top_view view;

    EXPECT_EQ(requests_in_order(view), "two one three ");
    sort_by(view, top_panel::REQUESTS, "place");
    EXPECT_EQ(requests_in_order(view), "one two three ");
    sort_by(view, top_panel::REQUESTS, "left");
    EXPECT_EQ(requests_in_order(view), "one three two ");
    sort_by(view, top_panel::REQUESTS, "pages");
    EXPECT_EQ(requests_in_order(view), "three one two ");
    sort_by(view, top_panel::REQUESTS, "site");
    EXPECT_EQ(requests_in_order(view), "one three two ");
}

TEST(TopRows, holders_sort_by_each_key)
{
    top_view view;

    EXPECT_EQ(holders_in_order(view), "two three one ");
    sort_by(view, top_panel::HOLDERS, "objects");
    EXPECT_EQ(holders_in_order(view), "one two three ");
    sort_by(view, top_panel::HOLDERS, "oldest");
    EXPECT_EQ(holders_in_order(view), "three one two ");
    sort_by(view, top_panel::HOLDERS, "leaked");
    EXPECT_EQ(holders_in_order(view), "three one two ");
    sort_by(view, top_panel::HOLDERS, "pool");
    EXPECT_EQ(holders_in_order(view), "two one three ");
    sort_by(view, top_panel::HOLDERS, "site");
    EXPECT_EQ(holders_in_order(view), "one three two ");
}

TEST(TopRows, a_filter_matches_names_in_any_case)
{
    top_view view;

    view.filter = "LPH";
    EXPECT_EQ(pools_in_order(view), "alpha ");
    EXPECT_EQ(holders_in_order(view), "two ");
    EXPECT_EQ(requests_in_order(view), "");
    view.filter = "Three";
    EXPECT_EQ(requests_in_order(view), "three ");
    view.filter = "writer";
    EXPECT_EQ(requests_in_order(view), "two one three ");
    view.filter = "cmm";
    EXPECT_EQ(pools_in_order(view), "gamma beta alpha ");
}

TEST(TopRows, a_rate_goes_to_its_pool)
{
    const top_rows rows = rows_of(three_of_each(), {{"0xalpha", {5, 6}}}, {});

    EXPECT_FALSE(rows.pools[0].rate.has_value());
    ASSERT_TRUE(rows.pools[2].rate.has_value());
    EXPECT_DOUBLE_EQ(rows.pools[2].rate->frees, 6);
}

TEST(TopRows, a_pool_without_a_limit_is_measured_with_what_it_has_made)
{
    pool_row row = {a_pool("heap", 30, 0), {}};
    row.pool.max.reset();
    row.pool.total = 40;

    EXPECT_EQ(row.capacity(), 40u);
    EXPECT_DOUBLE_EQ(row.use(), 0.75);
    row.pool.total = 0;
    EXPECT_DOUBLE_EQ(row.use(), 0);
}

TEST(TopRows, a_pool_of_a_single_object_is_not_the_driest)
{
    node_sample sample;
    sample.pools.pools = {a_pool("zero page", 1, 1), a_pool("pages", 1, 100)};

    EXPECT_EQ(rows_of(sample, {}, {}).pools[0].pool.name, "pages");
}

TEST(TopRows, size_classes_that_never_had_an_object_are_not_shown)
{
    node_sample sample = three_of_each();
    sample.pools.pools[0].is_class = true;
    sample.pools.pools[0].made = 0;
    sample.pools.pools[1].is_class = true;

    EXPECT_EQ(rows_of(sample, {}, {}).pools.size(), 2u);
}
