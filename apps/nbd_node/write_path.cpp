/*
 * Writing. Pages that are cached whole, and that nobody looks at, are written where they are. Else
 * each page that a write touches is a new one: it takes over what it needs of the page that it
 * replaces, so that readers of the old one are not disturbed.
 *
 *     what the write covers                 what the new page takes over
 *     -----------------------------------   ------------------------------------------------
 *     the whole page                        nothing
 *     both sectors of each bit it touches   the old page's valid parts; without one, nothing
 *     a part of a bit's two sectors         likewise, and the rest of those from the file
 *     anything of a hole                    zeros
 */
#include <cerrno>

#include "block_device.h"
#include "protection.h"

namespace {

bool covers_page(const request_part &one)
{
    return one.offset == 0 && one.length == PAGE_DATA_SIZE;
}

/* A byte is zero and every other one equals the byte before it. */
bool is_all_zero(const uint8_t *data, size_t size)
{
    return data[0] == 0 && memcmp(data, data + 1, size - 1) == 0;
}

/* A page of the part that is to become a hole instead of being written. */
bool becomes_hole(const request_part &part, uint32_t index)
{
    const request_part one = part.slice(index, 1);
    return covers_page(one) && one.from != nullptr && is_all_zero(one.from, one.length);
}

void fill_with_zeros(const request_part &one, uint8_t *page)
{
    for (uint32_t at = one.offset; at < one.offset + one.length;) {
        const uint32_t in_sector = at % PAGE_SECTOR_DATA_SIZE;
        const uint32_t here =
            std::min(PAGE_SECTOR_DATA_SIZE - in_sector, one.offset + one.length - at);
        memset(page + at / PAGE_SECTOR_DATA_SIZE * PAGE_SECTOR_SIZE + in_sector, 0, here);
        at += here;
    }
}

} // namespace

/* A write's share of the pages that may be dirty, given back when its pages are in the cache. */
class admission
{
public:
    admission(block_device &device, uint32_t pages) : device_(device), pages_(pages) {}
    admission(const admission &) = delete;
    ~admission()
    {
        {
            std::lock_guard hold(device_.admission_lock_);
            device_.pending_ -= pages_;
        }
        device_.admitted_less_.notify_all();
    }

private:
    block_device  &device_;
    const uint32_t pages_;
};

int block_device::write(const void *data, uint32_t count, uint64_t offset, bool fua)
{
    io_request request(IO_WRITE, offset, count, fua ? IO_FUA : 0);
    const int failed = for_each_part(
        offset, count, nullptr, static_cast<const uint8_t *>(data), longest_part_,
        [&](const request_part &part) { return write_part(request, part, false); });
    return failed != 0 ? failed : settle(request, offset, count, fua);
}

/* Write-through and FUA: the answer waits for the files. */
int block_device::settle(io_request &request, uint64_t offset, uint64_t count, bool fua)
{
    if (!write_through_ && !fua) {
        if (cache.dirty() > low_)
            wake_write_back();
        return 0;
    }
    const int failed = for_each_part(
        offset, count, nullptr, nullptr, STRIPE_PAGES,
        [&](const request_part &part) { return write_back(request, part.pages); });
    return failed == 0 && fua ? files_.sync() : failed;
}

/* Stretches of pages that become holes, and those in between. */
int block_device::write_part(io_request &request, const request_part &part, bool allocate)
{
    for (uint32_t at = 0; at < part.pages.count;) {
        const bool hole = !allocate && becomes_hole(part, at);
        uint32_t end = at + 1;
        while (end < part.pages.count && (!allocate && becomes_hole(part, end)) == hole)
            ++end;
        const request_part stretch = part.slice(at, end - at);
        const int failed =
            hole ? make_holes(request, stretch.pages) : write_pages(request, stretch);
        if (failed != 0)
            return failed;
        at = end;
    }
    return 0;
}

/* Brings into the new page what the write leaves of the old content; marks what is valid. */
int block_device::prepare(const request_part &one, page_ctrl *page, page_ctrl *old)
{
    const uint16_t covered = covered_sectors(one);
    const uint8_t broken = bits_with_any(touched_sectors(one)) & ~bits_with_both(covered);
    const uint8_t valid = old != nullptr ? getPageValidBitMap(old) : uint8_t(0);
    uint8_t kept = valid;

    if (old == nullptr && !files_.present.has(one.pages.first)) {
        memset(page->page_addr, 0, PAGE_SIZE_WITH_DIF);
        protect_sectors(page->page_addr, one.pages.first, ALL_SECTORS);
        kept = PAGE_FULLY_VALID;
    } else if ((broken & ~valid) != 0) {
        page_finding finding;
        uint8_t *memory = page->page_addr;
        if (const int failed = files_.read(one.pages, &memory, &finding))
            return failed;
        const uint16_t needed = uint16_t(sectors_of_bits(uint8_t(broken & ~valid)) & ~covered);
        if ((finding.bad & needed) != 0)
            return EIO;
        kept = uint8_t(valid | bits_with_both(uint16_t(~finding.bad)));
    }
    if (old != nullptr)
        copy_sectors(page->page_addr, old->page_addr, sectors_of_bits(valid));
    addPageValidBitMap(page, uint8_t(kept | bits_with_any(touched_sectors(one))));
    return 0;
}

