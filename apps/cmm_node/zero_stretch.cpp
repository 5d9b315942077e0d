/*
 * Looks for zeros, takes what is left over, and weaves zero page and pages into one chain.
 */
#include "zero_stretch.h"

#include <algorithm>
#include <cstring>

#include "node_error.h"
#include "page_wait.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

namespace {

/* A byte is zero and every other one equals the byte before it. */
bool is_all_zero(const uint8_t *data, size_t size)
{
    return data[0] == 0 && memcmp(data, data + 1, size - 1) == 0;
}

uint32_t pages_to_take(const std::vector<stretch> &stretches)
{
    uint32_t pages = 0;
    for (const stretch &one : stretches)
        pages += one.zero ? 0 : one.pages;
    return pages;
}

/* Hands the pages of a chain out one by one; their references go with them. */
class page_source
{
public:
    explicit page_source(SGL *chain) : sgl_(chain) {}

    page_ctrl *next()
    {
        page_ctrl *page = sgl_->entries[index_].pageCtrl;
        move2NextEntryAndModifyPSgl(&sgl_, &index_);
        return page;
    }

private:
    SGL     *sgl_;
    uint32_t index_ = 0;
};

/* The zero page, with a reference for the chain; the library's own keeps it from ever being free. */
page_ctrl *shared_zero_page()
{
    page_ctrl *page = getZeroPageCtrl();
    incAndRetPageReference(page, __func__, __LINE__);
    return page;
}

/* The references of `taken` move to the new chain, its SGLs go back. */
page_run weave(page_run taken, const std::vector<stretch> &stretches, uint32_t pages,
               retry_poller &poller)
{
    SGL *head = nullptr;
    allocSglChain(&head, pages, NODE_MODULE_ID, __func__, __LINE__);
    if (head == nullptr)
        throw node_error("no scatter-gather lists are left for a request with zeros");

    page_source source(taken.chain());
    SGL *cur = head;
    uint32_t index = 0;
    for (const stretch &one : stretches)
        for (uint32_t i = 0; i < one.pages; ++i)
            add_one_page_to_sgl(head, &cur, &index, one.zero ? shared_zero_page() : source.next());

    if (SGL *emptied = taken.detach())
        freeSglChain(emptied, NODE_MODULE_ID, __func__, __LINE__);
    return page_run(head, poller);
}

void fill(SGL *chain, const std::vector<stretch> &stretches, const uint8_t *data, uint32_t length)
{
    for (const stretch &one : stretches) {
        const uint32_t from = one.first * PAGE_DATA_SIZE;
        const uint32_t size = std::min(one.pages * PAGE_DATA_SIZE, length - from);
        if (!one.zero && copyDataFromBufferToSglIgnoreDif(chain, from, data + from, size) != 0)
            throw node_error("copying into the pages failed at byte " + std::to_string(from) +
                             " of a request");
    }
}

} // namespace

uint32_t pages_of(uint32_t data)
{
    return (data + PAGE_DATA_SIZE - 1) / PAGE_DATA_SIZE;
}

std::vector<stretch> find_stretches(const uint8_t *data, uint32_t length)
{
    std::vector<stretch> stretches;

    for (uint32_t page = 0; page < pages_of(length); ++page) {
        const uint32_t from = page * PAGE_DATA_SIZE;
        const bool zero = is_all_zero(data + from, std::min(PAGE_DATA_SIZE, length - from));
        if (stretches.empty() || stretches.back().zero != zero)
            stretches.push_back({page, 0, zero});
        ++stretches.back().pages;
    }
    return stretches;
}

page_run take_filled(const uint8_t *data, uint32_t length, page_waiter &waiter, uint32_t timeout,
                     retry_poller &poller, share_statistics &statistics)
{
    const std::vector<stretch> stretches = find_stretches(data, length);
    const uint32_t pages = pages_of(length);
    const uint32_t needed = pages_to_take(stretches);
    page_run taken = waiter.take(needed, timeout);
    page_run run = needed == pages ? std::move(taken)
                                   : weave(std::move(taken), stretches, pages, poller);

    fill(run.chain(), stretches, data, length);
    statistics.pages += pages;
    statistics.zero_entries += pages - needed;
    return run;
}
