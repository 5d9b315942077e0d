/*
 * A value that rounds up to a full step goes on to the next unit: 999,999 is 1.0M and not 1000k.
 */
#include "short_text.h"

#include <cstdio>

namespace {

std::string in_units(double value, double step, const char *units)
{
    char text[32];

    for (; value >= step * 0.9995 && units[1] != '\0'; ++units)
        value /= step;
    if (units[0] == ' ')
        snprintf(text, sizeof text, "%.0f", value);
    else
        snprintf(text, sizeof text, value < 99.95 ? "%.1f%c" : "%.0f%c", value, units[0]);
    return text;
}

} // namespace

std::string short_count(double count)
{
    char text[32];

    if (count >= 9999.5)
        return in_units(count, 1000, " kMGTP");
    snprintf(text, sizeof text, count > 0 && count < 9.95 && count != double(int(count)) ? "%.1f"
                                                                                         : "%.0f",
             count);
    return text;
}

std::string short_bytes(uint64_t bytes)
{
    return in_units(double(bytes), 1024, " KMGTPE");
}

std::string short_age(uint64_t milliseconds)
{
    const unsigned long seconds = milliseconds / 1000;
    char text[32];

    if (seconds < 60)
        snprintf(text, sizeof text, "%lu.%lus", seconds, milliseconds % 1000 / 100);
    else if (seconds < 3600)
        snprintf(text, sizeof text, "%lum%02lus", seconds / 60, seconds % 60);
    else if (seconds < 86400)
        snprintf(text, sizeof text, "%luh%02lum", seconds / 3600, seconds % 3600 / 60);
    else
        snprintf(text, sizeof text, "%lud%02luh", seconds / 86400, seconds % 86400 / 3600);
    return text;
}
