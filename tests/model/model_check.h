/*
 * Model tests: random sequences of operations, played on the library and on a small model side by
 * side. A sequence on which the two differ is made as small as it can be made and shown as text:
 *
 *     seed 17: "sum 2, the model has 1" after 3 operations
 *         ask-page timeout=0
 *         advance by=1
 *         walk step=0
 *     again, from this case on: CMM_MODEL_SEED=17
 *
 * An operation is a number in an alphabet with small numbers as arguments, and every sequence makes
 * sense: what an argument names is taken modulo what exists, and an operation that cannot be done
 * does nothing. So parts of a sequence can be left out and numbers made smaller without a look at
 * what they mean; this is all that shrinking does, and why there is one shrinker for all models.
 * Give arguments their meaning so that smaller numbers are simpler cases.
 *
 * Cases are a function of their seed alone. Two variables of the environment change which are run:
 *
 *     CMM_MODEL_CASES=100    100 times as many cases, for a long run
 *     CMM_MODEL_SEED=17      begins at this seed instead of 1
 *
 * When a case ends the process (a fatal line, a sanitizer's report), it is too late to shrink it:
 * then its seed and the sequence as it was go to standard error.
 *
 * A property-testing library was considered and left out: its report, fixed seeds and self-tests
 * are reached only through its internals, and it would be one more thing to install for what is
 * a page of code here.
 */
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace model
{

/* A number from 0 up, or the place in a list of numbers or words that are shown instead. */
struct argument {
    argument(const char *name_, uint32_t values_) : name(name_), values(values_)
    {
    }

    argument(const char *name_, std::vector<std::string> words_)
        : name(name_), values(uint32_t(words_.size())), words(std::move(words_))
    {
    }

    template <typename T, size_t N>
    requires std::is_integral_v<T> argument(const char *name_, const T (&numbers)[N])
        : name(name_), values(N)
    {
        for (const T number : numbers)
            words.push_back(std::to_string(number));
    }

    const char *name;
    uint32_t values; /* the argument is below this */
    std::vector<std::string> words;
};

struct operation {
    const char *name;
    uint32_t weight; /* how often it is drawn, beside the others' */
    std::vector<argument> arguments;
};

using alphabet = std::vector<operation>;

struct step {
    uint32_t op; /* index into the alphabet */
    std::array<uint32_t, 6> args;
};

using sequence = std::vector<step>;

/* Plays a sequence from a fresh start; answers the first difference, or nothing. */
using player = std::function<std::string(const sequence &)>;

struct finding {
    uint64_t seed;
    sequence smallest;
    std::string difference; /* that the smallest sequence shows */
};

/* From 1 to `longest` operations. */
sequence random_sequence(const alphabet &letters, uint64_t seed, uint32_t longest);

std::string text_of(const alphabet &letters, const step &one);
std::string text_of(const alphabet &letters, const sequence &steps); /* one line a step */
std::string text_of(const alphabet &letters, const finding &found);

/*
 * The smallest sequence that is reached from one that differs, all on the way differing too:
 * no operation can be left out and no argument made smaller.
 */
sequence shrink(sequence steps, const player &play);

/* The first of `cases` sequences from `first_seed` on that differs, shrunk. */
std::optional<finding> search(const alphabet &letters, uint64_t first_seed, uint64_t cases,
                              uint32_t longest, const player &play);

/* What a model with a flaw must lead to: the smallest sequence that shows it, from seeds 1 on.
 * Empty, and a test's failure, when nobody notices. */
sequence expect_found_out(const alphabet &letters, uint32_t longest, const player &play);

/* So many cases, and a twentieth of them in a build with a sanitizer, which is slow. */
uint64_t quick(uint64_t cases);

/* A test's failure unless all cases agree; `cases` and the first seed as the environment says. */
void expect_agreement(const alphabet &letters, uint64_t cases, uint32_t longest,
                      const player &play);

/*
 * Number from the environment, `otherwise` when the variable is not set; what is no number above 0
 * fails the test.
 */
uint64_t number_from_environment(const char *name, uint64_t otherwise);

} // namespace model
