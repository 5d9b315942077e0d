/*
 * How the commands' texts show what several of them have.
 */
#include "text_form.h"

#include <stdio.h>
#include <string.h>

#include "dbg_console.h"
#include "zyax.h"
#include "zyax_console.h"

namespace console
{

small_text size_text(uint64_t bytes)
{
    static const char *const units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    uint64_t tenths = bytes < UINT64_MAX / 10 ? bytes * 10 : UINT64_MAX;
    uint32_t unit = 0;
    while (tenths >= 10240) {
        tenths /= 1024;
        unit++;
    }
    small_text text;
    if (unit == 0 || tenths >= 1000)
        snprintf(text.chars, sizeof text.chars, "%lu %s", tenths / 10, units[unit]);
    else
        snprintf(text.chars, sizeof text.chars, "%lu.%lu %s", tenths / 10, tenths % 10,
                 units[unit]);
    return text;
}

small_text module_text(uint32_t module_id)
{
    small_text text;
    const char *name = zyax_pid_get_name(module_id);
    if (strcmp(name, "unknown") == 0)
        snprintf(text.chars, sizeof text.chars, "%u", module_id);
    else
        snprintf(text.chars, sizeof text.chars, "%s", name);
    return text;
}

small_text count_text(uint64_t count, const char *noun)
{
    small_text text;
    snprintf(text.chars, sizeof text.chars, "%lu %s%s", count, noun, count == 1 ? "" : "s");
    return text;
}

void fail_with(const char *text, const char *detail)
{
    DBG_PrintBuf("%s%s\n", text, detail);
    zyax_console_fail();
}

void fail_without_memory()
{
    fail_with("There is no memory for the answer.", "");
}

bool join_words(int32_t count, char **words, int32_t from, char *text, uint64_t size)
{
    uint64_t used = 0;
    for (int32_t at = from; at < count; at++) {
        const uint64_t length = strlen(words[at]);
        if (used + length + 2 > size)
            return false;
        if (at != from)
            text[used++] = ' ';
        memcpy(text + used, words[at], length);
        used += length;
    }
    text[used] = '\0';
    return used != 0;
}

} // namespace console
