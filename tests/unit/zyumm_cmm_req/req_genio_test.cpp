/*
 * The exchange between request and genio. Both records are filled with a different byte at each
 * offset, so that a field that goes astray, or a byte touched beyond the fields, shows up.
 */
#include "zyumm_cmm_req.h"

#include <array>
#include <cstring>

#include "expect_log.h"

namespace
{

using req_bytes   = std::array<uint8_t, 768>;
using genio_bytes = std::array<uint8_t, 96>;

struct alignas(8) records {
    cmm_req   req;
    cmm_genio genio;

    records()
    {
        req_bytes   request;
        genio_bytes generic;
        for (size_t i = 0; i < request.size(); ++i)
            request[i] = uint8_t(1 + i % 251);
        for (size_t i = 0; i < generic.size(); ++i)
            generic[i] = uint8_t(0xFF - i);
        memcpy(&req, request.data(), sizeof req);
        memcpy(&genio, generic.data(), sizeof genio);
    }

    req_bytes request() const
    {
        req_bytes bytes;
        memcpy(bytes.data(), &req, sizeof req);
        return bytes;
    }

    genio_bytes generic() const
    {
        genio_bytes bytes;
        memcpy(bytes.data(), &genio, sizeof genio);
        return bytes;
    }
};

struct field_pair {
    size_t genio;
    size_t req;
    size_t width;
};

constexpr field_pair BOTH_WAYS[] = {
    {0, 32, 4},  {8, 40, 8},  {16, 48, 8}, {24, 56, 8},   {32, 64, 4},  {36, 102, 2}, {40, 72, 8},
    {48, 80, 8}, {56, 88, 8}, {64, 96, 4}, {68, 100, 2}, {70, 714, 1}, {88, 688, 8},
};

template <typename Bytes, typename T>
void put(Bytes &bytes, size_t offset, T value)
{
    memcpy(bytes.data() + offset, &value, sizeof value);
}

template <typename T>
T get(const req_bytes &bytes, size_t offset)
{
    T value;
    memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

} // namespace

TEST(ReqToGenio, every_field_arrives_and_no_other_byte_changes)
{
    records record;
    const req_bytes before = record.request();
    genio_bytes expected   = record.generic();
    for (const field_pair &field : BOTH_WAYS)
        memcpy(&expected[field.genio], &before[field.req], field.width);
    put(expected, 72, reinterpret_cast<uint64_t>(&record.req));
    put(expected, 80, uint64_t{0});

    copyReq2Genio(&record.genio, &record.req);

    EXPECT_EQ(record.generic(), expected);
    EXPECT_EQ(record.request(), before);
    EXPECT_NO_LINE();
}

TEST(ReqToGenio, the_genio_carries_the_request_itself)
{
    records record;

    copyReq2Genio(&record.genio, &record.req);

    EXPECT_EQ(record.genio.req, reinterpret_cast<uint64_t>(&record.req));
    EXPECT_EQ(record.genio.word_80, 0u);
}

TEST(GenioToReq, every_field_arrives_and_no_other_byte_changes)
{
    records record;
    const genio_bytes before = record.generic();
    req_bytes expected       = record.request();
    for (const field_pair &field : BOTH_WAYS)
        memcpy(&expected[field.req], &before[field.genio], field.width);
    memcpy(&expected[112], &before[72], 8);
    memcpy(&expected[672], &before[80], 8);

    copyGenio2Req(&record.req, &record.genio);

    EXPECT_EQ(record.request(), expected);
    EXPECT_EQ(record.generic(), before);
    EXPECT_NO_LINE();
}

TEST(GenioToReq, the_pointer_and_the_word_at_80_are_stored_apart_is_kept)
{
    records record;
    record.genio.req     = 0x1122334455667788;
    record.genio.word_80 = 0x99AABBCCDDEEFF00;

    copyGenio2Req(&record.req, &record.genio);

    EXPECT_EQ(get<uint64_t>(record.request(), 112), 0x1122334455667788u);
    EXPECT_EQ(get<uint64_t>(record.request(), 672), 0x99AABBCCDDEEFF00u);
}

TEST(GenioToReq, a_round_trip_stores_the_requests_own_address)
{
    records record;

    copyReq2Genio(&record.genio, &record.req);
    copyGenio2Req(&record.req, &record.genio);

    EXPECT_EQ(get<uint64_t>(record.request(), 112), reinterpret_cast<uint64_t>(&record.req));
    EXPECT_EQ(get<uint64_t>(record.request(), 672), 0u);
}

TEST(GenioToReq, a_round_trip_leaves_all_other_fields_as_they_were)
{
    records record;
    req_bytes expected = record.request();
    put(expected, 112, reinterpret_cast<uint64_t>(&record.req));
    put(expected, 672, uint64_t{0});

    copyReq2Genio(&record.genio, &record.req);
    copyGenio2Req(&record.req, &record.genio);

    EXPECT_EQ(record.request(), expected);
}

TEST(ReqToGenio, a_null_genio_is_refused)
{
    records record;
    const req_bytes before = record.request();
    char text[128];
    snprintf(text, sizeof text, "[UMM_CMM] Genio or req is NULL, genio((nil)), req(%p).",
             static_cast<void *>(&record.req));

    copyReq2Genio(nullptr, &record.req);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "copyReq2Genio", text);
    EXPECT_EQ(record.request(), before);
}

TEST(ReqToGenio, a_null_request_is_refused)
{
    records record;
    const genio_bytes before = record.generic();
    char text[128];
    snprintf(text, sizeof text, "[UMM_CMM] Genio or req is NULL, genio(%p), req((nil)).",
             static_cast<void *>(&record.genio));

    copyReq2Genio(&record.genio, nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "copyReq2Genio", text);
    EXPECT_EQ(record.generic(), before);
}

TEST(GenioToReq, a_null_request_is_refused_with_the_genio_named_first_is_kept)
{
    records record;
    const genio_bytes before = record.generic();
    char text[128];
    snprintf(text, sizeof text, "[UMM_CMM] Genio or req is NULL, genio(%p), req((nil)).",
             static_cast<void *>(&record.genio));

    copyGenio2Req(nullptr, &record.genio);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "copyGenio2Req", text);
    EXPECT_EQ(record.generic(), before);
}

TEST(GenioToReq, a_null_genio_is_refused)
{
    records record;
    const req_bytes before = record.request();
    char text[128];
    snprintf(text, sizeof text, "[UMM_CMM] Genio or req is NULL, genio((nil)), req(%p).",
             static_cast<void *>(&record.req));

    copyGenio2Req(&record.req, nullptr);

    EXPECT_ONLY_LINE(ZYLOG_ERROR, "copyGenio2Req", text);
    EXPECT_EQ(record.request(), before);
}

TEST(ReqToGenio, refusals_are_not_limited)
{
    EXPECT_NOT_LIMITED(copyReq2Genio(nullptr, nullptr),
                       "[UMM_CMM] Genio or req is NULL, genio((nil)), req((nil)).");
}

TEST(GenioToReq, refusals_are_not_limited)
{
    EXPECT_NOT_LIMITED(copyGenio2Req(nullptr, nullptr),
                       "[UMM_CMM] Genio or req is NULL, genio((nil)), req((nil)).");
}
