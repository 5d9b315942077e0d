/*
 * Each panel is its columns and a function that paints one of a row's cells. A request whose time
 * is nearly over, a pool that is nearly dry and a holder whose objects count as leaked stand out.
 */
#include "top_panels.h"

#include <algorithm>

#include "printable.h"
#include "short_text.h"
#include "table.h"
#include "usage_bar.h"

namespace {

/* The title, width, widest, rank, whether it is a number. */
enum pool_column { POOL_NAME, POOL_USED, POOL_MAX, POOL_BAR, POOL_USE, POOL_HIGH, POOL_ALLOCS,
                   POOL_FREES, POOL_LEAKED, POOL_MEMORY, POOL_MODULE };
const std::vector<table_column> POOL_COLUMNS = {
    {"POOL", 15, 32, 0, false},  {"USED", 5, 5, 0, true},     {"MAX", 5, 5, 4, true},
    {"", 18, 40, 3, false},      {"USE%", 4, 4, 0, true},     {"HIGH", 5, 5, 5, true},
    {"ALLOC/s", 7, 7, 1, true},  {"FREE/s", 6, 6, 7, true},   {"LEAKED", 6, 6, 2, true},
    {"MEMORY", 6, 6, 6, true},   {"MODULE", 8, 16, 8, false},
};

enum request_column { REQUEST_PLACE, REQUEST_PAGES, REQUEST_AGE, REQUEST_LEFT, REQUEST_KIND,
                      REQUEST_MODULE, REQUEST_SITE };
const std::vector<table_column> REQUEST_COLUMNS = {
    {"WAITS", 5, 5, 0, true}, {"PAGES", 6, 6, 1, true},      {"AGE", 7, 7, 0, true},
    {"LEFT", 7, 7, 2, true},  {"KIND", 6, 6, 4, false},      {"MODULE", 10, 12, 3, false},
    {"FOR", 15, 60, 0, false},
};

enum holder_column { HOLDER_POOL, HOLDER_OBJECTS, HOLDER_BYTES, HOLDER_OLDEST, HOLDER_LEAKED,
                     HOLDER_MODULE, HOLDER_SITE };
const std::vector<table_column> HOLDER_COLUMNS = {
    {"HELD OF", 14, 24, 2, false}, {"OBJECTS", 7, 7, 1, true},   {"BYTES", 6, 6, 0, true},
    {"OLDEST", 7, 7, 0, true},     {"LEAKED", 6, 6, 4, true},    {"MODULE", 10, 12, 3, false},
    {"BY", 18, 60, 0, false},
};

painted_line paint(std::string text, look as = look::PLAIN)
{
    return {{printable(text), as}};
}

/* A call site; of one that is too long the function's end is left out, as the line tells more. */
std::string site_of(const std::string &function, uint64_t line, size_t width)
{
    const std::string name = function.empty() ? "(unknown)" : function;
    const std::string place = ":" + std::to_string(line);

    if (name.size() + place.size() <= width || width <= place.size())
        return name + place;
    return name.substr(0, width - place.size() - 1) + "~" + place;
}

/* Size classes share their allocator's name. */
std::string name_of(const pool_report &pool)
{
    const std::string name = pool.name.empty() ? pool.handle : pool.name;

    return pool.is_class ? name + "/" + short_bytes(pool.object_bytes) : name;
}

std::string percent(double share)
{
    return share >= 10 ? ">999" : std::to_string(int(share * 100)) + "%";
}

std::string rate_text(const std::optional<pool_rate> &rate, double pool_rate::*which)
{
    return rate ? short_count((*rate).*which) : "-";
}

painted_line pool_cell(const pool_row &row, size_t column, size_t width)
{
    const pool_report &pool = row.pool;

    switch (column) {
    case POOL_NAME:   return paint(name_of(pool), look::STRONG);
    case POOL_USED:   return paint(short_count(double(pool.used)));
    case POOL_MAX:    return paint(pool.max ? short_count(double(*pool.max)) : "-");
    case POOL_BAR:    return usage_bar(pool.used, pool.high_water, row.capacity(), width);
    case POOL_USE:    return paint(percent(row.use()), look_of_use(pool.used, row.capacity()));
    case POOL_HIGH:   return paint(short_count(double(pool.high_water)));
    case POOL_ALLOCS: return paint(rate_text(row.rate, &pool_rate::allocs));
    case POOL_FREES:  return paint(rate_text(row.rate, &pool_rate::frees));
    case POOL_LEAKED: return paint(short_count(double(pool.leaked)),
                                   pool.leaked != 0 ? look::BAD : look::PLAIN);
    case POOL_MEMORY: return paint(short_bytes(pool.memory_bytes));
    default:          return paint(pool.module);
    }
}

painted_line left_cell(const request_report &request)
{
    if (!request.timeout_ms)
        return paint("never");
    const uint64_t left = *request.timeout_ms - std::min(*request.timeout_ms, request.age_ms);
    return paint(short_age(left), left < *request.timeout_ms / 4 ? look::BAD : look::PLAIN);
}

painted_line request_cell(const request_report &request, size_t column, size_t width)
{
    switch (column) {
    case REQUEST_PLACE:  return paint(std::to_string(request.place));
    case REQUEST_PAGES:  return paint(short_count(double(request.pages_wanted)));
    case REQUEST_AGE:    return paint(short_age(request.age_ms), look::STRONG);
    case REQUEST_LEFT:   return left_cell(request);
    case REQUEST_KIND:   return paint(request.is_served ? "served" : request.kind);
    case REQUEST_MODULE: return paint(request.module);
    default:             return paint(site_of(request.function, request.line, width));
    }
}

painted_line holder_cell(const holder_report &holder, size_t column, size_t width)
{
    switch (column) {
    case HOLDER_POOL:    return paint(holder.pool.empty() ? holder.handle : holder.pool);
    case HOLDER_OBJECTS: return paint(short_count(double(holder.objects)));
    case HOLDER_BYTES:   return paint(short_bytes(holder.bytes), look::STRONG);
    case HOLDER_OLDEST:  return paint(short_age(holder.oldest_age_s * 1000));
    case HOLDER_LEAKED:  return paint(short_count(double(holder.leaked)),
                                      holder.leaked != 0 ? look::BAD : look::PLAIN);
    case HOLDER_MODULE:  return paint(holder.module);
    default:             return paint(site_of(holder.function, holder.line, width));
    }
}

const std::vector<table_column> &columns_of(top_panel panel)
{
    return panel == top_panel::POOLS      ? POOL_COLUMNS
           : panel == top_panel::REQUESTS ? REQUEST_COLUMNS
                                          : HOLDER_COLUMNS;
}

painted_line cell_of(top_panel panel, const top_rows &rows, size_t row, size_t column, size_t width)
{
    switch (panel) {
    case top_panel::POOLS:    return pool_cell(rows.pools[row], column, width);
    case top_panel::REQUESTS: return request_cell(rows.requests[row], column, width);
    default:                  return holder_cell(rows.holders[row], column, width);
    }
}

const char *text_of_none(top_panel panel, const top_view &view)
{
    if (!view.filter.empty())
        return "(none fits the filter)";
    return panel == top_panel::POOLS      ? "(no pool exists)"
           : panel == top_panel::REQUESTS ? "(no request waits)"
                                          : "(nothing is held)";
}

/* The titles of the columns; of a panel that is cut, which rows are shown as well: in a column that
 * has no title, or else at the end. */
painted_line heading(top_panel panel, const top_view &view, const table_layout &layout,
                     const std::string &part, size_t width)
{
    const std::vector<table_column> &columns = columns_of(panel);
    const look as = panel == view.chosen ? look::CHOSEN : look::HEADING;
    bool has_part = part.empty();
    painted_line line = table_row(columns, layout, [&](size_t column, size_t room) {
        const bool is_free = columns[column].title[0] == '\0' && room >= part.size();
        has_part = has_part || is_free;
        return painted_line{{is_free ? part : columns[column].title, as}};
    });

    line = fitted(line.empty() ? painted_line{{"", as}} : line, width);
    if (has_part || part.size() >= width)
        return line;
    line = fitted(line, width - part.size());
    line.push_back({part, as});
    return line;
}

size_t rows_in(top_panel panel, const top_rows &rows)
{
    return rows.counts()[size_t(panel)];
}

} // namespace

painted_text top_panel_text(top_panel panel, const top_rows &rows, const top_view &view,
                            size_t columns, size_t lines)
{
    const std::vector<table_column> &all = columns_of(panel);
    const table_layout layout = lay_out(all, columns);
    const size_t count = rows_in(panel, rows);
    const size_t room = lines == 0 ? std::max<size_t>(count, 1) : lines - 1;
    const size_t shown = std::min(room, count);
    const size_t first = std::min(view.panel_of(panel).first, count - shown);
    const std::string part = shown == count ? ""
                                            : " " + std::to_string(first + 1) + "-" +
                                                  std::to_string(first + shown) + " of " +
                                                  std::to_string(count);
    painted_text text = {heading(panel, view, layout, part, columns)};

    for (size_t row = first; row < first + shown; ++row)
        text.push_back(table_row(all, layout, [&](size_t column, size_t width) {
            return cell_of(panel, rows, row, column, width);
        }));
    if (count == 0 && room != 0)
        text.push_back({{text_of_none(panel, view), look::DIM}});
    text.resize(1 + room);
    return text;
}
