/*
 * Real chains and the flat model of them, side by side. Each operation of a sequence is done on
 * both, its answers are compared at once, and difference() compares what is there afterwards:
 * shape, counts, flags, tags, entries and references of all chains, objects out of both pools, and
 * the bytes of the pages that were written to.
 */
#pragma once

#include "flat_chain_model.h"

#include "unit/zyumm_cmm_sgl/chain_builder.h"
#include "unit/zyumm_cmm_sgl/page_chain.h"

class both_chains
{
public:
    explicit both_chains(flaw wrong)
        : model_(wrong), sgls_before_(sgls_out()), pages_before_(pages_out())
    {
        fake_forget_calls();
    }

    size_t count() const
    {
        return model_.chains.size();
    }

    SGL *head(size_t at) const
    {
        return real_[at];
    }

    /* ---- building */

    void make(uint32_t entries, uint32_t sectors)
    {
        if (count() == MOST_CHAINS || !has_room(entries))
            return;
        SGL *sgl = nullptr;
        allocOneSgl(&sgl, OWNER_ID, "the builder", 1);
        model_.chains.push_back({true, 0, {}, 0});
        real_.push_back(sgl);
        fill(&model_.chains.back(), sgl, sgl, entries, sectors);
    }

    /* One SGL more at the end; only who holds the pages may do that. */
    void extend(size_t at, uint32_t entries, uint32_t sectors)
    {
        if (!model_.chains[at].owns || model_.chains[at].taken != 0 || !has_room(entries))
            return;
        SGL *last = real_[at];
        while (last->nextSgl != nullptr)
            last = last->nextSgl;
        allocOneSgl(&last->nextSgl, OWNER_ID, "the builder", 2);
        fill(&model_.chains[at], real_[at], last->nextSgl, entries, sectors);
    }

    void tag(size_t at, uint64_t value)
    {
        real_[at]->userTag = value;
        model_.chains[at].tag = value;
    }

    /* ---- finding */

    void look_up(size_t at, measure by, uint32_t offset)
    {
        const auto find =
            by == measure::FULL ? getCurrentSglByOffset : getCurrentSglByOffsetIgnoreDif;
        SGL *sgl = UNTOUCHED;
        uint32_t index = 77, inside = 78;
        const int32_t status = find(real_[at], offset, &sgl, &index, &inside);
        const std::optional<place> expected = flat_model::find(row(at, by), offset);
        expect(status == (expected ? 0 : -1), "what a lookup answers");
        if (expected)
            expect(place_of(at, sgl, index, inside) == *expected, "where an offset is found");
        else
            expect(sgl == UNTOUCHED && index == 77 && inside == 78, "nothing found, nothing said");
    }

    /* Every offset and the first beyond, of a chain that is not too long for that. */
    void look_all_up(size_t at, measure by)
    {
        const uint32_t bytes_in_chain = std::min(total(at, by), 4000u);
        for (uint32_t offset = 0; offset <= bytes_in_chain; ++offset)
            look_up(at, by, offset);
    }

    void count_range(size_t at, uint32_t offset, uint32_t length)
    {
        expect(getValidSglPageNum(real_[at], offset, length) ==
                   flat_model::touched(row(at, measure::FULL), offset, length),
               "how many entries a range touches");
    }

    void last(size_t at)
    {
        const std::vector<stretch> all = row(at, measure::FULL);
        SGL *sgl = UNTOUCHED;
        uint32_t index = 77;
        getLastSgl(real_[at], &sgl, &index);
        expect_entry(at, all, all.size() - 1, sgl, index, "the last entry");
    }

    void advance(size_t at, size_t from, int32_t by)
    {
        const std::vector<stretch> all = row(at, measure::FULL);
        if (all.empty())
            return;
        from %= all.size();
        SGL *sgl = sgl_at(at, all[from].sgl);
        uint32_t index = all[from].index;
        sglAndEntryOffsetPages(&sgl, &index, by);
        expect_entry(at, all, from + (by > 0 ? size_t(by) : 0), sgl, index, "an advanced position");
    }

    void walk(size_t at)
    {
        std::vector<page_ctrl *> expected;
        for (const stretch &each : row(at, measure::FULL))
            expected.push_back(real_pages_[each.entry.page]);
        walked().clear();
        const int32_t status = traversePageInSgl(real_[at], note_page, 5, "the walker");
        expect(status == 0 && walked() == expected, "the pages of a walk");
    }

