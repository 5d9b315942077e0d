/*
 * The command line of cmm_node.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

inline constexpr int NODE_OK      = 0;
inline constexpr int NODE_FAILURE = 1;
inline constexpr int NODE_USAGE   = 2;
inline constexpr int NODE_STOPPED = 128; /* and the number of the signal, as shells have it */

struct node_options {
    std::vector<std::string> files;
    std::string              replica_dir; /* empty: a temporary one */
    std::string              config_dir;  /* empty: the sample that was built with the program */
    std::string              log_file;    /* empty: standard error */
    std::string              console;     /* path of the console's socket; empty: no console */
    uint32_t                 replicas  = 2;
    uint32_t                 threads   = 8;
    uint32_t                 timeout   = 30; /* s, of one request for pages */
    uint32_t                 log_level = 3;  /* ZYLOG_ERROR */
    bool                     keep        = false;
    bool                     show        = false;
    bool                     quiet       = false;
    bool                     verify_only = false;
};

/* Fills `options` in; or says what was wrong or asked for, and answers the exit code. */
std::optional<int> parse_options(int argc, char **argv, node_options *options);
