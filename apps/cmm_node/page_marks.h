/*
 * What a page's record tells its holders about the content, in this program's terms:
 *
 *     valid bitmap   bit b: sectors 2b and 2b + 1 hold data of the file
 *     zero flag      the page is the shared zero page
 *
 * The library keeps both and reads neither. Whoever fills a page marks it, before others get to
 * know it; freeing the page clears the bitmap.
 */
#pragma once

#include <cstdint>

#include "zyumm_cmm_types.h"

/* Marks the pages of a chain that was filled with `data` bytes. The zero page is passed over: it is
 * valid from the start. */
void mark_valid(SGL *chain, uint32_t data);

bool is_zero_page(page_ctrl *page);

/* True when every sector holds data. */
bool is_fully_valid(page_ctrl *page);
