/*
 * Copies between buffers and chains, in both measures.
 *
 *     set      a chain          chains    buffers and pages together
 *     hot      16 pages         1         256 KiB: in the second cache
 *     cold     128 pages, 1 MiB 32        64 MiB: beyond all caches; one chain after the other
 *
 *     limit        memcpy of the same bytes from flat memory to flat memory, one call a copy; in
 *                  the full measure one call of 8,320 bytes a page
 *     sector_loop  libc's memcpy called for each sector's 512 bytes, into the same pages
 *
 * libc's memcpy is called through a pointer that the compiler cannot see through: it would replace
 * a call of a known size by its own code, and another library's call is what is to be measured.
 */
#include "harness.h"

#include <memory>
#include <vector>

namespace bench
{

using copy_function = void *(*)(void *, const void *, size_t);
static copy_function volatile s_libc_memcpy = memcpy;

struct hot_set {
    static constexpr uint32_t PAGES = 16;
    static constexpr uint32_t CHAINS = 1;
};
struct cold_set {
    static constexpr uint32_t PAGES = 128;
    static constexpr uint32_t CHAINS = 32;
};

/* The chains of a set, from the static library's pool, and a buffer for each. */
template <class SET, uint32_t PAGE_BYTES>
class copy_set
{
public:
    static constexpr uint32_t BYTES = SET::PAGES * PAGE_BYTES;

    copy_set() : buffers_(new uint8_t[size_t(BYTES) * SET::CHAINS]), chains_(SET::CHAINS)
    {
        memset(buffers_.get(), 0x5a, size_t(BYTES) * SET::CHAINS);
        for (SGL *&chain : chains_)
            chain = ours_pages<ours_static>::take_run(SET::PAGES, nullptr);
    }
    ~copy_set()
    {
        for (SGL *chain : chains_)
            ours_pages<ours_static>::give_run(chain);
    }
    copy_set(const copy_set &) = delete;
    copy_set &operator=(const copy_set &) = delete;

