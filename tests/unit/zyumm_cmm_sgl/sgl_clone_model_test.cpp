/*
 * Random uses of clones, compared step by step with a model that knows nothing of chains: which
 * pages each chain names, in which order, who holds how many references, and how many SGLs are out.
 *
 * A scenario that fails is made as small as it can be made before it is shown.
 */
#include "clone_scenario.h"
#include "page_chain.h"

namespace
{

constexpr uint32_t SCENARIOS = 400;

/* One chain as the model has it. */
struct model_chain {
    SGL                  *real;
    bool                  owns; /* holds a reference on each page; else it borrows them */
    uint64_t              tag;
    shape                 counts;
    std::vector<uint32_t> flags; /* of each SGL */
    std::vector<size_t>   pages; /* numbers, front to back */
    int32_t               taken; /* references taken by walks, for each entry */
};

class clone_world
{
public:
    explicit clone_world(const shape &counts) : sgls_before_(sgls_out()), pages_before_(pages_out())
    {
        model_chain root = {page_chain_of(counts), true, 0x5A, counts, {}, {}, 0};
        root.real->userTag = root.tag;
        for (SGL *sgl = root.real; sgl != nullptr; sgl = sgl->nextSgl) {
            sgl->userFlag = uint32_t(100 + root.flags.size());
            root.flags.push_back(sgl->userFlag);
        }
        entries_ = entries_of(root.real);
        refs_.assign(entries_.size(), 1);
        for (size_t page = 0; page < entries_.size(); ++page)
            root.pages.push_back(page);
        chains_.push_back(root);
    }

    SGL *first() const
    {
        return chains_.front().real;
    }

    void run(const clone_step &step)
    {
        const size_t at = step.chain % chains_.size();
        if (step.refused != 0)
            fake_fail(OP_zymm_slab_malloc, step.refused);
        switch (step.op) {
        case clone_op::CLONE:
            clone(at, step.refused);
            break;
        case clone_op::CLONE_WITH_WRONG_KEY:
            clone_with_wrong_key(at);
            break;
        case clone_op::COPY:
            copy(at, step.refused);
            break;
        case clone_op::TAKE:
            take(at);
            break;
        case clone_op::DROP:
            if (chains_[at].taken != 0)
                drop(at);
            break;
        case clone_op::RELEASE:
            if (at != 0)
                release(at);
            break;
        }
        fake_no_faults();
    }

    /* What is not as the model has it; empty when all is well. */
    std::string difference() const
    {
        size_t sgls = 0;
        for (size_t i = 0; i < chains_.size(); ++i) {
            sgls += chains_[i].counts.size();
            const std::string found = difference_of(chains_[i]);
            if (!found.empty())
                return "chain " + std::to_string(i) + ": " + found;
        }
        for (size_t page = 0; page < refs_.size(); ++page) {
            if (entries_[page].pageCtrl->ref != refs_[page])
                return "references of page " + std::to_string(page);
        }
        if (sgls_out() - sgls_before_ != sgls)
            return "SGLs out";
        if (pages_out() - pages_before_ != refs_.size())
            return "pages out";
        return complaint_;
    }

    /* Ends all chains, the first one last. */
    std::string end()
    {
        while (chains_.size() > 1)
            release(chains_.size() - 1);
        const std::string found = difference();
        release(0);
        if (!found.empty())
            return found;
        return sgls_out() == sgls_before_ && pages_out() == pages_before_ ? "" : "a leak";
    }

private:
    std::vector<model_chain> chains_;
    std::vector<SGL_ENTRY>   entries_; /* by page number */
    std::vector<int32_t>     refs_;    /* by page number */
    uint64_t                 sgls_before_;
    uint64_t                 pages_before_;
    std::string              complaint_;

    void expect(bool holds, const char *claim)
    {
        if (!holds && complaint_.empty())
            complaint_ = claim;
    }

    void add_refs(const model_chain &chain, int32_t count)
    {
        for (const size_t page : chain.pages)
            refs_[page] += count;
    }

    /* The flag of the SGL that each entry lies in. */
    static std::vector<uint32_t> flags_by_entry(const model_chain &chain)
    {
        std::vector<uint32_t> flags;
        for (size_t sgl = 0; sgl < chain.counts.size(); ++sgl)
            flags.insert(flags.end(), chain.counts[sgl], chain.flags[sgl]);
        return flags;
    }

    static model_chain packed(const model_chain &source, SGL *real)
    {
        const std::vector<uint32_t> by_entry = flags_by_entry(source);
        model_chain                 clone    = {real, true, 0, {}, {}, source.pages, 0};
        for (size_t at = 0; at < by_entry.size(); at += 64) {
            const size_t count = std::min<size_t>(64, by_entry.size() - at);
            clone.counts.push_back(uint32_t(count));
            clone.flags.push_back(by_entry[at + count - 1]);
        }
        return clone;
    }

    void clone(size_t at, uint32_t refused)
    {
        SGL *real = nullptr;
        cloneSgl(chains_[at].real, chains_[at].tag, &real, 88, "the cloner", 1);
        const model_chain clone  = packed(chains_[at], real);
        const size_t      needed = clone.counts.size();
        const bool        made   = needed != 0 && (refused == 0 || refused > needed);
        expect((real != nullptr) == made, "a clone exists exactly when there were SGLs for it");
        if (real == nullptr)
            return;
        add_refs(clone, 1);
        chains_.push_back(clone);
    }

