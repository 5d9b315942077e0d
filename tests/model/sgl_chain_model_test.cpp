/*
 * Chains of scatter-gather lists against rows of bytes (flat_chain_model.h): built with gaps and
 * empty SGLs, looked up, counted, walked, copied in and out and from one to the other in both
 * measures, cloned with references and borrowed without, while the SGL pool refuses now and then.
 */
#include "model_check.h"

#include "both_chains.h"

namespace
{

/* ------------------------------------------------------------------ operations */

constexpr uint32_t ENTRIES[] = {0, 1, 2, 3, 4, 5, 6, 20, 63, 64};
constexpr uint32_t SECTORS[] = {1, 2, 3, 4, 8, 15, 16}; /* at most 2 in SGLs of 20 and more */
constexpr int32_t BESIDE[] = {0, 1, 256, 511, 512, 513, 519, 520, -1};
constexpr int32_t ADVANCES[] = {0, 1, 2, 5, 64, 100, INT32_MAX, -1};
constexpr uint32_t LENGTHS[] = {0, 1, 8, 100, 512, 513, 520, 1024, 4099, 8192, 8320, 20000};
constexpr uint32_t THE_REST = uint32_t(std::size(LENGTHS)); /* behind the lengths above */
constexpr uint32_t ONE_TOO_MANY = THE_REST + 1;

const model::argument CHAIN = {"chain", 8};
const model::argument COUNT = {"entries", ENTRIES};
const model::argument SECTOR_COUNT = {"sectors", SECTORS};
const model::argument MEASURE = {"measure", {"full", "data"}};
const model::argument ENTRY = {"entry", 12};
const model::argument PLUS = {"plus", BESIDE};
const model::argument LENGTH = [] {
    model::argument made = {"length", LENGTHS};
    made.words.insert(made.words.end(), {"the-rest", "the-rest+1"});
    made.values += 2;
    return made;
}();
const model::argument REFUSED = {"refused-sgl", {"none", "1st", "2nd", "3rd", "4th", "5th"}};

const model::alphabet LETTERS = {
    {"make", 6, {COUNT, SECTOR_COUNT}},
    {"extend", 10, {CHAIN, COUNT, SECTOR_COUNT}},
    {"tag", 2, {CHAIN, {"tag", 3}}},
    {"look-up", 8, {CHAIN, MEASURE, ENTRY, PLUS}},
    {"look-all-up", 1, {CHAIN, MEASURE}},
    {"count", 6, {CHAIN, ENTRY, PLUS, LENGTH}},
    {"last", 2, {CHAIN}},
    {"advance", 4, {CHAIN, ENTRY, {"by", ADVANCES}}},
    {"walk", 2, {CHAIN}},
    {"copy-in", 6, {CHAIN, MEASURE, ENTRY, PLUS, LENGTH}},
    {"copy-out", 5, {CHAIN, MEASURE, ENTRY, PLUS, LENGTH}},
    {"copy-across", 4, {CHAIN, MEASURE, {"to", 8}, MEASURE, ENTRY, LENGTH}},
    {"clone", 5, {CHAIN, REFUSED}},
    {"clone-with-wrong-key", 1, {CHAIN}},
    {"borrow", 5, {CHAIN, REFUSED}},
    {"take", 3, {CHAIN}},
    {"drop", 3, {CHAIN}},
    {"release", 4, {CHAIN, {"by", {"drops", "free"}}}},
};

enum letter : uint32_t {
    MAKE,
    EXTEND,
    TAG,
    LOOK_UP,
    LOOK_ALL_UP,
    COUNT_RANGE,
    LAST,
    ADVANCE,
    WALK,
    COPY_IN,
    COPY_OUT,
    COPY_ACROSS,
    CLONE,
    CLONE_WITH_WRONG_KEY,
    BORROW,
    TAKE,
    DROP,
    RELEASE
};

/* ------------------------------------------------------------------ playing */

/* So many bytes beside the begin of an entry, or of the end of the chain. */
uint32_t offset_at(const both_chains &both, size_t at, measure by, uint32_t entry, uint32_t plus)
{
    const std::vector<stretch> row = both.row(at, by);
    entry %= uint32_t(row.size() + 1);
    const uint32_t begin = entry < row.size() ? row[entry].begin : both.total(at, by);
    const int64_t offset = int64_t(begin) + BESIDE[plus];
    return offset < 0 ? 0 : uint32_t(offset);
}

uint32_t length_at(const both_chains &both, size_t at, measure by, uint32_t offset, uint32_t length)
{
    if (length < THE_REST)
        return LENGTHS[length];
    const uint32_t total = both.total(at, by);
    return (offset < total ? total - offset : 0) + (length == ONE_TOO_MANY ? 1 : 0);
}

/* Long SGLs get short entries, so that a case does not drown in bytes. */
uint32_t sectors_of(uint32_t entries, uint32_t sectors)
{
    return entries >= 20 ? std::min(SECTORS[sectors], 2u) : SECTORS[sectors];
}

void play_building(both_chains *both, size_t at, const model::step &one)
{
    switch (one.op) {
    case EXTEND:
        both->extend(at, ENTRIES[one.args[1]], sectors_of(ENTRIES[one.args[1]], one.args[2]));
        break;
    case TAG:
        both->tag(at, one.args[1]);
        break;
    }
}

void play_finding(both_chains *both, size_t at, const model::step &one)
{
    const measure by = one.op <= LOOK_ALL_UP ? measure(one.args[1]) : measure::FULL;
    uint32_t offset = 0;
    switch (one.op) {
    case LOOK_UP:
        both->look_up(at, by, offset_at(*both, at, by, one.args[2], one.args[3]));
        break;
    case LOOK_ALL_UP:
        both->look_all_up(at, by);
        break;
    case COUNT_RANGE:
        offset = offset_at(*both, at, by, one.args[1], one.args[2]);
        both->count_range(at, offset, length_at(*both, at, by, offset, one.args[3]));
        break;
    case LAST:
        both->last(at);
        break;
    case ADVANCE:
        both->advance(at, one.args[1], ADVANCES[one.args[2]]);
        break;
    case WALK:
        both->walk(at);
        break;
    }
}

void play_copying(both_chains *both, size_t at, const model::step &one)
{
    const measure by = measure(one.args[1]);
    if (one.op == COPY_ACROSS) {
        const uint32_t offset = offset_at(*both, at, by, one.args[4], 0);
        both->copy_across(at, by, one.args[2] % both->count(), measure(one.args[3]), offset,
                          length_at(*both, at, by, offset, one.args[5]));
        return;
    }
    const uint32_t offset = offset_at(*both, at, by, one.args[2], one.args[3]);
    const uint32_t length = length_at(*both, at, by, offset, one.args[4]);
    if (one.op == COPY_IN)
        both->copy_in(at, by, offset, length);
    else
        both->copy_out(at, by, offset, length);
}

void play_sharing(both_chains *both, size_t at, const model::step &one)
{
    switch (one.op) {
    case CLONE:
        both->clone(at, one.args[1]);
        break;
    case CLONE_WITH_WRONG_KEY:
        both->clone_with_wrong_key(at);
        break;
    case BORROW:
        both->borrow(at, one.args[1]);
        break;
    case TAKE:
        both->take(at);
        break;
    case DROP:
        both->drop(at);
        break;
    case RELEASE:
        both->release(at, one.args[1] == 1);
        break;
    }
}

void play_step(both_chains *both, const model::step &one)
{
    if (one.op == MAKE)
        both->make(ENTRIES[one.args[0]], sectors_of(ENTRIES[one.args[0]], one.args[1]));
    if (one.op == MAKE || both->count() == 0)
        return;

    const size_t at = one.args[0] % both->count();
    if (one.op <= TAG)
        play_building(both, at, one);
    else if (one.op <= WALK)
        play_finding(both, at, one);
    else if (one.op <= COPY_ACROSS)
        play_copying(both, at, one);
    else
        play_sharing(both, at, one);
}

std::string play(const model::sequence &steps, flaw wrong)
{
    both_chains both(wrong);
    std::string found;
    for (const model::step &one : steps) {
        play_step(&both, one);
        found = both.difference();
        if (!found.empty())
            break;
    }
    const std::string at_end = both.end();
    return found.empty() ? at_end : found;
}

constexpr uint32_t LONGEST = 40;

class SglChainModel : public ::testing::Test
{
protected:
    void SetUp() override
    {
        start_page_chains(1000000, 10000000);
        fake_set_log_level(ZYLOG_FATAL);
    }
};

model::sequence smallest_for(flaw wrong)
{
    return model::expect_found_out(
        LETTERS, LONGEST, [wrong](const model::sequence &steps) { return play(steps, wrong); });
}

} // namespace