    /* ---- moving bytes */

    void copy_in(size_t at, measure by, uint32_t offset, uint32_t length)
    {
        const bytes sent = pattern(length + 1, ++patterns_);
        const auto copy =
            by == measure::FULL ? copyDataFromBufferToSgl : copyDataFromBufferToSglIgnoreDif;
        const int32_t status = copy(real_[at], offset, sent.data(), length);
        const uint32_t moved = model_.each_byte(
            row(at, by), by, offset, length, [&](uint8_t *byte, uint32_t n) { *byte = sent[n]; });
        expect_moved(at, by, offset, length, status, moved);
        expect_bytes(at);
    }

    bytes copy_out(size_t at, measure by, uint32_t offset, uint32_t length)
    {
        bytes received(length + 8, 0xEE);
        bytes expected = received;
        const auto copy =
            by == measure::FULL ? copyDataFromSglToBuffer : copyDataFromSglToBufferIgnoreDif;
        const int32_t status = copy(real_[at], offset, received.data(), length);
        const uint32_t moved =
            model_.each_byte(row(at, by), by, offset, length,
                             [&](const uint8_t *byte, uint32_t n) { expected[n] = *byte; });
        expect_moved(at, by, offset, length, status, moved);
        expect(received == expected, "the bytes that were read");
        return received;
    }

    /* From chain to chain by way of a buffer. */
    void copy_across(size_t from, measure from_by, size_t to, measure to_by, uint32_t offset,
                     uint32_t length)
    {
        const bytes carried = copy_out(from, from_by, offset, length);
        const auto copy =
            to_by == measure::FULL ? copyDataFromBufferToSgl : copyDataFromBufferToSglIgnoreDif;
        const int32_t status = copy(real_[to], offset, carried.data(), length);
        const uint32_t moved =
            model_.each_byte(row(to, to_by), to_by, offset, length,
                             [&](uint8_t *byte, uint32_t n) { *byte = carried[n]; });
        expect_moved(to, to_by, offset, length, status, moved);
        expect_bytes(to);
    }

    /* ---- sharing; the n-th SGL asked for is refused, 0 = none */

    void clone(size_t at, uint32_t refused)
    {
        const model_chain clone = model_.packed(model_.chains[at]);
        const bool made = !clone.sgls.empty() && (refused == 0 || refused > clone.sgls.size());
        if (count() == MOST_CHAINS)
            return;
        SGL *real = UNTOUCHED;
        refuse_sgl(refused);
        cloneSgl(real_[at], model_.chains[at].tag, &real, OWNER_ID, "the cloner", 3);
        fake_no_faults();
        expect((real != nullptr) == made, "a clone exists exactly when there were SGLs for it");
        if (real == nullptr)
            return;
        model_.add_refs(clone, 1);
        model_.chains.push_back(clone);
        real_.push_back(real);
    }

    void clone_with_wrong_key(size_t at)
    {
        SGL *real = UNTOUCHED;
        cloneSgl(real_[at], model_.chains[at].tag + 1, &real, OWNER_ID, "the cloner", 4);
        expect(real == nullptr, "no clone under a wrong key");
    }

    void borrow(size_t at, uint32_t refused)
    {
        const bool made = refused == 0 || refused > model_.chains[at].sgls.size();
        if (count() == MOST_CHAINS)
            return;
        SGL *real = UNTOUCHED;
        refuse_sgl(refused);
        const int32_t status = cloneSglChain(real_[at], &real);
        fake_no_faults();
        expect(status == (made ? 0 : -1), "a copy succeeds exactly when there were SGLs for it");
        expect((real != nullptr) == made, "a copy exists exactly when it succeeded");
        if (real == nullptr)
            return;
        const model_chain copy = model_.borrowed(model_.chains[at]);
        model_.chains.push_back(copy);
        real_.push_back(real);
    }

    void take(size_t at)
    {
        expect(incPageReferenceBySgl(real_[at], OWNER_ID, "the taker") == 0, "taking succeeds");
        model_.add_refs(model_.chains[at], 1);
        ++model_.chains[at].taken;
    }

    void drop(size_t at)
    {
        if (model_.chains[at].taken == 0)
            return;
        expect(decPageReferenceBySgl(real_[at], OWNER_ID, "the taker") == 0, "dropping succeeds");
        model_.add_refs(model_.chains[at], -1);
        --model_.chains[at].taken;
    }

