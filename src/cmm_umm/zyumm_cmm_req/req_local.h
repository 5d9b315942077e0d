/*
 * The request record as this library sees it.
 *
 * A request is 768 bytes that belong to the I/O components; they declare its fields, we know only
 * the offsets of those that are reset or exchanged. The names give the offsets, as in cmm_genio,
 * and the gaps are what nobody here may touch.
 *
 * The view aliases whatever record type its owner uses, so the compiler is told not to reason about
 * the type of these accesses.
 */
#pragma once

#include "zyumm_cmm_req.h"

struct [[gnu::may_alias]] req_view {
    uint8_t  gap_0[26];
    uint16_t half_26;
    uint8_t  byte_28;
    uint8_t  queue_mark; /* CMM_REQ_NOT_QUEUED, or anything else while the request is queued */
    uint8_t  byte_30;
    uint8_t  gap_31;
    uint32_t word_32;
    uint32_t gap_36;
    uint64_t word_40;
    uint64_t word_48;
    uint64_t word_56;
    uint32_t word_64;
    uint32_t word_68;
    uint64_t word_72;
    uint64_t word_80;
    uint64_t word_88;
    uint32_t word_96;
    uint16_t half_100;
    uint16_t half_102;
    uint64_t word_104;
    uint64_t word_112;
    uint8_t  gap_120[552];
    uint64_t word_672;
    uint64_t gap_680;
    uint64_t word_688;
    uint8_t  gap_696[18];
    uint8_t  byte_714;
    uint8_t  gap_715[53];
};

CMM_ASSERT_OFFSET(req_view, half_26, 26);
CMM_ASSERT_OFFSET(req_view, byte_28, 28);
CMM_ASSERT_OFFSET(req_view, queue_mark, 29);
CMM_ASSERT_OFFSET(req_view, byte_30, 30);
CMM_ASSERT_OFFSET(req_view, word_32, 32);
CMM_ASSERT_OFFSET(req_view, word_40, 40);
CMM_ASSERT_OFFSET(req_view, word_48, 48);
CMM_ASSERT_OFFSET(req_view, word_56, 56);
CMM_ASSERT_OFFSET(req_view, word_64, 64);
CMM_ASSERT_OFFSET(req_view, word_68, 68);
CMM_ASSERT_OFFSET(req_view, word_72, 72);
CMM_ASSERT_OFFSET(req_view, word_80, 80);
CMM_ASSERT_OFFSET(req_view, word_88, 88);
CMM_ASSERT_OFFSET(req_view, word_96, 96);
CMM_ASSERT_OFFSET(req_view, half_100, 100);
CMM_ASSERT_OFFSET(req_view, half_102, 102);
CMM_ASSERT_OFFSET(req_view, word_104, 104);
CMM_ASSERT_OFFSET(req_view, word_112, 112);
CMM_ASSERT_OFFSET(req_view, word_672, 672);
CMM_ASSERT_OFFSET(req_view, word_688, 688);
CMM_ASSERT_OFFSET(req_view, byte_714, 714);
CMM_ASSERT_SIZE(req_view, CMM_REQ_OBJECT_SIZE);

inline req_view *view_of(cmm_req *req)
{
    return reinterpret_cast<req_view *>(req);
}

inline const req_view *view_of(const cmm_req *req)
{
    return reinterpret_cast<const req_view *>(req);
}
