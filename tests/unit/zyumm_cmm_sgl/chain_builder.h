/*
 * Chains for the SGL tests: plain SGL records over memory of their own, no pool involved.
 *
 *     test_chain chain = chain_of({{8320, 8320}, {}, {520}}); // the second SGL has no entries
 *
 * All memory of a chain starts as a pattern that differs from byte to byte. Entries behind the
 * used ones are traps: their memory is an address that nobody may touch, with a length that
 * anybody who adds it up will notice.
 */
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "zyumm_cmm_sgl.h"

using bytes = std::vector<uint8_t>;

/* The formatted text. */
__attribute__((format(printf, 1, 2))) inline std::string text_of(const char *format, ...)
{
    char    text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

/* `count` bytes that tell their place: neighbours differ, and so do places 251 bytes apart. */
inline bytes pattern(size_t count, uint32_t seed)
{
    bytes    made(count);
    uint32_t state = seed * 2654435761u + 1;
    for (uint8_t &byte : made) {
        state = state * 1664525u + 1013904223u;
        byte  = uint8_t(state >> 24);
    }
    return made;
}

class test_chain
{
  public:
    explicit test_chain(const std::vector<std::vector<uint32_t>> &lengths)
    {
        uint32_t seed = 1;
        for (const std::vector<uint32_t> &of_sgl : lengths) {
            SGL *sgl = add_sgl();
            for (const uint32_t len : of_sgl)
                add_entry(sgl, len, seed++);
        }
        for (const std::vector<uint32_t> &of_sgl : lengths)
            head()->entrySumInChain = uint16_t(head()->entrySumInChain + of_sgl.size());
    }

    SGL *head() const
    {
        return sgls_.front().get();
    }

    SGL *sgl(size_t number) const
    {
        return sgls_[number].get();
    }

    SGL_ENTRY *entry(size_t sgl_number, size_t index) const
    {
        return &sgls_[sgl_number]->entries[index];
    }

    /* The memory of an entry, as it is now. */
    bytes memory(size_t sgl_number, size_t index) const
    {
        const SGL_ENTRY *e = entry(sgl_number, index);
        return bytes(e->buf, e->buf + e->len);
    }

    /* Every byte of the chain in the full measure, front to back. */
    std::vector<uint8_t *> flat() const
    {
        return flat_in(0xFFFFFFFF, [](uint32_t at) { return at; });
    }

    /* Every data byte of the chain, front to back. */
    std::vector<uint8_t *> flat_data() const
    {
        return flat_in(0xFFFFFF00, [](uint32_t at) { return at / 512 * 520 + at % 512; });
    }

  private:
    std::vector<std::unique_ptr<SGL>>       sgls_;
    std::vector<std::unique_ptr<uint8_t[]>> blocks_;

    SGL *add_sgl()
    {
        sgls_.push_back(std::make_unique<SGL>());
        SGL *sgl = sgls_.back().get();
        for (SGL_ENTRY &unused : sgl->entries)
            unused = {reinterpret_cast<uint8_t *>(0xdead), nullptr, 0x7fffff00};
        if (sgls_.size() > 1)
            sgls_[sgls_.size() - 2]->nextSgl = sgl;
        return sgl;
    }

    void add_entry(SGL *sgl, uint32_t len, uint32_t seed)
    {
        const bytes content = pattern(len, seed);
        blocks_.push_back(std::make_unique<uint8_t[]>(len));
        std::copy(content.begin(), content.end(), blocks_.back().get());
        sgl->entries[sgl->entryNum] = {blocks_.back().get(), nullptr, len};
        sgl->entryNum++;
    }

    template <typename Place>
    std::vector<uint8_t *> flat_in(uint32_t mask, Place place) const
    {
        std::vector<uint8_t *> all;
        for (const auto &sgl : sgls_)
            for (uint32_t i = 0; i < sgl->entryNum; ++i)
                for (uint32_t at = 0; at < (sgl->entries[i].len & mask); ++at)
                    all.push_back(sgl->entries[i].buf + place(at));
        return all;
    }
};

/* One SGL for each list of entry lengths. */
inline test_chain chain_of(const std::vector<std::vector<uint32_t>> &lengths)
{
    return test_chain(lengths);
}

/* `counts` full pages in each SGL. */
inline test_chain page_chain(const std::vector<size_t> &counts)
{
    std::vector<std::vector<uint32_t>> lengths;
    for (const size_t count : counts)
        lengths.emplace_back(count, 8320u);
    return test_chain(lengths);
}
