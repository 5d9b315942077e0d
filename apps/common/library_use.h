/*
 * The library's start and stop, as a process does them once.
 *
 * A start that succeeds may still have left pools out: the library takes what the configuration
 * gives and does without the rest. This program cannot, and says which pool is missing and why.
 */
#pragma once

#include <cstdint>
#include <string>

class library_use
{
public:
    /* Starts the library with the configuration in the folder `config_dir`; throws. */
    explicit library_use(const std::string &config_dir);
    ~library_use();

    /* Stops it; true when it stopped clean. Everything taken must be back. */
    bool stop();

private:
    bool running_ = false;
};
