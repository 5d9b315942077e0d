/*
 * What the agreement is worth: the generated configurations bring up all that an explanation knows.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "config_generator.h"
#include "told.h"

TEST(ExplainGenerator, its_configurations_bring_up_every_finding)
{
    std::set<std::string> codes;
    std::map<int, int> results;

    for (uint64_t range = 0; range < 8; ++range) {
        for (uint64_t i = 0; i < 25; ++i) {
            const generated_config config = generate_config(range * 1000 + i);
            node_files files(config.document);
            explain_request request = files.request(config.process);
            request.memory = config.memory.value_or(268435456);
            request.numa_nodes = config.numa_nodes;
            request.numa_mask = config.numa_mask;
            const description told = describe(request);
            ++results[told.result];
            for (const finding &found : told.findings)
                codes.insert(found.code);
        }
    }
    EXPECT_GE(results[EXPLAIN_CLEAN], 1);
    EXPECT_GE(results[EXPLAIN_WARNINGS], 50);
    EXPECT_GE(results[EXPLAIN_UNUSABLE], 50);
    EXPECT_THAT(codes,
                testing::ElementsAre(
                    "default_entry", "element_refused", "empty_entry", "first_child_not_seen",
                    "list_cut", "list_not_ascending", "memory_exceeded", "min_above_max",
                    "no_document", "no_entry", "no_section", "no_size", "numa_makes_zero",
                    "number_ignored", "request_slab_empty", "section_never_matches",
                    "sgl_pool_too_small", "size_never_measured", "size_not_positive",
                    "size_truncated", "size_without_section", "start_fails", "umm_of_other_section",
                    "value_adjusted", "value_beyond_32_bits"));
}
