/*
 * The configuration that a test process gives the library.
 */
#pragma once

#include <cstdint>
#include <string>

/* Object counts of the pools that a test process wants. */
struct pool_sizes {
    uint32_t pages;
    uint32_t sgls;
    uint32_t reqs;
};

/*
 * Writes node_config.xml into a fresh directory and points the library at it; its one section
 * serves a machine of any size. The directory goes with the object.
 */
class config_directory
{
public:
    explicit config_directory(const pool_sizes &sizes);
    ~config_directory();
    config_directory(const config_directory &) = delete;
    config_directory &operator=(const config_directory &) = delete;

    const std::string &path() const
    {
        return path_;
    }

private:
    std::string path_;
};
