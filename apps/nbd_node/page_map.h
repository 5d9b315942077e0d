/*
 * One bit for each page of the device, a word a stripe.
 *
 * Threads: any; a range lies in one stripe, so each call is one atomic step. What a bit says is
 * held
 *          true by whoever holds the range.
 */
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "layout.h"

class page_map
{
public:
    /* All bits 0; before anybody else knows the map. */
    void resize(uint64_t pages)
    {
        words_ = std::vector<std::atomic<uint64_t>>((pages + STRIPE_PAGES - 1) / STRIPE_PAGES);
    }

    void add(page_range range) { word(range.first).fetch_or(mask_of(range)); }
    void remove(page_range range) { word(range.first).fetch_and(~mask_of(range)); }
    bool has(uint64_t page) const { return has_all({page, 1}); }
    bool has_all(page_range range) const
    {
        return (~word(range.first) & mask_of(range)) == 0;
    }
    bool has_none(page_range range) const { return (word(range.first) & mask_of(range)) == 0; }

private:
    static uint64_t mask_of(page_range range)
    {
        const uint64_t bits = range.count == 64 ? ~uint64_t(0) : (uint64_t(1) << range.count) - 1;
        return bits << range.first % STRIPE_PAGES;
    }
    std::atomic<uint64_t>       &word(uint64_t page) { return words_[page / STRIPE_PAGES]; }
    const std::atomic<uint64_t> &word(uint64_t page) const { return words_[page / STRIPE_PAGES]; }

    std::vector<std::atomic<uint64_t>> words_;
};