    /* Whoever borrows pages of the chain goes first. */
    void release(size_t at, bool by_free)
    {
        const model_chain chain = model_.chains[at];
        SGL *const head = real_[at];
        for (size_t other = count(); chain.owns && other-- > 0;) {
            if (!model_.chains[other].owns && share_a_page(model_.chains[other], chain))
                release_one(other, false);
        }
        release_one(size_t(std::find(real_.begin(), real_.end(), head) - real_.begin()), by_free);
    }

    /* ---- comparison */

    /* What is not as the model has it; empty when all is well. */
    std::string difference()
    {
        size_t sgls = 0;
        for (size_t at = 0; at < count(); ++at) {
            sgls += model_.chains[at].sgls.size();
            const std::string found = chain_difference(at);
            if (!found.empty())
                return "chain " + std::to_string(at) + ": " + found;
        }
        if (sgls_out() - sgls_before_ != sgls)
            return "SGLs out";
        const std::string pages = page_difference();
        return pages.empty() ? complaint_ : pages;
    }

    /* Compares all bytes, releases all chains and looks for leaks. */
    std::string end()
    {
        for (size_t at = 0; at < count(); ++at)
            expect_bytes(at);
        std::string found = difference();
        while (count() != 0)
            release(count() - 1, false);
        if (found.empty() && (sgls_out() != sgls_before_ || pages_out() != pages_before_))
            found = "a leak";
        return found.empty() ? complaint_ : found;
    }

    /* All bytes of the chain in the measure. */
    uint32_t total(size_t at, measure by) const
    {
        return flat_model::total(row(at, by));
    }

    std::vector<stretch> row(size_t at, measure by) const
    {
        return flat_model::row(model_.chains[at], by);
    }

private:
    static constexpr uint32_t OWNER_ID = 88;
    static constexpr size_t MOST_CHAINS = 8;
    static constexpr size_t MOST_PAGES = 300; /* of one sequence */
    static inline SGL *const UNTOUCHED = reinterpret_cast<SGL *>(0x5a);

    flat_model model_;
    std::vector<SGL *> real_;             /* by chain */
    std::vector<page_ctrl *> real_pages_; /* by page number */
    uint64_t sgls_before_;
    uint64_t pages_before_;
    uint32_t flags_ = 100;
    uint32_t patterns_ = 0;
    std::string complaint_;

    void expect(bool holds, const char *claim)
    {
        if (!holds && complaint_.empty())
            complaint_ = std::string("not so: ") + claim;
    }

    static std::vector<page_ctrl *> &walked()
    {
        static std::vector<page_ctrl *> pages;
        return pages;
    }

    static uint32_t note_page(page_ctrl *page, uint32_t, const char *)
    {
        walked().push_back(page);
        return 0;
    }

    bool has_room(uint32_t entries) const
    {
        return model_.pages.size() + entries <= MOST_PAGES;
    }

    static void refuse_sgl(uint32_t nth)
    {
        if (nth != 0)
            fake_fail(OP_zymm_slab_malloc, nth);
    }

    /* A page with bytes of its own, known to both sides. */
    page_ctrl *new_page()
    {
        page_ctrl *const page = allocOnePageSync(OWNER_ID, "the builder", 5);
        static const bytes source = pattern(65536, 1);
        const auto from = source.begin() + long(++patterns_ % 997 * 57);
        model_.pages.push_back({1, bytes(from, from + 8320)});
        std::copy_n(from, 8320, page->page_addr);
        real_pages_.push_back(page);
        return page;
    }

    /* Entries in the middle of a page each, counted in by the writer's step. */
    void fill(model_chain *chain, SGL *head, SGL *sgl, uint32_t entries, uint32_t sectors)
    {
        sgl->userFlag = ++flags_;
        chain->sgls.push_back({sgl->userFlag, {}});
        SGL *cursor = sgl;
        uint32_t index = 0;
        for (uint32_t i = 0; i < entries; ++i) {
            page_ctrl *const page = new_page();
            const model_entry entry = {model_.pages.size() - 1, 520 * ((16 - sectors) / 2),
                                       520 * sectors};
            chain->sgls.back().entries.push_back(entry);
            expect(cursor == sgl && index == i, "the writer's position");
            cursor->entries[index] = {page->page_addr + entry.at, page, entry.len};
            move2NextEntryAndIncEntrySum(&cursor, &index, head);
        }
    }

