/*
 * Room first, then the intent, then the pages in place: each step may fail without harm to what is
 * in the file, but the last, which the intent is for.
 */
#include "file_copy.h"

#include <array>

#include "io_request.h"

namespace {

using page_vectors = std::array<iovec, STRIPE_PAGES>;

/* The pages of a chain of one SGL, in the full measure. */
page_vectors vectors_of(const SGL *chain)
{
    page_vectors vectors;
    for (uint32_t i = 0; i < chain->entryNum; ++i)
        vectors[i] = {chain->entries[i].buf, chain->entries[i].len};
    return vectors;
}

int write_pages(file_copy &copy, page_range range, page_vectors pages, journal::place &place)
{
    int failed = copy.file.reserve(range);
    if (failed == 0)
        failed = place.announce(RECORD_PAGES, range, pages.data());
    if (failed != 0)
        return failed;
    failed = copy.file.write(pages.data(), range.count, offset_of_page(range.first));
    if (failed != 0)
        place.keep_record();
    return failed;
}

int trim_pages(file_copy &copy, page_range range, journal::place &place)
{
    int failed = place.announce(RECORD_TRIM, range, nullptr);
    if (failed != 0)
        return failed;
    failed = copy.file.punch(range);
    if (failed != 0)
        place.keep_record();
    return failed;
}

} // namespace

void file_copy::carry_out(cmm_genio *io, journal::place &place)
{
    const page_range range = range_of(*io);
    const int failed = io->word_0 == IO_TRIM_PAGES
                           ? trim_pages(*this, range, place)
                           : write_pages(*this, range, vectors_of(chain_of(*io)), place);

    io->word_48 = uint64_t(failed);
    io->word_80 = failed == 0 ? range.count * uint64_t(PAGE_DATA_SIZE) : 0;
}

int file_copy::rewrite(uint64_t number, const uint8_t *page)
{
    journal::place place(intents);
    page_vectors vectors;

    vectors[0] = {const_cast<uint8_t *>(page), PAGE_SIZE_WITH_DIF};
    return write_pages(*this, {number, 1}, vectors, place);
}
