/*
 * The way of one chunk.
 *
 *     protect    file -> buffer -> pages (data measure) -> every image
 *     verify     file -> buffer;  each image -> pages -> integrity bytes looked at
 *                                             -> buffer (data measure) -> compared
 *
 * The data measure leaves the integrity bytes alone that a page has from its allocation: they are
 * what an image's sectors carry, and what must come back.
 */
#include "worker.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "node_error.h"
#include "request_record.h"
#include "zyumm_cmm_sgl.h"

namespace {

constexpr char INTEGRITY_BYTES[PAGE_SECTOR_DIF_SIZE + 1] = "CMMREDIF";

uint32_t pages_of(uint32_t data)
{
    return (data + PAGE_DATA_SIZE - 1) / PAGE_DATA_SIZE;
}

uint32_t whole_sectors(uint32_t data)
{
    return uint32_t(sectors_of(data)) * PAGE_SECTOR_DATA_SIZE;
}

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

} // namespace

worker::worker(uint32_t chunk_bytes, uint32_t timeout, page_statistics &statistics,
               retry_poller &poller, failure_list &failures)
    : timeout_(timeout), failures_(failures), waiter_(statistics, poller), source_(chunk_bytes),
      copy_(chunk_bytes)
{
}

void worker::run(phase what, work_list &list)
{
    chunk part;
    while (list.next(&part)) {
        bool well = true;
        try {
            work_on(what, part);
        } catch (const std::exception &error) {
            well = false;
            failures_.add(error.what());
            if (what == phase::PROTECT)
                list.stop();
        }
        list.done(part, well);
    }
}

void worker::work_on(phase what, const chunk &part)
{
    read_all(part.file->fd.get(), part.file->source.path, source_.data(), part.length,
             part.offset);
    memset(source_.data() + part.length, 0, whole_sectors(part.length) - part.length);
    if (what == phase::PROTECT)
        protect(part);
    else
        verify(part);
}

void worker::protect(const chunk &part)
{
    const request_record request;
    const page_run pages = waiter_.take(pages_of(part.length), timeout_);

    if (copyDataFromBufferToSglIgnoreDif(pages.chain(), 0, source_.data(),
                                         whole_sectors(part.length)) != 0)
        throw node_error(part.file->source.path +
                         ": copying into the pages failed at byte offset " +
                         std::to_string(part.offset));
    for (const replica_image &image : part.file->images)
        image.write(pages.chain(), part.offset, part.length);
}

void worker::verify(const chunk &part)
{
    const request_record request;
    const page_run pages = waiter_.take(pages_of(part.length), timeout_);

    for (const replica_image &image : part.file->images) {
        try {
            verify_image(part, image, pages.chain());
        } catch (const node_error &error) {
            failures_.add(error.what()); /* the other replicas are looked at all the same */
        }
    }
}

void worker::verify_image(const chunk &part, const replica_image &image, SGL *chain)
{
    const uint32_t length = whole_sectors(part.length);

    image.read(chain, part.offset, part.length);
    const int64_t wrong = find_wrong_integrity(chain, sectors_of(part.length));
    if (wrong >= 0)
        throw damaged(image, image_bytes_of(part.offset) + uint64_t(wrong), "integrity bytes");

    if (copyDataFromSglToBufferIgnoreDif(chain, 0, copy_.data(), length) != 0)
        throw node_error(image.path() + ": copying out of the pages failed at byte offset " +
                         std::to_string(image_bytes_of(part.offset)));
    const auto at = std::mismatch(source_.begin(), source_.begin() + length, copy_.begin());
    if (at.first == source_.begin() + length)
        return;
    const uint64_t byte = part.offset + uint64_t(at.first - source_.begin());
    throw damaged(image, image_offset(byte),
                  "differs from byte " + std::to_string(byte) + " of " + part.file->source.path);
}
