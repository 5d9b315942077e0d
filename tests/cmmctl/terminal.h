/*
 * A program on a terminal of a given size, as a user sees it: tmux is the terminal.
 *
 * What is waited for is a condition, with an end so late that only a fault reaches it.
 *
 * Owner: the test; the program and its terminal end with the object.
 */
#pragma once

#include <functional>
#include <string>
#include <vector>

class terminal
{
public:
    /* Runs a shell command on a terminal; `folder` is the test's own. */
    terminal(const std::string &folder, unsigned columns, unsigned lines,
             const std::string &command);
    ~terminal();
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    /* The screen, one text a line, without the blanks at the ends of lines. */
    std::vector<std::string> screen() const;

    /* The screen in one text. */
    std::string text() const;

    /* Waits until the screen shows the text, or shows it no more; true when it came so far. */
    bool shows(const std::string &text) const;
    bool shows_no(const std::string &text) const;
    bool comes_to(const std::function<bool()> &condition) const;

    /* Presses keys, as tmux names them: "q", "Tab", "C-c", "Up". */
    void press(const std::vector<std::string> &keys) const;

    /* Types a text as it is. */
    void type(const std::string &text) const;

    void resize(unsigned columns, unsigned lines) const;

    /* Waits for the program's end; its exit code, -1 when it did not end. */
    int exit_code() const;

private:
    std::string tmux(const std::string &arguments) const;

    std::string socket_;
};
