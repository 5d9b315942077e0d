/*
 * One command at a time: the line sent, the answer to standard output.
 *
 * Threads: one at a time.
 */
#pragma once

#include <string>
#include <vector>

#include "console_link.h"

/* Sends words as one line, "--json" first when it is among them or `json` says so. An error's text
 * goes to standard error. An exit code; throws link_error. */
int run_words(console_link &link, const std::vector<std::string> &words, bool json, double timeout);

/* Lines of standard input, one command each; the greatest exit code. Throws link_error. */
int run_lines(console_link &link, bool json, double timeout);
