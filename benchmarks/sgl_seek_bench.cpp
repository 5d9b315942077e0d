/*
 * Finding the last byte of a chain of 64, 1,024 and 65,535 entries. The limit is the plain walk:
 * entry after entry, its length taken off what is left.
 *
 * Both walk the same chain, whose SGLs lie 1,584 bytes apart as the pool places them. No page
 * stands behind the entries: a lookup never looks there.
 */
#include "harness.h"

#include <vector>

namespace bench
{

/* A chain of whole pages in one piece of memory. */
class fixed_chain
{
public:
    explicit fixed_chain(uint32_t entries)
        : memory_((entries + SGL_MAX_ENTRY_NUM - 1) / SGL_MAX_ENTRY_NUM)
    {
        for (size_t i = 0; i + 1 < memory_.size(); ++i)
            memory_[i].sgl.nextSgl = &memory_[i + 1].sgl;
        for (uint32_t i = 0; i < entries; ++i) {
            SGL *sgl = &memory_[i / SGL_MAX_ENTRY_NUM].sgl;
            sgl->entries[sgl->entryNum++].len = PAGE_SIZE_WITH_DIF;
        }
        head()->entrySumInChain = uint16_t(entries);
        last_byte_ = entries * PAGE_SIZE_WITH_DIF - 1;
    }
    SGL *head()
    {
        return &memory_[0].sgl;
    }
    uint32_t last_byte() const
    {
        return last_byte_;
    }

private:
    union pool_object {
        SGL sgl;
        uint8_t room[SGL_OBJECT_SIZE];
    };

    std::vector<pool_object> memory_;
    uint32_t last_byte_;
};

static void plain_walk(SGL *sgl, uint32_t offset, SGL **found, uint32_t *index, uint32_t *in_entry)
{
    int32_t left = int32_t(offset);
    for (SGL *cur = sgl; cur != nullptr; cur = cur->nextSgl) {
        for (uint32_t i = 0; i < cur->entryNum; ++i) {
            const int32_t len = int32_t(cur->entries[i].len);
            if (left < len) {
                *found = cur;
                *index = i;
                *in_entry = uint32_t(left);
                return;
            }
            left -= len;
        }
    }
}

struct walk_limit {
    static constexpr char NAME[] = "limit";
    __attribute__((noinline)) static void find(SGL *sgl, uint32_t offset, SGL **found,
                                               uint32_t *index, uint32_t *in_entry)
    {
        plain_walk(sgl, offset, found, index, in_entry);
    }
};

template <class L>
struct our_lookup {
    static constexpr const char *NAME = L::NAME;
    static void find(SGL *sgl, uint32_t offset, SGL **found, uint32_t *index, uint32_t *in_entry)
    {
        if (L::getCurrentSglByOffset(sgl, offset, found, index, in_entry) != 0)
            fail("a byte of a chain was not found");
    }
};

template <class LOOKUP, uint32_t ENTRIES>
static void lookup_last(state &run)
{
    fixed_chain chain(ENTRIES);
    SGL *found = nullptr;
    uint32_t index = 0;
    uint32_t in_entry = 0;
    for (auto _ : run) {
        LOOKUP::find(chain.head(), chain.last_byte(), &found, &index, &in_entry);
        benchmark::DoNotOptimize(found);
        benchmark::ClobberMemory();
    }
    if (index != (ENTRIES - 1) % SGL_MAX_ENTRY_NUM || in_entry != PAGE_SIZE_WITH_DIF - 1)
        fail("a lookup found the wrong byte");
}

void add_sgl_seek(void)
{
    using lookups = sources<walk_limit, our_lookup<ours_static>, our_lookup<ours_shared>>;
    lookups::each([]<class LOOKUP>(std::type_identity<LOOKUP>) {
        add("lookup_64", LOOKUP::NAME, 1, lookup_last<LOOKUP, 64>);
        add("lookup_1024", LOOKUP::NAME, 1, lookup_last<LOOKUP, 1024>);
        add("lookup_65535", LOOKUP::NAME, 1, lookup_last<LOOKUP, 65535>);
    });
}

} // namespace bench
