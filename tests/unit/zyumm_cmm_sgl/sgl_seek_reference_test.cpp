/*
 * Lookups and counts against the plain walk, which takes the length of one entry after the other
 * off what is left, as the operations are described:
 *
 *     made-up chains    lengths of all kinds, also ones that a remainder of 32 bits wraps around;
 *                       SGLs without used entries; anything in the 4 bytes behind a length
 *     every offset      beside each boundary, the middle of entries, and both ends of 32 bits
 *
 * The chains are a function of a seed: a difference names the seed that shows it again.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "fake.h"

#include "chain_builder.h"

namespace
{

struct place {
    int32_t  status = -1;
    SGL     *sgl    = nullptr;
    uint32_t index  = 0;
    uint32_t offset = 0;

    bool operator==(const place &) const = default;
};

/* False when no used entry stands at the position or behind it. */
bool settle(SGL **sgl, uint32_t *index)
{
    while (*index == (*sgl)->entryNum) {
        if ((*sgl)->nextSgl == nullptr)
            return false;
        *sgl   = (*sgl)->nextSgl;
        *index = 0;
    }
    return true;
}

place walk_to(SGL *sgl, uint32_t offset, uint32_t measure)
{
    uint32_t index = 0;
    if (offset == 0)
        return {0, sgl, 0, 0};
    for (uint32_t left = offset; settle(&sgl, &index); ++index) {
        if (left == 0)
            return {0, sgl, index, 0};
        const uint32_t len = sgl->entries[index].len & measure;
        if (int32_t(left - len) < 0)
            return {0, sgl, index, left};
        left -= len;
    }
    return {};
}

uint32_t walk_count(SGL *sgl, uint32_t offset, uint32_t length)
{
    if (offset + length == 0)
        return sgl->entrySumInChain;
    place    at    = walk_to(sgl, offset, 0xFFFFFFFF);
    uint32_t left  = at.offset + length;
    uint32_t count = 0;
    if (at.status != 0 || int32_t(left) <= 0)
        return 0;
    for (; settle(&at.sgl, &at.index); ++at.index) {
        ++count;
        left -= at.sgl->entries[at.index].len;
        if (int32_t(left) <= 0)
            return count;
    }
    return 0;
}

place look_up(SGL *sgl, uint32_t offset, uint32_t measure)
{
    const auto find =
        measure == 0xFFFFFFFF ? getCurrentSglByOffset : getCurrentSglByOffsetIgnoreDif;
    place at;
    at.status = find(sgl, offset, &at.sgl, &at.index, &at.offset);
    return at;
}

/* SGLs alone; the memory that their entries name is never touched. */
class made_up_chain
{
  public:
    explicit made_up_chain(uint32_t seed) : random_(seed), sgls_(1 + draw(5))
    {
        const uint32_t kind = draw(4);
        for (size_t i = 0; i < sgls_.size(); ++i) {
            sgls_[i].nextSgl = i + 1 < sgls_.size() ? &sgls_[i + 1] : nullptr;
            fill(&sgls_[i], kind);
            sgls_[0].entrySumInChain = uint16_t(sgls_[0].entrySumInChain + sgls_[i].entryNum);
        }
    }

    SGL *head()
    {
        return sgls_.data();
    }

    uint32_t draw(uint32_t below)
    {
        return uint32_t(random_() % below);
    }

    /* Boundaries in both measures and what lies beside them, and the ends of 32 bits. */
    std::vector<uint32_t> offsets() const
    {
        std::vector<uint32_t> found = {0, 1, 0x7fffffff, 0x80000000, 0xffffffff};
        for (const uint32_t measure : {0xFFFFFFFFu, 0xFFFFFF00u}) {
            uint32_t sum = 0;
            for (const SGL &sgl : sgls_) {
                for (uint32_t i = 0; i < sgl.entryNum; ++i) {
                    const uint32_t len = sgl.entries[i].len & measure;
                    found.insert(found.end(), {sum - 1, sum, sum + 1, sum + len / 2});
                    sum += len;
                }
            }
            found.insert(found.end(), {sum - 1, sum, sum + 1});
        }
        return found;
    }

