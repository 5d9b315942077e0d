/*
 * What could be typed next, from the process's own list of commands.
 *
 *     umm show po|        -->  pool pools
 *     umm show pool |     -->  what the caller offers for "<name>"
 *
 * Threads: values; any.
 */
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/* The words of one command; one in angle brackets stands for an argument. */
using command_words = std::vector<std::string>;

/* What may stand for an argument of a command; the words are all of the command's. */
using argument_values = std::function<std::vector<std::string>(const command_words &command,
                                                               const std::string &argument)>;

/* The commands in an answer to "--json help"; throws bad_answer. */
std::vector<command_words> read_commands(const std::string &json);

std::vector<std::string> split_words(std::string_view text);

/* Whole words that the line's last word, perhaps still empty, may become: sorted, each once. */
std::vector<std::string> completions(const std::vector<command_words> &commands,
                                     std::string_view line, const argument_values &values);

/* The longest beginning that all words share; of no words the empty one. */
std::string shared_beginning(const std::vector<std::string> &words);
