/*
 * Writing of records, and the repair at the start.
 */
#include "journal.h"

#include <isa-l/crc.h>

#include <array>
#include <bit>
#include <cstring>

#include "backing_file.h"
#include "node_error.h"
#include "protection.h"

namespace {

uint32_t add_crc(uint32_t crc, const void *data, size_t size)
{
    /* The library takes the bytes as its own to change, but does not. */
    return crc32_iscsi(static_cast<unsigned char *>(const_cast<void *>(data)), int(size), crc);
}

uint64_t offset_of_place(uint32_t index)
{
    return JOURNAL_OFFSET + index * PLACE_BYTES;
}

struct found_record {
    journal_record       record;
    std::vector<uint8_t> pages;
};

bool is_sane(const journal_record &record, uint64_t pages_of_file)
{
    return record.magic == RECORD_MAGIC && record.count > 0 && record.count <= STRIPE_PAGES &&
           record.first < pages_of_file && record.count <= pages_of_file - record.first &&
           (record.kind == RECORD_PAGES || record.kind == RECORD_TRIM);
}

/* The record of a place; false when there is no complete one. */
bool read_record(const backing_file &file, uint32_t index, found_record *found)
{
    const uint64_t offset = offset_of_place(index);

    if (const int failed = file.read(&found->record, sizeof found->record, offset))
        throw system_failure(file.path() + ": the journal cannot be read", failed);
    if (!is_sane(found->record, file.pages()))
        return false;
    if (found->record.kind == RECORD_PAGES) {
        found->pages.resize(found->record.count * size_t(PAGE_SIZE_WITH_DIF));
        if (const int failed =
                file.read(found->pages.data(), found->pages.size(), offset + HEADER_BYTES))
            throw system_failure(file.path() + ": the journal cannot be read", failed);
    }

    uint32_t crc = add_crc(0xFFFFFFFF, &found->record, offsetof(journal_record, crc));
    crc = add_crc(crc, found->pages.data(), found->pages.size());
    return crc == found->record.crc;
}

/* True when the page was damaged and is whole again. */
bool repair_page(backing_file &file, const found_record &found, uint32_t index)
{
    const uint64_t number = found.record.first + index;
    std::array<uint8_t, PAGE_SIZE_WITH_DIF> page;

    int failed = file.read(page.data(), page.size(), offset_of_page(number));
    if (failed == 0 && (is_hole(page.data()) || damaged_sectors(page.data(), number) == 0))
        return false;
    if (failed == 0 && found.record.kind == RECORD_TRIM)
        failed = file.punch({number, 1});
    else if (failed == 0)
        failed = file.write(&found.pages[index * page.size()], page.size(), offset_of_page(number));
    if (failed != 0)
        throw system_failure(file.path() + ": page " + std::to_string(number) +
                                 " cannot be repaired from the journal", failed);
    return true;
}

} // namespace

uint32_t journal::take()
{
    constexpr uint32_t ALL = (1u << JOURNAL_PLACES) - 1;
    std::unique_lock hold(lock_);

    freed_.wait(hold, [this] { return taken_ != ALL; });
    const auto index = uint32_t(std::countr_one(taken_));
    taken_ |= 1u << index;
    return index;
}

void journal::give_back(uint32_t index)
{
    {
        std::lock_guard hold(lock_);
        taken_ &= ~(1u << index);
    }
    freed_.notify_one();
}

journal::place::place(journal &owner) : owner_(owner), index_(owner.take()) {}

/* A record that cannot be struck out is a write that was through, for whoever finds it: harmless
 * until the page is written again, and that needs a journal that can be written. */
journal::place::~place()
{
    static const uint64_t nothing = 0;
    if (announced_)
        owner_.file_.write(&nothing, sizeof nothing, offset_of_place(index_));
    owner_.give_back(index_);
}

int journal::place::announce(uint32_t kind, page_range range, const iovec *pages)
{
    alignas(8) std::array<uint8_t, HEADER_BYTES> head{};
    std::array<iovec, STRIPE_PAGES + 1> vectors;
    const uint32_t content = kind == RECORD_PAGES ? range.count : 0;
    journal_record record = {RECORD_MAGIC, range.first, range.count, kind, 0, 0};

    announced_ = true;
    record.crc = add_crc(0xFFFFFFFF, &record, offsetof(journal_record, crc));
    vectors[0] = {head.data(), head.size()};
    for (uint32_t i = 0; i < content; ++i) {
        vectors[i + 1] = pages[i];
        record.crc = add_crc(record.crc, pages[i].iov_base, pages[i].iov_len);
    }
    memcpy(head.data(), &record, sizeof record);

    const int failed =
        owner_.file_.write(vectors.data(), content + 1, offset_of_place(index_));
    return failed == 0 && owner_.barrier_ ? owner_.file_.sync() : failed;
}

journal::repair journal::replay()
{
    std::vector<found_record> records;
    repair result;

    for (uint32_t i = 0; i < JOURNAL_PLACES; ++i) {
        found_record one;
        if (read_record(file_, i, &one))
            records.push_back(std::move(one));
    }
    for (const found_record &one : records) {
        result.touched.push_back({one.record.first, one.record.count});
        for (uint32_t i = 0; i < one.record.count; ++i)
            result.pages += repair_page(file_, one, i) ? 1 : 0;
    }
    return result;
}
