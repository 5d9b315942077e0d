/*
 * The head is gathered byte by byte up to its end of line and may not be longer than any that a
 * console sends, so that a stranger at the socket is noticed at once and not after gigabytes.
 */
#include "answer_reader.h"

#include <algorithm>
#include <charconv>

#include "printable.h"

namespace {

constexpr size_t LONGEST_HEAD = 32;

} // namespace

reading answer_reader::fail(std::string what)
{
    broken_ = true;
    fault_ = std::move(what);
    return reading::BROKEN;
}

/* Number of bytes that belong to the head. */
size_t answer_reader::take_head(std::string_view bytes)
{
    const size_t end = bytes.find('\n');
    const size_t length = std::min(end, bytes.size());

    head_.append(bytes.substr(0, std::min(length, LONGEST_HEAD + 1)));
    if (head_.size() > LONGEST_HEAD) {
        fail("the answer begins with \"" + printable(head_.substr(0, LONGEST_HEAD)) + "\"");
        return bytes.size();
    }
    if (end == std::string_view::npos)
        return bytes.size();
    read_head();
    return length + 1;
}

void answer_reader::read_head()
{
    const size_t blank = head_.find(' ');
    const std::string_view word = std::string_view(head_).substr(0, blank);
    const char *const first = head_.data() + std::min(blank + 1, head_.size());
    const char *const last = head_.data() + head_.size();
    const auto [end, error] = std::from_chars(first, last, expected_);

    if (blank == std::string::npos || (word != "ok" && word != "error") || first == last ||
        error != std::errc() || end != last) {
        fail("the answer begins with \"" + printable(head_) + "\"");
        return;
    }
    if (expected_ > LARGEST_ANSWER) {
        fail("an answer of " + std::to_string(expected_) + " bytes is announced");
        return;
    }
    has_head_ = true;
    answer_.ok = word == "ok";
}

reading answer_reader::take(std::string_view bytes)
{
    if (!broken_ && !has_head_)
        bytes.remove_prefix(take_head(bytes));
    if (broken_)
        return reading::BROKEN;
    if (!has_head_)
        return reading::MORE;

    answer_.text.append(bytes.substr(0, expected_ - answer_.text.size()));
    if (bytes.size() > expected_ || answer_.text.size() > expected_)
        return fail("more came than the answer announced");
    return answer_.text.size() == expected_ ? reading::DONE : reading::MORE;
}

console_answer answer_reader::release()
{
    console_answer whole = std::move(answer_);

    *this = answer_reader();
    return whole;
}
