/*
 * `cmmctl top` on a terminal, as an operator has it beside a process: a look a second.
 *
 * Owner: whoever measures; the program and its terminal end with the object.
 */
#pragma once

#include <sys/types.h>

#include <string>

namespace bench
{

class console_client
{
public:
    /* Returns when the pools are on the screen; ends the process, with a line, without them. */
    explicit console_client(const std::string &socket_path);

    /* Ends the process, with a line, if `top` was not there to the end. */
    ~console_client();

    console_client(const console_client &) = delete;
    console_client &operator=(const console_client &) = delete;

private:
    int own_end_;
    pid_t watcher_;
};

/* What main does in the process between: runs `top` until its own standard input ends; an exit
 * code, not 0 when `top` ended first. */
int watch_console(const char *socket_path);

} // namespace bench
