/*
 * Each terminal is a tmux server of its own, with its socket in the test's folder and no settings
 * of whoever runs the tests.
 */
#include "terminal.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

constexpr std::chrono::seconds LONGEST_WAIT(120);
constexpr unsigned             PAUSE = 20000; /* us between two looks at the screen */

std::string quoted(const std::string &text)
{
    std::string made = "'";

    for (const char c : text)
        made += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return made + "'";
}

} // namespace

terminal::terminal(const std::string &folder, unsigned columns, unsigned lines,
                   const std::string &command)
    : socket_(folder + "/tmux")
{
    const std::string size = "-x " + std::to_string(columns) + " -y " + std::to_string(lines);

    tmux("new-session -d " + size + " cat \\; set -g status off \\; set -g remain-on-exit on \\; "
         "set -g window-size manual \\; resize-window " + size);
    tmux("respawn-pane -k " + quoted(command));
}

terminal::~terminal()
{
    tmux("kill-server");
}

std::string terminal::tmux(const std::string &arguments) const
{
    const std::string command = "TMUX= tmux -S " + quoted(socket_) + " -f /dev/null " + arguments;
    std::string output;
    char piece[4096];
    FILE *const pipe = popen(command.c_str(), "r");

    if (pipe == nullptr)
        abort();
    for (size_t got = fread(piece, 1, sizeof piece, pipe); got != 0;
         got = fread(piece, 1, sizeof piece, pipe))
        output.append(piece, got);
    pclose(pipe);
    return output;
}

std::string terminal::text() const
{
    return tmux("capture-pane -p");
}

std::vector<std::string> terminal::screen() const
{
    std::istringstream all(text());
    std::vector<std::string> lines;

    for (std::string line; std::getline(all, line);)
        lines.push_back(line.erase(line.find_last_not_of(' ') + 1));
    return lines;
}

bool terminal::comes_to(const std::function<bool()> &condition) const
{
    const auto end = std::chrono::steady_clock::now() + LONGEST_WAIT;

    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        usleep(PAUSE);
    }
    return true;
}

bool terminal::shows(const std::string &wanted) const
{
    return comes_to([&] { return text().find(wanted) != std::string::npos; });
}

bool terminal::shows_no(const std::string &unwanted) const
{
    return comes_to([&] { return text().find(unwanted) == std::string::npos; });
}

void terminal::press(const std::vector<std::string> &keys) const
{
    std::string all;

    for (const std::string &key : keys)
        all += " " + quoted(key);
    tmux("send-keys" + all);
}

void terminal::type(const std::string &typed) const
{
    tmux("send-keys -l " + quoted(typed));
}

void terminal::resize(unsigned columns, unsigned lines) const
{
    tmux("resize-window -x " + std::to_string(columns) + " -y " + std::to_string(lines));
}

int terminal::exit_code() const
{
    const bool has_ended =
        comes_to([&] { return tmux("display-message -p '#{pane_dead}'") == "1\n"; });

    return has_ended ? atoi(tmux("display-message -p '#{pane_dead_status}'").c_str()) : -1;
}
