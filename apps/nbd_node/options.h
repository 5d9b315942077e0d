/*
 * The parameters of the command line, as nbdkit hands them over one by one.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct device_options {
    std::string              file;
    std::vector<std::string> replicas;
    std::string              config_dir; /* empty: the sample beside the plugin's folder */
    std::string              report;     /* empty: standard error */
    std::string              console;    /* path of the console's socket; empty: no console */
    uint64_t                 size          = 0; /* 0: the file's */
    uint32_t                 timeout       = 30; /* s */
    bool                     write_through = false;
    bool                     barrier       = false;
};

/* Takes one parameter over; throws with a text for the user. */
void set_option(device_options *options, const std::string &key, const std::string &value);

/* What is missing or does not fit together; throws. */
void check_options(const device_options &options);

extern const char OPTIONS_HELP[];
