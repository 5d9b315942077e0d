#include "page_work.h"

#include "bench_error.h"
#include "ours.h"

namespace bench
{

static bool is_same_record(const page_ctrl &one, const page_ctrl &other)
{
    return one.owner_func == other.owner_func &&
           memcmp(&one.lock, &other.lock, sizeof one.lock) == 0 && one.ref == other.ref &&
           one.flags == other.flags && one.valid_bitmap == other.valid_bitmap &&
           one.zero_flags == other.zero_flags && one.owner_modid == other.owner_modid;
}

static bool has_same_integrity_bytes(const uint8_t *one, const uint8_t *other)
{
    for (uint32_t sector = 0; sector < PAGE_SECTORS; ++sector) {
        const uint32_t at = sector * PAGE_SECTOR_SIZE + PAGE_SECTOR_DATA_SIZE;
        if (memcmp(one + at, other + at, PAGE_SECTOR_DIF_SIZE) != 0)
            return false;
    }
    return true;
}

void page_work_check(void)
{
    page_ctrl *ours = ours_static::allocOnePageSync(MODULE, __func__, __LINE__);
    if (ours == nullptr)
        fail("there is no page to compare with");

    alignas(64) static uint8_t s_memory[PAGE_STRIDE];
    memset(s_memory, 0xa5, sizeof s_memory);
    page_ctrl *peer = page_init(s_memory, MODULE, __func__);
    if (!is_same_record(*ours, *peer) || peer->page_addr != s_memory ||
        !has_same_integrity_bytes(ours->page_addr, peer->page_addr))
        fail("a peer's page is not initialised as ours is");
    for (uint32_t i = 0; i < PAGE_SECTOR_DATA_SIZE; ++i) {
        if (s_memory[i] != 0xa5)
            fail("a peer's page has lost data");
    }

    ours_static::freeOnePage(ours, MODULE, __func__, __LINE__);
    if (!page_drop(peer) || peer->flags != PAGE_FREE || peer->ref != 0)
        fail("a peer's page is not free after its last reference");
}

} // namespace bench
