/*
 * What is asked of an explanation in the tests.
 */
#pragma once

#include <string>
#include <vector>

#include "description.h"
#include "node_files.h"

/* The findings as "code: text". */
inline std::vector<std::string> findings_of(const description &told)
{
    std::vector<std::string> lines;
    for (const finding &found : told.findings)
        lines.push_back(found.code + ": " + found.text);
    return lines;
}

/* The same of a document for io_process on a node of 1,024 MiB. */
inline std::vector<std::string> findings_in(const std::string &document)
{
    const node_files files(document);
    return findings_of(describe(files.request()));
}

inline const value_line &value_of(const description &told, const std::string &name)
{
    for (const value_line &line : told.values) {
        if (line.name == name)
            return line;
    }
    static const value_line none = {};
    return none;
}

inline const pool_line &pool_of(const description &told, const std::string &name)
{
    for (const pool_line &pool : told.pools) {
        if (pool.name == name)
            return pool;
    }
    static const pool_line none = {};
    return none;
}

/* SOUND_PARAMETERS with one element written otherwise; it begins its line. */
inline std::string sound_but(const std::string &element, const std::string &replacement)
{
    std::string text = SOUND_PARAMETERS;
    const size_t start = text.find("<" + element);
    return text.replace(start, text.find('\n', start) - start, replacement);
}
