/*
 * The three panels of `top` as lines: a heading with the names of the columns, and rows.
 *
 * Threads: values; any.
 */
#pragma once

#include "painted_text.h"
#include "top_rows.h"

/* A panel of exactly `lines` lines, or of as many as it takes with `lines` 0; scrolled as its view
 * says, but never past its rows. */
painted_text top_panel_text(top_panel panel, const top_rows &rows, const top_view &view,
                            size_t columns, size_t lines);
