/*
 * A folder of its own for one test, gone with it, and the few things that tests do with files.
 */
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <vector>

class temp_folder
{
public:
    temp_folder()
    {
        char name[] = "/tmp/zyax_test_XXXXXX";
        m_path = mkdtemp(name) != nullptr ? name : "";
        EXPECT_NE(m_path, "");
    }

    ~temp_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    temp_folder(const temp_folder &) = delete;
    temp_folder &operator=(const temp_folder &) = delete;

    std::string path(const std::string &name) const
    {
        return m_path + "/" + name;
    }

    /* Writes the file and answers its path. */
    std::string write(const std::string &name, const std::string &content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    std::string read(const std::string &name) const
    {
        std::ostringstream content;
        content << std::ifstream(path(name), std::ios::binary).rdbuf();
        return content.str();
    }

    std::vector<std::string> read_lines(const std::string &name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }

private:
    std::string m_path;
};
