/*
 * cmmctl: what a process of the node can tell about its memory, for people and for programs.
 *
 * Everything that goes wrong with a connection or an answer arrives here as an exception and
 * becomes one line and an exit code.
 */
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "command_line.h"
#include "commands.h"
#include "exit_codes.h"
#include "prompt.h"

static int run_command(const command_line &line)
{
    console_link link(line.socket);

    return run_words(link, line.words, line.json, line.timeout);
}

static int run_prompt_or_lines(const command_line &line)
{
    if (isatty(STDIN_FILENO) == 1)
        return run_prompt({line.socket, line.json, line.timeout});
    console_link link(line.socket);
    link.open();
    return run_lines(link, line.json, line.timeout);
}

static int run(const command_line &line)
{
    switch (line.action) {
    case ctl_action::COMMAND: return run_command(line);
    case ctl_action::TOP:     return line.top.once ? print_top(line.top) : run_top(line.top);
    case ctl_action::METRICS: return run_metrics(line.metrics);
    case ctl_action::EXPLAIN: return run_explain(line.explain);
    default:                  return run_prompt_or_lines(line);
    }
}

int main(int argc, char **argv)
{
    command_line line;

    if (const std::optional<int> code = parse_command_line(argc, argv, &line))
        return *code;
    try {
        return run(line);
    } catch (const link_error &error) {
        fprintf(stderr, "cmmctl: %s\n", error.what());
        return CTL_NO_CONNECTION;
    } catch (const std::exception &error) {
        fprintf(stderr, "cmmctl: %s\n", error.what());
        return CTL_ERROR;
    }
}
