/*
 * Reading. A part is walked front to back in stretches: pages that can be had at once are copied
 * out and let go before pages are taken for the next stretch, so that nobody waits for pages while
 * he holds some.
 */
#include <cerrno>

#include "block_device.h"
#include "protection.h"

namespace {

bool is_zero_page(page_ctrl *page)
{
    uint8_t zero = 0;
    getPageZeroFlags(page, &zero);
    return zero != 0;
}

uint8_t bits_needed(const request_part &part, uint32_t index)
{
    return bits_with_any(touched_sectors(part.slice(index, 1)));
}

/* Copies a part out of the pages of a chain of one SGL; what is known to be zero is not read. */
int copy_out(const request_part &part, SGL *chain)
{
    for (uint32_t i = 0; i < part.pages.count; ++i) {
        const request_part one = part.slice(i, 1);
        if (is_zero_page(chain->entries[i].pageCtrl))
            memset(one.to, 0, one.length);
        else if (copyDataFromEntryToBufferIgnoreDif(&chain->entries[i], one.offset, one.to,
                                                    one.length) != 0)
            return EIO;
    }
    return 0;
}

/* A chain over pages, each with the reference that it brings; null without SGLs. */
SGL *chain_over(page_reference *pages, uint32_t count)
{
    SGL *chain = nullptr;
    allocOneSgl(&chain, NODE_MODULE_ID, __func__, __LINE__);
    if (chain == nullptr)
        return nullptr;
    SGL *cur = chain;
    uint32_t index = 0;
    for (uint32_t i = 0; i < count; ++i)
        add_one_page_to_sgl(chain, &cur, &index, pages[i].detach());
    return chain;
}

void replace_entry(SGL_ENTRY *entry, page_reference page)
{
    const page_reference replaced(entry->pageCtrl);
    *entry = entry_of(page.detach());
}

} // namespace

int block_device::read(void *buffer, uint32_t count, uint64_t offset)
{
    const io_request request(IO_READ, offset, count, 0);
    return for_each_part(offset, count, static_cast<uint8_t *>(buffer), nullptr, longest_part_,
                         [this](const request_part &part) { return read_part(part); });
}

int block_device::read_part(const request_part &part)
{
    for (uint32_t at = 0; at < part.pages.count;) {
        const request_part rest = part.slice(at, part.pages.count - at);
        references pages;
        bool missing = false;
        const uint32_t count = collect(rest, &pages, &missing);
        const request_part stretch = rest.slice(0, count);
        int failed = 0;

        if (missing) {
            failed = load(stretch);
        } else if (SGL *chain = chain_over(pages.data(), count)) {
            failed = copy_out(stretch, chain);
            freeMultiPages(chain, NODE_MODULE_ID, __func__, __LINE__);
        } else {
            failed = ENOMEM;
        }
        if (failed != 0)
            return failed;
        at += count;
    }
    return 0;
}

/* Takes references of the pages at the front of the part that can be had at once, and counts them;
 * when already the first one cannot, it counts how many cannot, and takes none. A page that is
 * being changed cannot: load() waits for the writer's range. */
uint32_t block_device::collect(const request_part &part, references *pages, bool *missing)
{
    cache_shard &shard = cache.shard_of(part.pages.first);
    uint32_t count = 0;
    std::lock_guard hold(shard.lock);

    for (; count < part.pages.count; ++count) {
        const uint64_t number = part.pages.first + count;
        cached_page *one = shard.find(number);
        page_ctrl *page = nullptr;

        if (one != nullptr) {
            const uint8_t needed = bits_needed(part, count);
            if (!one->changing && (getPageValidBitMap(one->page) & needed) == needed)
                page = one->page;
        } else if (!files_.present.has(number)) {
            page = getZeroPageCtrl();
        }
        if (count == 0)
            *missing = page == nullptr;
        else if (*missing != (page == nullptr))
            break;
        if (page == nullptr)
            continue;
        (*pages)[count] = page_reference::to(page);
        if (one != nullptr)
            shard.touch(one);
        ++(one != nullptr ? cache.statistics.hits : cache.statistics.zeros);
    }
    return count;
}

