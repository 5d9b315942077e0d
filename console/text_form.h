/*
 * How the commands' texts show what several of them have: sizes, modules, sums, and refusals.
 */
#pragma once

#include <stdint.h>

namespace console
{

/* A text that is made for one line of output. */
struct small_text {
    char chars[48];
};

/* Bytes in at most 8 characters: "0 B", "999 B", "1.5 KiB", "1023 GiB". */
small_text size_text(uint64_t bytes);

/* The module's name; its number when it has none. */
small_text module_text(uint32_t module_id);

/* "1 object", "2 objects". */
small_text count_text(uint64_t count, const char *noun);

/* Ends the command as an error with this text. */
void fail_with(const char *text, const char *detail);
void fail_without_memory();

/* The words from `from` on as one text with single blanks; false when there are none or they do not
 * fit. */
bool join_words(int32_t count, char **words, int32_t from, char *text, uint64_t size);

} // namespace console
