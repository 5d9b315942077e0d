/*
 * Random uses of clones as data: they can be made from a seed, printed, and made smaller.
 *
 *     shape {3,0,64} ops: take 0; clone 0; copy 1 without SGL 2; drop 0
 *
 * A scenario starts with one chain, number 0, of the given shape; clones and copies get the next
 * numbers. Operations name the chain they work on by a number that is taken modulo the chains that
 * exist, so every part of a scenario still makes sense when others are left out.
 */
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

enum class clone_op { CLONE, CLONE_WITH_WRONG_KEY, COPY, TAKE, DROP, RELEASE };

struct clone_step {
    clone_op op;
    uint32_t chain;
    uint32_t refused; /* the n-th SGL that the step asks for is refused; 0 = none */
};

struct clone_scenario {
    std::vector<uint32_t>   shape; /* used entries of each SGL of chain 0 */
    std::vector<clone_step> steps;
};

inline clone_scenario random_scenario(uint32_t seed)
{
    std::mt19937 random(seed);
    const auto   below = [&](uint32_t limit) { return uint32_t(random() % limit); };

    clone_scenario made;
    made.shape.resize(1 + below(5));
    for (uint32_t &count : made.shape) {
        const uint32_t kind = below(4);
        count               = kind == 0 ? 0 : kind == 1 ? 64 : 1 + below(63);
    }
    for (uint32_t left = 1 + below(20); left != 0; --left) {
        const uint32_t refused = below(4) == 0 ? 1 + below(5) : 0;
        made.steps.push_back({clone_op(below(6)), below(8), refused});
    }
    return made;
}

inline std::string text_of_scenario(const clone_scenario &scenario)
{
    static const char *const names[] = {"clone", "clone with a wrong key", "copy", "take", "drop",
                                        "release"};
    std::string text = "shape {";
    for (const uint32_t count : scenario.shape)
        text += std::to_string(count) + ",";
    text += "} ops:";
    for (const clone_step &step : scenario.steps) {
        text += std::string(" ") + names[int(step.op)] + " " + std::to_string(step.chain);
        text += step.refused != 0 ? " without SGL " + std::to_string(step.refused) + ";" : ";";
    }
    return text;
}

/* Everything that is one step smaller: without one SGL, with fewer entries in one, without one
 * step, without one refusal. */
inline std::vector<clone_scenario> smaller_ones(const clone_scenario &scenario)
{
    std::vector<clone_scenario> smaller;
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        smaller.push_back(scenario);
        smaller.back().steps.erase(smaller.back().steps.begin() + long(i));
    }
    for (size_t i = 0; i < scenario.shape.size() && scenario.shape.size() > 1; ++i) {
        smaller.push_back(scenario);
        smaller.back().shape.erase(smaller.back().shape.begin() + long(i));
    }
    for (size_t i = 0; i < scenario.shape.size(); ++i) {
        for (const uint32_t less : {scenario.shape[i] / 2, scenario.shape[i] - 1}) {
            if (scenario.shape[i] == 0)
                continue;
            smaller.push_back(scenario);
            smaller.back().shape[i] = less;
        }
    }
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        if (scenario.steps[i].refused == 0)
            continue;
        smaller.push_back(scenario);
        smaller.back().steps[i].refused = 0;
    }
    return smaller;
}

/* The smallest scenario that can be reached from one that fails, each step of the way failing. */
inline clone_scenario shrink(clone_scenario failing,
                             const std::function<bool(const clone_scenario &)> &fails)
{
    for (bool found = true; found;) {
        found = false;
        for (const clone_scenario &candidate : smaller_ones(failing)) {
            if (fails(candidate)) {
                failing = candidate;
                found   = true;
                break;
            }
        }
    }
    return failing;
}