void block_device::collect_cached(page_range range, references *old)
{
    cache_shard &shard = cache.shard_of(range.first);
    std::lock_guard hold(shard.lock);

    for (uint32_t i = 0; i < range.count; ++i)
        if (cached_page *one = shard.find(range.first + i))
            (*old)[i] = page_reference::to(one->page);
}

/* Reads those pages of the range into the chain that are not fully in the cache and not holes. */
int block_device::fill_from_files(page_range range, SGL *chain, const references &old,
                                  page_finding *findings)
{
    std::array<uint8_t *, STRIPE_PAGES> memory;
    const auto wanted = [&](uint32_t i) {
        return files_.present.has(range.first + i) &&
               (old[i].page() == nullptr || getPageValidBitMap(old[i].page()) != PAGE_FULLY_VALID);
    };

    for (uint32_t i = 0; i < range.count; ++i) {
        uint32_t end = i;
        for (; end < range.count && wanted(end); ++end)
            memory[end] = chain->entries[end].buf;
        if (end == i) {
            findings[i].hole = old[i].page() == nullptr;
            continue;
        }
        if (const int failed =
                files_.read({range.first + i, end - i}, &memory[i], &findings[i]))
            return failed;
        cache.statistics.misses += end - i;
        i = end - 1;
    }
    return 0;
}

/* Leaves in each entry of the chain the page that holds what can be known, and puts pages that were
 * read into the cache. A page that is there in part, and dirty, is filled up where it is. */
void block_device::keep_loaded(page_range range, SGL *chain, references *old,
                               page_finding *findings)
{
    cache_shard &shard = cache.shard_of(range.first);

    for (uint32_t i = 0; i < range.count; ++i) {
        SGL_ENTRY *entry = &chain->entries[i];
        const uint8_t good = bits_with_both(uint16_t(~findings[i].bad));
        page_ctrl *there = (*old)[i].page();

        if (there != nullptr) {
            const uint8_t valid = getPageValidBitMap(there);
            findings[i].bad = uint16_t(findings[i].bad & ~sectors_of_bits(valid));
            if (valid != PAGE_FULLY_VALID) {
                copy_sectors(there->page_addr, entry->buf, sectors_of_bits(good & ~valid));
                addPageValidBitMap(there, uint8_t(good & ~valid));
                /* Good sectors beside a bad one are only in the page that was read. */
                copy_sectors(entry->buf, there->page_addr, sectors_of_bits(valid));
            }
            if (getPageValidBitMap(there) == PAGE_FULLY_VALID)
                replace_entry(entry, std::move((*old)[i]));
            continue;
        }
        if (findings[i].hole) {
            files_.present.remove({range.first + i, 1});
            replace_entry(entry, page_reference::to(getZeroPageCtrl()));
            continue;
        }
        addPageValidBitMap(entry->pageCtrl, good);
        page_reference mine = page_reference::to(entry->pageCtrl);
        page_ctrl *replaced = nullptr;
        std::lock_guard hold(shard.lock);
        if (cache.put(shard, range.first + i, mine.page(), false, &replaced))
            mine.detach();
    }
}

int block_device::load(const request_part &part)
{
    std::array<page_finding, STRIPE_PAGES> findings;
    page_run run = supply.take(part.pages.count);
    SGL *chain = run.chain();
    {
        references old;
        const range_hold range(cache, part.pages);

        collect_cached(part.pages, &old);
        if (const int failed = fill_from_files(part.pages, chain, old, findings.data()))
            return failed;
        keep_loaded(part.pages, chain, &old, findings.data());
    }
    for (uint32_t i = 0; i < part.pages.count; ++i) {
        if ((findings[i].bad & touched_sectors(part.slice(i, 1))) != 0)
            return EIO;
    }
    return copy_out(part, chain);
}