void block_device::fill_page(const request_part &one, page_ctrl *page)
{
    SGL_ENTRY entry = entry_of(page);

    if (one.from == nullptr)
        fill_with_zeros(one, page->page_addr);
    else
        copyDataFromBufferToEntryIgnoreDif(&entry, one.offset, one.from, one.length);
    protect_sectors(page->page_addr, one.pages.first, touched_sectors(one));
    setPageZeroFlags(page, one.from == nullptr && covers_page(one));
}

/* Writes into the cached pages themselves; false when they are not all there for it. */
bool block_device::change_pages(const request_part &part)
{
    cache_shard &shard = cache.shard_of(part.pages.first);
    std::array<cached_page *, STRIPE_PAGES> pages; /* stay: they are dirty, and the range is held */
    const range_hold range(cache, part.pages);
    {
        std::lock_guard hold(shard.lock);
        if (!cache.begin_change(shard, part.pages, pages.data()))
            return false;
    }
    for (uint32_t i = 0; i < part.pages.count; ++i)
        fill_page(part.slice(i, 1), pages[i]->page);
    std::lock_guard hold(shard.lock);
    for (uint32_t i = 0; i < part.pages.count; ++i)
        pages[i]->changing = false;
    return true;
}

int block_device::write_pages(io_request &request, const request_part &part)
{
    cache_shard &shard = cache.shard_of(part.pages.first);
    if (const int failed = admit(request, part.pages.count))
        return failed;
    const admission mine(*this, part.pages.count);
    if (change_pages(part))
        return 0;
    page_run run = supply.take(part.pages.count);
    SGL *chain = run.chain();
    references old; /* outlives the range: pages are freed without a lock */
    const range_hold range(cache, part.pages);

    for (uint32_t i = 0; i < part.pages.count; ++i) {
        const request_part one = part.slice(i, 1);
        page_ctrl *page = chain->entries[i].pageCtrl;

        if (covers_page(one)) {
            addPageValidBitMap(page, PAGE_FULLY_VALID);
        } else {
            collect_cached(one.pages, &old);
            const page_reference replaced = std::move(old[0]);
            if (const int failed = prepare(one, page, replaced.page()))
                return failed;
        }
        fill_page(one, page);
    }
    std::lock_guard hold(shard.lock);
    files_.present.add(part.pages);
    for (uint32_t i = 0; i < part.pages.count; ++i) {
        page_reference page = page_reference::to(chain->entries[i].pageCtrl);
        page_ctrl *replaced = nullptr;
        if (!cache.put(shard, part.pages.first + i, page.page(), true, &replaced))
            return ENOMEM;
        page.detach();
        old[i] = page_reference(replaced);
    }
    return 0;
}

/* ------------------------------------------------------------------------- zeros */

int block_device::zero(uint32_t count, uint64_t offset, bool may_trim, bool fua)
{
    io_request request(IO_ZERO, offset, count, fua ? IO_FUA : 0);
    const int failed = for_each_part(
        offset, count, nullptr, nullptr, may_trim ? STRIPE_PAGES : longest_part_,
        [&](const request_part &part) { return zero_part(request, part, may_trim); });
    return failed != 0 ? failed : settle(request, offset, count, fua);
}

/* Without a trim the client wants the room to stay his: zeros are written as any data. */
int block_device::zero_part(io_request &request, const request_part &part, bool may_trim)
{
    if (!may_trim)
        return write_part(request, part, true);
    for (uint32_t at = 0; at < part.pages.count;) {
        uint32_t end = at;
        while (end < part.pages.count && covers_page(part.slice(end, 1)))
            ++end;
        int failed = 0;
        if (end > at)
            failed = make_holes(request, part.slice(at, end - at).pages);
        else if (files_.present.has(part.slice(at, 1).pages.first))
            failed = write_pages(request, part.slice(at, 1));
        if (failed != 0)
            return failed;
        at = std::max(end, at + 1);
    }
    return 0;
}

int block_device::make_holes(io_request &request, page_range range)
{
    cache_shard &shard = cache.shard_of(range.first);
    references gone; /* outlives the range: pages are freed without a lock */

    const range_hold hold_range(cache, range);
    if (files_.present.has_none(range))
        return 0;
    if (const int failed = files_.trim(request, range))
        return failed;
    std::lock_guard hold(shard.lock);
    for (uint32_t i = 0; i < range.count; ++i)
        if (cached_page *one = shard.find(range.first + i))
            gone[i] = page_reference(cache.take_out(shard, one));
    files_.present.remove(range);
    return 0;
}
