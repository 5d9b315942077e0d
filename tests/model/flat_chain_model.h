/*
 * Chains as what they stand for: a row of bytes, cut into entries, the entries laid into SGLs.
 *
 *     SGLs      [ 0 1 ]      [ ]    [ 2 ]
 *     entries   |--0--|--1--|       |----2----|
 *     bytes     0 ...................... total    in each of the two measures
 *
 * Pages are numbered, carry their bytes and count their holders. Several chains may name the same
 * page: clones that hold it, and copies that only borrow it.
 *
 * Nothing here walks a chain: an offset is found among the entries' first bytes, and bytes are
 * moved one by one.
 *
 * A flaw makes the model wrong on purpose, to see that the comparison finds it.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

enum class flaw { NONE, CLONES_KEEP_GAPS, DATA_COVERS_INTEGRITY_BYTES, BORROWING_HOLDS };

enum class measure : uint32_t { FULL, DATA };

struct model_page {
    int32_t refs;
    std::vector<uint8_t> bytes;
};

struct model_entry {
    size_t page;
    uint32_t at; /* first byte in the page */
    uint32_t len;
};

struct model_sgl {
    uint32_t flag;
    std::vector<model_entry> entries;
};

struct model_chain {
    bool owns; /* holds a reference on each page; else it borrows them */
    uint64_t tag;
    std::vector<model_sgl> sgls;
    int32_t taken; /* references taken by walks, for each entry */
};

/* One entry's stretch of a chain's bytes. */
struct stretch {
    size_t sgl;
    uint32_t index;
    uint32_t begin, end;
    model_entry entry;
};

struct place {
    size_t sgl;
    uint32_t index, offset;

    bool operator==(const place &) const = default;
};

class flat_model
{
public:
    explicit flat_model(flaw wrong) : wrong_(wrong)
    {
    }

    std::vector<model_page> pages;
    std::vector<model_chain> chains;

    static uint32_t bytes_of(const model_entry &entry, measure by)
    {
        return by == measure::FULL ? entry.len : entry.len / 520 * 512;
    }

    static std::vector<stretch> row(const model_chain &chain, measure by)
    {
        std::vector<stretch> all;
        uint32_t at = 0;
        for (size_t s = 0; s < chain.sgls.size(); ++s) {
            for (const model_entry &entry : chain.sgls[s].entries) {
                const uint32_t end = at + bytes_of(entry, by);
                all.push_back({s, uint32_t(&entry - chain.sgls[s].entries.data()), at, end, entry});
                at = end;
            }
        }
        return all;
    }

    static uint32_t total(const std::vector<stretch> &row)
    {
        return row.empty() ? 0 : row.back().end;
    }

    static std::optional<place> find(const std::vector<stretch> &row, uint32_t offset)
    {
        if (offset == 0)
            return place{0, 0, 0}; /* whatever the first SGL holds */
        for (const stretch &each : row) {
            if (offset < each.end)
                return place{each.sgl, each.index, offset - each.begin};
        }
        return std::nullopt;
    }

    /* Entries touched from the first byte of the one that holds `offset`. */
    static uint32_t touched(const std::vector<stretch> &row, uint32_t offset, uint32_t length)
    {
        const uint32_t end = offset + length;
        if (end == 0)
            return uint32_t(row.size());
        if (end > total(row))
            return 0;
        uint32_t count = 0;
        for (const stretch &each : row)
            count += each.end > offset && each.begin < end ? 1 : 0;
        return count;
    }

    /* Calls `visit` with each byte from `offset` on, `length` of them or as many as there are;
     * answers how many there were. */
    template <typename Visit>
    uint32_t each_byte(const std::vector<stretch> &row, measure by, uint32_t offset,
                       uint32_t length, Visit visit)
    {
        uint32_t done = 0;
        for (const stretch &each : row) {
            for (uint32_t at = offset + done; done < length && at < each.end; ++at)
                visit(byte_in(each, by, at), done++);
        }
        return done;
    }

    void add_refs(const model_chain &chain, int32_t count)
    {
        for (const model_sgl &sgl : chain.sgls) {
            for (const model_entry &entry : sgl.entries)
                pages[entry.page].refs += count;
        }
    }

    /* What cloneSgl makes: 64 entries an SGL, each with the flag of its last entry's SGL. */
    model_chain packed(const model_chain &source) const
    {
        model_chain clone = {true, 0, {}, 0};
        if (wrong_ == flaw::CLONES_KEEP_GAPS && !row(source, measure::FULL).empty())
            clone.sgls = source.sgls;
        else
            pack(source, &clone);
        return clone;
    }

    model_chain borrowed(const model_chain &source)
    {
        if (wrong_ == flaw::BORROWING_HOLDS)
            add_refs(source, 1);
        return {false, source.tag, source.sgls, 0};
    }

private:
    flaw wrong_;

    uint8_t *byte_in(const stretch &within, measure by, uint32_t offset)
    {
        const bool skips = by == measure::DATA && wrong_ != flaw::DATA_COVERS_INTEGRITY_BYTES;
        const uint32_t at = offset - within.begin;
        const uint32_t in_memory = skips ? at / 512 * 520 + at % 512 : at;
        return &pages[within.entry.page].bytes[within.entry.at + in_memory];
    }

    static void pack(const model_chain &source, model_chain *clone)
    {
        for (const model_sgl &sgl : source.sgls) {
            for (const model_entry &entry : sgl.entries) {
                if (clone->sgls.empty() || clone->sgls.back().entries.size() == 64)
                    clone->sgls.push_back({0, {}});
                clone->sgls.back().entries.push_back(entry);
                clone->sgls.back().flag = sgl.flag;
            }
        }
    }
};
