/*
 * Memory that belongs to no pool of objects: raw blocks, and what the allocators and the public
 * pools of the fake have handed out, each under its owner. A block that is given back is released
 * at once.
 */
#include <cstdlib>
#include <map>
#include <memory>

#include "fake_local.h"

namespace
{

struct release {
    void operator()(void *block) const
    {
        free(block);
    }
};

using block_set = std::map<void *, std::unique_ptr<void, release>>;

std::map<uint64_t, block_set> &owners()
{
    static std::map<uint64_t, block_set> *const all = new std::map<uint64_t, block_set>;
    return *all;
}

} // namespace

uint64_t fake::new_block_owner()
{
    const guard    held(state_mutex());
    const uint64_t owner = new_handle();
    owners()[owner];
    return owner;
}

bool fake::block_owner_alive(uint64_t owner)
{
    const guard held(state_mutex());
    return owners().count(owner) != 0;
}

void fake::end_block_owner(uint64_t owner)
{
    const guard held(state_mutex());
    owners().erase(owner);
}

void *fake::take_block(uint64_t owner, uint64_t size, uint64_t align)
{
    void *const block = new_block(size, align);
    const guard held(state_mutex());
    owners()[owner].emplace(block, block);
    return block;
}

bool fake::give_block_back(uint64_t owner, void *block)
{
    const guard held(state_mutex());
    return owners()[owner].erase(block) != 0;
}

uint64_t fake::blocks_out()
{
    uint64_t out = 0;
    for (const auto &[owner, blocks] : owners())
        out += blocks.size();
    return out;
}

uint64_t fake::blocks_out(uint64_t owner)
{
    const auto found = owners().find(owner);
    return found == owners().end() ? 0 : found->second.size();
}
