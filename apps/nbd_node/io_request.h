/*
 * What the fields of a request record and of a genio mean to this device.
 *
 *     genio      request   meaning
 *     word_0     32        what is to be done, io_kind
 *     word_8     40        first byte on the device
 *     word_16    48        bytes
 *     word_24    56        first page of a part of the request
 *     word_32    64        its pages
 *     half_36    102       IO_FUA or 0
 *     word_40    72        the chain with the part's pages
 *     word_48    80        result: 0 or an errno
 *     req        112       address of the request, on the way down and back
 *     word_80    672       bytes moved, on the way back
 *
 * Every request of a client is described as a genio and exchanged into its record. A write to a
 * file is made from a genio that the record is exchanged into, one for each file, since several
 * files are written at once; the results are exchanged back, one after the other, by the request's
 * thread.
 */
#pragma once

#include <cstdint>

#include "layout.h"
#include "request_record.h"

enum io_kind : uint32_t { IO_READ = 1, IO_WRITE, IO_ZERO, IO_FLUSH, IO_WRITE_PAGES, IO_TRIM_PAGES };

inline constexpr uint16_t IO_FUA = 1;

class io_request
{
public:
    /* Throws when the request pool is dry. */
    io_request(io_kind kind, uint64_t offset, uint64_t bytes, uint16_t flags)
    {
        cmm_genio io{};
        io.word_0 = kind;
        io.word_8 = offset;
        io.word_16 = bytes;
        io.half_36 = flags;
        copyGenio2Req(record_.record(), &io);
    }

    /* What a file is to do for this request. */
    cmm_genio part(io_kind kind, page_range range, SGL *chain) const
    {
        cmm_genio io{};
        copyReq2Genio(&io, record_.record());
        io.word_0 = kind;
        io.word_24 = range.first;
        io.word_32 = range.count;
        io.word_40 = reinterpret_cast<uint64_t>(chain);
        return io;
    }

    /* Notes a part's result in the record. */
    void done(const cmm_genio &part) { copyGenio2Req(record_.record(), &part); }

private:
    request_record record_;
};

inline page_range range_of(const cmm_genio &io)
{
    return {io.word_24, io.word_32};
}

inline SGL *chain_of(const cmm_genio &io)
{
    return reinterpret_cast<SGL *>(io.word_40);
}
