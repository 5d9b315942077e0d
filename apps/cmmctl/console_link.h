/*
 * The connection to a process's console: one command at a time, one answer to it.
 *
 *     link.open()   link.send(line)   ... link.progress() until it has the answer ...   link.send()
 *
 * `send` and `progress` never wait, so that a program with a screen stays awake while the process
 * does not answer; `ask` is both with a wait, for programs that have nothing else to do. Each
 * failure throws link_error and closes the connection; it can be opened again.
 *
 * Owner:   the object owns the socket.
 * Threads: one at a time.
 */
#pragma once

#include <sys/types.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "answer_reader.h"

struct link_error : std::runtime_error {
    link_error(const std::string &path, const std::string &what)
        : std::runtime_error(path + ": " + what), reason(what)
    {
    }

    std::string reason; /* without the path */
};

class console_link
{
public:
    explicit console_link(std::string path);
    ~console_link();
    console_link(const console_link &) = delete;
    console_link &operator=(const console_link &) = delete;

    void open();
    void close();
    bool is_open() const { return fd_ >= 0; }

    /* For poll: the descriptor, and what to wait for. */
    int   fd() const { return fd_; }
    short events() const;

    /* The process at the other end; 0 when it is unknown. */
    pid_t peer() const { return peer_; }

    const std::string &path() const { return path_; }

    /* Sends one command, without its end of line; the former one was answered. */
    void send(std::string_view line);

    /* Does what can be done without waiting; the answer once it is whole. */
    std::optional<console_answer> progress();

    /* Opens the connection where needed, sends, and waits for the answer, `seconds` at most. */
    console_answer ask(std::string_view line, double seconds);

private:
    void write_some();
    [[noreturn]] void fail(const std::string &what);

    std::string   path_;
    int           fd_ = -1;
    pid_t         peer_ = 0;
    bool          asked_ = false;
    std::string   unsent_;
    answer_reader reader_;
};
