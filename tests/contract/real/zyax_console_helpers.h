/*
 * Commands for the console's tests, and a client of its socket.
 *
 * The client blocks: a server that owes an answer makes the test hang until ctest ends it.
 */
#pragma once

#include "dbg_console.h"
#include "zyax_console.h"
#include "zyax_log.h"
#include "zyax_temp_folder.h"

#include <algorithm>
#include <string.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

/* A whole answer, as "ok:text" or "error:text". */
inline std::string answer_of(bool is_good, const std::string &text)
{
    return (is_good ? "ok:" : "error:") + text;
}

inline void keep_text(void *ctx, const char *text, size_t length)
{
    static_cast<std::string *>(ctx)->append(text, length);
}

/* Runs a line in the process. */
inline std::string run_line(std::string_view line)
{
    std::string text;
    const int status = zyax_console_run(line.data(), line.size(), keep_text, &text);
    return answer_of(status == 0, text);
}

/* Prints the words that came, and thereby what a handler sees. */
inline void print_words(int32_t count, char **words)
{
    DBG_Print("%d", count);
    for (int32_t i = 0; i < count; ++i)
        DBG_PrintBuf(" %s", words[i]);
    DBG_PrintBuf(words[count] == nullptr ? "." : "?");
}

inline void print_json(int32_t count, char **)
{
    DBG_Print("{\"words\":%d}", count);
}

inline int add_command(const char *words, zyax_console_handler text = print_words,
                       const char *help = "prints its words", zyax_console_handler json = nullptr,
                       uint32_t flags = 0)
{
    const zyax_console_command command = {words, help, text, json, flags};
    return zyax_console_register(&command);
}

/* The text of one answer's row in a list. */
inline std::string row(const std::string &name, const std::string &help)
{
    return "  " + name + std::string(name.size() < 32 ? 32 - name.size() : 0, ' ') + "  " + help +
           "\n";
}

/* Lines of the log from here on, without their first columns. */
class kept_log
{
public:
    kept_log()
    {
        EXPECT_EQ(zyax_log_add_file(m_folder.path("log").c_str(), 1000000, 0), 0);
    }

    bool has(const std::string &text) const
    {
        zyax_log_flush();
        return m_folder.read("log").find(text) != std::string::npos;
    }

private:
    temp_folder m_folder;
};

class console_peer
{
public:
    explicit console_peer(const std::string &path) : m_fd(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        m_is_connected =
            connect(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
    }

    ~console_peer()
    {
        vanish();
    }

    console_peer(const console_peer &) = delete;
    console_peer &operator=(const console_peer &) = delete;

    bool is_connected() const
    {
        return m_is_connected;
    }

    /* False when the other end does not take it all. */
    bool send_bytes(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t sent = send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return false;
            bytes.remove_prefix(size_t(sent));
        }
        return true;
    }

    /* "ok:text", "error:text", or "end" when the connection is over. */
    std::string read_answer()
    {
        size_t end;
        while ((end = m_got.find('\n')) == std::string::npos) {
            if (!receive())
                return "end";
        }
        const std::string head = m_got.substr(0, end);
        const size_t blank = head.find(' ');
        const size_t length = std::stoul(head.substr(blank + 1));
        while (m_got.size() < end + 1 + length) {
            if (!receive())
                return "end";
        }
        const std::string text = m_got.substr(end + 1, length);
        m_got.erase(0, end + 1 + length);
        return head.substr(0, blank) + ":" + text;
    }

    std::string ask(const std::string &line)
    {
        send_bytes(line + "\n");
        return read_answer();
    }

    void end_sending() const
    {
        shutdown(m_fd, SHUT_WR);
    }

    void vanish()
    {
        if (m_fd >= 0)
            close(m_fd);
        m_fd = -1;
    }

    int descriptor() const
    {
        return m_fd;
    }

private:
    bool receive()
    {
        char bytes[65536];
        const ssize_t got = recv(m_fd, bytes, sizeof(bytes), 0);
        if (got > 0)
            m_got.append(bytes, size_t(got));
        return got > 0;
    }

    int m_fd;
    bool m_is_connected = false;
    std::string m_got;
};

inline bool exists(const std::string &path)
{
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0;
}

/* A socket at the path: with somebody who listens, or as one who died has left it. */
inline int make_socket(const std::string &path, bool listens)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    if (listens) {
        EXPECT_EQ(listen(fd, 1), 0);
        return fd;
    }
    close(fd);
    return -1;
}

/* A served console in a folder of its own, stopped at the end. */
class served_console
{
public:
    served_console()
    {
        EXPECT_EQ(zyax_console_start(path().c_str()), 0);
    }

    ~served_console()
    {
        EXPECT_EQ(zyax_console_stop(), 0);
    }

    std::string path() const
    {
        return m_folder.path("console");
    }

private:
    temp_folder m_folder;
};
