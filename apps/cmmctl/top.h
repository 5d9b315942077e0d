/*
 * `cmmctl top`: the state of a process, looked at again and again.
 */
#pragma once

#include <string>

struct top_options {
    std::string socket;
    double      interval = 1; /* s between two looks */
    double      timeout = 5;  /* s for one answer, with `once` */
    bool        once = false; /* one frame as text */
    size_t      columns = 0;  /* of that frame; 0 = 80 */
    size_t      lines = 0;    /* of that frame; 0 = as many as it takes */
    std::string filter;
    std::string sort; /* of the pools; empty = the usual order */
};

/* Until the user quits; an exit code. Throws link_error when there is no process at the start. */
int run_top(const top_options &options);

/* Two looks, an interval apart, and one frame to standard output; an exit code. Throws link_error
 * and bad_answer. */
int print_top(const top_options &options);
