/*
 * How far a typed line is from a command.
 *
 * Two edit distances, one in the other: between the words of the line and those of the command,
 * where putting one word for another costs the edit distance of their letters. An argument's place
 * takes any word at a small price. So costs a forgotten word, since people type "pools" and mean
 * "umm show pools"; a word too many costs its letters.
 *
 *     shwo pools  -->  umm show pools     1 forgotten word + 1 exchange of neighbours = 2
 */
#include "console_local.h"

#include <algorithm>
#include <string.h>

namespace zyax
{

static constexpr uint32_t LETTERS_MAX = 48; /* longer words are like no other */
static constexpr uint32_t FORGOTTEN_WORD = 1;
static constexpr uint32_t ANY_ARGUMENT = 1;

using letter_row = uint32_t[LETTERS_MAX + 1];

/* One row of the table of distances: of the first `i` letters of `a` from each beginning of `b`. */
static void fill_row(letter_row *rows, uint32_t i, const char *a, const char *b, uint32_t b_length)
{
    uint32_t *row = rows[i % 3];
    const uint32_t *above = rows[(i + 2) % 3];
    const uint32_t *second_above = rows[(i + 1) % 3];

    row[0] = i;
    for (uint32_t j = 1; j <= b_length; ++j) {
        const uint32_t change = above[j - 1] + (a[i - 1] != b[j - 1]);
        row[j] = std::min({above[j] + 1, row[j - 1] + 1, change});
        if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
            row[j] = std::min(row[j], second_above[j - 2] + 1);
    }
}

/* Letters to insert, to leave out, to change, or to exchange with their neighbour. */
static uint32_t letter_distance(const char *a, const char *b)
{
    const size_t a_length = strlen(a);
    const size_t b_length = strlen(b);
    letter_row rows[3];

    if (a_length > LETTERS_MAX || b_length > LETTERS_MAX)
        return strcmp(a, b) == 0 ? 0 : uint32_t(std::max(a_length, b_length));
    for (uint32_t j = 0; j <= b_length; ++j)
        rows[0][j] = j;
    for (uint32_t i = 1; i <= a_length; ++i)
        fill_row(rows, i, a, b, uint32_t(b_length));
    return rows[a_length % 3][b_length];
}

static uint32_t word_distance(const char *word, const char *typed)
{
    return console_is_argument(word) ? ANY_ARGUMENT : letter_distance(word, typed);
}

uint32_t console_distance(const console_entry &entry, const console_words &line)
{
    uint32_t rows[2][ZYAX_CONSOLE_WORDS_MAX + 1];

    rows[0][0] = 0;
    for (uint32_t j = 1; j <= line.count; ++j)
        rows[0][j] = rows[0][j - 1] + uint32_t(strlen(line.word[j - 1]));
    for (uint32_t i = 1; i <= entry.words.count; ++i) {
        const uint32_t *above = rows[(i + 1) % 2];
        uint32_t *row = rows[i % 2];
        row[0] = above[0] + FORGOTTEN_WORD;
        for (uint32_t j = 1; j <= line.count; ++j) {
            const char *typed = line.word[j - 1];
            row[j] = std::min({above[j] + FORGOTTEN_WORD, row[j - 1] + uint32_t(strlen(typed)),
                               above[j - 1] + word_distance(entry.words.word[i - 1], typed)});
        }
    }
    return rows[entry.words.count % 2][line.count];
}

} // namespace zyax
