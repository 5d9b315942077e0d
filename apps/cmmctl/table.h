/*
 * A table that fits into any width: its least important columns go first, what is left over widens
 * those that can use it.
 */
#pragma once

#include <functional>

#include "painted_text.h"

struct table_column {
    const char *title;
    size_t      width;         /* at least */
    size_t      widest;        /* at most; more than width: it takes of what is left over */
    unsigned    rank;          /* 0 stays always; of the others the highest goes first */
    bool        is_number;     /* stands at the right of its column */
};

struct table_layout {
    std::vector<size_t> widths; /* one a column; 0 = it is left out */
};

table_layout lay_out(const std::vector<table_column> &columns, size_t width);

/* What stands in a column of one row; the width is for those who paint as much as there is room. */
using table_cell = std::function<painted_line(size_t column, size_t width)>;

painted_line table_row(const std::vector<table_column> &columns, const table_layout &layout,
                       const table_cell &cell);
