/*
 * A console with scripted answers, on a socket in a scratch folder.
 *
 * The script is called with each line that a client sends and says what goes back, as bytes, so
 * that broken answers can be scripted as well. Every client is served; its own thread is the
 * script's.
 *
 * Owner: the test; the socket is gone with the object.
 */
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

struct scripted_answer {
    std::string bytes;
    bool        hangs_up = false; /* closes the connection behind the bytes */
};

/* A whole answer, as a console frames it. */
scripted_answer says(const std::string &text);
scripted_answer says_error(const std::string &text);

class fake_console
{
public:
    using script = std::function<scripted_answer(const std::string &line)>;

    fake_console(std::string path, script answers);
    ~fake_console();
    fake_console(const fake_console &) = delete;
    fake_console &operator=(const fake_console &) = delete;

    const std::string &path() const { return path_; }

    /* Commands answered so far. */
    unsigned answered() const { return answered_; }

private:
    void serve();

    std::string           path_;
    script                answers_;
    int                   listener_ = -1;
    int                   stop_ = -1; /* readable when the thread is to end */
    std::atomic<unsigned> answered_ = 0;
    std::thread           thread_;
};
