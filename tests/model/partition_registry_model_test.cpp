/*
 * The registry of structure partitions against a table (partition_model.h): partitions on all ways
 * in, with and without call-backs and memory, their objects, usage and deletion, ids that nobody
 * has, and a registry that is full or nearly so.
 */
#include "model_check.h"

#include "both_registries.h"

namespace
{

/* ------------------------------------------------------------------ operations */

constexpr uint32_t OBJECTS[] = {1, 2, 4, 0}; /* 0 = as many as wanted */
constexpr uint64_t BLOCKS[] = {64, 4096, 40960};

const model::argument HOW = {"by", {"values", "reserve-and-values", "record"}};
const model::argument ODD_ID = {"id", {"0", "2048", "4294967295", "lowest-free", "reserved"}};

const model::alphabet LETTERS = {
    {"create",
     12,
     {HOW,
      {"objects", OBJECTS},
      {"call-backs", {"none", "init", "free", "both"}},
      {"flags", {"0", "0x10", "0x04", "0x02", "0x40", "0x20", "0x76"}}}},
    {"create-without-memory", 2, {HOW}},
    {"create-block", 4, {{"bytes", BLOCKS}, {"refused", {"-", "pool", "block"}}}},
    {"reserve", 2, {}},
    {"fill", 1, {{"leaving", 4}}},
    {"delete", 10, {{"which", 6}, {"as", {"structure", "id"}}}},
    {"delete-odd", 3, {ODD_ID}},
    {"alloc", 14, {{"which", 6}}},
    {"alloc-odd", 2, {ODD_ID}},
    {"free", 10, {{"which", 6}, {"object", 4}}},
    {"free-odd", 3, {ODD_ID}},
};

enum letter : uint32_t {
    CREATE,
    CREATE_WITHOUT_MEMORY,
    CREATE_BLOCK,
    RESERVE,
    FILL,
    DELETE,
    DELETE_ODD,
    ALLOC,
    ALLOC_ODD,
    FREE,
    FREE_ODD
};

/* ------------------------------------------------------------------ playing */

void play_objects(both_registries *both, const model::step &one)
{
    switch (one.op) {
    case ALLOC:
        return both->alloc(both->known_id(one.args[0]));
    case ALLOC_ODD:
        return both->alloc(both->odd_id(one.args[0]));
    case FREE:
        return both->free_known(both->known_id(one.args[0]), one.args[1]);
    case FREE_ODD:
        return both->free_foreign(both->odd_id(one.args[0]));
    }
}

void play_step(both_registries *both, const model::step &one)
{
    switch (one.op) {
    case CREATE:
        return both->create(way(one.args[0]), OBJECTS[one.args[1]], (one.args[2] & 1) != 0,
                            (one.args[2] & 2) != 0, FLAGS[one.args[3]]);
    case CREATE_WITHOUT_MEMORY:
        return both->create_without_memory(way(one.args[0]));
    case CREATE_BLOCK:
        return both->create_block(BLOCKS[one.args[0]], one.args[1] == 1, one.args[1] == 2);
    case RESERVE:
        return both->reserve();
    case FILL:
        return both->fill(one.args[0]);
    case DELETE:
        return both->remove(both->known_id(one.args[0]), one.args[1] == 1);
    case DELETE_ODD:
        return both->remove(both->odd_id(one.args[0]), false);
    default:
        return play_objects(both, one);
    }
}

std::string play(const model::sequence &steps, flaw wrong)
{
    both_registries both(wrong);
    for (const model::step &one : steps) {
        play_step(&both, one);
        const std::string found = both.difference();
        if (!found.empty())
            return found;
    }
    return "";
}

constexpr uint32_t LONGEST = 50;

class PartitionRegistryModel : public ::testing::Test
{
protected:
    void SetUp() override
    {
        enter_library();
        fake_set_log_level(ZYLOG_FATAL);
    }
};

model::sequence smallest_for(flaw wrong)
{
    return model::expect_found_out(
        LETTERS, LONGEST, [wrong](const model::sequence &steps) { return play(steps, wrong); });
}

} // namespace

TEST_F(PartitionRegistryModel, random_operations_leave_the_registry_as_the_model_has_it)
{
    model::expect_agreement(LETTERS, model::quick(300), LONGEST,
                            [](const model::sequence &steps) { return play(steps, flaw::NONE); });
}

TEST_F(PartitionRegistryModel, a_model_that_never_reuses_an_id_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::NEVER_REUSES_IDS);
    EXPECT_EQ(smallest.size(), 3u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()),
              "create by=values objects=1 call-backs=none flags=0");
}

TEST_F(PartitionRegistryModel, a_model_that_forgets_call_backs_with_the_partition_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::FORGETS_CALL_BACKS);
    EXPECT_EQ(smallest.size(), 2u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "delete which=0 as=structure");
}

TEST_F(PartitionRegistryModel, a_model_that_gives_the_id_of_a_lost_block_up_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::GIVES_UP_A_BLOCK_ID);
    EXPECT_EQ(smallest.size(), 1u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "create-block bytes=64 refused=block");
}
