/*
 * Numbers from text, and the bounded memory and text functions: small enough to be right here.
 */
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "fake_local.h"

namespace
{

constexpr int BAD = 22;

bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

/* The text without white space around it; empty for a null one. */
std::string trimmed(const char *text)
{
    std::string rest = text != nullptr ? text : "";
    while (!rest.empty() && is_space(rest.back()))
        rest.pop_back();
    size_t first = 0;
    while (first < rest.size() && is_space(rest[first]))
        ++first;
    return rest.substr(first);
}

/* Digits of `base` and nothing else, within 64 bits. */
bool whole_number(const std::string &digits, int base, uint64_t *number)
{
    for (char c : digits) {
        const auto u = static_cast<unsigned char>(c);
        if (base == 16 ? isxdigit(u) == 0 : isdigit(u) == 0)
            return false;
    }
    errno   = 0;
    *number = strtoull(digits.c_str(), nullptr, base);
    return !digits.empty() && errno == 0;
}

bool ranges_overlap(const void *a, const void *b, size_t count)
{
    const auto first  = reinterpret_cast<uintptr_t>(a);
    const auto second = reinterpret_cast<uintptr_t>(b);
    return first < second ? second - first < count : first - second < count;
}

void make_empty(char *dst, size_t dst_max)
{
    if (dst != nullptr && dst_max != 0)
        dst[0] = '\0';
}

} // namespace

int zyax_str_isuint(const char *text)
{
    fake::call c(OP_zyax_str_isuint, text);
    return c.answer<int>([&] {
        uint64_t number = 0;
        return whole_number(trimmed(text), 10, &number) ? 0 : -1;
    });
}

uint64_t zyax_str_tou64(const char *text)
{
    fake::call c(OP_zyax_str_tou64, text);
    return c.answer<uint64_t>([&]() -> uint64_t {
        std::string digits = trimmed(text);
        const bool  is_hex = digits.starts_with("0x") || digits.starts_with("0X");
        if (is_hex)
            digits.erase(0, 2);
        uint64_t number = 0;
        return whole_number(digits, is_hex ? 16 : 10, &number) ? number : 0;
    });
}

int64_t zyax_str_tos64(const char *text)
{
    fake::call c(OP_zyax_str_tos64, text);
    return c.answer<int64_t>([&]() -> int64_t {
        std::string digits   = trimmed(text);
        const bool  negative = digits.starts_with("-");
        if (negative || digits.starts_with("+"))
            digits.erase(0, 1);
        uint64_t       number  = 0;
        const uint64_t largest = uint64_t{INT64_MAX} + (negative ? 1 : 0);
        if (!whole_number(digits, 10, &number) || number > largest)
            return 0;
        return static_cast<int64_t>(negative ? 0 - number : number);
    });
}

int memcpy_s(void *dst, size_t dst_max, const void *src, size_t count)
{
    fake::call c(OP_memcpy_s, dst, dst_max, src, count);
    return c.answer<int>([&] {
        if (dst == nullptr || src == nullptr || count > dst_max || ranges_overlap(dst, src, count))
            return BAD;
        memcpy(dst, src, count);
        return 0;
    });
}

int memset_s(void *dst, size_t dst_max, int value, size_t count)
{
    fake::call c(OP_memset_s, dst, dst_max, value, count);
    return c.answer<int>([&] {
        if (dst == nullptr || count > dst_max)
            return BAD;
        memset(dst, value, count);
        return 0;
    });
}

int strncpy_s(char *dst, size_t dst_max, const char *src, size_t count)
{
    fake::call c(OP_strncpy_s, dst, dst_max, fake::bounded_text{src, count}, count);
    if (c.failed())
        make_empty(dst, dst_max);
    return c.answer<int>([&] {
        if (dst == nullptr || dst_max == 0)
            return BAD;
        const size_t length = src != nullptr ? strnlen(src, count) : 0;
        if (src == nullptr || length >= dst_max) {
            make_empty(dst, dst_max);
            return BAD;
        }
        memmove(dst, src, length);
        dst[length] = '\0';
        return 0;
    });
}

int snprintf_s(char *dst, size_t dst_max, size_t count, const char *format, ...)
{
    fake::call c(OP_snprintf_s, dst, dst_max, count, format);
    if (c.failed())
        make_empty(dst, dst_max);
    va_list args;
    va_start(args, format);
    const int result = c.answer<int>([&] {
        if (dst == nullptr || dst_max == 0 || format == nullptr)
            return -1;
        const size_t room   = count < dst_max ? count + 1 : dst_max;
        const int    length = vsnprintf(dst, room, format, args);
        return length >= 0 && static_cast<size_t>(length) < room ? length : -1;
    });
    va_end(args);
    return result;
}