  private:
    std::minstd_rand random_;
    std::vector<SGL> sgls_;

    void fill(SGL *sgl, uint32_t kind)
    {
        static constexpr uint16_t COUNTS[] = {0, 0, 1, 2, 7, 8, 9, 15, 16, 17, 40, 63, 64, 64};
        std::memset(sgl->entries, 0x7b, sizeof sgl->entries);
        sgl->entryNum = COUNTS[draw(std::size(COUNTS))];
        for (uint32_t i = 0; i < sgl->entryNum; ++i)
            sgl->entries[i].len = length(kind);
    }

    uint32_t length(uint32_t kind)
    {
        static constexpr uint32_t AWKWARD[] = {0,          1,          255,        256,
                                               8320,       0x7fffffff, 0x80000000, 0x80000001,
                                               0xfffffff0, 0xffffffff, 0x40000000, 520};
        switch (kind) {
        case 0: /* pages */
            return 8320;
        case 1: /* sectors, and now and then nothing */
            return 520 * draw(17);
        case 2: /* what wraps a remainder, among what does not */
            return draw(10) == 0 ? AWKWARD[draw(std::size(AWKWARD))] : 520 * draw(17);
        default:
            return AWKWARD[draw(std::size(AWKWARD))];
        }
    }
};

class SglSeekReference : public testing::Test
{
  protected:
    void SetUp() override
    {
        fake_set_log_level(ZYLOG_FATAL);
    }
};

} // namespace

TEST_F(SglSeekReference, both_lookups_find_what_the_plain_walk_finds)
{
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        made_up_chain chain(seed);
        for (const uint32_t offset : chain.offsets()) {
            for (const uint32_t measure : {0xFFFFFFFFu, 0xFFFFFF00u}) {
                ASSERT_EQ(look_up(chain.head(), offset, measure),
                          walk_to(chain.head(), offset, measure))
                    << "seed " << seed << ", offset " << offset << ", measure " << measure;
            }
        }
    }
}

TEST_F(SglSeekReference, a_range_touches_as_many_entries_as_the_plain_walk_counts)
{
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        made_up_chain               chain(seed);
        const std::vector<uint32_t> offsets = chain.offsets();
        for (const uint32_t end : offsets) {
            const uint32_t offset = offsets[chain.draw(uint32_t(offsets.size()))];
            ASSERT_EQ(getValidSglPageNum(chain.head(), offset, end - offset),
                      walk_count(chain.head(), offset, end - offset))
                << "seed " << seed << ", offset " << offset << ", end " << end;
        }
    }
}

/* The reference itself, on a chain whose answers are plain to see. */
TEST_F(SglSeekReference, the_plain_walk_knows_boundaries_and_gaps)
{
    const test_chain chain = chain_of({{100, 0, 300}, {}, {520}});

    EXPECT_EQ(walk_to(chain.head(), 100, 0xFFFFFFFF), (place{0, chain.head(), 1, 0}));
    EXPECT_EQ(walk_to(chain.head(), 399, 0xFFFFFFFF), (place{0, chain.head(), 2, 299}));
    EXPECT_EQ(walk_to(chain.head(), 400, 0xFFFFFFFF), (place{0, chain.sgl(2), 0, 0}));
    EXPECT_EQ(walk_to(chain.head(), 920, 0xFFFFFFFF), place{});
    EXPECT_EQ(walk_to(chain.head(), 256, 0xFFFFFF00), (place{0, chain.sgl(2), 0, 0}));
    EXPECT_EQ(walk_count(chain.head(), 99, 302), 4u);
    EXPECT_EQ(walk_count(chain.head(), 99, 822), 0u);
}
