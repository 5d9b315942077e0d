/*
 * The text of an answer is the process's own and goes out as it came, with an end of line if it has
 * none, so that what a script reads next begins at a line's beginning.
 */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "completion.h"
#include "exit_codes.h"

namespace {

constexpr const char *JSON_WORD = "--json";

void put(FILE *stream, const std::string &text)
{
    fwrite(text.data(), 1, text.size(), stream);
    if (!text.empty() && text.back() != '\n')
        fputc('\n', stream);
    fflush(stream);
}

} // namespace

int run_words(console_link &link, const std::vector<std::string> &words, bool json, double timeout)
{
    std::string line;

    for (const std::string &word : words) {
        if (word.find_first_of("\r\n") != std::string::npos) {
            fprintf(stderr, "cmmctl: a command is one line\n");
            return CTL_USAGE;
        }
        if (word == JSON_WORD)
            json = true;
        else
            line += (line.empty() ? "" : " ") + word;
    }
    const console_answer answer =
        link.ask(json ? std::string(JSON_WORD) + " " + line : line, timeout);
    put(answer.ok ? stdout : stderr, answer.text);
    return answer.ok ? CTL_OK : CTL_ERROR;
}

int run_lines(console_link &link, bool json, double timeout)
{
    std::string line;
    int code = CTL_OK;

    while (std::getline(std::cin, line)) {
        const std::vector<std::string> words = split_words(line);
        if (!words.empty())
            code = std::max(code, run_words(link, words, json, timeout));
    }
    return code;
}
