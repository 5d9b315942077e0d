/*
 * The panels share the lines by taking one in turn, the chosen one two, until all have what they
 * want.
 */
#include "top_frame.h"

#include <algorithm>
#include <cstdio>

#include "printable.h"
#include "short_text.h"
#include "top_panels.h"

namespace {

constexpr size_t LINES_AROUND = 3;     /* two above the panels, one below */
constexpr size_t LOWEST_FOR_ALL = 6;   /* lines for panels: a heading and a row for each */

std::string process_text(const top_state &state)
{
    std::string text = state.sample && !state.sample->process.empty()
                           ? printable(state.sample->process)
                           : std::string("process");

    if (state.pid != 0)
        text += "  pid " + std::to_string(state.pid);
    return text;
}

painted_line first_line(const top_state &state)
{
    char interval[48];
    painted_line line = {{"cmmctl top  ", look::STRONG}, {process_text(state), look::PLAIN}};

    if (!state.trouble.empty())
        return {{"no news for " + short_age(state.trouble_ms) + ": " + printable(state.trouble),
                 look::BAD},
                {"  " + process_text(state), look::PLAIN}};
    snprintf(interval, sizeof interval, "  every %.3g s", state.view.interval);
    line.push_back({state.view.is_paused ? "  paused" : interval,
                    state.view.is_paused ? look::WARNING : look::DIM});
    return line;
}

uint64_t oldest_age(const requests_report &requests)
{
    uint64_t oldest = 0;

    for (const request_report &request : requests.requests)
        oldest = std::max(oldest, request.age_ms);
    return oldest;
}

painted_line figures(const node_sample &sample)
{
    const requests_report &requests = sample.requests;
    uint64_t out = 0, leaked = 0, leaked_bytes = 0, pools = 0;
    painted_line line;

    for (const pool_report &pool : sample.pools.pools) {
        pools += pool.is_idle_class() ? 0 : 1;
        out += pool.out_bytes;
        leaked += pool.leaked;
        leaked_bytes += pool.leaked_bytes;
    }
    line.push_back({"waiting " + short_count(double(requests.count)),
                    requests.count != 0 ? look::WARNING : look::PLAIN});
    if (!requests.requests.empty())
        line.push_back({", oldest " + short_age(oldest_age(requests)), look::WARNING});
    if (requests.busy)
        line.push_back({" (list busy)", look::DIM});
    line.push_back({"  leaked " + short_count(double(leaked)) +
                        (leaked != 0 ? " (" + short_bytes(leaked_bytes) + ")" : ""),
                    leaked != 0 ? look::BAD : look::PLAIN});
    line.push_back({"  out " + short_bytes(out) + " of " + short_bytes(sample.pools.mapped_bytes) +
                        " mapped  pools " + std::to_string(pools),
                    look::PLAIN});
    return line;
}

std::string order_of(const top_view &view)
{
    const panel_view &panel = view.panel_of(view.chosen);
    const std::vector<std::string> &keys = sort_keys(view.chosen);

    return (panel.is_reversed ? "-" : "") + keys[panel.sort_by % keys.size()];
}

painted_line last_line(const top_view &view)
{
    if (view.is_typing)
        return {{"filter: " + view.filter + "_", look::STRONG}};
    painted_line line = {{"q", look::STRONG}, {" quit ", look::DIM}, {"s", look::STRONG},
                         {" sort: " + order_of(view) + " ", look::DIM}, {"/", look::STRONG}};
    line.push_back({view.filter.empty() ? " filter " : " filter: " + view.filter + " ",
                    view.filter.empty() ? look::DIM : look::WARNING});
    line.insert(line.end(), {{"Tab", look::STRONG}, {" panel ", look::DIM}, {"r", look::STRONG},
                             {" reverse ", look::DIM}, {"p", look::STRONG}, {" pause ", look::DIM},
                             {"h", look::STRONG}, {" help", look::DIM}});
    return line;
}

/* Lines of each panel, headings included; 0 = it is not shown. */
std::array<size_t, TOP_PANELS> share_lines(const top_rows &rows, const top_view &view, size_t lines)
{
    std::array<size_t, TOP_PANELS> wanted = rows.counts(), given = {};

    if (lines < LOWEST_FOR_ALL) {
        given[size_t(view.chosen)] = lines;
        return given;
    }
    for (size_t i = 0; i < TOP_PANELS; ++i) {
        wanted[i] = 1 + std::max<size_t>(wanted[i], 1);
        given[i] = 2;
        lines -= 2;
    }
    for (bool taken = true; taken && lines != 0;) {
        taken = false;
        for (size_t i = 0; i < TOP_PANELS; ++i) {
            const size_t turn = std::min({lines, wanted[i] - given[i],
                                          size_t(i == size_t(view.chosen) ? 2 : 1)});
            given[i] += turn;
            lines -= turn;
            taken = taken || turn != 0;
        }
    }
    return given;
}

painted_text panels(const top_state &state, size_t columns, size_t lines)
{
    const top_rows rows = rows_of(*state.sample, state.rates, state.view);
    const bool is_whole = lines == 0;
    const auto share = share_lines(rows, state.view, lines);
    painted_text text;

    for (const top_panel panel : {top_panel::POOLS, top_panel::REQUESTS, top_panel::HOLDERS}) {
        if (!is_whole && share[size_t(panel)] == 0)
            continue;
        const painted_text one = top_panel_text(panel, rows, state.view, columns,
                                                is_whole ? 0 : share[size_t(panel)]);
        text.insert(text.end(), one.begin(), one.end());
    }
    return text;
}

painted_text help()
{
    painted_text text;

    for (size_t i = 0; i < TOP_KEYS_HELP_LINES; ++i)
        text.push_back({{TOP_KEYS_HELP[i], look::PLAIN}});
    return text;
}

painted_text middle(const top_state &state, size_t columns, size_t lines)
{
    if (state.view.shows_help)
        return help();
    if (!state.sample)
        return {{{"(nothing is known yet)", look::DIM}}};
    return panels(state, columns, lines);
}

} // namespace

painted_text top_frame(const top_state &state, size_t columns, size_t lines)
{
    const size_t around = std::min(lines, LINES_AROUND);
    painted_text frame = {first_line(state),
                          state.sample ? figures(*state.sample) : painted_line()};

    if (lines == 0 || lines > around) {
        const painted_text between = middle(state, columns, lines == 0 ? 0 : lines - around);
        frame.insert(frame.end(), between.begin(), between.end());
    }
    if (lines != 0)
        frame.resize(lines - 1);
    if (lines != 0)
        frame.push_back(last_line(state.view));
    for (painted_line &line : frame)
        if (width_of(line) > columns)
            line = fitted(line, columns);
    return frame;
}
