/*
 * The text of an errno for a log line: the system's, untranslated. Unlike strerror it takes no lock
 * of the C library, and may be called by many request threads at once.
 */
#pragma once

#include <cstring>

inline const char *error_text(int error)
{
    const char *text = strerrordesc_np(error);
    return text != nullptr ? text : "unknown error";
}
