/*
 * Numbers from text.
 *
 *     text          isuint   tou64      tos64
 *     " 12\n"       0        12         12
 *     "12x"         -1       12         12         digits end the number, as with strtoull
 *     "0x1F"        -1       31         0          tos64 reads the "0" alone
 *     "-5" "+5"     -1       0          -5, 5      a sign is no digit of an unsigned number
 *     null "" " "   -1       0          0
 *     overflow      -1       0          0
 *
 * Written out rather than left to strtoull, which takes signs for unsigned numbers, octal numbers,
 * and whatever the locale calls white space.
 */
#include "zyax_local.h"

/* What was read, and where the number ends. */
struct number {
    uint64_t value;
    const char *end;
    bool is_valid; /* digits were there and did not overflow */
};

static bool is_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

static const char *skip_space(const char *text)
{
    while (is_space(*text))
        ++text;
    return text;
}

/* The digit's value, or a value of at least 36. */
static uint32_t digit(char c)
{
    if (c >= '0' && c <= '9')
        return uint32_t(c - '0');
    const char lower = char(c | 0x20);
    if (lower >= 'a' && lower <= 'z')
        return uint32_t(lower - 'a') + 10;
    return 36;
}

static number read_digits(const char *text, uint32_t base)
{
    number result = {0, text, digit(*text) < base};
    for (; digit(*result.end) < base; ++result.end) {
        if (__builtin_mul_overflow(result.value, uint64_t(base), &result.value) ||
            __builtin_add_overflow(result.value, uint64_t(digit(*result.end)), &result.value))
            result.is_valid = false;
    }
    return result;
}

int zyax_str_isuint(const char *text)
{
    if (text == nullptr)
        return -1;

    const number found = read_digits(skip_space(text), 10);
    return found.is_valid && *skip_space(found.end) == '\0' ? 0 : -1;
}

uint64_t zyax_str_tou64(const char *text)
{
    if (text == nullptr)
        return 0;

    const char *start = skip_space(text);
    const bool is_hexadecimal = start[0] == '0' && (start[1] == 'x' || start[1] == 'X');
    const number found = is_hexadecimal ? read_digits(start + 2, 16) : read_digits(start, 10);
    return found.is_valid ? found.value : 0;
}

int64_t zyax_str_tos64(const char *text)
{
    if (text == nullptr)
        return 0;

    const char *start = skip_space(text);
    const bool is_negative = *start == '-';
    if (is_negative || *start == '+')
        ++start;
    const number found = read_digits(start, 10);
    const uint64_t limit = uint64_t(INT64_MAX) + (is_negative ? 1 : 0);
    if (!found.is_valid || found.value > limit)
        return 0;
    return int64_t(is_negative ? 0 - found.value : found.value);
}