    SGL *chain() const
    {
        return chains_[at_];
    }
    uint8_t *buffer() const
    {
        return buffers_.get() + size_t(at_) * BYTES;
    }
    void step()
    {
        at_ = (at_ + 1) % SET::CHAINS;
    }

private:
    std::unique_ptr<uint8_t[]> buffers_;
    std::vector<SGL *> chains_;
    uint32_t at_ = 0;
};

/*
 * The limit's chains: flat memory as large as the pages' part that is copied. It begins half a page
 * of the system's beside the buffers' place in theirs: where both lie alike, loads look like those
 * of stores under way, and this processor copies at a fifteenth of its speed.
 */
template <class SET, uint32_t PAGE_BYTES>
class flat_set
{
public:
    explicit flat_set(const uint8_t *beside) : memory_(new uint8_t[SIZE + SYSTEM_PAGE])
    {
        memset(memory_.get(), 0xa5, SIZE + SYSTEM_PAGE);
        const uintptr_t wanted = reinterpret_cast<uintptr_t>(beside) + SYSTEM_PAGE / 2;
        first_ = memory_.get() +
                 (wanted - reinterpret_cast<uintptr_t>(memory_.get())) % SYSTEM_PAGE;
    }
    uint8_t *piece() const
    {
        return first_ + size_t(at_) * SET::PAGES * PAGE_BYTES;
    }
    void step()
    {
        at_ = (at_ + 1) % SET::CHAINS;
    }

private:
    static constexpr size_t SIZE = size_t(SET::PAGES) * PAGE_BYTES * SET::CHAINS;
    static constexpr size_t SYSTEM_PAGE = 4096;
    std::unique_ptr<uint8_t[]> memory_;
    uint8_t *first_;
    uint32_t at_ = 0;
};

enum direction { INTO_PAGES, OUT_OF_PAGES };

template <class SET, uint32_t PAGE_BYTES, direction WAY>
static void flat_copy(state &run)
{
    constexpr uint32_t BYTES = SET::PAGES * PAGE_BYTES;
    /* In the full measure each page is a call of its own, else the whole is one. */
    constexpr uint32_t PIECE = PAGE_BYTES == PAGE_SIZE_WITH_DIF ? PAGE_BYTES : BYTES;
    copy_set<SET, PAGE_BYTES> buffers;
    flat_set<SET, PAGE_BYTES> flat(buffers.buffer());
    const copy_function copy = s_libc_memcpy;
    for (auto _ : run) {
        uint8_t *to = WAY == INTO_PAGES ? flat.piece() : buffers.buffer();
        const uint8_t *from = WAY == INTO_PAGES ? buffers.buffer() : flat.piece();
        for (uint32_t done = 0; done < BYTES; done += PIECE)
            copy(to + done, from + done, PIECE);
        benchmark::ClobberMemory();
        buffers.step();
        flat.step();
    }
    run.SetBytesProcessed(run.iterations() * BYTES);
}

template <class SET, direction WAY>
static void sector_loop(state &run)
{
    copy_set<SET, PAGE_DATA_SIZE> set;
    const copy_function copy = s_libc_memcpy;
    for (auto _ : run) {
        uint8_t *buffer = set.buffer();
        each_page(set.chain(), [&](page_ctrl *page) {
            uint8_t *sector = page->page_addr;
            for (uint32_t i = 0; i < PAGE_SECTORS; ++i) {
                uint8_t *to = WAY == INTO_PAGES ? sector : buffer;
                copy(to, WAY == INTO_PAGES ? buffer : sector, PAGE_SECTOR_DATA_SIZE);
                sector += PAGE_SECTOR_SIZE;
                buffer += PAGE_SECTOR_DATA_SIZE;
            }
        });
        benchmark::ClobberMemory();
        set.step();
    }
    run.SetBytesProcessed(run.iterations() * copy_set<SET, PAGE_DATA_SIZE>::BYTES);
}

template <class L, class SET, direction WAY>
static void our_data_copy(state &run)
{
    copy_set<SET, PAGE_DATA_SIZE> set;
    constexpr uint32_t BYTES = copy_set<SET, PAGE_DATA_SIZE>::BYTES;
    for (auto _ : run) {
        const int32_t copied =
            WAY == INTO_PAGES
                ? L::copyDataFromBufferToSglIgnoreDif(set.chain(), 0, set.buffer(), BYTES)
                : L::copyDataFromSglToBufferIgnoreDif(set.chain(), 0, set.buffer(), BYTES);
        if (copied != 0)
            fail("a copy was refused");
        benchmark::ClobberMemory();
        set.step();
    }
    run.SetBytesProcessed(run.iterations() * BYTES);
}

template <class L, class SET, direction WAY>
static void our_full_copy(state &run)
{
    copy_set<SET, PAGE_SIZE_WITH_DIF> set;
    constexpr uint32_t BYTES = copy_set<SET, PAGE_SIZE_WITH_DIF>::BYTES;
    for (auto _ : run) {
        const int32_t copied =
            WAY == INTO_PAGES ? L::copyDataFromBufferToSgl(set.chain(), 0, set.buffer(), BYTES)
                              : L::copyDataFromSglToBuffer(set.chain(), 0, set.buffer(), BYTES);
        if (copied != 0)
            fail("a copy was refused");
        benchmark::ClobberMemory();
        set.step();
    }
    run.SetBytesProcessed(run.iterations() * BYTES);
}

template <class SET, direction WAY>
static void add_data_row(const char *row)
{
    add(row, "limit", 1, flat_copy<SET, PAGE_DATA_SIZE, WAY>);
    add(row, "sector_loop", 1, sector_loop<SET, WAY>);
    our_forms::each([row]<class L>(std::type_identity<L>) {
        add(row, L::NAME, 1, our_data_copy<L, SET, WAY>);
    });
}

template <class SET, direction WAY>
static void add_full_row(const char *row)
{
    add(row, "limit", 1, flat_copy<SET, PAGE_SIZE_WITH_DIF, WAY>);
    our_forms::each([row]<class L>(std::type_identity<L>) {
        add(row, L::NAME, 1, our_full_copy<L, SET, WAY>);
    });
}

void add_sgl_copy(void)
{
    add_data_row<hot_set, INTO_PAGES>("copy_in_hot");
    add_data_row<cold_set, INTO_PAGES>("copy_in_cold");
    add_data_row<hot_set, OUT_OF_PAGES>("copy_out_hot");
    add_data_row<cold_set, OUT_OF_PAGES>("copy_out_cold");
    add_full_row<cold_set, INTO_PAGES>("full_in_cold");
    add_full_row<cold_set, OUT_OF_PAGES>("full_out_cold");
}

} // namespace bench
