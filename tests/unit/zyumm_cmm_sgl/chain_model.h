/*
 * Random chains and the flat model that operations on them are compared with: every byte of a chain
 * front to back, with the place where it must be found.
 */
#pragma once

#include <random>

#include "chain_builder.h"

using chain_shape = std::vector<std::vector<uint32_t>>;

/* SGLs of few entries, empty ones often, and entries of 1 to `max_sectors` sectors. */
inline chain_shape random_shape(std::mt19937 &random, uint32_t max_sectors)
{
    chain_shape lengths(1 + random() % 6);
    for (std::vector<uint32_t> &of_sgl : lengths) {
        of_sgl.resize(random() % 3 == 0 ? 0 : 1 + random() % 5);
        for (uint32_t &len : of_sgl)
            len = uint32_t(520 * (1 + random() % max_sectors));
    }
    return lengths;
}

struct model_byte {
    SGL     *sgl;
    uint32_t index;
    uint32_t offset;
};

/* An entry of length n has as many bytes as n has under the mask. */
inline std::vector<model_byte> model_of(const test_chain &chain, const chain_shape &lengths,
                                        uint32_t mask)
{
    std::vector<model_byte> model;
    for (size_t s = 0; s < lengths.size(); ++s)
        for (uint32_t i = 0; i < lengths[s].size(); ++i)
            for (uint32_t at = 0; at < (lengths[s][i] & mask); ++at)
                model.push_back({chain.sgl(s), i, at});
    return model;
}
