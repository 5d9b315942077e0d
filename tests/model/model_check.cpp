/*
 * Drawing, shrinking and reporting of sequences; see model_check.h.
 *
 * Shrinking tries simpler sequences in a fixed order and starts over from the first that still
 * differs: halves, quarters and so on left out, then single operations, then arguments set to
 * nothing, halved, and less by one. Each success makes the sequence smaller, so it ends.
 */
#include "model_check.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>

#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#define MODEL_SANITIZED 1
#endif

namespace model
{

namespace
{

/* ------------------------------------------------------------------ last words */

/* What is being played, ready to be written by a process that is about to end. */
std::string now_playing;

void write_now_playing()
{
    if (write(STDERR_FILENO, now_playing.data(), now_playing.size()) < 0)
        _exit(1);
}

extern "C" void write_and_die(int number)
{
    write_now_playing();
    signal(number, SIG_DFL);
    raise(number);
}

class last_words
{
public:
    last_words()
    {
        for (size_t i = 0; i < std::size(SIGNALS); ++i)
            before_[i] = signal(SIGNALS[i], write_and_die);
#ifdef MODEL_SANITIZED
        __sanitizer_set_death_callback(write_now_playing);
#endif
    }

    ~last_words()
    {
        for (size_t i = 0; i < std::size(SIGNALS); ++i)
            signal(SIGNALS[i], before_[i]);
        now_playing.clear();
    }

