/*
 * Configuration documents for tests: trees made from text, and files in a directory of their own.
 */
#pragma once

#include <mxml.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/* A loaded document that goes with its scope. */
class document
{
public:
    explicit document(const std::string &text)
        : top_(mxmlLoadString(nullptr, text.c_str(), mxml_opaque_cb))
    {
    }
    ~document()
    {
        mxmlDelete(top_);
    }
    document(const document &)            = delete;
    document &operator=(const document &) = delete;

    mxml_node_t *top() const
    {
        return top_;
    }

    /* The first element of that name; null when there is none. */
    mxml_node_t *find(const char *name) const
    {
        return mxmlFindElement(top_, top_, name, nullptr, nullptr, MXML_DESCEND);
    }

private:
    mxml_node_t *top_;
};

/* A process entry with these parameters, indented as operators write it. */
class entry : public document
{
public:
    explicit entry(const std::string &parameters)
        : document("<?xml version=\"1.0\"?>\n<umm>\n<uprocess name=\"p\">\n" + parameters +
                   "\n</uprocess>\n</umm>\n")
    {
    }

    mxml_node_t *element() const
    {
        return find("uprocess");
    }

    mxml_node_t *first_child() const
    {
        return mxmlGetFirstChild(element());
    }
};

/* A directory under the system's temporary one, removed with everything in it. */
class scratch_directory
{
public:
    scratch_directory()
    {
        char name[] = "/tmp/cmm_config_XXXXXX";
        path_       = mkdtemp(name) != nullptr ? name : "";
    }
    ~scratch_directory()
    {
        std::filesystem::remove_all(path_);
    }
    scratch_directory(const scratch_directory &)            = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;

    const std::string &path() const
    {
        return path_;
    }

    /* Writes a file, with the directories on its way, and answers its path. */
    std::string write(const std::string &name, const std::string &text) const
    {
        const std::filesystem::path file = path_ + "/" + name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
        return file.string();
    }

private:
    std::string path_;
};

/* Descriptors that this process has open, the one that counts them included. */
inline long open_descriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}
