/*
 * What the tests of the log share: lines of module 77 in a file of their own.
 */
#pragma once

#include "zyax_log.h"
#include "zyax_temp_folder.h"
#include "zylog.h"

#include <gtest/gtest.h>

#include <regex.h>
#include <string>

inline constexpr uint64_t MIB = 1024 * 1024;

/* Lines of module 77 in `folder`/run.log and nowhere else. */
inline void log_to_file(const temp_folder &folder)
{
    ASSERT_EQ(zyax_log_add_file(folder.path("run.log").c_str(), 64 * MIB, 1), 0);
    zyax_log_remove_stderr();
}

#define LOG(level, ...) zylog(77, (level), "some/file.cpp", 12, "some_function", 0, __VA_ARGS__)

inline bool ends_with(const std::string &line, const std::string &end)
{
    return line.size() >= end.size() &&
           line.compare(line.size() - end.size(), end.size(), end) == 0;
}

/* True when the whole text has this POSIX extended form. */
inline bool has_form(const std::string &text, const std::string &form)
{
    regex_t compiled;
    if (regcomp(&compiled, ("^" + form + "$").c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        return false;
    const bool matches = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matches;
}