    void clone_with_wrong_key(size_t at)
    {
        SGL *real = chains_[at].real;
        cloneSgl(chains_[at].real, chains_[at].tag + 1, &real, 88, "the cloner", 1);
        expect(real == nullptr, "no clone under a wrong key");
    }

    void copy(size_t at, uint32_t refused)
    {
        SGL          *real   = nullptr;
        const int32_t status = cloneSglChain(chains_[at].real, &real);
        const bool    made   = refused == 0 || refused > chains_[at].counts.size();
        expect(status == (made ? 0 : -1), "a copy succeeds exactly when there were SGLs for it");
        expect((real != nullptr) == made, "a copy exists exactly when it succeeded");
        if (real == nullptr)
            return;
        model_chain copy = chains_[at];
        copy.real        = real;
        copy.owns        = false;
        copy.taken       = 0;
        chains_.push_back(copy);
    }

    void take(size_t at)
    {
        expect(incPageReferenceBySgl(chains_[at].real, 88, "the taker") == 0, "taking succeeds");
        add_refs(chains_[at], 1);
        ++chains_[at].taken;
    }

    void drop(size_t at)
    {
        expect(decPageReferenceBySgl(chains_[at].real, 88, "the taker") == 0, "dropping succeeds");
        add_refs(chains_[at], -1);
        --chains_[at].taken;
    }

    void release(size_t at)
    {
        while (chains_[at].taken != 0)
            drop(at);
        if (chains_[at].owns) {
            expect(decPageReferenceBySgl(chains_[at].real, 88, "the cloner") == 0, "release");
            freeSglChain(chains_[at].real, 88, "the cloner", 2);
            add_refs(chains_[at], -1);
        } else {
            freeCloneSgl(chains_[at].real);
        }
        chains_.erase(chains_.begin() + long(at));
    }

    std::string difference_of(const model_chain &chain) const
    {
        if (shape_of(chain.real) != chain.counts)
            return "shape";
        if (chain.real->entrySumInChain != chain.pages.size())
            return "count of the head";
        if (chain.real->userTag != chain.tag)
            return "tag";
        const SGL *sgl = chain.real;
        for (const uint32_t flag : chain.flags) {
            if (sgl->userFlag != flag)
                return "flag";
            sgl = sgl->nextSgl;
        }
        const std::vector<SGL_ENTRY> entries = entries_of(chain.real);
        for (size_t i = 0; i < entries.size(); ++i) {
            if (!same_entry(entries[i], entries_[chain.pages[i]]))
                return "entry " + std::to_string(i);
        }
        return "";
    }
};

std::string play(const clone_scenario &scenario)
{
    fake_forget_calls();
    clone_world world(scenario.shape);
    for (const clone_step &step : scenario.steps) {
        world.run(step);
        const std::string found = world.difference();
        if (!found.empty())
            return found;
    }
    return world.end();
}

bool fails(const clone_scenario &scenario)
{
    return !play(scenario).empty();
}

} // namespace

TEST(SglCloneModel, random_uses_of_clones_are_as_the_model_has_them)
{
    start_page_chains(1000000, 10000000);
    fake_set_log_level(ZYLOG_FATAL);

    for (uint32_t seed = 1; seed <= SCENARIOS; ++seed) {
        const clone_scenario scenario = random_scenario(seed);
        if (!fails(scenario))
            continue;
        const clone_scenario smallest = shrink(scenario, fails);
        FAIL() << "seed " << seed << ": " << text_of_scenario(smallest) << " " << play(smallest);
    }
}

TEST(SglCloneModel, a_failing_scenario_is_made_as_small_as_it_can_be)
{
    const auto has_copy_after_take_with_a_gap = [](const clone_scenario &scenario) {
        bool gap = false, taken = false, copied = false;
        for (const uint32_t count : scenario.shape)
            gap = gap || count == 0;
        for (const clone_step &step : scenario.steps) {
            taken  = taken || step.op == clone_op::TAKE;
            copied = copied || (taken && step.op == clone_op::COPY);
        }
        return gap && copied;
    };
    uint32_t seed = 1;
    while (!has_copy_after_take_with_a_gap(random_scenario(seed)))
        ++seed;

    clone_scenario smallest = shrink(random_scenario(seed), has_copy_after_take_with_a_gap);

    for (clone_step &step : smallest.steps)
        step.chain = 0;
    EXPECT_EQ(text_of_scenario(smallest), "shape {0,} ops: take 0; copy 0;");
}

TEST(SglCloneModel, the_comparison_notices_a_reference_too_many)
{
    start_page_chains();
    clone_world world({2, 0, 1});
    EXPECT_EQ(world.difference(), "");

    ++world.first()->entries[1].pageCtrl->ref;

    EXPECT_EQ(world.difference(), "references of page 1");
}

TEST(SglCloneModel, the_comparison_notices_an_entry_that_differs)
{
    start_page_chains();
    clone_world world({2, 0, 1});
    world.run({clone_op::CLONE, 0, 0});
    EXPECT_EQ(world.difference(), "");

    ++world.first()->entries[1].len;

    EXPECT_EQ(world.difference(), "chain 0: entry 1");
}

TEST(SglCloneModel, the_comparison_notices_a_lost_sgl)
{
    start_page_chains();
    clone_world world({2, 0, 1});
    SGL *lost = nullptr;
    allocOneSgl(&lost, 77, "the test", 1);

    EXPECT_EQ(world.difference(), "SGLs out");
    freeSglChain(lost, 77, "the test", 2);
}
