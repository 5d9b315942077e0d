/*
 * Text with looks, as lines of a screen that is drawn elsewhere: on a terminal with colours, or as
 * plain text.
 *
 * Threads: values; any.
 */
#pragma once

#include <string>
#include <vector>

enum class look { PLAIN, DIM, STRONG, HEADING, CHOSEN, GOOD, WARNING, BAD };

struct painted_piece {
    std::string text; /* printable ASCII: a byte is a column */
    look        as = look::PLAIN;
};

using painted_line = std::vector<painted_piece>;
using painted_text = std::vector<painted_line>;

size_t width_of(const painted_line &line);

/* The line, cut or filled up with blanks to exactly `width` columns. */
painted_line fitted(const painted_line &line, size_t width, bool to_the_right = false);

/* The line without its looks. */
std::string plain(const painted_line &line);

/* All lines without their looks and the blanks at their ends. */
std::string plain(const painted_text &text);
