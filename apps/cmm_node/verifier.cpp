/*
 * The way of a chunk out of its replicas:
 *
 *     image -> pages, through the worker's own chain
 *              pages -> integrity bytes looked at, data compared, through a borrowed one
 *
 * Looking needs no references: the pages stay the worker's until the borrowed chain is gone.
 *
 * Pages of the chunk that are in the cache are compared too: a node would answer a read from there.
 */
#include "verifier.h"

#include <algorithm>
#include <cstring>

#include "node_error.h"
#include "request_record.h"
#include "zero_stretch.h"
#include "zyumm_cmm_page.h"
#include "zyumm_cmm_sgl.h"

namespace {

constexpr char INTEGRITY_BYTES[PAGE_SECTOR_DIF_SIZE + 1] = "CMMREDIF";

node_error damaged(const replica_image &image, uint64_t offset, const std::string &how)
{
    return node_error(image.path() + ": damaged at byte offset " + std::to_string(offset) + ": " +
                      how);
}

/* Place in the image of the first integrity byte that is wrong, from the chain's start; or -1. */
int64_t find_wrong_integrity(SGL *chain, uint64_t sectors)
{
    uint32_t index = 0;
    int64_t  place = PAGE_SECTOR_DATA_SIZE;

    for (SGL *sgl = chain; sgl != nullptr && sectors > 0;) {
        const uint8_t *sector = sgl->entries[index].buf;
        for (uint32_t i = 0; i < PAGE_SECTORS && sectors > 0; ++i, --sectors) {
            const uint8_t *found = sector + i * PAGE_SECTOR_SIZE + PAGE_SECTOR_DATA_SIZE;
            const auto at = std::mismatch(found, found + PAGE_SECTOR_DIF_SIZE, INTEGRITY_BYTES,
                                          [](uint8_t a, char b) { return a == uint8_t(b); });
            if (at.first != found + PAGE_SECTOR_DIF_SIZE)
                return place + (at.first - found);
            place += PAGE_SECTOR_SIZE;
        }
        move2NextEntryAndModifyPSgl(&sgl, &index);
    }
    return -1;
}

/* Byte offset in an image of a byte of its file. */
uint64_t image_offset(uint64_t byte)
{
    return byte / PAGE_SECTOR_DATA_SIZE * PAGE_SECTOR_SIZE + byte % PAGE_SECTOR_DATA_SIZE;
}

bool holds(page_ctrl *page, const uint8_t *data)
{
    uint8_t copy[PAGE_DATA_SIZE];
    SGL_ENTRY entry = {getPageAddrByPageCtrl(page), page, PAGE_SIZE_WITH_DIF};

    return copyDataFromEntryToBufferIgnoreDif(&entry, 0, copy, PAGE_DATA_SIZE) == 0 &&
           memcmp(copy, data, PAGE_DATA_SIZE) == 0;
}

} // namespace

void verifier::verify(const chunk &part, const uint8_t *data)
{
    const request_record request;
    const page_run pages = waiter_.take(pages_of(part.length), io_.timeout);
    const borrowed_chain look(pages);

    ++io_.shares.borrowed;
    for (const replica_image &image : part.file->images) {
        try {
            verify_image(part, image, data, pages.chain(), look.chain());
        } catch (const node_error &error) {
            io_.failures.add(error.what());
        }
    }
    verify_cached(part, data);
}

void verifier::verify_image(const chunk &part, const replica_image &image, const uint8_t *data,
                            SGL *own, SGL *borrowed)
{
    const uint64_t sectors = sectors_of(part.length);
    const uint32_t length = uint32_t(sectors) * PAGE_SECTOR_DATA_SIZE;

    image.read(own, part.offset, part.length);
    const int64_t wrong = find_wrong_integrity(borrowed, sectors);
    if (wrong >= 0)
        throw damaged(image, image_bytes_of(part.offset) + uint64_t(wrong), "integrity bytes");

    if (copyDataFromSglToBufferIgnoreDif(borrowed, 0, copy_.data(), length) != 0)
        throw node_error(image.path() + ": copying out of the pages failed at byte offset " +
                         std::to_string(image_bytes_of(part.offset)));
    const auto at = std::mismatch(data, data + length, copy_.begin());
    if (at.first == data + length)
        return;
    const uint64_t byte = part.offset + uint64_t(at.first - data);
    throw damaged(image, image_offset(byte),
                  "differs from byte " + std::to_string(byte) + " of " + part.file->source.path);
}

/* Only whole pages are ever in the cache, so a page that is found is a page of this chunk. */
void verifier::verify_cached(const chunk &part, const uint8_t *data)
{
    const uint64_t first = part.offset / PAGE_DATA_SIZE;

    for (uint32_t i = 0; i < part.length / PAGE_DATA_SIZE; ++i) {
        const page_hold cached = io_.cache.find({part.file->source.index, first + i});
        if (cached.page() != nullptr && !holds(cached.page(), data + i * PAGE_DATA_SIZE))
            throw node_error(part.file->source.path + ": differs from its cached page at byte " +
                             std::to_string((first + i) * PAGE_DATA_SIZE));
    }
}
