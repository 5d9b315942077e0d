/*
 * Columns are parted by one blank. What is left over goes to the columns that can grow, one column
 * of the screen at a time in turn, so that none starves.
 */
#include "table.h"

#include <algorithm>
#include <numeric>

namespace {

size_t width_of_all(const std::vector<size_t> &widths)
{
    const size_t shown = size_t(std::count_if(widths.begin(), widths.end(),
                                              [](size_t width) { return width != 0; }));

    return std::accumulate(widths.begin(), widths.end(), size_t(0)) + (shown == 0 ? 0 : shown - 1);
}

/* The column to leave out next; none when only those are left that stay. */
size_t least_important(const std::vector<table_column> &columns, const std::vector<size_t> &widths)
{
    size_t found = columns.size();

    for (size_t i = 0; i < columns.size(); ++i) {
        const bool may_go = widths[i] != 0 && columns[i].rank != 0;
        if (may_go && (found == columns.size() || columns[i].rank > columns[found].rank))
            found = i;
    }
    return found;
}

void share_out(const std::vector<table_column> &columns, std::vector<size_t> &widths, size_t spare)
{
    for (bool grown = true; grown && spare != 0;) {
        grown = false;
        for (size_t i = 0; i < columns.size() && spare != 0; ++i) {
            if (widths[i] == 0 || widths[i] >= columns[i].widest)
                continue;
            ++widths[i];
            --spare;
            grown = true;
        }
    }
}

} // namespace

table_layout lay_out(const std::vector<table_column> &columns, size_t width)
{
    table_layout layout;

    for (const table_column &column : columns)
        layout.widths.push_back(column.width);
    while (width_of_all(layout.widths) > width) {
        const size_t gone = least_important(columns, layout.widths);
        if (gone == columns.size())
            return layout;
        layout.widths[gone] = 0;
    }
    share_out(columns, layout.widths, width - width_of_all(layout.widths));
    return layout;
}

painted_line table_row(const std::vector<table_column> &columns, const table_layout &layout,
                       const table_cell &cell)
{
    painted_line row;

    for (size_t i = 0; i < columns.size(); ++i) {
        const size_t width = layout.widths[i];
        if (width == 0)
            continue;
        if (!row.empty())
            row.push_back({" ", row.back().as});
        const painted_line content = fitted(cell(i, width), width, columns[i].is_number);
        row.insert(row.end(), content.begin(), content.end());
    }
    return row;
}
