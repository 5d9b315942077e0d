/*
 * What the library's console commands show of a program that is at work.
 */
#pragma once

#include <string>

class page_cache;

/* The texts of "umm show requests", and of "umm show page" for the page that was cached last, or for
 * the zero page while the cache is empty. */
std::string show_pools(page_cache &cache);
