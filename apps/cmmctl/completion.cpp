/*
 * A line fits a command as far as its words are the command's, anything fitting an argument. "help"
 * and "--json" are the console's own words: what follows them is completed like a line without
 * them.
 */
#include "completion.h"

#include <algorithm>
#include <set>

#include <nlohmann/json.hpp>

#include "node_report.h"

namespace {

bool is_argument(const std::string &word)
{
    return word.size() > 2 && word.front() == '<' && word.back() == '>';
}

/* Whether the command has a word after those of the line, and begins with them. */
bool goes_on(const command_words &command, const std::vector<std::string> &line)
{
    if (command.size() <= line.size())
        return false;
    return std::equal(line.begin(), line.end(), command.begin(),
                      [](const std::string &typed, const std::string &word) {
                          return is_argument(word) || typed == word;
                      });
}

bool begins_with(const std::string &word, const std::string &beginning)
{
    return word.compare(0, beginning.size(), beginning) == 0;
}

} // namespace

std::vector<command_words> read_commands(const std::string &text)
{
    const nlohmann::json answer = nlohmann::json::parse(text, nullptr, false);
    std::vector<command_words> commands;

    try {
        for (const nlohmann::json &one : answer.at("commands"))
            commands.push_back(split_words(one.at("words").get<std::string>()));
    } catch (const nlohmann::json::exception &) {
        throw bad_answer("help: no list of commands came");
    }
    return commands;
}

std::vector<std::string> split_words(std::string_view text)
{
    constexpr const char *BLANKS = " \t";
    std::vector<std::string> words;

    for (size_t at = text.find_first_not_of(BLANKS); at != std::string_view::npos;) {
        const size_t end = std::min(text.find_first_of(BLANKS, at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = text.find_first_not_of(BLANKS, end);
    }
    return words;
}

std::vector<std::string> completions(const std::vector<command_words> &commands,
                                     std::string_view line, const argument_values &values)
{
    std::vector<std::string> before = split_words(line);
    std::set<std::string> found;
    std::string begun;

    if (!line.empty() && line.back() != ' ' && line.back() != '\t' && !before.empty()) {
        begun = before.back();
        before.pop_back();
    }
    const auto add = [&](const std::string &word) {
        if (begins_with(word, begun))
            found.insert(word);
    };

    bool is_first = before.empty();
    for (const char *own : {"--json", "help"}) {
        if (is_first)
            add(own);
        else if (before.front() == own)
            before.erase(before.begin());
    }
    for (const command_words &command : commands) {
        if (!goes_on(command, before))
            continue;
        const std::string &word = command[before.size()];
        if (!is_argument(word)) {
            add(word);
            continue;
        }
        for (const std::string &value : values(command, word))
            add(value);
    }
    return {found.begin(), found.end()};
}

std::string shared_beginning(const std::vector<std::string> &words)
{
    if (words.empty())
        return "";
    std::string shared = words.front();
    for (const std::string &word : words) {
        const auto differ = std::mismatch(shared.begin(), shared.end(), word.begin(), word.end());
        shared.erase(differ.first, shared.end());
    }
    return shared;
}
