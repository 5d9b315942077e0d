/*
 * cmm_node: a process of a storage node that lives on the common memory manager.
 *
 * It shows what the library is for: it starts it from a configuration, takes pages with a time-out
 * from a pool that is too small for all its threads at once, moves files through them, drives the
 * queue of those who wait, and stops with nothing left out.
 */
#include <cstdio>
#include <exception>

#include "node_run.h"
#include "options.h"

int main(int argc, char **argv)
{
    node_options options;

    if (const std::optional<int> code = parse_options(argc, argv, &options))
        return *code;
    try {
        return run_node(options);
    } catch (const std::exception &error) {
        fprintf(stderr, "cmm_node: %s\n", error.what());
        return NODE_FAILURE;
    }
}
