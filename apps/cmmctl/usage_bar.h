/*
 * A pool's fill as a bar with its high-water mark:  [#######.....|      ]
 *
 * '#' is out now, '|' the most that was certainly ever out at once, dots lie between the two.
 */
#pragma once

#include <cstdint>

#include "painted_text.h"

/* From 75 % of a pool's capacity on it is nearly dry, from 95 % on as good as dry. A pool of a
 * single object, such as that of the zero page, is meant to be used up. */
look look_of_use(uint64_t used, uint64_t capacity);

/* A bar of `width` columns, 3 at least, brackets included. */
painted_line usage_bar(uint64_t used, uint64_t high_water, uint64_t capacity, size_t width);