TEST_F(SglChainModel, random_operations_leave_chains_as_the_model_has_them)
{
    model::expect_agreement(LETTERS, model::quick(600), LONGEST,
                            [](const model::sequence &steps) { return play(steps, flaw::NONE); });
}

/* ------------------------------------------------------------------ the comparison itself */

TEST_F(SglChainModel, the_comparison_notices_a_reference_too_many)
{
    both_chains both(flaw::NONE);
    both.make(3, 1);
    ASSERT_EQ(both.difference(), "");

    ++both.head(0)->entries[1].pageCtrl->ref;

    EXPECT_EQ(both.difference(), "references of page 1, the model has 1");
}

TEST_F(SglChainModel, the_comparison_notices_an_entry_that_differs)
{
    both_chains both(flaw::NONE);
    both.make(2, 1);
    both.clone(0, 0);
    ASSERT_EQ(both.difference(), "");

    ++both.head(1)->entries[1].len;

    EXPECT_EQ(both.difference(), "chain 1: entry 1");
}

TEST_F(SglChainModel, the_comparison_notices_a_lost_sgl)
{
    both_chains both(flaw::NONE);
    both.make(2, 1);
    SGL *lost = nullptr;
    allocOneSgl(&lost, 77, "the test", 1);

    EXPECT_EQ(both.difference(), "SGLs out");
    freeSglChain(lost, 77, "the test", 2);
}

TEST_F(SglChainModel, the_comparison_notices_a_byte_that_differs)
{
    both_chains both(flaw::NONE);
    both.make(2, 1);

    both.head(0)->entries[1].buf[519] ^= 1;

    EXPECT_EQ(both.end(), "not so: the bytes of a page");
}

TEST_F(SglChainModel, a_model_whose_clones_keep_gaps_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::CLONES_KEEP_GAPS);
    EXPECT_EQ(smallest.size(), 3u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "clone chain=0 refused-sgl=none");
}

TEST_F(SglChainModel, a_model_whose_data_covers_integrity_bytes_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::DATA_COVERS_INTEGRITY_BYTES);
    EXPECT_LE(smallest.size(), 3u);
    const std::string last = model::text_of(LETTERS, smallest.back());
    EXPECT_NE(last.find("measure=data entry=0 plus=0 length=513"), std::string::npos) << last;
}

TEST_F(SglChainModel, a_model_in_which_borrowing_holds_pages_is_found_out)
{
    const model::sequence smallest = smallest_for(flaw::BORROWING_HOLDS);
    EXPECT_EQ(smallest.size(), 2u);
    EXPECT_EQ(model::text_of(LETTERS, smallest.back()), "borrow chain=0 refused-sgl=none");
}
