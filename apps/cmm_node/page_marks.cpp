/*
 * Walks the chain and works out the bits of each page: 0xFF for all but the last one of a file.
 */
#include "page_marks.h"

#include <algorithm>

#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

namespace {

constexpr uint32_t DATA_OF_A_BIT = PAGE_DATA_SIZE / 8;

uint8_t bits_of(uint32_t data)
{
    return uint8_t((1u << data / DATA_OF_A_BIT) - 1);
}

} // namespace

void mark_valid(SGL *chain, uint32_t data)
{
    SGL *sgl = chain;
    uint32_t index = 0;

    while (data > 0) {
        page_ctrl *page = sgl->entries[index].pageCtrl;
        const uint32_t here = std::min(data, PAGE_DATA_SIZE);
        if (!is_zero_page(page))
            addPageValidBitMap(page, bits_of(here));
        data -= here;
        move2NextEntryAndModifyPSgl(&sgl, &index);
    }
}

bool is_zero_page(page_ctrl *page)
{
    uint8_t zero = 0;
    getPageZeroFlags(page, &zero);
    return zero != 0;
}

bool is_fully_valid(page_ctrl *page)
{
    return getPageValidBitMap(page) == PAGE_FULLY_VALID;
}
