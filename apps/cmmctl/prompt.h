/*
 * The interactive prompt: lines edited with history and completion, each a command.
 */
#pragma once

#include <string>

struct prompt_options {
    std::string socket;
    bool        json = false; /* every command */
    double      timeout = 5;  /* s for one answer */
};

/* Until the end of input or "quit"; an exit code. Throws link_error when there is no process at the
 * start; one that goes away later is told of, and looked for again with the next line. */
int run_prompt(const prompt_options &options);