    /* ---- positions */

    SGL *sgl_at(size_t at, size_t number) const
    {
        SGL *sgl = real_[at];
        for (; number != 0; --number)
            sgl = sgl->nextSgl;
        return sgl;
    }

    place place_of(size_t at, const SGL *sgl, uint32_t index, uint32_t offset) const
    {
        size_t number = 0;
        for (const SGL *each = real_[at]; each != sgl && each != nullptr; each = each->nextSgl)
            ++number;
        return {number, index, offset};
    }

    /* The position is that of the n-th entry, or none when there are not so many. */
    void expect_entry(size_t at, const std::vector<stretch> &all, size_t n, SGL *sgl,
                      uint32_t index, const char *claim)
    {
        if (n < all.size())
            expect(sgl == sgl_at(at, all[n].sgl) && index == all[n].index, claim);
        else
            expect(sgl == nullptr && index == 0, claim);
    }

    /* ---- bytes */

    /* A copy succeeds when its start is found and all of it could be moved. */
    void expect_moved(size_t at, measure by, uint32_t offset, uint32_t length, int32_t status,
                      uint32_t moved)
    {
        const bool found = flat_model::find(row(at, by), offset).has_value();
        expect(status == (found && moved == length ? 0 : -1), "what a copy answers");
    }

    void expect_bytes(size_t at)
    {
        for (const stretch &each : row(at, measure::FULL)) {
            const size_t page = each.entry.page;
            const bytes &expected = model_.pages[page].bytes;
            expect(std::equal(expected.begin(), expected.end(), real_pages_[page]->page_addr),
                   "the bytes of a page");
        }
    }

    /* ---- release */

    static bool share_a_page(const model_chain &one, const model_chain &other)
    {
        for (const stretch &a : flat_model::row(one, measure::FULL)) {
            for (const stretch &b : flat_model::row(other, measure::FULL)) {
                if (a.entry.page == b.entry.page)
                    return true;
            }
        }
        return false;
    }

    void release_one(size_t at, bool by_free)
    {
        while (model_.chains[at].taken != 0)
            drop(at);
        if (!model_.chains[at].owns) {
            freeCloneSgl(real_[at]);
        } else if (by_free) {
            freeMultiPages(real_[at], OWNER_ID, "the owner", 6);
        } else {
            expect(decPageReferenceBySgl(real_[at], OWNER_ID, "the owner") == 0, "release");
            freeSglChain(real_[at], OWNER_ID, "the owner", 7);
        }
        if (model_.chains[at].owns)
            model_.add_refs(model_.chains[at], -1);
        model_.chains.erase(model_.chains.begin() + long(at));
        real_.erase(real_.begin() + long(at));
    }

    /* ---- comparison */

    static bool same_sgl(const SGL *real, const model_sgl &expected)
    {
        return real != nullptr && real->userFlag == expected.flag &&
               real->entryNum == expected.entries.size();
    }

    std::string chain_difference(size_t at) const
    {
        const model_chain &chain = model_.chains[at];
        const SGL *sgl = real_[at];
        size_t entries = 0;
        for (const model_sgl &expected : chain.sgls) {
            if (!same_sgl(sgl, expected))
                return "shape or flags";
            for (size_t i = 0; i < expected.entries.size(); ++i) {
                if (!same_entry(sgl->entries[i], real_entry(expected.entries[i])))
                    return "entry " + std::to_string(entries + i);
            }
            entries += expected.entries.size();
            sgl = sgl->nextSgl;
        }
        if (sgl != nullptr)
            return "an SGL too many";
        if (real_[at]->entrySumInChain != entries)
            return "count of the head";
        return real_[at]->userTag == chain.tag ? "" : "tag";
    }

    SGL_ENTRY real_entry(const model_entry &entry) const
    {
        page_ctrl *const page = real_pages_[entry.page];
        return {page->page_addr + entry.at, page, entry.len};
    }

    std::string page_difference() const
    {
        size_t held = 0;
        for (size_t page = 0; page < model_.pages.size(); ++page) {
            const int32_t refs = model_.pages[page].refs;
            held += refs != 0 ? 1 : 0;
            if (refs != 0 && real_pages_[page]->ref != refs)
                return "references of page " + std::to_string(page) + ", the model has " +
                       std::to_string(refs);
        }
        return pages_out() - pages_before_ == held ? "" : "pages out";
    }
};
