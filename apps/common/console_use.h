/*
 * The debug console of the process: the memory manager's commands on a Unix socket, for operators.
 *
 * It serves from the library's start to its stop, since the commands look at what the library has.
 */
#pragma once

#include <string>

class console_use
{
public:
    /* Serves on the socket; an empty path serves nothing. Throws. */
    explicit console_use(const std::string &path);
    ~console_use();
    console_use(const console_use &) = delete;

    /* Ends it: clients are disconnected, and no command runs any more. */
    void stop();

private:
    bool running_ = false;
};
