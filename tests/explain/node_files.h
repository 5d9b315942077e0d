/*
 * The files of a node that is explained: its node_config.xml and its ini files, in a folder that
 * goes with the object.
 */
#pragma once

#include <string>

#include "explain.h"

class node_files
{
public:
    explicit node_files(const std::string &document);
    ~node_files();
    node_files(const node_files &) = delete;
    node_files &operator=(const node_files &) = delete;

    /* Files of the folder that stands for the node's root. */
    void add_cgroup_info(const std::string &text);
    void add_storage_info(const std::string &text);

    /* The file, for that process on a node of 1,024 MiB without NUMA. */
    explain_request request(const std::string &process = "io_process") const;

    const std::string &path() const
    {
        return path_;
    }

private:
    void add(const char *name, const std::string &text);

    std::string path_;
};

/* A document of one section, for 1,024 MiB, and one entry, for io_process, with that content. */
std::string one_entry(const std::string &parameters);

/* Parameters that nobody could say anything about. */
extern const char SOUND_PARAMETERS[];

/* A document that lists sizes and has that for its <config>. */
std::string document_of(const std::string &sizes, const std::string &sections);
