/*
 * Configurations of all kinds, good and broken, each made from its number alone.
 *
 * A document is built from the parts that a document has; each part is now and then one of those
 * that bite: sizes out of order, an element without white space before it, numbers that are none or
 * too large, sections and entries that are missing, doubled or broken; in every second document
 * seldom, so that there are good ones too. Every third document is cut,
 * or loses, repeats or changes a piece of itself, wherever that falls.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct generated_config {
    std::string document;
    std::string process;
    std::optional<uint64_t> memory;    /* none: the ini files are asked */
    std::optional<std::string> cgroup; /* content of the ini files */
    std::optional<std::string> storage;
    uint32_t numa_nodes;
    uint64_t numa_mask;
};

generated_config generate_config(uint64_t number);
