/*
 * The folder that holds all images, and what of it this run has made.
 */
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "source_file.h"

class failure_list;

class replica_store
{
public:
    /* Makes the folders that are missing; without a `dir` a temporary one. */
    replica_store(const std::string &dir, uint32_t replicas);

    /* Where the image of a source lies in replica `number`, from 0. */
    std::string image_path(uint32_t number, const source_file &source) const;

    /* Removes the images of these sources, and folders that are empty then and were made here. An
     * image that stays is a failure. */
    void remove_images(const std::vector<source_file> &sources, failure_list &failures);

    const std::string &dir() const { return dir_; }
    uint32_t           replicas() const { return replicas_; }

private:
    void make_folder(const std::string &path);

    std::string              dir_;
    uint32_t                 replicas_;
    std::vector<std::string> made_; /* folders, outer ones first */
};
