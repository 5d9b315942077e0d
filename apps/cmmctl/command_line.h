/*
 * The command line of cmmctl.
 */
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "explain.h"
#include "metrics.h"
#include "top.h"

enum class ctl_action { COMMAND, PROMPT, TOP, METRICS, EXPLAIN };

struct command_line {
    ctl_action               action = ctl_action::PROMPT;
    std::string              socket;
    bool                     json = false;
    double                   timeout = 5; /* s for one answer */
    std::vector<std::string> words;       /* of a command */
    top_options              top;
    metrics_options          metrics;
    explain_request          explain;
};

/* Fills `line` in; or says what was wrong or asked for, and answers the exit code. */
std::optional<int> parse_command_line(int argc, const char *const *argv, command_line *line);