    last_words(const last_words &) = delete;
    last_words &operator=(const last_words &) = delete;

private:
#ifdef MODEL_SANITIZED
    /* The sanitizer's own handler tells more about the other one. */
    static constexpr int SIGNALS[] = {SIGABRT};
#else
    static constexpr int SIGNALS[] = {SIGABRT, SIGSEGV};
#endif
    void (*before_[std::size(SIGNALS)])(int);
};

/* ------------------------------------------------------------------ drawing */

uint32_t total_weight(const alphabet &letters)
{
    uint32_t total = 0;
    for (const operation &letter : letters)
        total += letter.weight;
    return total;
}

uint32_t draw_operation(const alphabet &letters, uint32_t at)
{
    uint32_t op = 0;
    while (at >= letters[op].weight)
        at -= letters[op++].weight;
    return op;
}

/* ------------------------------------------------------------------ shrinking */

/* Replaces `steps` by `smaller` if that differs too. */
bool keep_if_differs(sequence *steps, const sequence &smaller, const player &play)
{
    if (play(smaller).empty())
        return false;
    *steps = smaller;
    return true;
}

/* Leaves out stretches of `count` operations wherever that can be done. */
bool leave_out(sequence *steps, size_t count, const player &play)
{
    bool found = false;
    for (size_t at = 0; at + count <= steps->size();) {
        sequence smaller = *steps;
        const auto from = smaller.begin() + long(at);
        smaller.erase(from, from + long(count));
        if (keep_if_differs(steps, smaller, play))
            found = true;
        else
            at += count;
    }
    return found;
}

bool lower_argument(sequence *steps, size_t at, size_t arg, const player &play)
{
    const uint32_t now = (*steps)[at].args[arg];
    if (now == 0)
        return false;
    for (const uint32_t less : {0u, now / 2, now - 1}) {
        sequence smaller = *steps;
        smaller[at].args[arg] = less;
        if (keep_if_differs(steps, smaller, play))
            return true;
    }
    return false;
}

bool lower_arguments(sequence *steps, const player &play)
{
    bool found = false;
    for (size_t at = 0; at < steps->size(); ++at) {
        for (size_t arg = 0; arg < (*steps)[at].args.size(); ++arg)
            found = lower_argument(steps, at, arg, play) || found;
    }
    return found;
}

} // namespace

sequence random_sequence(const alphabet &letters, uint64_t seed, uint32_t longest)
{
    std::mt19937_64 random(seed);
    const auto below = [&](uint32_t limit) { return uint32_t(random() % limit); };
    const uint32_t weights = total_weight(letters);

    sequence drawn(1 + below(longest));
    for (step &one : drawn) {
        one = {draw_operation(letters, below(weights)), {}};
        const std::vector<argument> &arguments = letters[one.op].arguments;
        for (size_t i = 0; i < arguments.size(); ++i)
            one.args[i] = below(arguments[i].values);
    }
    return drawn;
}

std::string text_of(const alphabet &letters, const step &one)
{
    const operation &letter = letters[one.op];
    std::string text = letter.name;
    for (size_t i = 0; i < letter.arguments.size(); ++i) {
        const argument &kind = letter.arguments[i];
        text += std::string(" ") + kind.name + "=";
        text += kind.words.empty() ? std::to_string(one.args[i]) : kind.words[one.args[i]];
    }
    return text;
}

std::string text_of(const alphabet &letters, const sequence &steps)
{
    std::string text;
    for (const step &one : steps)
        text += "    " + text_of(letters, one) + "\n";
    return text;
}

std::string text_of(const alphabet &letters, const finding &found)
{
    const std::string seed = std::to_string(found.seed);
    return "seed " + seed + ": \"" + found.difference + "\" after " +
           std::to_string(found.smallest.size()) + " operations\n" +
           text_of(letters, found.smallest) + "again, from this case on: CMM_MODEL_SEED=" + seed +
           "\n";
}

sequence shrink(sequence steps, const player &play)
{
    for (bool found = true; found;) {
        found = false;
        for (size_t count = (steps.size() + 1) / 2; count > 1; count /= 2)
            found = leave_out(&steps, count, play) || found;
        found = leave_out(&steps, 1, play) || found;
        found = lower_arguments(&steps, play) || found;
    }
    return steps;
}

std::optional<finding> search(const alphabet &letters, uint64_t first_seed, uint64_t cases,
                              uint32_t longest, const player &play)
{
    const last_words words;
    const player noted = [&](const sequence &steps) {
        now_playing = "the process ended while this was played:\n" + text_of(letters, steps);
        return play(steps);
    };

    for (uint64_t seed = first_seed; seed != first_seed + cases; ++seed) {
        const sequence drawn = random_sequence(letters, seed, longest);
        now_playing =
            "the process ended at seed " + std::to_string(seed) + ":\n" + text_of(letters, drawn);
        if (play(drawn).empty())
            continue;
        const sequence smallest = shrink(drawn, noted);
        return finding{seed, smallest, noted(smallest)};
    }
    return std::nullopt;
}

uint64_t quick(uint64_t cases)
{
#ifdef MODEL_SANITIZED
    return cases / 20;
#else
    return cases;
#endif
}

sequence expect_found_out(const alphabet &letters, uint32_t longest, const player &play)
{
    const std::optional<finding> found = search(letters, 1, 2000, longest, play);
    if (found)
        return found->smallest;
    ADD_FAILURE() << "nobody noticed in 2000 cases";
    return {};
}

uint64_t number_from_environment(const char *name, uint64_t otherwise)
{
    const char *const text = getenv(name);
    if (text == nullptr)
        return otherwise;

    char *end = nullptr;
    errno = 0;
    const uint64_t number = strtoull(text, &end, 10);
    const bool is_number = strchr("0123456789", text[0]) != nullptr && *end == '\0' && errno == 0;
    if (is_number && number != 0)
        return number;
    ADD_FAILURE() << name << " is no number above 0: \"" << text << "\"";
    return otherwise;
}

void expect_agreement(const alphabet &letters, uint64_t cases, uint32_t longest, const player &play)
{
    const uint64_t first_seed = number_from_environment("CMM_MODEL_SEED", 1);
    const uint64_t times = number_from_environment("CMM_MODEL_CASES", 1);
    const std::optional<finding> found = search(letters, first_seed, cases * times, longest, play);
    if (found)
        ADD_FAILURE() << text_of(letters, *found);
}

} // namespace model
