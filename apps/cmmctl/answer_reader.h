/*
 * One answer of the console, put together from the pieces in which a socket delivers it:
 *
 *     ok <bytes>\n  or  error <bytes>\n      and exactly so many bytes
 *
 * The reader trusts nothing: a head that is not one of the two, an answer larger than
 * LARGEST_ANSWER and bytes behind the answer are faults, after which nothing more can be read from
 * that connection.
 *
 * Threads: one at a time.
 */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/* Bytes of one answer that are still believed; the largest lists of a node are far below. */
inline constexpr size_t LARGEST_ANSWER = 32u << 20;

struct console_answer {
    bool        ok = false;
    std::string text;
};

enum class reading { MORE, DONE, BROKEN };

class answer_reader
{
public:
    /* Takes in what came; DONE once the answer is whole. */
    reading take(std::string_view bytes);

    /* The whole answer; the reader is ready for the next one. */
    console_answer release();

    /* What is wrong, after BROKEN. */
    const std::string &fault() const { return fault_; }

    /* Whether bytes of an answer have come that is not whole yet. */
    bool is_within() const { return !head_.empty() || has_head_; }

private:
    size_t  take_head(std::string_view bytes);
    void    read_head();
    reading fail(std::string what);

    bool           has_head_ = false;
    bool           broken_ = false;
    size_t         expected_ = 0;
    std::string    head_; /* without its end of line */
    std::string    fault_;
    console_answer answer_;
};
